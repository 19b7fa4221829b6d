#!/bin/bash
# The main job on the built-in scene, and on a real frame too when DEMO_EXR names an OpenEXR file. The files go to
# OUT_DIR. Usage: demo.sh BUILD_DIR OUT_DIR
set -euo pipefail

build=$1
out=$2
rimg=$build/cli/rimg

mkdir -p "$out"
# One render, four files: each gets every bucket straight from the renderer.
outputs=("$out/frame.rimg" "$out/frame.exr" "$out/frame.multipart.exr" "$out/frame.tiled.exr")
"$build/examples/render_frame" "${outputs[@]/#/--output=}" >/dev/null
"$rimg" preview "$out/frame.rimg" -o "$out/frame.png"
images=("$out/frame.rimg")
files=("${outputs[@]}" "$out/frame.png")
if [ -n "${DEMO_EXR:-}" ]; then
    name=$(basename "$DEMO_EXR")
    converted=$out/${name%.*}-exr.rimg
    "$rimg" convert "$DEMO_EXR" "$converted"
    images+=("$converted")
    files+=("$converted")
fi

echo
echo "\$ rimg note $out/frame.rimg"
"$rimg" note "$out/frame.rimg"
for image in "${images[@]}"; do
    echo
    echo "\$ rimg info $image"
    "$rimg" info "$image"
done
echo
echo "Files:"
(cd "$out" && printf '    %s\n' "${files[@]/#$out/$PWD}")
echo "rimg is $rimg"
