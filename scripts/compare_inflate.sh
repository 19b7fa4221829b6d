#!/bin/bash
# Damages files in every way that tests/proof/damage_test.cpp knows, reads them in a build with zlib alone and in one
# with every compression library, and holds the answers against each other: each code, each byte that was delivered.
# The unit tests of the inflater, which ask plain zlib for its answers, run in both. Only libdeflate reads, so that a
# build with one library of the two only has to compile.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/test/tests
programs=(test_proof_damage test_support test_reader test_mt_reader)
cd "$root"

"$root/scripts/setup.sh" test

# build CHOICE: the programs with the compression libraries ON or OFF. Both are made in the directory of the tests, of
# which three sources differ.
build() {
    make --no-print-directory build-test CODECS="$1" TARGETS="${programs[*]}" >&2
    mkdir -p "$build/inflate_$1"
    cp "${programs[@]/#/$build/}" "$build/inflate_$1"
}

answers() {
    for program in "${programs[@]:1}"; do
        "$build/inflate_$1/$program" --gtest_brief=1 >&2
    done
    "$build/inflate_$1/${programs[0]}" --gtest_brief=1 | grep 'cases, answers' >"$build/inflate_$1/answers"
}

for library in LIBDEFLATE ISAL; do
    "${CXX:-c++}" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$root" -DRAWIMAGE_HAS_$library \
        "$root/support/deflate.cpp" "$root/support/inflate.cpp"
done
build OFF
build ON
answers OFF &
with_zlib=$!
answers ON
wait "$with_zlib"
if ! diff "$build/inflate_OFF/answers" "$build/inflate_ON/answers" >&2; then
    echo "compare_inflate: the builds answer differently" >&2
    exit 1
fi
awk '{cases += $1} END {print "compare_inflate: " cases " damaged files, every answer the same"}' "$build/inflate_ON/answers"
