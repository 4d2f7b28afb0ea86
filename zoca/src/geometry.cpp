#include "geometry.h"

#include <libyuv.h>

#include <algorithm>
#include <cstring>

namespace zoca {
namespace {

void CopyPlanes(const Img& src, const Img& dst, bool flip) {
    for (int p = 0; p < PlaneCount(src.fmt); ++p) {
        const int rows = PlaneRows(src.fmt, p, src.h);
        // libyuv reads a negative height as "bottom row first".
        libyuv::CopyPlane(src.p[p], src.s[p], dst.p[p], dst.s[p], RowBytes(src.fmt, p, src.w),
                          flip ? -rows : rows);
    }
}

// libyuv has no quarter turn for 3-byte pixels; tiles keep both sides in cache.
void Rotate3(const Img& src, bool clockwise, const Img& dst) {
    constexpr int kTile = 32;
    const int w = src.w;
    const int h = src.h;
    for (int ty = 0; ty < dst.h; ty += kTile) {
        for (int tx = 0; tx < dst.w; tx += kTile) {
            const int ey = std::min(ty + kTile, dst.h);
            const int ex = std::min(tx + kTile, dst.w);
            for (int dy = ty; dy < ey; ++dy) {
                uint8_t* out = dst.p[0] + static_cast<ptrdiff_t>(dy) * dst.s[0];
                for (int dx = tx; dx < ex; ++dx) {
                    // Clockwise: dst(dx, dy) = src(dy, h - 1 - dx); counter: src(w - 1 - dy, dx).
                    const int sx = clockwise ? dy : w - 1 - dy;
                    const int sy = clockwise ? h - 1 - dx : dx;
                    const uint8_t* in = src.p[0] + static_cast<ptrdiff_t>(sy) * src.s[0] + sx * 3;
                    std::memcpy(out + dx * 3, in, 3);
                }
            }
        }
    }
}

// libyuv's interleaved scalers (ARGB, and the Cb,Cr plane of NV12) filter bilinearly
// at best, which aliases once a picture shrinks by more than half, and its RGBScale
// point-samples. Such planes are split into one plane per byte, scaled with the plane
// scaler (box when shrinking) and interleaved again.
int ScaleInterleaved(const uint8_t* s, int ss, int sw, int sh, uint8_t* d, int ds, int dw, int dh,
                     int channels, libyuv::FilterMode filter) {
    const size_t src_plane = static_cast<size_t>(sw) * sh;
    const size_t dst_plane = static_cast<size_t>(dw) * dh;
    std::unique_ptr<uint8_t[]> tmp(new (std::nothrow) uint8_t[channels * (src_plane + dst_plane)]);
    if (!tmp) return ZOCA_ERR_DESTINATION;
    uint8_t* sp[4];
    uint8_t* dp[4];
    for (int c = 0; c < channels; ++c) {
        sp[c] = tmp.get() + c * src_plane;
        dp[c] = tmp.get() + channels * src_plane + c * dst_plane;
    }
    switch (channels) {
        case 2:
            libyuv::SplitUVPlane(s, ss, sp[0], sw, sp[1], sw, sw, sh);
            break;
        case 3:
            libyuv::SplitRGBPlane(s, ss, sp[0], sw, sp[1], sw, sp[2], sw, sw, sh);
            break;
        default:
            libyuv::SplitARGBPlane(s, ss, sp[0], sw, sp[1], sw, sp[2], sw, sp[3], sw, sw, sh);
            break;
    }
    for (int c = 0; c < channels; ++c) {
        libyuv::ScalePlane(sp[c], sw, sw, sh, dp[c], dw, dw, dh, filter);
    }
    switch (channels) {
        case 2:
            libyuv::MergeUVPlane(dp[0], dw, dp[1], dw, d, ds, dw, dh);
            break;
        case 3:
            libyuv::MergeRGBPlane(dp[0], dw, dp[1], dw, dp[2], dw, d, ds, dw, dh);
            break;
        default:
            libyuv::MergeARGBPlane(dp[0], dw, dp[1], dw, dp[2], dw, dp[3], dw, d, ds, dw, dh);
            break;
    }
    return ZOCA_OK;
}

libyuv::RotationMode ModeOf(int code) {
    switch (code) {
        case ZOCA_ROT_270:
            return libyuv::kRotate270;
        case ZOCA_ROT_90:
            return libyuv::kRotate90;
        case ZOCA_ROT_180:
            return libyuv::kRotate180;
        default:
            return libyuv::kRotate0;
    }
}

int RotatePacked(const Img& src, int code, const Img& dst) {
    const int bpp = OrderOf(src.fmt).bpp;
    if (code == ZOCA_ROT_MIRROR_V) {
        CopyPlanes(src, dst, true);
        return ZOCA_OK;
    }
    if (bpp == 4) {
        if (code == ZOCA_ROT_MIRROR_H) {
            libyuv::ARGBMirror(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h);
        } else {
            libyuv::ARGBRotate(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h, ModeOf(code));
        }
        return ZOCA_OK;
    }
    switch (code) {
        case ZOCA_ROT_MIRROR_H:
            libyuv::RGB24Mirror(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h);
            break;
        case ZOCA_ROT_180:  // a mirror read bottom row first
            libyuv::RGB24Mirror(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, -src.h);
            break;
        default:
            Rotate3(src, code == ZOCA_ROT_90, dst);
            break;
    }
    return ZOCA_OK;
}

int RotateI420(const Img& src, int code, const Img& dst) {
    switch (code) {
        case ZOCA_ROT_MIRROR_H:
            libyuv::I420Mirror(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2], dst.p[0],
                               dst.s[0], dst.p[1], dst.s[1], dst.p[2], dst.s[2], src.w, src.h);
            return ZOCA_OK;
        case ZOCA_ROT_MIRROR_V:
            CopyPlanes(src, dst, true);
            return ZOCA_OK;
        default:
            libyuv::I420Rotate(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2], dst.p[0],
                               dst.s[0], dst.p[1], dst.s[1], dst.p[2], dst.s[2], src.w, src.h,
                               ModeOf(code));
            return ZOCA_OK;
    }
}

int RotateNV(const Img& src, int code, const Img& dst) {
    const int cw = (src.w + 1) / 2;
    const int ch = (src.h + 1) / 2;
    switch (code) {
        case ZOCA_ROT_MIRROR_H:
            // Mirrors Cb,Cr pairs as units, so it serves NV21 as well.
            libyuv::NV12Mirror(src.p[0], src.s[0], src.p[1], src.s[1], dst.p[0], dst.s[0], dst.p[1],
                               dst.s[1], src.w, src.h);
            return ZOCA_OK;
        case ZOCA_ROT_MIRROR_V:
            CopyPlanes(src, dst, true);
            return ZOCA_OK;
        case ZOCA_ROT_180:
            libyuv::RotatePlane(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h,
                                libyuv::kRotate180);
            libyuv::MirrorUVPlane(src.p[1], src.s[1], dst.p[1], dst.s[1], cw, -ch);
            return ZOCA_OK;
        default:
            break;
    }
    // Quarter turns: libyuv turns interleaved chroma only into two planes, so the
    // halves are turned apart and interleaved again.
    const int tw = ch;  // turned chroma plane: ch samples wide, cw rows
    const int tstride = (tw + 31) & ~31;
    std::unique_ptr<uint8_t[]> tmp(new (std::nothrow)
                                       uint8_t[2 * static_cast<size_t>(tstride) * cw]);
    if (!tmp) return ZOCA_ERR_DESTINATION;
    uint8_t* a = tmp.get();
    uint8_t* b = a + static_cast<size_t>(tstride) * cw;
    libyuv::RotatePlane(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h, ModeOf(code));
    libyuv::SplitRotateUV(src.p[1], src.s[1], a, tstride, b, tstride, cw, ch, ModeOf(code));
    libyuv::MergeUVPlane(a, tstride, b, tstride, dst.p[1], dst.s[1], tw, cw);
    return ZOCA_OK;
}

}  // namespace

bool SwapsAxes(int code) {
    return code == ZOCA_ROT_90 || code == ZOCA_ROT_270;
}

int Scale(const Img& src, const Img& dst) {
    if (src.w == dst.w && src.h == dst.h) {
        CopyPlanes(src, dst, false);
        return ZOCA_OK;
    }
    // Box averages every source pixel when shrinking; libyuv would fall back to
    // bilinear anyway along an axis that grows.
    const libyuv::FilterMode filter =
        dst.w <= src.w && dst.h <= src.h ? libyuv::kFilterBox : libyuv::kFilterBilinear;
    const bool deep = 2 * dst.w < src.w || 2 * dst.h < src.h;
    const int cw = (src.w + 1) / 2;
    const int ch = (src.h + 1) / 2;
    const int dcw = (dst.w + 1) / 2;
    const int dch = (dst.h + 1) / 2;
    int rc = 0;
    switch (LayoutOf(src.fmt)) {
        case Layout::I420:
            rc = libyuv::I420Scale(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2],
                                   src.w, src.h, dst.p[0], dst.s[0], dst.p[1], dst.s[1], dst.p[2],
                                   dst.s[2], dst.w, dst.h, filter);
            break;
        case Layout::NV12:
        case Layout::NV21:
            if (!deep) {
                rc =
                    libyuv::NV12Scale(src.p[0], src.s[0], src.p[1], src.s[1], src.w, src.h,
                                      dst.p[0], dst.s[0], dst.p[1], dst.s[1], dst.w, dst.h, filter);
                break;
            }
            libyuv::ScalePlane(src.p[0], src.s[0], src.w, src.h, dst.p[0], dst.s[0], dst.w, dst.h,
                               filter);
            rc = ScaleInterleaved(src.p[1], src.s[1], cw, ch, dst.p[1], dst.s[1], dcw, dch, 2,
                                  filter);
            break;
        default:
            if (OrderOf(src.fmt).bpp == 4 && !deep) {
                rc = libyuv::ARGBScale(src.p[0], src.s[0], src.w, src.h, dst.p[0], dst.s[0], dst.w,
                                       dst.h, filter);
            } else {
                rc = ScaleInterleaved(src.p[0], src.s[0], src.w, src.h, dst.p[0], dst.s[0], dst.w,
                                      dst.h, OrderOf(src.fmt).bpp, filter);
            }
            break;
    }
    return rc == 0 ? ZOCA_OK : ZOCA_ERR_DESTINATION;
}

int Rotate(const Img& src, int code, const Img& dst) {
    if (code == ZOCA_ROT_NONE) {
        CopyPlanes(src, dst, false);
        return ZOCA_OK;
    }
    switch (LayoutOf(src.fmt)) {
        case Layout::I420:
            return RotateI420(src, code, dst);
        case Layout::NV12:
        case Layout::NV21:
            return RotateNV(src, code, dst);
        default:
            return RotatePacked(src, code, dst);
    }
}

void Crop(const Img& src, int x, int y, const Img& dst) {
    for (int p = 0; p < PlaneCount(src.fmt); ++p) {
        const int px = p == 0 ? x : x / 2;
        const int py = p == 0 ? y : y / 2;
        // Byte offset of column px: plane 0 and NV chroma both hold RowBytes(.., 1) per column.
        const int bytes_per_col = RowBytes(src.fmt, p, 2) / (p == 0 ? 2 : 1);
        const uint8_t* from = src.p[p] + static_cast<ptrdiff_t>(py) * src.s[p] + px * bytes_per_col;
        libyuv::CopyPlane(from, src.s[p], dst.p[p], dst.s[p], RowBytes(dst.fmt, p, dst.w),
                          PlaneRows(dst.fmt, p, dst.h));
    }
}

}  // namespace zoca
