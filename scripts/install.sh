#!/bin/bash
# Installs library, headers, CMake and pkg-config files and rimg from a build directory, and prints where they are. A
# prefix that is not absolute counts from the present directory. DESTDIR in the environment goes in front of it, for
# packages. Usage: install.sh BUILD_DIR PREFIX
set -euo pipefail

if [ $# -ne 2 ] || [ -z "$2" ]; then
    echo "usage: install.sh BUILD_DIR PREFIX" >&2
    exit 2
fi
prefix=$2
# Not every shell expands a ~ behind PREFIX=.
[[ $prefix != \~/* ]] || prefix=$HOME/${prefix#\~/}
[[ $prefix == /* ]] || prefix=$PWD/$prefix

# cmake says that it cannot write, but not what to do.
target=${DESTDIR-}$prefix
existing=$target
while [ ! -e "$existing" ]; do existing=$(dirname "$existing"); done
if [ ! -d "$existing" ] || [ ! -w "$existing" ]; then
    echo "install: $existing cannot be written; without root, choose a prefix of your own: PREFIX=\$HOME/.local" >&2
    exit 1
fi

cmake --install "$1" --prefix "$prefix" >/dev/null
packages=$(find "$target" -path '*/pkgconfig/rawimage.pc' -printf '%h\n' | head -n 1)
echo "installed:    $target/bin/rimg"
echo "CMake:        -DCMAKE_PREFIX_PATH=$target"
echo "pkg-config:   PKG_CONFIG_PATH=$packages"
