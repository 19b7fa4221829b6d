#!/bin/sh
# Installs the build into a temporary directory, moves the installed tree, and builds and runs a small consumer
# against it, once through find_package and once through pkg-config.
# Usage: install_test.sh CMAKE CXX BUILD_DIR
set -eu

cmake=$1
cxx=$2
build=$3
consumer=$(cd "$(dirname "$0")" && pwd)/consumer

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

check_file() {
    # 32 bytes of header, a tag of 40, and the table's header of 40 with one entry of 48.
    size=$(wc -c <"$1")
    [ "$size" -ge 160 ] || { echo "$1 holds $size bytes, expected at least 160" >&2; exit 1; }
}

scripts=$(cd "$(dirname "$0")/.." && pwd)/scripts

# A staged copy for a package, and one in a prefix of the user's own, given from where he is.
DESTDIR=$work/stage "$scripts/install.sh" "$build" /usr/local
build=$(cd "$build" && pwd)
(cd "$work" && "$scripts/install.sh" "$build" home/first)
diff -r "$work/stage/usr/local" "$work/home/first"
prefix=$work/moved
mv "$work/home/first" "$prefix"

"$cmake" -S "$consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" >"$work/log" 2>&1 ||
    { cat "$work/log" >&2; exit 1; }
# Other people's faults that do not concern a user of the library are not reported to him.
if grep -iE 'faulty|PyImath|warning' "$work/log" >&2; then exit 1; fi
"$cmake" --build "$work/build"
"$work/build/consumer" "$work/cmake.rimg" "$(cat "$work/build/version")"
check_file "$work/cmake.rimg"
echo "find_package: ok"

pc=$(find "$prefix" -name rawimage.pc)
PKG_CONFIG_PATH=$(dirname "$pc")
export PKG_CONFIG_PATH
# The flags are words of their own.
# shellcheck disable=SC2046
"$cxx" -std=c++17 -I"$consumer/host" $(pkg-config --cflags rawimage) "$consumer/main.cpp" -o "$work/consumer" \
    $(pkg-config --libs rawimage)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir rawimage) "$work/consumer" "$work/pkgconfig.rimg" \
    "$(pkg-config --modversion rawimage)"
check_file "$work/pkgconfig.rimg"
echo "pkg-config: ok"

# Every installed header compiles where each of them has a namesake of the host's first in the include path.
include=$(dirname "$(find "$prefix/include" -path '*/rawimage/writer.h')")/..
for header in $(cd "$include" && find . -name '*.h'); do
    mkdir -p "$work/host/$(dirname "$header")"
    echo '#error "a header of the host took the place of one of the library"' >"$work/host/$header"
    echo "#include \"$include/$header\"" >>"$work/all.cpp"
done
# shellcheck disable=SC2046
"$cxx" -std=c++17 -fsyntax-only -I"$work/host" $(pkg-config --cflags rawimage) "$work/all.cpp"
echo "$(wc -l <"$work/all.cpp") headers: ok"

if [ -e "$build/cli/rimg" ]; then
    "$prefix/bin/rimg" --help >/dev/null
    [ "$("$prefix/bin/rimg" --version)" = "rimg $(pkg-config --modversion rawimage)" ]
    echo "rimg: ok"
fi
