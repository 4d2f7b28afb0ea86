#!/usr/bin/env bash
# vexa beside vips (vipsthumbnail, vips) and ImageMagick on the same whole-file jobs, side by
# side in one run: wall time and peak memory (maximum resident set, from /usr/bin/time -v), the
# best of a few runs each. Prints a Markdown table.
#
#   bench/files/run.sh [build/bin/vexa] [runs=3]
#
# The inputs are a 3840x2560 photo, assets/chelsea.png enlarged with a little sensor-like
# noise, as JPEG (quality 90) and PNG. Every tool writes JPEG at quality 90 with full chroma
# and PNG at its own default compression. vips, ImageMagick and time are benchmark-only tools:
# installed here, never needed by the build or the tests.
set -euo pipefail

VEXA=$(realpath "${1:-build/bin/vexa}")
RUNS=${2:-3}
ASSET=$(realpath "$(dirname "$0")/../../assets/chelsea.png")

if ! command -v vipsthumbnail >/dev/null || [ ! -x /usr/bin/convert-im6.q16 ] ||
    [ ! -x /usr/bin/time ]; then
    apt-get install -y --no-install-recommends libvips-tools imagemagick time >/dev/null
fi
MAGICK=/usr/bin/convert-im6.q16

WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

vips resize "$ASSET" up.v 8.52 --vscale 8.54 --kernel lanczos3
vips extract_area up.v crop.v 0 0 3840 2560
vips gaussnoise noise.v 3840 2560 --sigma 4
vips add crop.v noise.v sum.v
vips cast sum.v photo.v uchar
vips copy photo.v photo.png
vips copy photo.v "photo.jpg[Q=90,no_subsample]"
rm -f ./*.v

# The best of $RUNS runs of a command under /usr/bin/time: "seconds peak_kib".
measure() {
    local best="" kib=""
    for _ in $(seq "$RUNS"); do
        /usr/bin/time -v bash -c "$1" 2>time.log >/dev/null || { cat time.log >&2; exit 1; }
        local wall peak
        wall=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' time.log |
            awk -F: '{ s = 0; for (i = 1; i <= NF; ++i) s = s * 60 + $i; print s }')
        peak=$(sed -n 's/.*Maximum resident set size (kbytes): //p' time.log)
        if [ -z "$best" ] || awk -v a="$wall" -v b="$best" 'BEGIN { exit !(a < b) }'; then
            best=$wall
        fi
        if [ -z "$kib" ] || [ "$peak" -gt "$kib" ]; then kib=$peak; fi
    done
    echo "$best $kib"
}

row() {  # name, then the vexa, vips and ImageMagick commands
    local name=$1
    read -r es ek < <(measure "$2")
    read -r ss sk < <(measure "$3")
    read -r ms mk < <(measure "$4")
    awk -v n="$name" -v es="$es" -v ek="$ek" -v ss="$ss" -v sk="$sk" -v ms="$ms" -v mk="$mk" \
        'BEGIN { printf "| %s | %.2f | %.2f | %.2f | %.2fx | %.0f | %.0f | %.0f | %.2fx |\n",
                 n, es, ss, ms, es / ss, ek / 1024, sk / 1024, mk / 1024, ek / sk }'
}

V=$VEXA
J="[Q=90,no_subsample]"
echo "3840x2560 photo; best wall time of $RUNS runs, peak memory of the worst run; $(nproc) cores"
echo
echo "| job | vexa s | vips s | ImageMagick s | vexa/vips time | vexa MiB | vips MiB | ImageMagick MiB | vexa/vips memory |"
echo "|---|---|---|---|---|---|---|---|---|"
row "JPEG resize to 1920x1280" \
    "$V resize photo.jpg --to 1920x1280 --quality 90 -o v.jpg" \
    "vipsthumbnail photo.jpg -s 1920x1280 -o 's.jpg$J'" \
    "$MAGICK photo.jpg -resize 1920x1280 -quality 90 m.jpg"
row "JPEG thumbnail 480x320" \
    "$V resize photo.jpg --to 480x320 --quality 90 -o v.jpg" \
    "vipsthumbnail photo.jpg -s 480x320 -o 's.jpg$J'" \
    "$MAGICK photo.jpg -resize 480x320 -quality 90 m.jpg"
row "PNG resize to 1920x1280" \
    "$V resize photo.png --to 1920x1280 -o v.png" \
    "vipsthumbnail photo.png -s 1920x1280 -o s.png" \
    "$MAGICK photo.png -resize 1920x1280 m.png"
row "JPEG rotate 90" \
    "$V rotate photo.jpg --angle 90 --quality 90 -o v.jpg" \
    "vips rot photo.jpg 's.jpg$J' d90" \
    "$MAGICK photo.jpg -rotate 90 -quality 90 m.jpg"
row "PNG rotate 90" \
    "$V rotate photo.png --angle 90 -o v.png" \
    "vips rot photo.png s.png d90" \
    "$MAGICK photo.png -rotate 90 m.png"
row "PNG to JPEG" \
    "$V convert photo.png --to-format rgb --quality 90 -o v.jpg" \
    "vips copy photo.png 's.jpg$J'" \
    "$MAGICK photo.png -quality 90 m.jpg"
row "JPEG to PNG" \
    "$V convert photo.jpg --to-format rgb -o v.png" \
    "vips copy photo.jpg s.png" \
    "$MAGICK photo.jpg m.png"
