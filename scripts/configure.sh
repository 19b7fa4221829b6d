#!/bin/bash
# Configures a build directory of this project, with Ninja and ccache where they are there.
# Usage: configure.sh BUILD_DIR [CMAKE_ARGUMENT...]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$1
shift

arguments=(-S "$root" -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON)
# A directory that is configured keeps its generator; cmake refuses to change it.
if [ ! -e "$build/CMakeCache.txt" ] && command -v ninja >/dev/null; then
    arguments+=(-G Ninja)
fi
if command -v ccache >/dev/null; then
    arguments+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
exec cmake "${arguments[@]}" "$@"
