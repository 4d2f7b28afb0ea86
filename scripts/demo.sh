#!/usr/bin/env bash
# Installs, builds, and runs vexa on the sample photo: a resize, a perceptual downscale,
# a rotation and an NV12 round trip, written to out/.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target vexa

vexa=build/bin/vexa
photo=assets/chelsea.png
mkdir -p out
"$vexa" resize "$photo" --to 320x213 -o out/chelsea-resized.png
"$vexa" downscale "$photo" --factor 2 -o out/chelsea-downscaled.png
"$vexa" rotate "$photo" --angle 90 -o out/chelsea-rotated.png
# NV12 needs even sides: vexa trims the 451-pixel width to 450 (and says so).
"$vexa" convert "$photo" --to-format nv12 -o out/chelsea.nv12
"$vexa" info out/chelsea.nv12 --size 450x300
"$vexa" convert out/chelsea.nv12 --size 450x300 --to-format rgb -o out/chelsea-nv12-roundtrip.png

echo
echo "Outputs in $(pwd)/out:"
ls -l out
