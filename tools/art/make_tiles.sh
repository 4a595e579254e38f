#!/usr/bin/env bash
# Makes the tiles under datas/ and the launcher's icons from the drawings in tools/art/svg. Needs
# what the game needs to build, rsvg-convert (librsvg2-bin) and convert (imagemagick), and takes
# about three minutes.
set -euo pipefail
cd "$(dirname "$0")/../.."

build=build/art
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT

cmake -S . -B "$build" -DART=ON -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target tiles
pairs=()
for name in Base Mine Empty Question Flag One Two Three Four Five Six Seven Eight; do
    rsvg-convert "tools/art/svg/$name.svg" -o "$work/$name.png"
    convert "$work/$name.png" -depth 8 "rgb:$work/$name.rgb"
    pairs+=("$work/$name.rgb" "datas/$name.ham8")
done
"$build/tools/art/tiles" "${pairs[@]}"
for size in 16 32 48 64 128 256; do
    rsvg-convert -w $size -h $size tools/art/svg/icon.svg -o tools/art/icons/$size.png
done
python3 tools/art/whole_svg.py tools/art/svg/icon.svg >tools/art/icons/scalable.svg
