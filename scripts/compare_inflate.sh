#!/bin/bash
# Damages files in every way that tests/proof/damage_test.cpp knows, reads them in a build with zlib alone and in one
# with every compression library, and holds the answers against each other: each code, each byte that was delivered.
# The unit tests of the inflater, which ask plain zlib for its answers, run in both. Only libdeflate reads, so that a
# build with one library of the two only has to compile.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${JOBS:-$(nproc)}

"$root/scripts/setup.sh" test

# answers BUILD_DIR LIBDEFLATE ISAL
answers() {
    local build=$root/build/$1
    "$root/scripts/configure.sh" "$build" -DRAWIMAGE_LIBDEFLATE="$2" -DRAWIMAGE_ISAL="$3" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1" -DRAWIMAGE_QUICK_PROGRAMS=ON \
        -DRAWIMAGE_BUILD_TESTS=ON -DRAWIMAGE_WERROR=ON >/dev/null
    cmake --build "$build" -j "$jobs" --target test_proof_damage test_support test_reader test_mt_reader >&2
    for program in test_support test_reader test_mt_reader; do
        "$build/tests/$program" --gtest_brief=1 >&2
    done
    "$build/tests/test_proof_damage" --gtest_brief=1 | grep 'cases, answers'
}

for library in LIBDEFLATE ISAL; do
    "${CXX:-c++}" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$root" -DRAWIMAGE_HAS_$library \
        "$root/support/deflate.cpp" "$root/support/inflate.cpp"
done
with_zlib=$(answers zlib OFF OFF)
with_all=$(answers test ON ON)
if [ "$with_all" != "$with_zlib" ]; then
    diff <(echo "$with_zlib") <(echo "$with_all") >&2 || true
    echo "compare_inflate: the builds answer differently" >&2
    exit 1
fi
awk '{cases += $1} END {print "compare_inflate: " cases " damaged files, every answer the same"}' <<<"$with_zlib"
