#!/usr/bin/env bash
# Makes datas/ShadowOfTheBeast.mp3: renders the piece, encodes three rounds of it, cuts out the
# middle one and puts the tag before it. Needs lame and what the game needs to build.
set -euo pipefail
cd "$(dirname "$0")/../.."

build=build/art
encoded=$(mktemp)
trap 'rm -f "$encoded"' EXIT

cmake -S . -B "$build" -DART=ON -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target music
# No bit reservoir and no information frame: every frame stands on its own, so the cycle can be cut
# at any of them.
"$build/tools/art/music" pcm |
    lame --quiet -r -s 44.1 --signed --little-endian --bitwidth 24 -m j \
        --cbr -b 192 -q 0 --nores -t - "$encoded"
"$build/tools/art/music" file "$encoded" datas/ShadowOfTheBeast.mp3
