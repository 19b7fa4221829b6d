#!/bin/sh
# Fails when a test's name shows its parameter as memory or as an address, which says nothing and changes from run to
# run. Usage: test_names.sh TEST_PROGRAM...
set -eu

[ $# -gt 0 ] || { echo "test_names: no test programs" >&2; exit 1; }
status=0
for program in "$@"; do
    names=$("$program" --gtest_list_tests)
    if echo "$names" | grep -nE 'byte object|0x[0-9a-f]{4}'; then
        echo "test_names: $program: give the parameters names" >&2
        status=1
    fi
done
exit $status
