#!/usr/bin/env bash
# Mutation run: applies small faults to the product code one at a time, rebuilds, runs the
# whole suite and prints which faults it caught. A tool to run by hand, not part of CI.
#
#   scripts/mutate.sh                 every fault
#   scripts/mutate.sh NAME|COMPONENT  only the faults with that name or component (several allowed)
#   scripts/mutate.sh --list          the faults, without running anything
#   TESTS_FROM=REV scripts/mutate.sh  the same with the tests/ folder of git revision REV
#                                     (to compare a suite with an older one on today's code)
#
# The faults go into a copy of the working tree (build-mutate/tree, rebuilt in
# build-mutate/tree/build with the default preset's flags and ccache), never into the tree
# itself; the copy's file is restored after every fault, also on Ctrl-C. Results are
# appended to build-mutate/results.txt as well.
set -euo pipefail
ROOT="$(cd "$(dirname "$0")/.." && pwd)"
WORK="$ROOT/build-mutate"
TREE="$WORK/tree"
BUILD="$TREE/build"
RESULTS="$WORK/results.txt"
FAULT_TIMEOUT="${FAULT_TIMEOUT:-600}"  # seconds for one fault's build and suite

# name ## component ## file ## exact text (must occur once) ## replacement; \n is a newline.
FAULTS=$(
  cat <<'EOF'
alloc-odd-chroma ## buffer ## mivo/core/buffer/MediaBuffer.cpp ## return stride * rows + 2 * ((stride + 1) / 2) * ((rows + 1) / 2); ## return stride * rows + 2 * (stride / 2) * (rows / 2);
alloc-not-zeroed ## buffer ## mivo/core/buffer/MediaBuffer.cpp ## std::memset(data, 0, bytes); ## std::memset(data, 0, bytes / 2);
type-name ## buffer ## mivo/core/buffer/MediaBuffer.cpp ## typeName = "zoca-imgb"; ## typeName = "imgb";
format-bpp-stale ## buffer ## mivo/core/types/MediaFormat.cpp ## bytesPerPixel_ = getDefaultBytesPerPixel(colorFormat); ## bytesPerPixel_ = bytesPerPixel_;
format-copy-rotation ## buffer ## mivo/core/types/MediaFormat.cpp ## rotation_(other.rotation_), ## rotation_(0),
format-text-bool ## buffer ## mivo/core/types/MediaFormat.cpp ## return v ? "true" : "false"; ## return v ? "1" : "0";
slot-list-held ## buffer ## mivo/core/buffer/OutputSlot.cpp ## if (holder_.held) return holder_.held->asList(); ## if (holder_.held && false) return holder_.held->asList();
stride-channels ## buffer ## mivo/core/buffer/MediaBuffer.h ## return stride * format_->getChannels(); ## return stride;
usage-third ## buffer ## mivo/core/buffer/MediaBuffer.h ## return static_cast<int>(std::get<2>(*value)); ## return static_cast<int>(std::get<0>(*value));
extras-overwritten ## buffer ## mivo/core/buffer/MediaBuffer.h ## if (!dst->getExtra(key)) dst->setExtra(key, value); ## dst->setExtra(key, value);
metadata-any-kind ## buffer ## mivo/core/buffer/MediaBuffer.h ## if (member->getFormat()->getKind() == MEDIA_KIND_METADATA) metadata.push_back(member); ## metadata.push_back(member);
view-packed-stride ## imgb-view ## mivo/ext/plugin/ImgbView.cpp ## image.stride[0] = 3 * sp; ## image.stride[0] = 4 * sp;
view-i420-chroma-stride ## imgb-view ## mivo/ext/plugin/ImgbView.cpp ## image.stride[1] = image.stride[2] = half(sp); ## image.stride[1] = image.stride[2] = sp / 2;
view-nv-chroma-width ## imgb-view ## mivo/ext/plugin/ImgbView.cpp ## image.width[1] = half(cols); ## image.width[1] = cols / 2;
view-i420-v-plane ## imgb-view ## mivo/ext/plugin/ImgbView.cpp ## static_cast<intptr_t>(image.stride[1]) * image.height[1]); ## static_cast<intptr_t>(image.stride[1]) * image.height[0]);
view-nv21-ycbcr ## imgb-view ## mivo/ext/plugin/ImgbView.cpp ## image.addr[1] = address(planes->cr); ## image.addr[1] = address(planes->cb);
view-topixel-nv12 ## imgb-view ## mivo/ext/plugin/ImgbView.cpp ## planes->cr = chroma + 1; ## planes->cr = chroma;
view-space-p3 ## imgb-view ## mivo/ext/plugin/ImgbView.cpp ## return ZOCA_CS_DISPLAY_P3; ## return ZOCA_CS_BT709;
view-format-bgra ## imgb-view ## mivo/ext/plugin/ImgbView.cpp ## return ZOCA_CF_BGRA; ## return ZOCA_CF_RGBA;
registry-identify ## registry ## mivo/ext/plugin/ImgbView.cpp ## registry.identify = [] { return MEDIA_BUFFER_TYPE_ZOCA_IMGB; }; ## registry.identify = [] { return MEDIA_BUFFER_TYPE_EXTENSION; };
registry-no-frompixel ## registry ## mivo/ext/plugin/ImgbView.cpp ## registry.fromPixel = imgbFromPixel; ## registry.fromPixel = nullptr;
dispatch-retry-immutable ## dispatch ## mivo/ext/plugin/VexaPlugin.cpp ## if (result != ZOCA_ERR_DESTINATION || !out->isMutable()) continue; ## if (result != ZOCA_ERR_DESTINATION) continue;
dispatch-no-retry ## dispatch ## mivo/ext/plugin/VexaPlugin.cpp ## result = processor(in, out, option_);\n    }\n    return result; ## }\n    return result;
dispatch-assert-dropped ## dispatch ## mivo/ext/plugin/VexaPlugin.cpp ## MIVO_ASSERT("ext/plugin/VexaPlugin", 770, cf != COLOR_FORMAT_NONE); ## (void)cf;
dispatch-fill-held ## dispatch ## mivo/ext/plugin/VexaPlugin.cpp ## if (out.isMutable() && out.isEmpty()) putNewOutput ## if (out.isMutable()) putNewOutput
op-rsz-rows ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## int rows = wanted->getRows(); ## int rows = wanted->getCols();
op-rszpd-shape ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## [&out](MutableMediaFormat& f) { f.setShape(out.getFormat()->getShape()); }); ## [](MutableMediaFormat&) {});
op-csc-full-range ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## src.colorSpace = ZOCA_CS_BT601_FULL; ## src.colorSpace = ZOCA_CS_BT601;
op-csc-odd-source ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## src.width[0] = clearLowBit(cols); ## src.width[0] = cols;
op-csc-dither ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## if (dithering) return vexa_csc_dither(&src, &dst); ## (void)dithering;
op-rot-270 ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## if (degrees == 270) return ZOCA_ROT_270; ## if (degrees == 270) return ZOCA_ROT_90;
op-cscrot-format ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## f.setColorFormat(out.getFormat()->getColorFormat()); ## (void)f;
op-crop-origin ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## src.startY = rect.top; ## src.startY = rect.left;
op-cgc-space ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## f.setColorSpace(out.getFormat()->getColorSpace()); ## (void)f;
op-hdr-mode ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## static_cast<unsigned>(hdrType) - 3u; ## static_cast<unsigned>(hdrType) - 2u;
op-flip-direction ## operations ## mivo/ext/plugin/VexaPlugin.cpp ## const int code = flipType == FLIP_HORIZONTAL ? ZOCA_ROT_MIRROR_H ## const int code = flipType == FLIP_HORIZONTAL ? ZOCA_ROT_MIRROR_V
mirror-no-byteswap ## mirror ## mivo/ext/plugin/Mirror.cpp ## storeWord(to + 4 * j, __builtin_bswap32(left)); ## storeWord(to + 4 * j, left);
mirror-odd-middle ## mirror ## mivo/ext/plugin/Mirror.cpp ## if (words % 2 == 1) { ## if (words % 2 == 0) {
mirror-chroma-one-side ## mirror ## mivo/ext/plugin/Mirror.cpp ## std::memcpy(to + 2 * k, &right, 2); ## std::memcpy(to + 2 * k, &left, 2);
mirror-both-from-source ## mirror ## mivo/ext/plugin/Mirror.cpp ## mirrorVertically(flipType == FLIP_BOTH ? dst : src, dst, w, h, wideCopies); ## mirrorVertically(src, dst, w, h, wideCopies);
mirror-short-chroma ## mirror ## mivo/ext/plugin/Mirror.cpp ## if (h < 4 || w < 2) return; ## if (h < 8 || w < 2) return;
pd-plane-limit ## downscaler ## mivo/ext/plugin/PerceptualDownscale.cpp ## static_cast<size_t>(std::max(dst.scanlines[q], 0)); ## static_cast<size_t>(std::max(dst.scanlines[q], 0)) + 64;
pd-chroma-block ## downscaler ## mivo/ext/plugin/PerceptualDownscale.cpp ## plane.block = interleavedChroma ? k / 2 : k; ## plane.block = k;
pd-chroma-offset ## downscaler ## mivo/ext/plugin/PerceptualDownscale.cpp ## plane.offset = interleavedChroma ? p - 1 : 0; ## plane.offset = 0;
pd-plain-flat-ratio ## downscaler ## mivo/ext/plugin/PerceptualDownscale.cpp ## ratio = sl >= kVarianceFloor ? std::min(std::sqrt(sh / sl), 1.0f) : 0.0f; ## ratio = sl >= kVarianceFloor ? std::min(std::sqrt(sh / sl), 1.0f) : 1.0f;
pd-plain-rounding ## downscaler ## mivo/ext/plugin/PerceptualDownscale.cpp ## (value > 0.0 ? static_cast<int>(value) : 0); ## (value > 0.0 ? static_cast<int>(value + 0.5) : 0);
pd-fused-flat-ratio ## downscaler ## mivo/ext/plugin/PerceptualDownscaleRows.h ## ratio = sl >= kVarianceFloor ? (1.0f < root ? 1.0f : root) : 0.0f; ## ratio = sl >= kVarianceFloor ? (1.0f < root ? 1.0f : root) : 1.0f;
zoca-short-stride ## zoca-validation ## zoca/src/image.cpp ## if (rec->stride[p] < RowBytes(fmt, p, w)) return ZOCA_ERR_INVALID; ## (void)0;
zoca-planes-overlap ## zoca-validation ## zoca/src/image.cpp ## if (a0 < b1 && b0 < a1) return ZOCA_ERR_INVALID; ## if (a0 < b1 && b0 < a1 && false) return ZOCA_ERR_INVALID;
zoca-zero-width ## zoca-validation ## zoca/src/image.cpp ## if (w <= 0 || h <= 0 || ## if (w < 0 || h <= 0 ||
zoca-odd-chroma-row ## zoca-validation ## zoca/src/image.cpp ## const int cw = (w + 1) / 2;\n    return ## const int cw = w / 2;\n    return
zoca-wrong-size-code ## zoca-validation ## zoca/src/api.cpp ## if (d.w != want_w || d.h != want_h) return ZOCA_ERR_DESTINATION; ## if (d.w != want_w || d.h != want_h) return ZOCA_ERR_INVALID;
zoca-in-place ## zoca-validation ## zoca/src/api.cpp ## if (Overlaps(s, d)) return ZOCA_ERR_DESTINATION; ## if (Overlaps(s, d) && false) return ZOCA_ERR_DESTINATION;
zoca-crop-negative ## zoca-validation ## zoca/src/api.cpp ## if (src->startX < 0 || src->startY < 0) return ZOCA_ERR_INVALID; ## if (src->startX < 0) return ZOCA_ERR_INVALID;
zoca-hdr-mode-range ## zoca-validation ## zoca/src/api.cpp ## mode > ZOCA_HDR_PQ_HIGHLIGHTS) return ZOCA_ERR_UNSUPPORTED; ## mode > ZOCA_HDR_PQ_HIGHLIGHTS + 1) return ZOCA_ERR_UNSUPPORTED;
zoca-resize-filter ## zoca-resize ## zoca/src/resample.cpp ## const bool lanczos = k.dw < k.rw || k.dh < k.rh; ## const bool lanczos = k.dw < k.rw;
zoca-resize-cubic ## zoca-resize ## zoca/src/resample.cpp ## return x < 2 ? ((-0.5 * x + 2.5) * x - 4) * x + 2 : 0; ## return x < 2 ? ((-0.3 * x + 2.5) * x - 4) * x + 2 : 0;
zoca-resize-chroma-span ## zoca-resize ## zoca/src/geometry.cpp ## const double rw = static_cast<double>(dcw) * src.w / dst.w; ## const double rw = static_cast<double>(cw);
zoca-crop-odd ## zoca-crop ## zoca/src/geometry.cpp ## if (x % 2 == 0 && y % 2 == 0) { ## if (x % 2 == 0) {
zoca-crop-chroma-x ## zoca-crop ## zoca/src/geometry.cpp ## x / 2.0, y / 2.0, dcw, dch, ## x / 2, y / 2.0, dcw, dch,
zoca-rot3-ccw ## zoca-rotate ## zoca/src/geometry.cpp ## const int sy = clockwise ? h - 1 - dx : dx; ## const int sy = h - 1 - dx;
zoca-rot180-nv-chroma ## zoca-rotate ## zoca/src/geometry.cpp ## dst.p[1], dst.s[1], cw, -ch); ## dst.p[1], dst.s[1], cw, ch);
zoca-rot-nv-swap ## zoca-rotate ## zoca/src/geometry.cpp ## libyuv::MergeUVPlane(a, tstride, b, tstride, ## libyuv::MergeUVPlane(b, tstride, a, tstride,
zoca-709full-range ## zoca-convert ## zoca/src/convert.cpp ## return {0.2126, 0.0722, true}; ## return {0.2126, 0.0722, false};
zoca-dec-offset ## zoca-convert ## zoca/src/convert.cpp ## k.ky = q(255.0 / yr);\n    k.yoff = m.full ? 0 : 16; ## k.ky = q(255.0 / yr);\n    k.yoff = 0;
zoca-dec-green ## zoca-convert ## zoca/src/convert.cpp ## k.gu = q(255.0 * 2 * m.kb * (1 - m.kb) / kg / cr); ## k.gu = q(255.0 * 2 * m.kr * (1 - m.kb) / kg / cr);
zoca-enc-cr ## zoca-convert ## zoca/src/convert.cpp ## k.v[2] = q(-m.kb * sv); ## k.v[2] = q(-m.kr * sv);
zoca-same-matrix ## zoca-convert ## zoca/src/convert.cpp ## return ma.kr == mb.kr && ma.full == mb.full; ## return ma.kr == mb.kr;
zoca-p3-primaries ## zoca-gamut ## zoca/src/colour.cpp ## {{0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}}; ## {{0.640, 0.330}, {0.265, 0.690}, {0.150, 0.060}};
zoca-p3-transfer ## zoca-gamut ## zoca/src/colour.cpp ## return cs == ZOCA_CS_DISPLAY_P3 ? Transfer::SRGB : Transfer::BT1886; ## return cs == ZOCA_CS_DISPLAY_P3 ? Transfer::BT1886 : Transfer::BT1886;
zoca-hlg-gamma ## zoca-tonemap ## zoca/src/colour.cpp ## constexpr double kHlgGamma = 1.2; ## constexpr double kHlgGamma = 1.0;
zoca-pq-reference-white ## zoca-tonemap ## zoca/src/colour.cpp ## return {false, 1000.0, 203.0}; ## return {false, 1000.0, 100.0};
zoca-eetf-knee ## zoca-tonemap ## zoca/src/colour.cpp ## const double ks = 1.5 * max_lum - 0.5; ## const double ks = 1.5 * max_lum - 0.4;
png-palette ## files ## tools/vexa/io/PngFile.cpp ## if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(r.png); ## (void)0;
png-16-bit ## files ## tools/vexa/io/PngFile.cpp ## const uint32_t v = uint32_t{row[2 * i]} << 8 | row[2 * i + 1]; ## const uint32_t v = uint32_t{row[2 * i + 1]} << 8 | row[2 * i];
png-trns-alpha ## files ## tools/vexa/io/PngFile.cpp ## (colorType & PNG_COLOR_MASK_ALPHA) || png_get_valid(r.png, r.info, PNG_INFO_tRNS); ## (colorType & PNG_COLOR_MASK_ALPHA);
png-truncated-end ## files ## tools/vexa/io/PngFile.cpp ## png_read_end(r.png, r.info); ## (void)0;
jpeg-quality ## files ## tools/vexa/io/JpegFile.cpp ## jpeg_set_quality(&cinfo, quality, TRUE); ## jpeg_set_quality(&cinfo, quality / 2 + 50, TRUE);
raw-odd-size ## files ## tools/vexa/io/ImageFile.cpp ## return w * h + 2 * chromaW * chromaH; ## return w * h + 2 * (chromaW - w % 2) * (chromaH - h % 2);
raw-height-limit ## files ## tools/vexa/io/ImageFile.cpp ## if (width > kMaxSide || height > kMaxSide) { ## if (width > kMaxSide) {
raw-nv21-type ## files ## tools/vexa/io/ImageFile.cpp ## {".nv21", Kind::Raw, kNv21}, ## {".nv21", Kind::Raw, kNv12},
y4m-frame-marker ## files ## tools/vexa/io/FrameStream.cpp ## if (line.compare(0, 5, "FRAME") != 0 || (line.size() > 5 && line[5] != ' ')) { ## if (line.compare(0, 5, "FRAME") != 0) {
y4m-deep-samples ## files ## tools/vexa/io/FrameStream.cpp ## frameBytes = imageByteSize(kYuv420, width, height) * (bits > 8 ? 2 : 1); ## frameBytes = imageByteSize(kYuv420, width, height);
cli-pd-trim ## command ## tools/vexa/Worker.cpp ## const int alignment = 2 * plan.factor; ## const int alignment = plan.factor;
cli-flip-trim ## command ## tools/vexa/Worker.cpp ## if (op == Operation::Flip && p.ownFlip) plan.trim = {cols / 4 * 4, rows / 4 * 4}; ## if (op == Operation::Flip && p.ownFlip) plan.trim = {cols / 2 * 2, rows / 2 * 2};
cli-crop-bottom ## command ## tools/vexa/Worker.cpp ## if (r.right > cols || r.bottom > rows) { ## if (r.right > cols) {
cli-flip-names ## command ## tools/vexa/Parameters.cpp ## {"v", 2}, {"vertical", 2}, ## {"v", 1}, {"vertical", 2},
cli-size-zero ## command ## tools/vexa/Parameters.cpp ## if (*cols < 1 || *rows < 1 || ## if (*cols < 0 || *rows < 1 ||
cli-range-empty ## command ## tools/vexa/Parameters.cpp ## if (end >= 0 && end <= first) { ## if (end >= 0 && end < first) {
cli-rect-corner ## command ## tools/vexa/Parameters.cpp ## parts[0] + parts[2], parts[1] + parts[3]); ## parts[2], parts[3]);
cli-batch-failures ## command ## tools/vexa/Batch.cpp ## ++failed; ## (void)failed;
EOF
)

field() { awk -F ' ## ' -v n="$2" '{print $n}' <<<"$1"; }

# Replaces the one occurrence of $2 in file $1 by $3; fails (exit 3) if it is not found
# exactly once, so a fault whose text has moved is reported rather than silently skipped.
apply() {
  python3 - "$1" "$2" "$3" <<'PY'
import sys
path, old, new = sys.argv[1], sys.argv[2].replace("\\n", "\n"), sys.argv[3].replace("\\n", "\n")
text = open(path).read()
n = text.count(old)
if n != 1:
    print(f"found {n} times", end="")
    sys.exit(3)
open(path, "w").write(text.replace(old, new))
PY
}

selected=()
while IFS= read -r line; do
  [ -z "$line" ] && continue
  name=$(field "$line" 1)
  component=$(field "$line" 2)
  if [ $# -eq 0 ] || [ "$1" = --list ]; then
    selected+=("$line")
  else
    for want in "$@"; do
      if [ "$want" = "$name" ] || [ "$want" = "$component" ]; then selected+=("$line"); fi
    done
  fi
done <<<"$FAULTS"

if [ "${1:-}" = --list ]; then
  printf '%s\n' "${selected[@]}" | awk -F ' ## ' '{printf "%-26s %-16s %s\n", $1, $2, $3}'
  echo "${#selected[@]} faults"
  exit 0
fi
[ ${#selected[@]} -gt 0 ] || { echo "no fault matches: $*" >&2; exit 2; }

mkdir -p "$WORK"
echo "copying the working tree to $TREE"
# Tracked and new files as they stand now, into a fresh copy (the build dir is kept).
mkdir -p "$TREE"
find "$TREE" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
git -C "$ROOT" ls-files -z --cached --others --exclude-standard |
  (cd "$ROOT" && xargs -0 cp --parents -t "$TREE")
if [ -n "${TESTS_FROM:-}" ]; then
  echo "tests from $TESTS_FROM"
  rm -rf "$TREE/tests"
  git -C "$ROOT" archive "$TESTS_FROM" tests | tar -x -C "$TREE"
fi
export CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache
(cd "$TREE" && cmake --preset default -DMIVO_BUILD_BENCHMARKS=OFF >/dev/null)
echo "building the unchanged copy"
(cd "$TREE" && cmake --build --preset default >/dev/null)
(cd "$TREE" && ctest --test-dir build -j2 --timeout 120 >/dev/null) || {
  echo "the unchanged tree fails its own suite: fix that first" >&2
  exit 1
}

current=""
restore() {
  if [ -n "$current" ]; then cp "$ROOT/$current" "$TREE/$current"; fi
  current=""
}
trap restore EXIT
trap 'exit 130' INT TERM

stamp=$(date '+%F %T')
echo "== $stamp $(git -C "$ROOT" rev-parse --short HEAD) tests ${TESTS_FROM:-of the working tree}" >>"$RESULTS"
caught=0
missed=0
other=0
printf '%-26s %-16s %-12s %s\n' fault component result "failing tests (first few)" | tee -a "$RESULTS"
for line in "${selected[@]}"; do
  name=$(field "$line" 1)
  component=$(field "$line" 2)
  file=$(field "$line" 3)
  old=$(field "$line" 4)
  new=$(field "$line" 5)
  result=""
  tests=""
  if ! why=$(apply "$TREE/$file" "$old" "$new"); then
    result="not-applied"
    tests="$file: text $why"
  else
    current="$file"
    if ! (cd "$TREE" && timeout "$FAULT_TIMEOUT" cmake --build --preset default >"$WORK/build.log" 2>&1); then
      result="build-error"
      tests="see $WORK/build.log"
    else
      rm -f "$BUILD/Testing/Temporary/LastTestsFailed.log"
      if (cd "$TREE" && timeout "$FAULT_TIMEOUT" ctest --test-dir build -j2 --timeout 120 >"$WORK/test.log" 2>&1); then
        result="MISSED"
      else
        result="caught"
        if [ -f "$BUILD/Testing/Temporary/LastTestsFailed.log" ]; then
          tests=$(cut -d: -f2- "$BUILD/Testing/Temporary/LastTestsFailed.log" | head -4 | paste -sd' ')
          n=$(wc -l <"$BUILD/Testing/Temporary/LastTestsFailed.log")
          [ "$n" -gt 4 ] && tests="$tests (+$((n - 4)))"
        else
          tests="(suite timed out)"
        fi
      fi
    fi
    restore
  fi
  case $result in
    caught) caught=$((caught + 1)) ;;
    MISSED) missed=$((missed + 1)) ;;
    *) other=$((other + 1)) ;;
  esac
  printf '%-26s %-16s %-12s %s\n' "$name" "$component" "$result" "$tests" | tee -a "$RESULTS"
done
echo "caught $caught, missed $missed, not run $other (of ${#selected[@]})" | tee -a "$RESULTS"
# Leave the copy's build matching the unchanged sources.
(cd "$TREE" && cmake --build --preset default >/dev/null 2>&1) || true
