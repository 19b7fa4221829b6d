#!/bin/bash
# Damages files in every way that tests/proof/damage_test.cpp knows, reads them in a build with zlib and in one with
# libdeflate, and holds every answer of the one against the other's: each code, each byte that was delivered. The
# unit tests of the inflater, which ask plain zlib for its answers, run in both.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${JOBS:-$(nproc)}

"$root/scripts/setup.sh" inflate

# answers BUILD_DIR LIBDEFLATE: the build with zlib is that of the tests.
answers() {
    local build=$root/build/$1
    "$root/scripts/configure.sh" "$build" -DRAWIMAGE_LIBDEFLATE="$2" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g" -DRAWIMAGE_BUILD_TESTS=ON -DRAWIMAGE_WERROR=ON >/dev/null
    cmake --build "$build" -j "$jobs" --target test_proof_damage test_support test_reader test_mt_reader >&2
    for program in test_support test_reader test_mt_reader; do
        "$build/tests/$program" --gtest_brief=1 >&2
    done
    "$build/tests/test_proof_damage" --gtest_brief=1 | grep 'cases, answers'
}

with_zlib=$(answers test OFF)
with_libdeflate=$(answers libdeflate ON)
if [ "$with_zlib" != "$with_libdeflate" ]; then
    diff <(echo "$with_zlib") <(echo "$with_libdeflate") >&2 || true
    echo "compare_inflate: the two builds answer differently" >&2
    exit 1
fi
awk '{cases += $1} END {print "compare_inflate: " cases " damaged files, every answer the same"}' <<<"$with_zlib"
