#!/bin/bash
# Damages files in every way that tests/proof/damage_test.cpp knows, reads them in builds with each set of compression
# libraries, and holds every answer against those of the build with zlib alone: each code, each byte that was delivered.
# The unit tests of the inflater, which ask plain zlib for its answers, run in all of them.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${JOBS:-$(nproc)}

"$root/scripts/setup.sh" test

# answers BUILD_DIR LIBDEFLATE ISAL
answers() {
    local build=$root/build/$1
    "$root/scripts/configure.sh" "$build" -DRAWIMAGE_LIBDEFLATE="$2" -DRAWIMAGE_ISAL="$3" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g" -DRAWIMAGE_BUILD_TESTS=ON \
        -DRAWIMAGE_WERROR=ON >/dev/null
    cmake --build "$build" -j "$jobs" --target test_proof_damage test_support test_reader test_mt_reader >&2
    for program in test_support test_reader test_mt_reader; do
        "$build/tests/$program" --gtest_brief=1 >&2
    done
    "$build/tests/test_proof_damage" --gtest_brief=1 | grep 'cases, answers'
}

with_zlib=$(answers zlib OFF OFF)
while read -r build libdeflate isal; do
    others=$(answers "$build" "$libdeflate" "$isal" </dev/null)
    if [ "$others" != "$with_zlib" ]; then
        diff <(echo "$with_zlib") <(echo "$others") >&2 || true
        echo "compare_inflate: the builds zlib and $build answer differently" >&2
        exit 1
    fi
done <<'EOF'
libdeflate ON OFF
isal OFF ON
test ON ON
EOF
awk '{cases += $1} END {print "compare_inflate: " cases " damaged files, every answer the same"}' <<<"$with_zlib"
