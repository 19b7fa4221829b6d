#!/bin/bash
# Runs OpenImageIO's programs on raw images, with the plugin of a build directory.
# Usage: oiio_test.sh BUILD_DIR [TEST...]    tests of tests/oiio/oiio_test.py, all of them by default
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
# Debian's python3, which has the module.
exec /usr/bin/python3 -B "$root/tests/oiio/oiio_test.py" "$@"
