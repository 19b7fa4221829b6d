#!/bin/bash
# Tests the Python package of a build directory with the system's own Python.
# Usage: python_test.sh BUILD_DIR [PYTEST_ARGUMENT...]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
RAWIMAGE_BUILD=$(cd "$1" && pwd)
shift
export RAWIMAGE_BUILD PYTHONPATH=$RAWIMAGE_BUILD/python PYTHONDONTWRITEBYTECODE=1
export HYPOTHESIS_STORAGE_DIRECTORY=$RAWIMAGE_BUILD/hypothesis
exec /usr/bin/python3 -m pytest -q -p no:cacheprovider "$root/tests/python" "$@"
