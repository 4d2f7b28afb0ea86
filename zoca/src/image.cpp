#include "image.h"

#include <climits>
#include <new>

namespace zoca {
namespace {

constexpr int kMaxDimension = 32768;

}  // namespace

bool KnownFormat(int fmt) {
    switch (fmt) {
        case ZOCA_CF_I420:
        case ZOCA_CF_NV12:
        case ZOCA_CF_NV21:
        case ZOCA_CF_RGB:
        case ZOCA_CF_BGR:
        case ZOCA_CF_RGBA:
        case ZOCA_CF_BGRA:
        case ZOCA_CF_ARGB:
            return true;
        default:
            return false;
    }
}

bool KnownColorSpace(int cs) {
    switch (cs) {
        case ZOCA_CS_BT601:
        case ZOCA_CS_BT601_FULL:
        case ZOCA_CS_BT709:
        case ZOCA_CS_BT709_FULL:
        case ZOCA_CS_BT2020:
        case ZOCA_CS_BT2020_FULL:
        case ZOCA_CS_DISPLAY_P3:
            return true;
        default:
            return false;
    }
}

bool IsYuv(int fmt) {
    return fmt == ZOCA_CF_I420 || fmt == ZOCA_CF_NV12 || fmt == ZOCA_CF_NV21;
}

Layout LayoutOf(int fmt) {
    switch (fmt) {
        case ZOCA_CF_I420:
            return Layout::I420;
        case ZOCA_CF_NV12:
            return Layout::NV12;
        case ZOCA_CF_NV21:
            return Layout::NV21;
        default:
            return Layout::Packed;
    }
}

PackedOrder OrderOf(int fmt) {
    switch (fmt) {
        case ZOCA_CF_RGB:
            return {3, 0, 1, 2, -1};
        case ZOCA_CF_BGR:
            return {3, 2, 1, 0, -1};
        case ZOCA_CF_RGBA:
            return {4, 0, 1, 2, 3};
        case ZOCA_CF_BGRA:
            return {4, 2, 1, 0, 3};
        case ZOCA_CF_ARGB:
            return {4, 1, 2, 3, 0};
        default:
            return {0, 0, 0, 0, -1};
    }
}

int PlaneCount(int fmt) {
    switch (LayoutOf(fmt)) {
        case Layout::I420:
            return 3;
        case Layout::NV12:
        case Layout::NV21:
            return 2;
        default:
            return 1;
    }
}

int RowBytes(int fmt, int plane, int w) {
    if (plane == 0) return LayoutOf(fmt) == Layout::Packed ? w * OrderOf(fmt).bpp : w;
    const int cw = (w + 1) / 2;
    return LayoutOf(fmt) == Layout::I420 ? cw : 2 * cw;
}

int PlaneRows(int /*fmt*/, int plane, int h) {
    return plane == 0 ? h : (h + 1) / 2;
}

int CheckRecord(const _ZOCA_IMGB* rec, bool need_addr, Img* out) {
    if (rec == nullptr) return ZOCA_ERR_INVALID;
    const int fmt = rec->colorFormat;
    if (!KnownFormat(fmt) || !KnownColorSpace(rec->colorSpace)) return ZOCA_ERR_UNSUPPORTED;
    const int w = rec->width[0];
    const int h = rec->height[0];
    if (w <= 0 || h <= 0 || w > kMaxDimension || h > kMaxDimension) return ZOCA_ERR_INVALID;

    Img img;
    img.fmt = fmt;
    img.cs = rec->colorSpace;
    img.w = w;
    img.h = h;
    const int planes = PlaneCount(fmt);
    for (int p = 0; p < planes; ++p) {
        // Chroma planes count samples (I420) or Cb,Cr pairs (NV12/NV21): both (n+1)/2.
        const int want_w = p == 0 ? w : (w + 1) / 2;
        const int rows = PlaneRows(fmt, p, h);
        if (rec->width[p] != want_w || rec->height[p] != rows) return ZOCA_ERR_INVALID;
        if (rec->stride[p] < RowBytes(fmt, p, w)) return ZOCA_ERR_INVALID;
        if (rec->scanlines[p] < rows) return ZOCA_ERR_INVALID;
        // libyuv indexes planes with int arithmetic.
        if (static_cast<int64_t>(rec->stride[p]) * rows > INT_MAX) return ZOCA_ERR_INVALID;
        if (need_addr && rec->addr[p] == 0) return ZOCA_ERR_INVALID;
        img.p[p] = reinterpret_cast<uint8_t*>(rec->addr[p]);
        img.s[p] = rec->stride[p];
    }
    // Planes of one picture must not share bytes: writing one would corrupt another.
    for (int a = 0; a < planes; ++a) {
        for (int b = a + 1; b < planes; ++b) {
            if (img.p[a] == nullptr || img.p[b] == nullptr) continue;
            const uintptr_t a0 = rec->addr[a];
            const uintptr_t a1 = a0 +
                                 static_cast<uintptr_t>(img.s[a]) * (PlaneRows(fmt, a, h) - 1) +
                                 RowBytes(fmt, a, w);
            const uintptr_t b0 = rec->addr[b];
            const uintptr_t b1 = b0 +
                                 static_cast<uintptr_t>(img.s[b]) * (PlaneRows(fmt, b, h) - 1) +
                                 RowBytes(fmt, b, w);
            if (a0 < b1 && b0 < a1) return ZOCA_ERR_INVALID;
        }
    }
    *out = img;
    return ZOCA_OK;
}

int CheckDestinationMemory(const _ZOCA_IMGB* rec) {
    for (int p = 0; p < PlaneCount(rec->colorFormat); ++p) {
        if (rec->addr[p] == 0) return ZOCA_ERR_DESTINATION;
    }
    return ZOCA_OK;
}

bool Overlaps(const Img& a, const Img& b) {
    for (int i = 0; i < PlaneCount(a.fmt); ++i) {
        const uintptr_t a0 = reinterpret_cast<uintptr_t>(a.p[i]);
        const uintptr_t a1 = a0 + static_cast<uintptr_t>(a.s[i]) * (PlaneRows(a.fmt, i, a.h) - 1) +
                             RowBytes(a.fmt, i, a.w);
        for (int j = 0; j < PlaneCount(b.fmt); ++j) {
            const uintptr_t b0 = reinterpret_cast<uintptr_t>(b.p[j]);
            const uintptr_t b1 = b0 +
                                 static_cast<uintptr_t>(b.s[j]) * (PlaneRows(b.fmt, j, b.h) - 1) +
                                 RowBytes(b.fmt, j, b.w);
            if (a0 < b1 && b0 < a1) return true;
        }
    }
    return false;
}

OwnedImg MakeImage(int fmt, int w, int h, int cs) {
    OwnedImg out;
    Img& img = out.img;
    img.fmt = fmt;
    img.cs = cs;
    img.w = w;
    img.h = h;
    size_t total = 0;
    size_t offset[3] = {0, 0, 0};
    for (int p = 0; p < PlaneCount(fmt); ++p) {
        // Rows start on 32-byte boundaries so libyuv takes its aligned paths.
        img.s[p] = (RowBytes(fmt, p, w) + 31) & ~31;
        offset[p] = total;
        total += static_cast<size_t>(img.s[p]) * PlaneRows(fmt, p, h);
    }
    out.mem.reset(new (std::nothrow) uint8_t[total + 64]);
    if (!out.mem) return out;
    uint8_t* base = out.mem.get();
    base += (32 - (reinterpret_cast<uintptr_t>(base) & 31)) & 31;
    for (int p = 0; p < PlaneCount(fmt); ++p) img.p[p] = base + offset[p];
    return out;
}

}  // namespace zoca
