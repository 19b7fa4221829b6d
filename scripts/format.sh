#!/bin/bash
# Lays out all our C++ as .clang-format says, or with --check names the files that are not laid out so and fails.
# Other versions lay code out differently, so only clang-format 14 will do. Exit 77: it is not there.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
formatter=${CLANG_FORMAT:-clang-format-14}

if ! command -v "$formatter" >/dev/null; then
    echo "format: $formatter is not installed; scripts/setup.sh format installs it" >&2
    exit 77
fi
version=$("$formatter" --version)
if [[ ! $version =~ version\ 14\. ]]; then
    echo "format: clang-format 14 is needed, $formatter is: $version" >&2
    exit 1
fi

case ${1-} in
"") mode=(-i) ;;
--check) mode=(--dry-run --Werror) ;;
*)
    echo "usage: format.sh [--check]" >&2
    exit 2
    ;;
esac

cd "$root"
# xargs answers 123 when a run of the formatter fails.
find . \( -path ./build -o -path ./out -o -path ./.git \) -prune -o \( -name '*.h' -o -name '*.cpp' \) -print0 |
    xargs -0 -r "$formatter" --style=file "${mode[@]}"
