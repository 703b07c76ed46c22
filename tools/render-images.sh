#!/bin/sh
# Render the hand-drawn SVG sources in resources/svg into the PNG images
# that resources/vidorra.qrc embeds. The PNGs are committed, so building the
# program does not need this script; run it after changing an SVG.
# Needs rsvg-convert (Debian package librsvg2-bin) and the DejaVu fonts
# (fonts-dejavu-core).
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
src="$root/resources/svg"
out="$root/resources/images"

if ! command -v rsvg-convert >/dev/null 2>&1; then
    echo "render-images: rsvg-convert not found (install librsvg2-bin)" >&2
    exit 1
fi

mkdir -p "$out"
count=0
for svg in "$src"/*.svg; do
    name=$(basename "$svg" .svg)
    # Render at the size written in the SVG's own width/height.
    rsvg-convert --format=png --output="$out/$name.png" "$svg"
    count=$((count + 1))
done
echo "render-images: rendered $count images into $out"
