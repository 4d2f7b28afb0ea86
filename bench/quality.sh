#!/usr/bin/env bash
# PSNR of `vexa resize` against the anti-aliased resizes people use: ImageMagick's
# -resize and vips resize / thumbnail. Photos: public-domain / CC0 ones shipped in
# Debian's python3-skimage package (astronaut, hubble_deep_field: NASA, public domain;
# rocket: SpaceX, public domain; coffee: CC0), taken from the .deb without installing
# it; plus a generated 600x600 zone plate.
# ImageMagick and vips are installed here only (benchmark tools, never dependencies).
# Usage: bench/quality.sh [path/to/vexa]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
vexa=${1:-$root/build/bin/vexa}
[ -x "$vexa" ] || { echo "no vexa at $vexa (build first)" >&2; exit 1; }

missing=()
for package in imagemagick libvips-tools; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing+=("$package")
done
if ((${#missing[@]})); then
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$work" && apt-get download -qq python3-skimage 2>/dev/null && dpkg -x python3-skimage_*.deb pkg)
data=$work/pkg/usr/lib/python3/dist-packages/skimage/data
for name in astronaut.png coffee.png rocket.jpg hubble_deep_field.jpg; do
  convert "$data/$name" -strip "$work/${name%.*}.png"
done
# Zone plate: local frequency x / 600 cycles per pixel, reaching Nyquist at the edges.
python3 - "$work/zoneplate.pgm" <<'PY'
import math, sys
n = 600
rows = bytes(int(round(128 + 100 * math.cos(math.pi * ((x - n / 2 + .5) ** 2 + (y - n / 2 + .5) ** 2) / n)))
             for y in range(n) for x in range(n))
open(sys.argv[1], 'wb').write(b'P5 %d %d 255\n' % (n, n) + rows)
PY
convert "$work/zoneplate.pgm" -type TrueColor "$work/zoneplate.png"

psnr() { compare -metric PSNR "$1" "$2" null: 2>&1 | cut -d' ' -f1; }
printf '| picture | size | vs ImageMagick -resize | vs vips resize | vs vips thumbnail | ImageMagick vs vips resize |\n'
printf '|---|---|---|---|---|---|\n'
for pic in astronaut coffee rocket hubble_deep_field zoneplate; do
  in=$work/$pic.png
  read -r w h < <(identify -format '%w %h\n' "$in")
  # A 3x one-axis shrink, a 1.5x shrink and an odd non-integer one.
  for size in "$((w / 3))x$h" "$((w * 2 / 3))x$((h * 2 / 3))" "$((w * 100 / 247))x$((h * 100 / 247))"; do
    dw=${size%x*}
    dh=${size#*x}
    "$vexa" resize "$in" --to "$size" -o "$work/ours.png" >/dev/null
    convert "$in" -resize "${size}!" "$work/im.png"
    vips resize "$in" "$work/vips.png" "$(echo "$dw / $w" | bc -l)" --vscale "$(echo "$dh / $h" | bc -l)"
    vips thumbnail "$in" "$work/thumb.png" "$dw" --height "$dh" --size force
    printf '| %s %dx%d | %s | %s | %s | %s | %s |\n' "$pic" "$w" "$h" "$size" \
      "$(psnr "$work/ours.png" "$work/im.png")" "$(psnr "$work/ours.png" "$work/vips.png")" \
      "$(psnr "$work/ours.png" "$work/thumb.png")" "$(psnr "$work/im.png" "$work/vips.png")"
  done
done
