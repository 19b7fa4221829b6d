#!/bin/bash
# Runs frames on a Slurm cluster of two nodes that it starts on this machine, and breaks what can break.
# Usage: farm_test.sh [TEST...]    tests of tests/farm/slurm_test.py, all of them by default
# It builds into build/test. As root only: without, it says so and does nothing.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$(id -u)" -ne 0 ]; then
    echo "farm_test: Slurm's daemons want root; left out" >&2
    exit 0
fi
scripts/setup.sh farm
make --no-print-directory build-test TARGETS="rimg render_frame"
exec python3 -B tests/farm/slurm_test.py build/test "$@"
