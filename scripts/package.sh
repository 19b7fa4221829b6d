#!/bin/bash
# Builds the Debian packages for machines like this one, and lists them. What is built has the time of the last commit,
# so that the same sources become the same packages. Usage: package.sh BUILD_DIR JOBS
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$1
jobs=$2

SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct 2>/dev/null || stat -c %Y "$root/rawimage/version.h")
export SOURCE_DATE_EPOCH
doors=()
for door in python oiio; do
    [ ! -d "$root/$door" ] || doors+=("-DRAWIMAGE_BUILD_${door^^}=ON")
done
# Debian's Python, which the packages are for, also where another one comes first in PATH.
"$root/scripts/configure.sh" "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON \
    -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" \
    -DCMAKE_SKIP_INSTALL_RPATH=ON -DPython3_EXECUTABLE=/usr/bin/python3 -DPython_EXECUTABLE=/usr/bin/python3 \
    -DRAWIMAGE_BUILD_TESTS=OFF -DRAWIMAGE_BUILD_BENCHMARKS=OFF -DRAWIMAGE_BUILD_EXAMPLES=OFF \
    -DRAWIMAGE_BUILD_MANUAL=ON "${doors[@]}"
cmake --build "$build" -j "$jobs"
rm -rf "$build/packages"
(cd "$build" && cpack) >"$build/cpack.log" 2>&1 || { cat "$build/cpack.log" >&2; exit 1; }
ls "$build"/packages/*.deb
