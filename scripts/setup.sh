#!/bin/bash
# Installs what the build, the tests and the checks need on Debian 12. Says nothing when all is there. Without root
# or a sudo that asks no password it prints the command to run and fails.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config python3
    zlib1g-dev libopenexr-dev libimath-dev openexr
    libcli11-dev nlohmann-json3-dev libpng-dev
    libdeflate-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    clang-14 libclang-rt-14-dev clang-format-14
)

if ! command -v dpkg-query >/dev/null; then
    echo "setup: this is not a Debian system; install what these packages hold: ${packages[*]}" >&2
    exit 1
fi

# dpkg-query fails when it knows nothing of a package; what it does know is printed all the same.
# shellcheck disable=SC2016
installed=$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${packages[@]}" 2>/dev/null || true)
missing=()
for package in "${packages[@]}"; do
    grep -qxF "$package installed" <<<"$installed" || missing+=("$package")
done
[ "${#missing[@]}" -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! sudo -n true 2>/dev/null; then
        echo "setup: missing packages; install them with" >&2
        echo "    sudo apt-get update && sudo apt-get install -y --no-install-recommends ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo -n)
fi

echo "setup: installing ${missing[*]}"
apt_get=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q)
"${apt_get[@]}" update
"${apt_get[@]}" install -y --no-install-recommends "${missing[@]}"
