// Pictures over std::vector planes, with records laid out the way the plugin fills them.
// Each plane is its own allocation of exactly the bytes its rows span, 64-byte aligned
// (so that strides decide whether libraries take their aligned paths), and a read or
// write past the last row lands outside it (AddressSanitizer reports it); the bytes
// between the end of a row and the stride are filled with a sentinel to check later.
#ifndef TESTS_ZOCA_TESTIMAGE_H
#define TESTS_ZOCA_TESTIMAGE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zoca/zoca.h"

namespace zt {

constexpr uint8_t kSentinel = 0xA5;

inline bool IsYuv(int fmt) {
    return fmt == ZOCA_CF_I420 || fmt == ZOCA_CF_NV12 || fmt == ZOCA_CF_NV21;
}

inline int Bpp(int fmt) {
    if (fmt == ZOCA_CF_RGB || fmt == ZOCA_CF_BGR) return 3;
    return IsYuv(fmt) ? 1 : 4;
}

// Byte offsets of R, G, B, A in a packed pixel (A = -1 when absent).
struct Order {
    int r, g, b, a;
};

inline Order OrderOf(int fmt) {
    switch (fmt) {
        case ZOCA_CF_RGB:
            return {0, 1, 2, -1};
        case ZOCA_CF_BGR:
            return {2, 1, 0, -1};
        case ZOCA_CF_RGBA:
            return {0, 1, 2, 3};
        case ZOCA_CF_BGRA:
            return {2, 1, 0, 3};
        default:
            return {1, 2, 3, 0};
    }
}

inline std::string FormatName(int fmt) {
    switch (fmt) {
        case ZOCA_CF_I420:
            return "I420";
        case ZOCA_CF_NV12:
            return "NV12";
        case ZOCA_CF_NV21:
            return "NV21";
        case ZOCA_CF_RGB:
            return "RGB";
        case ZOCA_CF_BGR:
            return "BGR";
        case ZOCA_CF_RGBA:
            return "RGBA";
        case ZOCA_CF_BGRA:
            return "BGRA";
        default:
            return "ARGB";
    }
}

const int kYuvFormats[] = {ZOCA_CF_I420, ZOCA_CF_NV12, ZOCA_CF_NV21};
const int kPackedFormats[] = {ZOCA_CF_RGB, ZOCA_CF_BGR, ZOCA_CF_RGBA, ZOCA_CF_BGRA, ZOCA_CF_ARGB};
const int kAllFormats[] = {ZOCA_CF_I420, ZOCA_CF_NV12, ZOCA_CF_NV21, ZOCA_CF_RGB,
                           ZOCA_CF_BGR,  ZOCA_CF_RGBA, ZOCA_CF_BGRA, ZOCA_CF_ARGB};
const int kColorSpaces[] = {0, 1, 10, 11, 20, 21, 30};

struct Rgb {
    int r, g, b;
};

class TestImage {
  public:
    // pad: extra pixels per row beyond the width (the plugin's stride in pixels is w + pad).
    TestImage(int fmt, int w, int h, int cs = 0, int pad = 0) : fmt_(fmt), w_(w), h_(h) {
        std::memset(&rec, 0, sizeof(rec));
        rec.colorFormat = fmt;
        rec.colorSpace = cs;
        const int sp = w + pad;
        const int cw = (w + 1) >> 1;
        const int ch = (h + 1) >> 1;
        rec.width[0] = w;
        rec.height[0] = h;
        rec.scanlines[0] = h;
        if (fmt == ZOCA_CF_NV12 || fmt == ZOCA_CF_NV21) {
            rec.stride[0] = sp;
            rec.width[1] = cw;
            rec.height[1] = ch;
            rec.scanlines[1] = ch;
            rec.stride[1] = (sp + 1) & ~1;
            planes_ = 2;
        } else if (fmt == ZOCA_CF_I420) {
            rec.stride[0] = sp;
            for (int p = 1; p < 3; ++p) {
                rec.width[p] = cw;
                rec.height[p] = ch;
                rec.scanlines[p] = ch;
                rec.stride[p] = (sp + 1) >> 1;
            }
            planes_ = 3;
        } else {
            rec.stride[0] = Bpp(fmt) * sp;
            planes_ = 1;
        }
        for (int p = 0; p < planes_; ++p) {
            const size_t size =
                static_cast<size_t>(rec.stride[p]) * (rec.height[p] - 1) + RowBytes(p);
            void* mem = nullptr;
            if (posix_memalign(&mem, 64, size) != 0) std::abort();
            mem_[p].reset(static_cast<uint8_t*>(mem));
            std::memset(mem, kSentinel, size);
            rec.addr[p] = reinterpret_cast<uintptr_t>(mem);
        }
    }

    TestImage(const TestImage&) = delete;
    TestImage& operator=(const TestImage&) = delete;

    int fmt() const { return fmt_; }
    int w() const { return w_; }
    int h() const { return h_; }
    int planes() const { return planes_; }
    _ZOCA_IMGB* r() { return &rec; }

    int RowBytes(int p) const {
        if (p == 0) return w_ * Bpp(fmt_);
        return fmt_ == ZOCA_CF_I420 ? (w_ + 1) / 2 : 2 * ((w_ + 1) / 2);
    }

    uint8_t* Row(int p, int y) { return mem_[p].get() + static_cast<size_t>(y) * rec.stride[p]; }
    const uint8_t* Row(int p, int y) const {
        return mem_[p].get() + static_cast<size_t>(y) * rec.stride[p];
    }

    // YUV samples; chroma coordinates are in the chroma grid.
    uint8_t& Y(int x, int y) { return Row(0, y)[x]; }
    uint8_t& U(int cx, int cy) {
        if (fmt_ == ZOCA_CF_I420) return Row(1, cy)[cx];
        return Row(1, cy)[2 * cx + (fmt_ == ZOCA_CF_NV12 ? 0 : 1)];
    }
    uint8_t& V(int cx, int cy) {
        if (fmt_ == ZOCA_CF_I420) return Row(2, cy)[cx];
        return Row(1, cy)[2 * cx + (fmt_ == ZOCA_CF_NV12 ? 1 : 0)];
    }

    // Packed pixels.
    uint8_t* Px(int x, int y) { return Row(0, y) + x * Bpp(fmt_); }
    Rgb GetRgb(int x, int y) {
        const Order o = OrderOf(fmt_);
        const uint8_t* p = Px(x, y);
        return {p[o.r], p[o.g], p[o.b]};
    }
    void SetRgb(int x, int y, Rgb c, int alpha = 255) {
        const Order o = OrderOf(fmt_);
        uint8_t* p = Px(x, y);
        p[o.r] = static_cast<uint8_t>(c.r);
        p[o.g] = static_cast<uint8_t>(c.g);
        p[o.b] = static_cast<uint8_t>(c.b);
        if (o.a >= 0) p[o.a] = static_cast<uint8_t>(alpha);
    }
    int Alpha(int x, int y) {
        const Order o = OrderOf(fmt_);
        return o.a >= 0 ? Px(x, y)[o.a] : -1;
    }

    void FillRgb(const std::function<Rgb(int, int)>& f) {
        for (int y = 0; y < h_; ++y)
            for (int x = 0; x < w_; ++x) SetRgb(x, y, f(x, y));
    }
    void FillYuv(const std::function<void(int, int, uint8_t&)>& fy,
                 const std::function<void(int, int, uint8_t&, uint8_t&)>& fc) {
        for (int y = 0; y < h_; ++y)
            for (int x = 0; x < w_; ++x) fy(x, y, Y(x, y));
        for (int y = 0; y < (h_ + 1) / 2; ++y)
            for (int x = 0; x < (w_ + 1) / 2; ++x) fc(x, y, U(x, y), V(x, y));
    }
    // Deterministic pseudo-random content in every sample of every plane.
    void FillNoise(uint32_t seed) {
        for (int p = 0; p < planes_; ++p)
            for (int y = 0; y < rec.height[p]; ++y)
                for (int x = 0; x < RowBytes(p); ++x) {
                    seed = seed * 1664525u + 1013904223u;
                    Row(p, y)[x] = static_cast<uint8_t>(seed >> 24);
                }
    }

    // Bytes between rows must never be written.
    bool PaddingIntact() const {
        for (int p = 0; p < planes_; ++p)
            for (int y = 0; y + 1 < rec.height[p]; ++y)
                for (int x = RowBytes(p); x < rec.stride[p]; ++x)
                    if (Row(p, y)[x] != kSentinel) return false;
        return true;
    }

    // Visible samples of two pictures of the same format and size are identical.
    bool SameContent(const TestImage& o) const {
        if (o.fmt_ != fmt_ || o.w_ != w_ || o.h_ != h_) return false;
        for (int p = 0; p < planes_; ++p)
            for (int y = 0; y < rec.height[p]; ++y)
                if (std::memcmp(Row(p, y), o.Row(p, y), RowBytes(p)) != 0) return false;
        return true;
    }

    // Largest absolute difference over every visible sample.
    int MaxDiff(const TestImage& o) const {
        int m = 0;
        for (int p = 0; p < planes_; ++p)
            for (int y = 0; y < rec.height[p]; ++y)
                for (int x = 0; x < RowBytes(p); ++x)
                    m = std::max(m, std::abs(Row(p, y)[x] - o.Row(p, y)[x]));
        return m;
    }

    _ZOCA_IMGB rec;

  private:
    int fmt_, w_, h_, planes_ = 0;
    struct Free {
        void operator()(uint8_t* m) const { std::free(m); }
    };
    std::unique_ptr<uint8_t, Free> mem_[3];
};

// Smooth colour content (gradients plus a gentle wave) that 4:2:0 keeps well.
inline Rgb SmoothPattern(int x, int y, int w, int h) {
    const double fx = static_cast<double>(x) / std::max(w - 1, 1);
    const double fy = static_cast<double>(y) / std::max(h - 1, 1);
    const double wave = 0.5 + 0.5 * std::sin(6.0 * fx + 4.0 * fy);
    return {static_cast<int>(std::lround(30 + 200 * fx)),
            static_cast<int>(std::lround(40 + 180 * fy)),
            static_cast<int>(std::lround(20 + 210 * wave))};
}

// Peak signal-to-noise ratio of two packed pictures over R, G and B.
inline double PsnrRgb(TestImage& a, TestImage& b) {
    double se = 0;
    for (int y = 0; y < a.h(); ++y)
        for (int x = 0; x < a.w(); ++x) {
            const Rgb p = a.GetRgb(x, y);
            const Rgb q = b.GetRgb(x, y);
            se += (p.r - q.r) * (p.r - q.r) + (p.g - q.g) * (p.g - q.g) + (p.b - q.b) * (p.b - q.b);
        }
    const double mse = se / (3.0 * a.w() * a.h());
    return mse == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

// Matrix and range of a colour space code, from the published coefficients.
struct YuvRef {
    double kr, kb;
    bool full;
};

inline YuvRef RefOf(int cs) {
    switch (cs) {
        case 1:
            return {0.299, 0.114, true};
        case 10:
        case 30:
            return {0.2126, 0.0722, false};
        case 11:
            return {0.2126, 0.0722, true};
        case 20:
            return {0.2627, 0.0593, false};
        case 21:
            return {0.2627, 0.0593, true};
        default:
            return {0.299, 0.114, false};
    }
}

struct Yuv {
    double y, u, v;
};

inline Yuv RgbToYuvRef(Rgb c, int cs) {
    const YuvRef m = RefOf(cs);
    const double kg = 1 - m.kr - m.kb;
    const double r = c.r / 255.0, g = c.g / 255.0, b = c.b / 255.0;
    const double yl = m.kr * r + kg * g + m.kb * b;
    const double pb = (b - yl) / (2 * (1 - m.kb));
    const double pr = (r - yl) / (2 * (1 - m.kr));
    if (m.full) return {255 * yl, 128 + 255 * pb, 128 + 255 * pr};
    return {16 + 219 * yl, 128 + 224 * pb, 128 + 224 * pr};
}

struct RgbF {
    double r, g, b;
};

inline RgbF YuvToRgbRef(double y, double u, double v, int cs) {
    const YuvRef m = RefOf(cs);
    const double kg = 1 - m.kr - m.kb;
    const double yl = m.full ? y / 255 : (y - 16) / 219;
    const double pb = (u - 128) / (m.full ? 255 : 224);
    const double pr = (v - 128) / (m.full ? 255 : 224);
    const double r = yl + 2 * (1 - m.kr) * pr;
    const double b = yl + 2 * (1 - m.kb) * pb;
    const double g = (yl - m.kr * r - m.kb * b) / kg;
    auto c = [](double x) { return std::min(std::max(x * 255, 0.0), 255.0); };
    return {c(r), c(g), c(b)};
}

}  // namespace zt

#endif  // TESTS_ZOCA_TESTIMAGE_H
