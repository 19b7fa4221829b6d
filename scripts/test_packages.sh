#!/bin/bash
# Builds the packages, checks them, and installs them into a root that has nothing but what they depend on, where all
# that they bring is run. As root. Usage: test_packages.sh BUILD_DIR JOBS
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$1
"$root/scripts/package.sh" "$1" "$2"
build=$(cd "$build" && pwd)
lintian --allow-root --fail-on error,warning "$build"/packages/*.deb

check_page() {
    MANROFFSEQ='' MANWIDTH=80 LC_ALL=C.UTF-8 man --warnings -E UTF-8 -l -Tutf8 -Z "$1" 2>&1 >/dev/null |
        grep -v 'will not fit on one page' || true # there are pages on paper only
    zcat "$1" | mandoc -Tlint -Wwarning || true
}
for page in "$build"/packaging/man/*/*.gz; do
    found=$(check_page "$page")
    [ -z "$found" ] || { printf '%s: %s\n' "$(basename "$page")" "$found" >&2; exit 1; }
done
echo "manual: ok"

if [ "$(id -u)" -ne 0 ]; then
    echo "test_packages: a root of their own is for root; run this as root" >&2
    exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

# in_root COMMAND...: runs it in $work/root, in a mount and process namespace that ends with it.
in_root() {
    # shellcheck disable=SC2016
    unshare --mount --pid --fork sh -ec '
        mount -t proc proc "$1/proc"
        mount --rbind /dev "$1/dev"
        root=$1
        shift
        exec env -i PATH=/usr/sbin:/usr/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"
    ' sh "$work/root" "$@"
}

install() {
    "$root/tests/packages/clean_root.py" "$work/root" "$@"
    in_root ldconfig
    mkdir -p "$work/root/src/packages"
    for word in "$@"; do
        [[ $word != *.deb ]] || cp "$word" "$work/root/src/packages"
    done
    in_root sh -c 'dpkg --install /src/packages/*.deb && rm /src/packages/*' >"$work/log" 2>&1 ||
        { cat "$work/log" >&2; exit 1; }
}

mkdir "$work/root"
shopt -s extglob nullglob
install "$build"/packages/!(*-dev_*).deb
mkdir -p "$work/root/src/tests"
cp -r "$root/examples" "$work/root/src/"
cp -r "$root/tests/packages" "$root/tests/consumer" "$work/root/src/tests/"
in_root /src/tests/packages/in_root.sh run

tools=()
for _ in "$build"/packages/openimageio-plugin-*; do tools+=(openimageio-tools); done
# All once more: what is added here acts on the files of the packages when they are installed.
install "$build"/packages/*.deb g++ cmake make pkg-config libcli11-dev "${tools[@]}" \
    bash-completion zsh fish man-db shared-mime-info xdg-utils libglib2.0-bin file
in_root /src/tests/packages/in_root.sh build
in_root /src/tests/packages/in_root.sh use
