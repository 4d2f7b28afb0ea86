#!/bin/bash
# Cycles and instructions per 16 pixels of the 4K colour paths and of libyuv's NV12ToABGR,
# for both kernel builds: perf's clock rate and instructions a cycle over a 3-second run,
# times the benchmark's CPU time per frame. Cycles hold still where times swing with the clock.
# Usage: bench/zoca/budget.sh [build/bin/bench_zoca]
set -euo pipefail
bench=${1:-build/bin/bench_zoca}
if ! command -v perf >/dev/null; then
    apt-get install -y --no-install-recommends linux-perf >/dev/null
fi
run() {
    env "$1" perf stat -x, -e task-clock,cycles:u,instructions:u "$bench" \
        --benchmark_filter="$2\$" --benchmark_min_time=3 2>&1 |
        awk -F, -v f="$2" -v k="${1#ZOCA_KERNEL=}" '
            /^BM_/ { split($0, a, " +"); t = a[2] }
            /task-clock/ { tc = $1 } /cycles/ { c = $1 } /instructions/ { i = $1 }
            END { ghz = c / (tc * 1e6); n = 3840 * 2160 / 16; cyc = t * 1e-3 * ghz * 1e9 / n
                  printf "%-7s %-50s %6s ms  %.2f GHz  IPC %.2f  cycles/16px %5.1f  instructions/16px %4.0f\n",
                         k, f, t, ghz, i / c, cyc, cyc * i / c }'
}
# "best" is the fastest kernel this CPU runs (AVX-512 where it has VBMI and VNNI).
for k in ZOCA_KERNEL=best ZOCA_KERNEL=plain; do
    run $k 'Csc_Nv12ToRgba_Libyuv/3840/2160'
    # One benchmark a run: perf's totals are per process.
    run $k 'Cgc_Rgba709To2020_Vexa/w:3840/h:2160/photo:1'
    run $k 'Cgc_Nv12_2020To709_Vexa/w:3840/h:2160/photo:1'
    run $k 'Cgc_Nv12_2020To709_Vexa/w:3840/h:2160/photo:0'
    for mode in 1 2; do
        for layout in Rgba Nv12; do
            run $k "HdrToSdr_${layout}_Vexa/w:3840/h:2160/mode:$mode/photo:1"
        done
    done
done
