#include "convert.h"

#include <libyuv.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace zoca {
namespace {

enum class MatrixId { BT601, BT709, BT2020 };

struct Matrix {
    MatrixId id;
    bool full;
    double kr, kb;
    const libyuv::YuvConstants* yuv;  // libyuv's tables with U before V
    const libyuv::YuvConstants* yvu;  // the same with U and V exchanged (R and B swap)
};

Matrix MatrixOf(int cs) {
    switch (cs) {
        case ZOCA_CS_BT601_FULL:
            return {MatrixId::BT601,           true, 0.299, 0.114, &libyuv::kYuvJPEGConstants,
                    &libyuv::kYvuJPEGConstants};
        case ZOCA_CS_BT709:
        case ZOCA_CS_DISPLAY_P3:
            return {MatrixId::BT709,           false, 0.2126, 0.0722, &libyuv::kYuvH709Constants,
                    &libyuv::kYvuH709Constants};
        case ZOCA_CS_BT709_FULL:
            return {MatrixId::BT709,           true, 0.2126, 0.0722, &libyuv::kYuvF709Constants,
                    &libyuv::kYvuF709Constants};
        case ZOCA_CS_BT2020:
            return {MatrixId::BT2020,          false, 0.2627, 0.0593, &libyuv::kYuv2020Constants,
                    &libyuv::kYvu2020Constants};
        case ZOCA_CS_BT2020_FULL:
            return {MatrixId::BT2020,           true, 0.2627, 0.0593, &libyuv::kYuvV2020Constants,
                    &libyuv::kYvuV2020Constants};
        case ZOCA_CS_BT601:
        default:
            return {MatrixId::BT601,           false, 0.299, 0.114, &libyuv::kYuvI601Constants,
                    &libyuv::kYvuI601Constants};
    }
}

bool SameMatrix(int a, int b) {
    const Matrix ma = MatrixOf(a);
    const Matrix mb = MatrixOf(b);
    return ma.id == mb.id && ma.full == mb.full;
}

// 4x4 Bayer thresholds 0..15: neighbouring pixels round at well spread points, so a
// 4x4 area averages to the unrounded value.
constexpr int kBayer[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};

// ---- own YUV <-> RGB, through planar rows ----
//
// Rows are split into one array per channel so that the arithmetic loops run over
// plain arrays, which the compiler vectorises; libyuv's SIMD split and merge routines
// do the (de)interleaving.

struct DecCoef {
    int32_t y, yoff, rv, gu, gv, bu;  // 16 fraction bits
};

DecCoef MakeDecCoef(const Matrix& m) {
    const double yr = m.full ? 255.0 : 219.0;
    const double cr = m.full ? 255.0 : 224.0;
    const double kg = 1.0 - m.kr - m.kb;
    const double one = 65536.0;
    auto q = [](double v) { return static_cast<int32_t>(std::lround(v)); };
    DecCoef k;
    k.y = q(255.0 / yr * one);
    k.yoff = m.full ? 0 : 16;
    k.rv = q(255.0 * 2 * (1 - m.kr) / cr * one);
    k.bu = q(255.0 * 2 * (1 - m.kb) / cr * one);
    k.gu = q(255.0 * 2 * m.kb * (1 - m.kb) / kg / cr * one);
    k.gv = q(255.0 * 2 * m.kr * (1 - m.kr) / kg / cr * one);
    return k;
}

// Luma at 16 fraction bits per pixel; chroma at 16 bits applied to the sum of a 2x2
// block, so its results carry 18 fraction bits.
struct EncCoef {
    int32_t yr, yg, yb, yoff;
    int32_t ur, ug, ub, vr, vg, vb;
};

EncCoef MakeEncCoef(const Matrix& m) {
    const double yr = m.full ? 255.0 : 219.0;
    const double cr = m.full ? 255.0 : 224.0;
    const double kg = 1.0 - m.kr - m.kb;
    const double one = 65536.0;
    auto q = [](double v) { return static_cast<int32_t>(std::lround(v)); };
    EncCoef k;
    k.yr = q(m.kr * yr / 255.0 * one);
    k.yg = q(kg * yr / 255.0 * one);
    k.yb = q(m.kb * yr / 255.0 * one);
    k.yoff = m.full ? 0 : 16;
    const double su = cr / 255.0 / (2 * (1 - m.kb)) * one;
    const double sv = cr / 255.0 / (2 * (1 - m.kr)) * one;
    k.ur = q(-m.kr * su);
    k.ug = q(-kg * su);
    k.ub = q((1 - m.kb) * su);
    k.vr = q((1 - m.kr) * sv);
    k.vg = q(-kg * sv);
    k.vb = q(-m.kb * sv);
    return k;
}

// Working rows for one call: two picture rows of planar R, G, B, A (a 4:2:0 chroma row
// spans two), the rounding offsets of the four Bayer rows, and chroma temporaries.
class Rows {
  public:
    Rows(int w, bool dither) : cw_((w + 1) / 2) {
        const size_t wp = (static_cast<size_t>(w) + 31) & ~size_t{31};
        const size_t cp = (static_cast<size_t>(cw_) + 31) & ~size_t{31};
        bytes_.reset(new (std::nothrow) uint8_t[9 * wp + 2 * cp]);
        words_.reset(new (std::nothrow) int32_t[4 * wp + 4 * cp + 3 * cp]);
        if (!bytes_ || !words_) return;
        uint8_t* b = bytes_.get();
        for (int i = 0; i < 2; ++i) {
            r[i] = b;
            g[i] = b + wp;
            b_[i] = b + 2 * wp;
            a[i] = b + 3 * wp;
            b += 4 * wp;
        }
        opaque = b;
        std::memset(opaque, 255, w);
        cu = b + wp;
        cv = cu + cp;
        int32_t* p = words_.get();
        for (int i = 0; i < 4; ++i) {
            luma_bias[i] = p + i * wp;
            chroma_bias[i] = p + 4 * wp + i * cp;
        }
        t0 = p + 4 * wp + 4 * cp;
        t1 = t0 + cp;
        t2 = t1 + cp;
        // Rounding offsets: a plain half, or the Bayer threshold of the pixel spread
        // over one output step (16 fraction bits for luma and RGB, 18 for chroma).
        for (int row = 0; row < 4; ++row) {
            for (int x = 0; x < w; ++x) {
                const int t = kBayer[row][x & 3];
                luma_bias[row][x] = dither ? (2 * t + 1) << 11 : 1 << 15;
            }
            for (int x = 0; x < cw_; ++x) {
                const int t = kBayer[row][x & 3];
                chroma_bias[row][x] = dither ? (2 * t + 1) << 13 : 1 << 17;
            }
        }
        ok_ = true;
    }

    bool ok() const { return ok_; }
    uint8_t* r[2];
    uint8_t* g[2];
    uint8_t* b_[2];
    uint8_t* a[2];
    bool has_alpha = false;
    uint8_t* opaque;
    uint8_t* cu;
    uint8_t* cv;
    int32_t* luma_bias[4];
    int32_t* chroma_bias[4];
    int32_t* t0;
    int32_t* t1;
    int32_t* t2;

  private:
    int cw_;
    bool ok_ = false;
    std::unique_ptr<uint8_t[]> bytes_;
    std::unique_ptr<int32_t[]> words_;
};

struct YuvPlanes {
    uint8_t* y;
    uint8_t* c0;  // I420: Cb plane; NV12/NV21: the interleaved plane
    uint8_t* c1;  // I420: Cr plane
    int sy, s0, s1;
    Layout layout;
};

YuvPlanes PlanesOf(const Img& img) {
    return {img.p[0], img.p[1], img.p[2], img.s[0], img.s[1], img.s[2], LayoutOf(img.fmt)};
}

// Cb and Cr of chroma row cr as two contiguous arrays.
void ChromaRow(const YuvPlanes& yp, int cr, int cw, Rows& s, const uint8_t** u, const uint8_t** v) {
    const uint8_t* c0 = yp.c0 + static_cast<ptrdiff_t>(cr) * yp.s0;
    if (yp.layout == Layout::I420) {
        *u = c0;
        *v = yp.c1 + static_cast<ptrdiff_t>(cr) * yp.s1;
        return;
    }
    libyuv::SplitUVPlane(c0, 0, s.cu, 0, s.cv, 0, cw, 1);
    *u = yp.layout == Layout::NV12 ? s.cu : s.cv;
    *v = yp.layout == Layout::NV12 ? s.cv : s.cu;
}

inline int32_t Clamp255i(int32_t v) {
    return std::min(std::max(v, 0), 255);
}

// Two luma samples share one set of chroma terms. Restrict-qualified so the compiler
// vectorises without run-time alias checks.
ZOCA_HOT void DecodePairs(const uint8_t* __restrict y, const int32_t* __restrict bias,
                          const int32_t* __restrict tr, const int32_t* __restrict tg,
                          const int32_t* __restrict tb, uint8_t* __restrict R,
                          uint8_t* __restrict G, uint8_t* __restrict B, int half, int32_t yoff,
                          int32_t ky) {
    for (int c = 0; c < half; ++c) {
        const int32_t y0 = (y[2 * c] - yoff) * ky + bias[2 * c];
        const int32_t y1 = (y[2 * c + 1] - yoff) * ky + bias[2 * c + 1];
        R[2 * c] = static_cast<uint8_t>(Clamp255i((y0 + tr[c]) >> 16));
        R[2 * c + 1] = static_cast<uint8_t>(Clamp255i((y1 + tr[c]) >> 16));
        G[2 * c] = static_cast<uint8_t>(Clamp255i((y0 + tg[c]) >> 16));
        G[2 * c + 1] = static_cast<uint8_t>(Clamp255i((y1 + tg[c]) >> 16));
        B[2 * c] = static_cast<uint8_t>(Clamp255i((y0 + tb[c]) >> 16));
        B[2 * c + 1] = static_cast<uint8_t>(Clamp255i((y1 + tb[c]) >> 16));
    }
}

ZOCA_HOT void EncodeChromaPairs(const uint8_t* __restrict R0, const uint8_t* __restrict G0,
                                const uint8_t* __restrict B0, const uint8_t* __restrict R1,
                                const uint8_t* __restrict G1, const uint8_t* __restrict B1,
                                const int32_t* __restrict cbias, uint8_t* __restrict u,
                                uint8_t* __restrict v, int half, const EncCoef& k) {
    const int32_t off = 128 << 18;
    const int32_t ur = k.ur, ug = k.ug, ub = k.ub, vr = k.vr, vg = k.vg, vb = k.vb;
    for (int c = 0; c < half; ++c) {
        const int x = 2 * c;
        const int32_t sr = R0[x] + R0[x + 1] + R1[x] + R1[x + 1];
        const int32_t sg = G0[x] + G0[x + 1] + G1[x] + G1[x + 1];
        const int32_t sb = B0[x] + B0[x + 1] + B1[x] + B1[x + 1];
        u[c] =
            static_cast<uint8_t>(Clamp255i((off + ur * sr + ug * sg + ub * sb + cbias[c]) >> 18));
        v[c] =
            static_cast<uint8_t>(Clamp255i((off + vr * sr + vg * sg + vb * sb + cbias[c]) >> 18));
    }
}

ZOCA_HOT void EncodeLuma(const uint8_t* __restrict R, const uint8_t* __restrict G,
                         const uint8_t* __restrict B, const int32_t* __restrict bias,
                         uint8_t* __restrict y, int w, int32_t off, int32_t yr, int32_t yg,
                         int32_t yb) {
    for (int x = 0; x < w; ++x) {
        const int32_t v = off + yr * R[x] + yg * G[x] + yb * B[x] + bias[x];
        y[x] = static_cast<uint8_t>(Clamp255i(v >> 16));
    }
}

// Rows [r0, r0 + n) of a YUV picture (r0 even, n 1 or 2) into planar RGB.
void DecodeRows(const YuvPlanes& yp, int w, int r0, int n, const DecCoef& k, Rows& s) {
    const int cw = (w + 1) / 2;
    const uint8_t* u;
    const uint8_t* v;
    ChromaRow(yp, r0 / 2, cw, s, &u, &v);
    int32_t* __restrict tr = s.t0;
    int32_t* __restrict tg = s.t1;
    int32_t* __restrict tb = s.t2;
    for (int c = 0; c < cw; ++c) {
        const int32_t uu = u[c] - 128;
        const int32_t vv = v[c] - 128;
        tr[c] = k.rv * vv;
        tg[c] = -(k.gu * uu + k.gv * vv);
        tb[c] = k.bu * uu;
    }
    for (int i = 0; i < n; ++i) {
        const int row = r0 + i;
        const uint8_t* y = yp.y + static_cast<ptrdiff_t>(row) * yp.sy;
        const int32_t* bias = s.luma_bias[row & 3];
        uint8_t* R = s.r[i];
        uint8_t* G = s.g[i];
        uint8_t* B = s.b_[i];
        const int half = w / 2;
        DecodePairs(y, bias, tr, tg, tb, R, G, B, half, k.yoff, k.y);
        if (w & 1) {
            const int x = w - 1;
            const int32_t y0 = (y[x] - k.yoff) * k.y + bias[x];
            R[x] = static_cast<uint8_t>(Clamp255i((y0 + tr[half]) >> 16));
            G[x] = static_cast<uint8_t>(Clamp255i((y0 + tg[half]) >> 16));
            B[x] = static_cast<uint8_t>(Clamp255i((y0 + tb[half]) >> 16));
        }
    }
}

// Planar RGB rows (n = 1 at an odd bottom edge, which then stands for both rows of its
// chroma block) into rows [r0, r0 + n) of a YUV picture.
void EncodeRows(const Rows& s, int w, int r0, int n, const EncCoef& k, const YuvPlanes& yp,
                Rows& tmp) {
    for (int i = 0; i < n; ++i) {
        const int row = r0 + i;
        uint8_t* y = yp.y + static_cast<ptrdiff_t>(row) * yp.sy;
        const int32_t* bias = s.luma_bias[row & 3];
        const uint8_t* R = s.r[i];
        const uint8_t* G = s.g[i];
        const uint8_t* B = s.b_[i];
        EncodeLuma(R, G, B, bias, y, w, k.yoff << 16, k.yr, k.yg, k.yb);
    }
    const int cw = (w + 1) / 2;
    const int cr = r0 / 2;
    const int32_t* cbias = s.chroma_bias[cr & 3];
    const uint8_t* R0 = s.r[0];
    const uint8_t* G0 = s.g[0];
    const uint8_t* B0 = s.b_[0];
    const uint8_t* R1 = s.r[n - 1];
    const uint8_t* G1 = s.g[n - 1];
    const uint8_t* B1 = s.b_[n - 1];
    uint8_t* u;
    uint8_t* v;
    if (yp.layout == Layout::I420) {
        u = yp.c0 + static_cast<ptrdiff_t>(cr) * yp.s0;
        v = yp.c1 + static_cast<ptrdiff_t>(cr) * yp.s1;
    } else {
        u = tmp.cu;
        v = tmp.cv;
    }
    const int32_t off = 128 << 18;
    const int half = w / 2;
    EncodeChromaPairs(R0, G0, B0, R1, G1, B1, cbias, u, v, half, k);
    if (w & 1) {  // the last column stands for both columns of its block
        const int x = w - 1;
        const int32_t sr = 2 * (R0[x] + R1[x]);
        const int32_t sg = 2 * (G0[x] + G1[x]);
        const int32_t sb = 2 * (B0[x] + B1[x]);
        u[half] = static_cast<uint8_t>(
            Clamp255i((off + k.ur * sr + k.ug * sg + k.ub * sb + cbias[half]) >> 18));
        v[half] = static_cast<uint8_t>(
            Clamp255i((off + k.vr * sr + k.vg * sg + k.vb * sb + cbias[half]) >> 18));
    }
    if (yp.layout != Layout::I420) {
        uint8_t* c = yp.c0 + static_cast<ptrdiff_t>(cr) * yp.s0;
        if (yp.layout == Layout::NV12) {
            libyuv::MergeUVPlane(u, 0, v, 0, c, 0, cw, 1);
        } else {
            libyuv::MergeUVPlane(v, 0, u, 0, c, 0, cw, 1);
        }
    }
}

// One packed row into planar R, G, B (and A, when the format has it).
void SplitPacked(const uint8_t* src, int fmt, int w, Rows& s, int i) {
    const PackedOrder o = OrderOf(fmt);
    uint8_t* byte[4];
    byte[o.r] = s.r[i];
    byte[o.g] = s.g[i];
    byte[o.b] = s.b_[i];
    if (o.bpp == 3) {
        libyuv::SplitRGBPlane(src, 0, byte[0], 0, byte[1], 0, byte[2], 0, w, 1);
        s.has_alpha = false;
        return;
    }
    byte[o.a] = s.a[i];
    // libyuv's split takes its planes as (byte 2, byte 1, byte 0, byte 3).
    libyuv::SplitARGBPlane(src, 0, byte[2], 0, byte[1], 0, byte[0], 0, byte[3], 0, w, 1);
    s.has_alpha = true;
}

void MergePacked(const Rows& s, int i, int fmt, int w, uint8_t* dst) {
    const PackedOrder o = OrderOf(fmt);
    const uint8_t* byte[4];
    byte[o.r] = s.r[i];
    byte[o.g] = s.g[i];
    byte[o.b] = s.b_[i];
    if (o.bpp == 3) {
        libyuv::MergeRGBPlane(byte[0], 0, byte[1], 0, byte[2], 0, dst, 0, w, 1);
        return;
    }
    byte[o.a] = s.has_alpha ? s.a[i] : s.opaque;
    libyuv::MergeARGBPlane(byte[2], 0, byte[1], 0, byte[0], 0, byte[3], 0, dst, 0, w, 1);
}

// Rows [r0, r0 + n) of any picture into planar RGB.
void ToPlanar(const Img& src, int r0, int n, const DecCoef& k, Rows& s) {
    if (IsYuv(src.fmt)) {
        DecodeRows(PlanesOf(src), src.w, r0, n, k, s);
        return;
    }
    for (int i = 0; i < n; ++i) {
        SplitPacked(src.p[0] + static_cast<ptrdiff_t>(r0 + i) * src.s[0], src.fmt, src.w, s, i);
    }
}

void FromPlanar(Rows& s, int r0, int n, const EncCoef& k, const Img& dst) {
    if (IsYuv(dst.fmt)) {
        EncodeRows(s, dst.w, r0, n, k, PlanesOf(dst), s);
        return;
    }
    for (int i = 0; i < n; ++i) {
        MergePacked(s, i, dst.fmt, dst.w, dst.p[0] + static_cast<ptrdiff_t>(r0 + i) * dst.s[0]);
    }
}

int Planar(const Img& src, const Img& dst, PixelStage* stage, bool dither) {
    Rows s(src.w, dither);
    if (!s.ok()) return ZOCA_ERR_DESTINATION;
    const DecCoef dk = MakeDecCoef(MatrixOf(src.cs));
    const EncCoef ek = MakeEncCoef(MatrixOf(dst.cs));
    for (int r0 = 0; r0 < src.h; r0 += 2) {
        const int n = std::min(2, src.h - r0);
        ToPlanar(src, r0, n, dk, s);
        if (stage != nullptr) {
            for (int i = 0; i < n; ++i) stage->Run(s.r[i], s.g[i], s.b_[i], src.w);
        }
        FromPlanar(s, r0, n, ek, dst);
    }
    return ZOCA_OK;
}

// libyuv's SIMD paths where it has one for the pair. libyuv names packed formats by a
// little-endian word, so its "ARGB" is B,G,R,A in memory; swapping U/V and passing the
// mirrored table exchanges R and B.
bool DecodeLibyuv(const Img& src, const Img& dst) {
    const Matrix m = MatrixOf(src.cs);
    // libyuv's limited-range BT.709 and BT.2020 tables hold the Cb->B gain (above 2)
    // in a signed byte and clamp it: saturated blues come out up to 16 levels dark.
    if (!m.full && m.id != MatrixId::BT601) return false;
    const int w = src.w;
    const int h = src.h;
    uint8_t* d = dst.p[0];
    const int ds = dst.s[0];
    const uint8_t* y = src.p[0];
    const int sy = src.s[0];
    switch (LayoutOf(src.fmt)) {
        case Layout::I420: {
            const uint8_t* u = src.p[1];
            const uint8_t* v = src.p[2];
            const int su = src.s[1];
            const int sv = src.s[2];
            switch (dst.fmt) {
                case ZOCA_CF_BGRA:
                    return libyuv::I420ToARGBMatrix(y, sy, u, su, v, sv, d, ds, m.yuv, w, h) == 0;
                case ZOCA_CF_RGBA:
                    return libyuv::I420ToARGBMatrix(y, sy, v, sv, u, su, d, ds, m.yvu, w, h) == 0;
                case ZOCA_CF_BGR:
                    return libyuv::I420ToRGB24Matrix(y, sy, u, su, v, sv, d, ds, m.yuv, w, h) == 0;
                case ZOCA_CF_RGB:
                    return libyuv::I420ToRGB24Matrix(y, sy, v, sv, u, su, d, ds, m.yvu, w, h) == 0;
                case ZOCA_CF_ARGB:  // libyuv "RGBA" is A,B,G,R; the swap makes it A,R,G,B
                    return libyuv::I420ToRGBAMatrix(y, sy, v, sv, u, su, d, ds, m.yvu, w, h) == 0;
                default:
                    return false;
            }
        }
        case Layout::NV12:
        case Layout::NV21: {
            const bool nv12 = LayoutOf(src.fmt) == Layout::NV12;
            const uint8_t* c = src.p[1];
            const int sc = src.s[1];
            switch (dst.fmt) {
                case ZOCA_CF_BGRA:
                    return (nv12 ? libyuv::NV12ToARGBMatrix(y, sy, c, sc, d, ds, m.yuv, w, h)
                                 : libyuv::NV21ToARGBMatrix(y, sy, c, sc, d, ds, m.yuv, w, h)) == 0;
                case ZOCA_CF_RGBA:
                    return (nv12 ? libyuv::NV21ToARGBMatrix(y, sy, c, sc, d, ds, m.yvu, w, h)
                                 : libyuv::NV12ToARGBMatrix(y, sy, c, sc, d, ds, m.yvu, w, h)) == 0;
                case ZOCA_CF_BGR:
                    return (nv12
                                ? libyuv::NV12ToRGB24Matrix(y, sy, c, sc, d, ds, m.yuv, w, h)
                                : libyuv::NV21ToRGB24Matrix(y, sy, c, sc, d, ds, m.yuv, w, h)) == 0;
                case ZOCA_CF_RGB:
                    return (nv12
                                ? libyuv::NV21ToRGB24Matrix(y, sy, c, sc, d, ds, m.yvu, w, h)
                                : libyuv::NV12ToRGB24Matrix(y, sy, c, sc, d, ds, m.yvu, w, h)) == 0;
                default:
                    return false;
            }
        }
        default:
            return false;
    }
}

// libyuv has RGB -> YUV only for the BT.601 matrix (limited, and full for I420).
bool EncodeLibyuv(const Img& src, const Img& dst) {
    const Matrix m = MatrixOf(dst.cs);
    if (m.id != MatrixId::BT601) return false;
    const uint8_t* s = src.p[0];
    const int ss = src.s[0];
    const int w = src.w;
    const int h = src.h;
    uint8_t* y = dst.p[0];
    const int sy = dst.s[0];
    if (LayoutOf(dst.fmt) == Layout::I420) {
        uint8_t* u = dst.p[1];
        uint8_t* v = dst.p[2];
        const int su = dst.s[1];
        const int sv = dst.s[2];
        if (m.full) {
            switch (src.fmt) {
                case ZOCA_CF_BGRA:
                    return libyuv::ARGBToJ420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
                case ZOCA_CF_RGBA:
                    return libyuv::ABGRToJ420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
                case ZOCA_CF_BGR:
                    return libyuv::RGB24ToJ420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
                case ZOCA_CF_RGB:
                    return libyuv::RAWToJ420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
                default:
                    return false;
            }
        }
        switch (src.fmt) {
            case ZOCA_CF_BGRA:
                return libyuv::ARGBToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            case ZOCA_CF_RGBA:
                return libyuv::ABGRToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            case ZOCA_CF_ARGB:
                return libyuv::BGRAToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            case ZOCA_CF_BGR:
                return libyuv::RGB24ToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            case ZOCA_CF_RGB:
                return libyuv::RAWToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            default:
                return false;
        }
    }
    if (m.full) return false;
    uint8_t* c = dst.p[1];
    const int sc = dst.s[1];
    const bool nv12 = LayoutOf(dst.fmt) == Layout::NV12;
    switch (src.fmt) {
        case ZOCA_CF_BGRA:
            return (nv12 ? libyuv::ARGBToNV12(s, ss, y, sy, c, sc, w, h)
                         : libyuv::ARGBToNV21(s, ss, y, sy, c, sc, w, h)) == 0;
        case ZOCA_CF_RGBA:
            return (nv12 ? libyuv::ABGRToNV12(s, ss, y, sy, c, sc, w, h)
                         : libyuv::ABGRToNV21(s, ss, y, sy, c, sc, w, h)) == 0;
        default:
            return false;
    }
}

// ---- plain copies and rearrangements ----

void CopyImage(const Img& src, const Img& dst) {
    for (int p = 0; p < PlaneCount(src.fmt); ++p) {
        libyuv::CopyPlane(src.p[p], src.s[p], dst.p[p], dst.s[p], RowBytes(src.fmt, p, src.w),
                          PlaneRows(src.fmt, p, src.h));
    }
}

// YUV to YUV with the same matrix and range: only the chroma arrangement changes.
void Repack(const Img& src, const Img& dst) {
    const int w = src.w;
    const int h = src.h;
    const int cw = (w + 1) / 2;
    const int ch = (h + 1) / 2;
    const Layout sl = LayoutOf(src.fmt);
    const Layout dl = LayoutOf(dst.fmt);
    if (sl == dl) return CopyImage(src, dst);
    if (sl == Layout::I420) {
        if (dl == Layout::NV12) {
            libyuv::I420ToNV12(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2], dst.p[0],
                               dst.s[0], dst.p[1], dst.s[1], w, h);
        } else {
            libyuv::I420ToNV21(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2], dst.p[0],
                               dst.s[0], dst.p[1], dst.s[1], w, h);
        }
        return;
    }
    if (dl == Layout::I420) {
        if (sl == Layout::NV12) {
            libyuv::NV12ToI420(src.p[0], src.s[0], src.p[1], src.s[1], dst.p[0], dst.s[0], dst.p[1],
                               dst.s[1], dst.p[2], dst.s[2], w, h);
        } else {
            libyuv::NV21ToI420(src.p[0], src.s[0], src.p[1], src.s[1], dst.p[0], dst.s[0], dst.p[1],
                               dst.s[1], dst.p[2], dst.s[2], w, h);
        }
        return;
    }
    libyuv::CopyPlane(src.p[0], src.s[0], dst.p[0], dst.s[0], w, h);
    libyuv::SwapUVPlane(src.p[1], src.s[1], dst.p[1], dst.s[1], cw, ch);
}

// Packed to packed without an intermediate; false when the pair needs one.
bool ShufflePacked(const Img& src, const Img& dst) {
    const PackedOrder so = OrderOf(src.fmt);
    const PackedOrder dord = OrderOf(dst.fmt);
    const uint8_t* s = src.p[0];
    const int ss = src.s[0];
    uint8_t* d = dst.p[0];
    const int ds = dst.s[0];
    if (src.fmt == dst.fmt) {
        CopyImage(src, dst);
        return true;
    }
    if (so.bpp == 4 && dord.bpp == 4) {
        uint8_t mask[16];
        for (int px = 0; px < 4; ++px) {
            mask[px * 4 + dord.r] = static_cast<uint8_t>(px * 4 + so.r);
            mask[px * 4 + dord.g] = static_cast<uint8_t>(px * 4 + so.g);
            mask[px * 4 + dord.b] = static_cast<uint8_t>(px * 4 + so.b);
            mask[px * 4 + dord.a] = static_cast<uint8_t>(px * 4 + so.a);
        }
        return libyuv::ARGBShuffle(s, ss, d, ds, mask, src.w, src.h) == 0;
    }
    if (so.bpp == 3 && dord.bpp == 3) {
        return libyuv::RAWToRGB24(s, ss, d, ds, src.w, src.h) == 0;
    }
    if (dst.fmt == ZOCA_CF_BGRA) {
        return (src.fmt == ZOCA_CF_RGB ? libyuv::RAWToARGB(s, ss, d, ds, src.w, src.h)
                                       : libyuv::RGB24ToARGB(s, ss, d, ds, src.w, src.h)) == 0;
    }
    if (src.fmt == ZOCA_CF_BGRA) {
        return (dst.fmt == ZOCA_CF_RGB ? libyuv::ARGBToRAW(s, ss, d, ds, src.w, src.h)
                                       : libyuv::ARGBToRGB24(s, ss, d, ds, src.w, src.h)) == 0;
    }
    return false;
}

}  // namespace

int Convert(const Img& src, const Img& dst, bool dither) {
    const bool src_yuv = IsYuv(src.fmt);
    const bool dst_yuv = IsYuv(dst.fmt);
    if (src_yuv && dst_yuv) {
        if (SameMatrix(src.cs, dst.cs)) {
            Repack(src, dst);
            return ZOCA_OK;
        }
        return Planar(src, dst, nullptr, dither);
    }
    if (src_yuv) {
        if (!dither && DecodeLibyuv(src, dst)) return ZOCA_OK;
        return Planar(src, dst, nullptr, dither);
    }
    if (dst_yuv) {
        if (!dither && EncodeLibyuv(src, dst)) return ZOCA_OK;
        return Planar(src, dst, nullptr, dither);
    }
    if (ShufflePacked(src, dst)) return ZOCA_OK;
    return Planar(src, dst, nullptr, false);
}

int ConvertThrough(const Img& src, const Img& dst, PixelStage* stage, bool dither) {
    return Planar(src, dst, stage, dither);
}

}  // namespace zoca
