#!/bin/bash
# Builds the fuzz targets with clang under the address and undefined behaviour sanitizers and runs each of them.
# Starts from files of the project's own writer, from fuzz/corpus/ and from what earlier runs found worth keeping.
# A find is left in build/fuzz/finds/. Usage: fuzz.sh SECONDS_EACH|quick [TARGET...]
#   quick  a fixed number of runs from the same start, a minute in all
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${JOBS:-$(nproc)}
build=$root/build/fuzz

if [ $# -lt 1 ]; then
    echo "usage: fuzz.sh SECONDS_EACH|quick [TARGET...]" >&2
    exit 2
fi
seconds=$1
shift
targets=("$@")
[ "${#targets[@]}" -gt 0 ] || targets=(parse table recover tools frame attributes)
declare -A quick_runs=([parse]=12000 [table]=90000 [recover]=6000 [tools]=4000 [frame]=10000 [attributes]=200000)

"$root/scripts/setup.sh" fuzz
"$root/scripts/configure.sh" "$build" -DRAWIMAGE_SANITIZE=fuzzer-no-link,address,undefined \
    -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -gline-tables-only -D_GLIBCXX_ASSERTIONS" \
    -DRAWIMAGE_BUILD_FUZZERS=ON -DRAWIMAGE_BUILD_TESTS=OFF -DRAWIMAGE_BUILD_CLI=OFF \
    -DRAWIMAGE_BUILD_EXAMPLES=OFF -DRAWIMAGE_BUILD_BENCHMARKS=OFF -DRAWIMAGE_INSTALL=OFF
cmake --build "$build" -j "$jobs" --target fuzzers

seeds=$build/seeds
mkdir -p "$build/finds"
"$build/fuzz/make_corpus" "$seeds/files" "$seeds/texts"
for target in "${targets[@]}"; do
    kind=files
    length=8192
    if [ "$target" = attributes ]; then
        kind=texts
        length=512
    fi
    kept=$build/kept/$target
    limit=(-max_total_time="$seconds")
    if [ "$seconds" = quick ]; then
        kept=$build/quick/$target
        rm -rf "$kept"
        limit=(-runs="${quick_runs[$target]}" -seed=1)
    fi
    mkdir -p "$kept"
    corpus=("$kept" "$seeds/$kind")
    [ -d "$root/fuzz/corpus/$kind" ] && corpus+=("$root/fuzz/corpus/$kind")
    # The memory limit is what a file of 8 KB may never need; a single input may take 20 seconds.
    if ! "$build/fuzz/fuzz_$target" "${corpus[@]}" -max_len=$length "${limit[@]}" \
        -rss_limit_mb=2048 -malloc_limit_mb=256 -timeout=20 -print_final_stats=1 \
        -artifact_prefix="$build/finds/$target-" >"$build/$target.log" 2>&1; then
        tail -n 60 "$build/$target.log" >&2
        exit 1
    fi
    runs=$(awk '/stat::number_of_executed_units/ {print $2}' "$build/$target.log")
    echo "fuzz: $target, $runs runs in $(awk '/^Done/ {print $(NF - 1)}' "$build/$target.log") seconds"
done
