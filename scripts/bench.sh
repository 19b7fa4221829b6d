#!/bin/bash
# Runs every measurement and leaves the tables and the plots in OUT_DIR. DATA_DIR keeps the frames that are measured
# on from run to run. RAWIMAGE_REAL_FRAME names an OpenEXR file to measure on too.
# Usage: bench.sh BUILD_DIR DATA_DIR OUT_DIR
set -euo pipefail

build=$1
data=$2
out=$3
root=$(cd "$(dirname "$0")/.." && pwd)
real=${RAWIMAGE_REAL_FRAME:-}

mkdir -p "$data" "$out"
if [ ! -e "$data/demo.rimg" ]; then
    "$build/examples/render_frame" --size 1920x1080 --output "$data/demo.part.rimg"
    mv "$data/demo.part.rimg" "$data/demo.rimg"
fi
if [ ! -e "$data/real.rimg" ] && [ -n "$real" ]; then
    "$build/cli/rimg" convert "$real" "$data/real.part.rimg"
    mv "$data/real.part.rimg" "$data/real.rimg"
fi

export RAWIMAGE_BENCH_DATA=$data
# A wrong result must not keep the other figures from being written.
status=0
"$build/bench/bench_rawimage" --output "$out/rows" || status=$?
"$build/bench/bench_growth" --benchmark_repetitions=5 \
    --benchmark_min_time=0.05 --benchmark_report_aggregates_only=true \
    --benchmark_out_format=json --benchmark_out="$out/growth.json"
python3 "$root/scripts/bench_report.py" "$out/growth.json" "$out/rows.json" "$out"
exit "$status"
