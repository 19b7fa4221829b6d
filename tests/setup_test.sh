#!/bin/sh
# What a user who only builds needs: the demo installs no compiler, test or benchmark package of the developers', and
# without tests and benchmarks the configuration looks for none of theirs and reports only what is wrong here.
# Usage: setup_test.sh CMAKE CXX SOURCE_DIR
set -eu

cmake=$1
cxx=$2
root=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

fail() {
    echo "setup_test: $1" >&2
    exit 1
}

# Each job's list, and one package that must and one that must not be in it; - for none.
while read -r job with without; do
    packages=$("$root/scripts/setup.sh" --list "$job")
    [ "$with" = - ] || echo "$packages" | grep -qx "$with" || fail "$job needs $with"
    [ "$without" = - ] || ! echo "$packages" | grep -E "$without" || fail "$job installs too much"
done <<'EOF'
demo libopenexr-dev clang|gtest|gmock|benchmark|python|ninja
demo libdeflate-dev -
demo libisal-dev -
demo libpng-dev -
demo libxxhash-dev -
test libgtest-dev ^clang-14|^libclang
bench libbenchmark-dev clang|gtest|gmock
python pybind11-dev ^clang-14
python python3-hypothesis -
sanitize clang-14 -
fuzz libclang-rt-14-dev clang-format|benchmark
packages lintian clang|gtest|gmock|benchmark
farm slurmd clang|gtest|gmock|benchmark
oiio libopenimageio-dev ^clang-14|^libclang
all clang-format-14 -
EOF
if "$root/scripts/setup.sh" --list unknown >/dev/null 2>&1; then fail "an unknown job has a list"; fi

# What a user builds is configured without them and installs no more than the demo needs.
for target in demo install; do
    steps=$(make -n -C "$root" "$target")
    echo "$steps" | grep -q 'RAWIMAGE_BUILD_TESTS=OFF -DRAWIMAGE_BUILD_BENCHMARKS=OFF' || fail "make $target builds tests"
    [ "$(echo "$steps" | grep 'setup\.sh')" = "scripts/setup.sh demo" ] || fail "make $target installs too much"
done

# configure [CMAKE_ARGUMENT...]: what it prints goes to $work/log.
configure() {
    rm -rf "$work/build"
    CXX=$cxx "$cmake" -S "$root" -B "$work/build" -DRAWIMAGE_BUILD_TESTS=OFF -DRAWIMAGE_BUILD_BENCHMARKS=OFF "$@" \
        >"$work/log" 2>&1
}

configure || { cat "$work/log"; fail "the configuration failed"; }
if grep -iE 'faulty|PyImath|warning' "$work/log"; then fail "the configuration reports other people's faults"; fi
if grep -iE '^(GTest|benchmark|Python3?)_DIR|_Python3_EXECUTABLE' "$work/build/CMakeCache.txt"; then
    fail "the configuration looks for packages of the tests"
fi

# The compression libraries are a choice: what is not found is done without, unless it is asked for.
configure -DRAWIMAGE_LIBDEFLATE=ON -DRAWIMAGE_ISAL=OFF || fail "libdeflate alone is not possible"
configure -DRAWIMAGE_LIBISAL_INCLUDE_DIR= || fail "the configuration insists on ISA-L"
if configure -DRAWIMAGE_LIBISAL_INCLUDE_DIR= -DRAWIMAGE_ISAL=ON; then fail "ISA-L that is asked for is left out"; fi

# Faults that matter are reported all the same: no OpenEXR, and an Imath without its library.
if configure -DCMAKE_DISABLE_FIND_PACKAGE_OpenEXR=ON; then fail "the configuration does without OpenEXR"; fi
mkdir "$work/Imath"
cat >"$work/Imath/ImathConfig.cmake" <<'EOF'
add_library(Imath::Imath SHARED IMPORTED)
set_target_properties(Imath::Imath PROPERTIES IMPORTED_CONFIGURATIONS NONE IMPORTED_LOCATION_NONE "/no/libImath.so")
add_library(Imath::ImathConfig INTERFACE IMPORTED)
EOF
configure -DImath_DIR="$work/Imath" || true
grep -q '/no/libImath.so is missing' "$work/log" || fail "a broken Imath passes unnoticed"
