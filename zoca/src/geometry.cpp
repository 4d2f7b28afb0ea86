#include "geometry.h"

#include <libyuv.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

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

// The chroma planes of a 4:2:0 picture as channel groups: one per plane (I420), one
// interleaved pair (NV12/NV21; the order of the pair does not matter here).
int ChromaGroups(const Img& img, Channels out[2]) {
    if (LayoutOf(img.fmt) == Layout::I420) {
        out[0] = {img.p[1], img.s[1], 1};
        out[1] = {img.p[2], img.s[2], 1};
        return 2;
    }
    out[0] = {img.p[1], img.s[1], 2};
    return 1;
}

int ScaleResampled(const Img& src, const Img& dst, Simd simd) {
    const int n = IsYuv(src.fmt) ? 1 : OrderOf(src.fmt).bpp;
    int rc = Resample({src.p[0], src.s[0], n}, src.w, src.h, 0, 0, src.w, src.h,
                      {dst.p[0], dst.s[0], n}, dst.w, dst.h, simd);
    if (rc != ZOCA_OK || !IsYuv(src.fmt)) return rc;
    // Chroma sample i covers luma columns 2i and 2i + 1. The destination's chroma plane
    // spans 2 * dcw of its luma columns (one more than the picture when dw is odd),
    // which is that many times src.w / dst.w luma columns of the source.
    const int cw = (src.w + 1) / 2;
    const int ch = (src.h + 1) / 2;
    const int dcw = (dst.w + 1) / 2;
    const int dch = (dst.h + 1) / 2;
    const double rw = static_cast<double>(dcw) * src.w / dst.w;
    const double rh = static_cast<double>(dch) * src.h / dst.h;
    Channels s[2], d[2];
    const int groups = ChromaGroups(src, s);
    ChromaGroups(dst, d);
    for (int g = 0; g < groups && rc == ZOCA_OK; ++g) {
        rc = Resample(s[g], cw, ch, 0, 0, rw, rh, d[g], dcw, dch, simd);
    }
    return rc;
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

int Scale(const Img& src, const Img& dst, Simd simd) {
    if (src.w == dst.w && src.h == dst.h) {
        CopyPlanes(src, dst, false);
        return ZOCA_OK;
    }
    return ScaleResampled(src, dst, simd);
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

int Crop(const Img& src, int x, int y, const Img& dst) {
    const int bpp = IsYuv(src.fmt) ? 1 : OrderOf(src.fmt).bpp;
    libyuv::CopyPlane(src.p[0] + static_cast<ptrdiff_t>(y) * src.s[0] + x * bpp, src.s[0], dst.p[0],
                      dst.s[0], dst.w * bpp, dst.h);
    if (!IsYuv(src.fmt)) return ZOCA_OK;
    // Destination chroma sample i sits at source luma x + 2i + 0.5, which is source chroma
    // sample x / 2 + i: a whole sample for even x, halfway between two for odd x.
    Channels s[2], d[2];
    const int groups = ChromaGroups(src, s);
    ChromaGroups(dst, d);
    const int dcw = (dst.w + 1) / 2;
    const int dch = (dst.h + 1) / 2;
    for (int g = 0; g < groups; ++g) {
        if (x % 2 == 0 && y % 2 == 0) {
            libyuv::CopyPlane(
                s[g].base + static_cast<ptrdiff_t>(y / 2) * s[g].stride + x / 2 * s[g].n,
                s[g].stride, d[g].base, d[g].stride, dcw * d[g].n, dch);
            continue;
        }
        const int rc = Resample(s[g], (src.w + 1) / 2, (src.h + 1) / 2, x / 2.0, y / 2.0, dcw, dch,
                                d[g], dcw, dch);
        if (rc != ZOCA_OK) return rc;
    }
    return ZOCA_OK;
}

}  // namespace zoca
