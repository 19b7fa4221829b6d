#!/bin/bash
# Installs what a job of this project needs on Debian 12. Says nothing when all is there. Without root or a sudo that
# asks no password it prints the command to run and fails. RAWIMAGE_NO_SETUP=1 in the environment makes it do nothing,
# for machines where the libraries came some other way.
# Usage: setup.sh [--list] JOB...       --list prints the packages, installed or not
#   demo      the library, rimg and the examples; install and bench begin with the same
#   test      the tests
#   bench     the measurements
#   python    the Python package and its tests
#   sanitize  the tests under the sanitizers
#   fuzz      the fuzz targets
#   format    the layout of the code
#   farm      the tests on a cluster
#   oiio      the OpenImageIO plugin and its tests
#   package   the Debian packages
#   packages  the tests of these packages
#   docs      the pages about the library
#   all       all of these
set -euo pipefail

build=(g++ make cmake zlib1g-dev libdeflate-dev libisal-dev libxxhash-dev libopenexr-dev libimath-dev)
programs=(libcli11-dev nlohmann-json3-dev libpng-dev)
clang=(clang-14 libclang-rt-14-dev)
declare -A needs=(
    [demo]="${build[*]} ${programs[*]}"
    [bench]="${build[*]} ${programs[*]} libbenchmark-dev python3"
    [fuzz]="${build[*]} libgtest-dev ${clang[*]}"
    [format]="clang-format-14"
    [farm]="${build[*]} ${programs[*]} python3 parallel munge slurmctld slurmd slurm-client"
)
needs[package]="${build[*]} ${programs[*]} pandoc dpkg-dev pybind11-dev python3-dev python3-numpy libopenimageio-dev"
needs[packages]="${needs[package]} pkg-config ninja-build lintian man-db mandoc bash-completion zsh fish"
needs[packages]+=" python3-pil openimageio-tools shared-mime-info xdg-utils libglib2.0-bin file"
needs[docs]="${build[*]} ${programs[*]} python3 doxygen"
# The tests check the layout, too, and build the benchmarks.
needs[test]="${needs[bench]} libgtest-dev libgmock-dev ninja-build pkg-config ${needs[format]}"
needs[python]="${needs[test]} pybind11-dev python3-dev python3-numpy python3-pil python3-pytest python3-hypothesis"
needs[oiio]="${needs[test]} libopenimageio-dev openimageio-tools python3-openimageio python3-numpy"
needs[sanitize]="${needs[test]} ${clang[*]}"

list=
if [ "${1-}" = --list ]; then
    list=yes
    shift
fi
needs[all]="${needs[*]}"
wanted=()
for job in "$@"; do
    wanted+=("${needs[$job]-unknown}")
done
if [ "${#wanted[@]}" -eq 0 ] || [[ " ${wanted[*]} " == *" unknown "* ]]; then
    echo "usage: setup.sh [--list] JOB..., a JOB is one of: demo test bench python oiio sanitize fuzz format farm" \
        "package packages docs all" >&2
    exit 2
fi
mapfile -t packages < <(tr -s ' ' '\n' <<<"${wanted[*]}" | sort -u)

if [ -n "$list" ]; then
    printf '%s\n' "${packages[@]}"
    exit 0
fi
[ -z "${RAWIMAGE_NO_SETUP:-}" ] || exit 0

if ! command -v dpkg-query >/dev/null; then
    echo "setup: this is not a Debian system; install what these packages hold, then set RAWIMAGE_NO_SETUP=1:" >&2
    echo "    ${packages[*]}" >&2
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
        echo "setup: missing packages; an administrator installs them with" >&2
        echo "    sudo apt-get update && sudo apt-get install -y --no-install-recommends ${missing[*]}" >&2
        echo "setup: where the libraries came some other way, set RAWIMAGE_NO_SETUP=1" >&2
        exit 1
    fi
    as_root=(sudo -n)
fi

echo "setup: installing ${missing[*]}"
apt_get=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q)
"${apt_get[@]}" update
"${apt_get[@]}" install -y --no-install-recommends "${missing[@]}"
