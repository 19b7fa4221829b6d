#!/bin/bash
# Builds and runs the tests under sanitizers, with clang, which is also the second compiler our code must be clean
# on. Asserts are on. Usage: sanitize.sh address|thread
#   address  all tests under the address and undefined behaviour sanitizers, lossy implicit conversions included
#   thread   the tests labelled "threaded" under the thread sanitizer; builds nothing else
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${JOBS:-$(nproc)}

configure() {
    "$root/scripts/setup.sh" sanitize
    "$root/scripts/configure.sh" "$1" -DRAWIMAGE_SANITIZE="$2" -DCMAKE_CXX_COMPILER=clang++-14 \
        -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -gline-tables-only -D_GLIBCXX_ASSERTIONS" \
        -DRAWIMAGE_QUICK_PROGRAMS=ON \
        -DRAWIMAGE_BUILD_TESTS=ON -DRAWIMAGE_BUILD_CLI=ON -DRAWIMAGE_BUILD_EXAMPLES=ON \
        -DRAWIMAGE_BUILD_BENCHMARKS=OFF -DRAWIMAGE_INSTALL=OFF -DRAWIMAGE_WERROR=ON
}

case ${1-} in
address)
    build=$root/build/asan
    configure "$build" address,undefined,implicit-conversion
    cmake --build "$build" -j "$jobs"
    export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:detect_leaks=1
    export UBSAN_OPTIONS=print_stacktrace=1
    # What reads sources only, starts other programs, or is about the words of the command line has had its run in
    # the plain build.
    ctest --test-dir "$build" -LE source -E '^farm$|RimgUsage' --output-on-failure --no-tests=error -j "$jobs"
    ;;
thread)
    build=$root/build/tsan
    configure "$build" thread
    cmake --build "$build" -j "$jobs" --target threaded_tests
    export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
    # This sanitizer cannot map its shadow where the kernel spreads addresses too widely.
    fixed_addresses=()
    if setarch "$(uname -m)" -R true 2>/dev/null; then
        fixed_addresses=(setarch "$(uname -m)" -R)
    fi
    "${fixed_addresses[@]}" ctest --test-dir "$build" -L threaded --output-on-failure --no-tests=error -j "$jobs"
    ;;
*)
    echo "usage: sanitize.sh address|thread" >&2
    exit 2
    ;;
esac
