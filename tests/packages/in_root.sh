#!/bin/bash
# What the installed packages do, run in a root of their own. /src has the sources of the consumers and these tests.
# Usage: in_root.sh run|build|use
set -euo pipefail

fail() {
    echo "in_root: $1" >&2
    exit 1
}

# With no more than what the packages depend on.
run() {
    [ "$(rimg --version | head -n 1)" = "rimg $(dpkg-query -W -f='${source:Upstream-Version}' rawimage-tools)" ]
    rimg-farm --help >/dev/null
    for package in $(dpkg-query -W -f='${Package} ' '*rawimage*'); do
        for file in $(dpkg -L "$package" | grep -E '\.so|/bin/rimg$'); do
            if ldd "$file" | grep 'not found'; then fail "$file lacks a library"; fi
        done
    done
    if [ -e /usr/lib/python3/dist-packages/rawimage ]; then
        python3 -c 'import rawimage; help(rawimage)' >/dev/null
    fi
    echo "packages alone: ok"
}

# A host by CMake, and a renderer by pkg-config, whose frames the rest is tried with.
build() {
    mkdir -p /tmp/consumer /tmp/shots
    cmake -S /src/tests/consumer -B /tmp/consumer -DCMAKE_CXX_COMPILER=g++ >/tmp/consumer/log ||
        fail "$(cat /tmp/consumer/log)"
    cmake --build /tmp/consumer >/dev/null
    /tmp/consumer/consumer /tmp/shots/consumer.rimg "$(cat /tmp/consumer/version)"
    rm /tmp/shots/consumer.rimg
    # The flags are words of their own.
    # shellcheck disable=SC2046
    (cd /tmp/consumer && printf '%s\n' /src/examples/render_frame/*.cpp |
        xargs -n 2 -P 2 g++ -std=c++17 -I/src $(pkg-config --cflags rawimage) -c)
    # shellcheck disable=SC2046
    g++ -o /tmp/consumer/render_frame /tmp/consumer/*.o $(pkg-config --libs rawimage)
    (cd /tmp/shots && /tmp/consumer/render_frame --size 160x96 --samples 1 --output frame.rimg frame.exr >/dev/null)
    echo "consumers: ok"
}

# Each case of completion_cases.txt in the shell that this is the program of.
complete_with() {
    local typed expected found
    local -a words
    while IFS='|' read -r typed expected; do
        [[ $typed != \#* ]] || continue
        # A word that is begun ends where the line is cut; behind an option and a verb a new one begins.
        read -ra words <<<"$typed"
        read -r expected <<<"$expected" || true
        case ${words[-1]} in
        info | diff | --kind | --output | --set-from) words+=("") ;;
        esac
        found=$("$@" "${words[@]}" | sed 's|/$||; s|.*,||' | grep . | sort -u | tr '\n' ' ') || true
        [ "${found% }" = "$expected" ] || fail "$1: $typed: offered: $found"
    done </src/tests/packages/completion_cases.txt
    [ ! -e pwned ] || fail "$1 runs the name of a channel"
    echo "completion, $1: ok"
}

completion() {
    mkdir -p /tmp/shots/folder
    cd /tmp/shots
    touch notes.txt picture.png
    # A channel's name comes from a file that anybody may have written.
    # shellcheck disable=SC2016
    sed 's/lights\.sun/$(>pwned)\x00/' frame.rimg >odd.rimg
    complete_with bash /src/tests/packages/complete.bash
    complete_with zsh -f /src/tests/packages/complete.zsh
    complete_with fish /src/tests/packages/complete.fish
    rm -r folder notes.txt picture.png odd.rimg
}

manual() {
    local name
    for name in rimg rimg-farm \
        $(rimg --help-json | grep -o '{"name":"[a-z]*"' | sed '1d; s/.*:"/rimg-/; s/"//'); do
        man -w 1 "$name" >/dev/null || fail "$name has no manual page"
    done
    man -w 5 rawimage >/dev/null || fail "the format has no manual page"
    echo "manual pages: ok"
}

desktop() {
    local type command image
    cd /tmp/shots
    cp frame.rimg unnamed
    type=$(gio info -a standard::content-type unnamed | sed -n 's/.*content-type: //p')
    [ "$type" = image/x-rimg ] || fail "by its first bytes it is $type"
    printf 'RI\0\1' >torn.rimg
    type=$(XDG_CURRENT_DESKTOP=GNOME xdg-mime query filetype torn.rimg)
    [ "$type" = image/x-rimg ] || fail "by its name it is $type"
    # The line that a file manager runs, as it fills it in.
    head -c -3000 frame.rimg >unfinished.rimg
    for image in frame unfinished; do
        command=$(sed -n 's/^Exec=//p' /usr/share/thumbnailers/rimg.thumbnailer |
            sed "s/%i/$image.rimg/; s/%o/$image.1A2B3C/; s/%s/128/g")
        eval "$command" 2>/dev/null || fail "the thumbnailer answers $? for $image.rimg"
        # As the frame is, 160 x 96, without a border.
        [[ $(file "$image.1A2B3C") == *"PNG image data, 128 x 77"* ]] || fail "$(file "$image.1A2B3C")"
    done
    command=${command//unfinished/torn}
    if eval "$command" 2>/dev/null; then fail "a file without pixels has a thumbnail"; fi
    echo "MIME type, thumbnailer: ok"
}

doors() {
    cd /tmp/shots
    rimg verify frame.rimg >/dev/null
    rimg info frame.rimg >/dev/null
    if dpkg -s python3-rawimage >/dev/null 2>&1; then
        [ "$(python3 -c 'import rawimage; f = rawimage.open("frame.rimg"); print(f["color"].shape)')" = "(96, 160, 3)" ] ||
            fail "Python does not read the frame"
        python3 -c 'import rawimage; rawimage.preview("frame.rimg", "python.png")' ||
            fail "Python draws no picture"
        rm python.png
        echo "Python: ok"
    fi
    if dpkg -s openimageio-plugin-rawimage >/dev/null 2>&1; then
        # What a login shell reads, twice, as shells within it do.
        # shellcheck disable=SC1091
        for _ in 1 2; do . /etc/profile.d/rawimage-oiio.sh; done
        [ "$OIIO_LIBRARY_PATH" = "$(rimg config --oiio-plugin-dir)" ] || fail "the plugin's folder is $OIIO_LIBRARY_PATH"
        oiiotool --hash frame.rimg | grep -q 'SHA-1' || fail "oiiotool does not read the frame"
        echo "oiiotool: ok"
    fi
}

case $1 in
run) run ;;
build) build ;;
use)
    doors
    completion
    manual
    desktop
    # Each name is a word of its own.
    # shellcheck disable=SC2046
    dpkg --purge $(dpkg-query -W -f='${Package} ' '*rawimage*') >/dev/null 2>&1
    left=$(find / -xdev \( -path /proc -o -path /src -o -path /tmp -o -path /var/log \) -prune -o \
        \( -name '*rawimage*' -o -name '*rimg*' \) -print)
    [ -z "$left" ] || fail "left behind: $left"
    ;;
esac
