#!/bin/bash
# The main job on the built-in scene, and on a real frame too when DEMO_EXR names an OpenEXR file. The files go to
# OUT_DIR. Usage: demo.sh BUILD_DIR OUT_DIR
set -euo pipefail

build=$1
out=$2
rimg=$build/cli/rimg
files=("$out/frame.rimg")

mkdir -p "$out"
"$build/examples/render_frame" --output "$out/frame.rimg"
if [ -n "${DEMO_EXR:-}" ]; then
    name=$(basename "$DEMO_EXR")
    converted=$out/${name%.*}-exr.rimg
    "$rimg" convert "$DEMO_EXR" "$converted"
    files+=("$converted")
fi

echo
echo "Files:"
(cd "$out" && printf '    %s\n' "${files[@]/#$out/$PWD}")
for file in "${files[@]}"; do
    echo
    echo "\$ rimg info $file"
    "$rimg" info "$file"
done
