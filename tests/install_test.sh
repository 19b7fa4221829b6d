#!/bin/sh
# Installs the build into a temporary directory, moves the installed tree, and builds and runs a small consumer
# against it: through find_package, through pkg-config, and with a shared library, of which it checks the symbols.
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

# The objects of a static library are those of a shared one, and linking them takes a second.
libdir=$(pkg-config --variable=libdir rawimage)
shared=$libdir/librawimage.so
if [ ! -e "$shared" ]; then
    shared=$work/librawimage.so
    # shellcheck disable=SC2046
    "$cxx" -shared -o "$shared" -Wl,--whole-archive "$libdir/librawimage.a" -Wl,--no-whole-archive \
        $(pkg-config --libs rawimage | sed 's/-lrawimage//')
fi
# shellcheck disable=SC2046
"$cxx" -std=c++17 -fvisibility=hidden -Wall -Wextra -Werror -I"$consumer/host" $(pkg-config --cflags rawimage) \
    "$consumer/main.cpp" -o "$work/consumer" "$shared"
LD_LIBRARY_PATH=$(dirname "$shared") "$work/consumer" "$work/shared.rimg" "$(pkg-config --modversion rawimage)"
check_file "$work/shared.rimg"

# What is exported is marked in a public header, or a member of a class that is. Template instances of other
# libraries do not count.
grep -rh RAWIMAGE_EXPORT "$prefix/include" |
    sed -nE 's/^(class|struct) .*RAWIMAGE_EXPORT (\w+).*/\2/p; s/^RAWIMAGE_EXPORT [^(]*\b(\w+)\(.*/\1/p' >"$work/marked"
nm -DC --defined-only "$shared" | sed -E 's/^[0-9a-f]* . //' >"$work/symbols"
sed -E 's/\[abi:\w+\]//g; s/operator.*//; :args; s/<[^<>]*>//g; t args; s/\(.*//; s/.* //' "$work/symbols" |
    grep -vE '^(std|__gnu_cxx|Imf_\w+|Imath_\w+)::' | sort -u >"$work/exported"
if grep -vwFf "$work/marked" "$work/exported" >&2; then
    echo "exported, but marked in no public header" >&2
    exit 1
fi
for name in RIFile::Close MUtils::v1::inspectFile; do
    grep -qx "$name" "$work/exported" || { echo "$name is not exported" >&2; exit 1; }
done
echo "shared library: ok, $(wc -l <"$work/marked") classes and functions"

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
    [ "$("$prefix/bin/rimg" --version | head -n 1)" = "rimg $(pkg-config --modversion rawimage)" ]
    "$prefix/bin/rimg-farm" --help >/dev/null
    echo "rimg: ok"
fi
