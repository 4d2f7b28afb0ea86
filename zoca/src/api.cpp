// The nine exported entry points: record checks in a fixed order, then the pixel work.
// Only these symbols leave the library (everything else is built hidden).
#pragma GCC visibility push(default)
#include "zoca/zoca.h"
#pragma GCC visibility pop

#include "colour.h"
#include "convert.h"
#include "geometry.h"
#include "image.h"

using namespace zoca;

namespace {

// Both records on their own: source first, then destination (whose addresses are
// left to DestinationFits).
int CheckPair(const _ZOCA_IMGB* src, const _ZOCA_IMGB* dst, Img* s, Img* d) {
    const int rc = CheckRecord(src, true, s);
    if (rc != ZOCA_OK) return rc;
    return CheckRecord(dst, false, d);
}

// The destination can take an image of want_w x want_h from s.
int DestinationFits(const _ZOCA_IMGB* dst, const Img& s, const Img& d, int want_w, int want_h) {
    if (CheckDestinationMemory(dst) != ZOCA_OK) return ZOCA_ERR_DESTINATION;
    if (d.w != want_w || d.h != want_h) return ZOCA_ERR_DESTINATION;
    if (Overlaps(s, d)) return ZOCA_ERR_DESTINATION;
    return ZOCA_OK;
}

bool ValidRotation(int code) {
    return code >= ZOCA_ROT_NONE && code <= ZOCA_ROT_MIRROR_V;
}

// Scale and change format in one call: the format change runs at the smaller of the
// two sizes. With one format on both sides only the size changes, whatever the codes.
int ResizeConvert(const Img& s, const Img& d) {
    if (s.fmt == d.fmt) return Scale(s, d);
    if (s.w == d.w && s.h == d.h) return Convert(s, d, false);
    const bool shrink = static_cast<int64_t>(d.w) * d.h <= static_cast<int64_t>(s.w) * s.h;
    if (shrink) {
        OwnedImg tmp = MakeImage(s.fmt, d.w, d.h, s.cs);
        if (!tmp.mem) return ZOCA_ERR_DESTINATION;
        const int rc = Scale(s, tmp.img);
        return rc != ZOCA_OK ? rc : Convert(tmp.img, d, false);
    }
    OwnedImg tmp = MakeImage(d.fmt, s.w, s.h, d.cs);
    if (!tmp.mem) return ZOCA_ERR_DESTINATION;
    const int rc = Convert(s, tmp.img, false);
    return rc != ZOCA_OK ? rc : Scale(tmp.img, d);
}

int CscCommon(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst, bool dither) {
    Img s, d;
    int rc = CheckPair(src, dst, &s, &d);
    if (rc != ZOCA_OK) return rc;
    rc = DestinationFits(dst, s, d, s.w, s.h);
    if (rc != ZOCA_OK) return rc;
    return Convert(s, d, dither);
}

}  // namespace

extern "C" {

int vexa_rsz(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    Img s, d;
    int rc = CheckPair(src, dst, &s, &d);
    if (rc != ZOCA_OK) return rc;
    rc = DestinationFits(dst, s, d, d.w, d.h);
    if (rc != ZOCA_OK) return rc;
    return ResizeConvert(s, d);
}

int vexa_csc(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    return CscCommon(src, dst, false);
}

int vexa_csc_dither(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    return CscCommon(src, dst, true);
}

int vexa_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst) {
    Img s, d;
    int rc = CheckPair(src, dst, &s, &d);
    if (rc != ZOCA_OK) return rc;
    if (!ValidRotation(rotation) || s.fmt != d.fmt) return ZOCA_ERR_UNSUPPORTED;
    const bool swap = SwapsAxes(rotation);
    rc = DestinationFits(dst, s, d, swap ? s.h : s.w, swap ? s.w : s.h);
    if (rc != ZOCA_OK) return rc;
    return Rotate(s, rotation, d);
}

int vexa_rsz_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst) {
    Img s, d;
    int rc = CheckPair(src, dst, &s, &d);
    if (rc != ZOCA_OK) return rc;
    if (!ValidRotation(rotation)) return ZOCA_ERR_UNSUPPORTED;
    rc = DestinationFits(dst, s, d, d.w, d.h);
    if (rc != ZOCA_OK) return rc;
    if (rotation == ZOCA_ROT_NONE) return ResizeConvert(s, d);
    // Scaled, still upright size; the turn then gives the destination's shape.
    const bool swap = SwapsAxes(rotation);
    const int uw = swap ? d.h : d.w;
    const int uh = swap ? d.w : d.h;
    if (s.fmt == d.fmt && s.w == uw && s.h == uh) return Rotate(s, rotation, d);
    OwnedImg tmp = MakeImage(d.fmt, uw, uh, d.cs);
    if (!tmp.mem) return ZOCA_ERR_DESTINATION;
    rc = ResizeConvert(s, tmp.img);
    return rc != ZOCA_OK ? rc : Rotate(tmp.img, rotation, d);
}

int vexa_csc_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst) {
    Img s, d;
    int rc = CheckPair(src, dst, &s, &d);
    if (rc != ZOCA_OK) return rc;
    if (!ValidRotation(rotation)) return ZOCA_ERR_UNSUPPORTED;
    const bool swap = SwapsAxes(rotation);
    rc = DestinationFits(dst, s, d, swap ? s.h : s.w, swap ? s.w : s.h);
    if (rc != ZOCA_OK) return rc;
    if (rotation == ZOCA_ROT_NONE) return Convert(s, d, false);
    if (s.fmt == d.fmt && (s.cs == d.cs || !IsYuv(s.fmt))) return Rotate(s, rotation, d);
    OwnedImg tmp = MakeImage(d.fmt, s.w, s.h, d.cs);
    if (!tmp.mem) return ZOCA_ERR_DESTINATION;
    rc = Convert(s, tmp.img, false);
    return rc != ZOCA_OK ? rc : Rotate(tmp.img, rotation, d);
}

int vexa_crop(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    Img s, d;
    int rc = CheckPair(src, dst, &s, &d);
    if (rc != ZOCA_OK) return rc;
    if (src->startX < 0 || src->startY < 0) return ZOCA_ERR_INVALID;
    if (s.fmt != d.fmt) return ZOCA_ERR_UNSUPPORTED;
    rc = DestinationFits(dst, s, d, d.w, d.h);
    if (rc != ZOCA_OK) return rc;
    if (d.w > s.w - src->startX || d.h > s.h - src->startY) return ZOCA_ERR_DESTINATION;
    return Crop(s, src->startX, src->startY, d);
}

int vexa_cgc(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    Img s, d;
    int rc = CheckPair(src, dst, &s, &d);
    if (rc != ZOCA_OK) return rc;
    rc = DestinationFits(dst, s, d, s.w, s.h);
    if (rc != ZOCA_OK) return rc;
    return GamutConvert(s, d);
}

int vexa_hdr_to_sdr(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst, int mode) {
    Img s, d;
    int rc = CheckPair(src, dst, &s, &d);
    if (rc != ZOCA_OK) return rc;
    if (mode < ZOCA_HDR_DEFAULT || mode > ZOCA_HDR_PQ_HIGHLIGHTS) return ZOCA_ERR_UNSUPPORTED;
    rc = DestinationFits(dst, s, d, s.w, s.h);
    if (rc != ZOCA_OK) return rc;
    return ToneMap(s, d, mode);
}

}  // extern "C"
