#!/bin/sh
# Makes the tiles under datas/ and the launcher's icon from the drawings in tools/art/svg. Needs
# rsvg-convert (librsvg2-bin), convert (imagemagick) and the program `tiles` (CMake option ART),
# whose path may be given: tools/art/make_tiles.sh build/tiles. Takes about three minutes.
set -eu
tiles=$(realpath "${1:-build/tiles}")
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT

set --
for name in Base Mine Empty Question Flag One Two Three Four Five Six Seven Eight; do
    rsvg-convert "tools/art/svg/$name.svg" -o "$work/$name.png"
    convert "$work/$name.png" -depth 8 "rgb:$work/$name.rgb"
    set -- "$@" "$work/$name.rgb" "datas/$name.ham8"
done
"$tiles" "$@"
rsvg-convert tools/art/svg/icon.svg -o tools/art/tessaruvinel.png
