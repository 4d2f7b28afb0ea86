#!/usr/bin/env bash
# vexa beside Debian's ffmpeg on the same video jobs, side by side: frames per second (wall
# clock), CPU time (user + system, all threads) and peak memory (maximum resident set), then
# vexa's peak memory at 60 and at 600 frames through a pipe. Prints a Markdown table.
#
#   bench/video/run.sh [build/bin/vexa] [frames=120] [runs=5]
#
# Each job runs `runs` times, vexa and ffmpeg in turn, and the table gives the median; the
# machine is shared, so single runs swing by a third. Outputs are removed and the disk synced
# before every timed run, so that neither tool pays for the other's writes or for replacing an
# older output.
#
# ffmpeg and time are benchmark-only tools: installed here, never needed by the build or tests.
set -euo pipefail

VEXA=$(realpath "${1:-build/bin/vexa}")
FRAMES=${2:-120}
RUNS=${3:-5}
THREADS=$(nproc)

if ! command -v ffmpeg >/dev/null || [ ! -x /usr/bin/time ]; then
    apt-get install -y --no-install-recommends ffmpeg time >/dev/null
fi

WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
cd "$WORK"

ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }

# A moving, detailed 1080p clip; the tone-map job reads the same frames as BT.2020 PQ.
ff -f lavfi -i "testsrc2=size=1920x1080:rate=30" -frames:v "$FRAMES" -pix_fmt yuv420p clip.y4m

# Runs a command under /usr/bin/time after clearing the outputs; prints "seconds peak_kib cpu".
measure() {
    rm -f v.* f.*
    sync
    /usr/bin/time -f "%e %M %U %S" -o time.log bash -c "$1" >/dev/null 2>err.log ||
        { cat err.log >&2; exit 1; }
    awk '{ print $1, $2, $3 + $4 }' time.log
}

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

row() {  # name, then the vexa command and the ffmpeg command as strings
    local name=$1 vexa=$2 ffmpeg=$3 i
    : >runs.v
    : >runs.f
    for ((i = 0; i < RUNS; ++i)); do
        measure "$vexa" >>runs.v
        measure "$ffmpeg" >>runs.f
    done
    local vs fs vk fk vc fc
    vs=$(cut -d' ' -f1 runs.v | median)
    fs=$(cut -d' ' -f1 runs.f | median)
    vc=$(cut -d' ' -f3 runs.v | median)
    fc=$(cut -d' ' -f3 runs.f | median)
    vk=$(cut -d' ' -f2 runs.v | sort -n | tail -1)
    fk=$(cut -d' ' -f2 runs.f | sort -n | tail -1)
    awk -v n="$name" -v f="$FRAMES" -v vs="$vs" -v vk="$vk" -v fs="$fs" -v fk="$fk" \
        -v vc="$vc" -v fc="$fc" 'BEGIN {
        printf "| %s | %.0f | %.0f | %.2fx | %.2f | %.2f | %.0f | %.0f | %.2fx |\n",
               n, f / vs, f / fs, fs / vs, vc, fc, vk / 1024, fk / 1024, vk / fk }'
}

V="$VEXA"
F="ffmpeg -nostdin -y -loglevel error -threads $THREADS -filter_threads $THREADS"
echo "vexa -j $THREADS against ffmpeg -threads $THREADS -filter_threads $THREADS," \
    "$FRAMES frames of 1920x1080 I420 (Y4M file to Y4M file), median of $RUNS runs;" \
    "$(lscpu | sed -n 's/^Model name: *//p'), $THREADS CPUs"
echo
echo "| job | vexa fps | ffmpeg fps | speed ratio | vexa CPU s | ffmpeg CPU s | vexa MiB |" \
    "ffmpeg MiB | memory ratio |"
echo "|---|---|---|---|---|---|---|---|---|"
row "resize to 1280x720 (bicubic)" \
    "$V resize clip.y4m --to 1280x720 -j $THREADS -o v.y4m" \
    "$F -i clip.y4m -vf scale=1280:720:flags=bicubic f.y4m"
row "rotate 90 (transpose)" \
    "$V rotate clip.y4m --angle 90 -j $THREADS -o v.y4m" \
    "$F -i clip.y4m -vf transpose=clock f.y4m"
row "to NV12 and back (two runs)" \
    "$V convert clip.y4m --to-format nv12 -j $THREADS -o v.nv12 &&
     $V convert v.nv12 --size 1920x1080 --to-format yuv420 -j $THREADS -o v.y4m" \
    "$F -i clip.y4m -vf format=nv12 -f rawvideo f.nv12 &&
     $F -f rawvideo -pix_fmt nv12 -s 1920x1080 -i f.nv12 -pix_fmt yuv420p f.y4m"
row "tone map PQ to SDR BT.709" \
    "$V tonemap clip.y4m --hdr-type pq -j $THREADS -o v.y4m" \
    "$F -i clip.y4m -vf setparams=color_primaries=bt2020:color_trc=smpte2084:colorspace=bt2020nc,zscale=tin=smpte2084:min=bt2020nc:pin=bt2020:rin=tv:t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,tonemap=tonemap=hable:desat=0,zscale=t=bt709:m=bt709:r=tv,format=yuv420p f.y4m"

echo
# The clip's frames again and again behind its header, so the pipe never waits for a producer.
HEADER=$(($(head -1 clip.y4m | wc -c)))
FRAME=$(((1920 * 1080 * 3 / 2) + 6))
frames() {
    head -c "$HEADER" clip.y4m
    local left=$1
    while ((left > 0)); do
        local n=$((left < FRAMES ? left : FRAMES))
        tail -c +$((HEADER + 1)) clip.y4m | head -c $((n * FRAME)) || true
        left=$((left - n))
    done
}
echo "vexa's peak memory through a pipe (resize to 1280x720, -j $THREADS), the highest of" \
    "$RUNS runs; it depends on how far the workers get ahead of the writer, not on the length:"
for n in 60 600; do
    : >runs.m
    for ((i = 0; i < RUNS; ++i)); do
        frames "$n" | /usr/bin/time -f "%M" -a -o runs.m \
            "$V" resize - --to 1280x720 -j "$THREADS" -o - | grep -a -c FRAME >count.log || true
        [ "$(cat count.log)" = "$n" ] || { echo "vexa wrote $(cat count.log) of $n frames" >&2; exit 1; }
    done
    echo "  $n frames: $(sort -n runs.m | tail -1) KiB (runs: $(sort -n runs.m | tr '\n' ' '))"
done
