#include "convert.h"

#include <libyuv.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "yuv.h"

namespace zoca {
namespace {

// libyuv's tables, which only the BT.709 full-range decode uses: every other table of
// libyuv 0.0~git20230123 is more than one code off the exact matrix somewhere (its
// limited BT.709 and BT.2020 tables clamp the Cb -> B gain, up to 18 codes; the BT.601
// and full BT.2020 ones round their gains to 6 bits, 1.3 to 2.6 codes), and so are its
// RGB -> YUV rows (1.5 codes in chroma). Measured over every Y, Cb, Cr and R, G, B.
struct LibyuvTables {
    const libyuv::YuvConstants* yuv;  // U before V
    const libyuv::YuvConstants* yvu;  // U and V exchanged (R and B swap)
};

}  // namespace

YuvMatrix YuvMatrixOf(int cs) {
    switch (cs) {
        case ZOCA_CS_BT601_FULL:
            return {0.299, 0.114, true};
        case ZOCA_CS_BT709:
        case ZOCA_CS_DISPLAY_P3:
            return {0.2126, 0.0722, false};
        case ZOCA_CS_BT709_FULL:
            return {0.2126, 0.0722, true};
        case ZOCA_CS_BT2020:
            return {0.2627, 0.0593, false};
        case ZOCA_CS_BT2020_FULL:
            return {0.2627, 0.0593, true};
        case ZOCA_CS_BT601:
        default:
            return {0.299, 0.114, false};
    }
}

DecCoef MakeDecCoef(int cs) {
    const YuvMatrix m = YuvMatrixOf(cs);
    const double yr = m.full ? 255.0 : 219.0;
    const double cr = m.full ? 255.0 : 224.0;
    const double kg = 1.0 - m.kr - m.kb;
    auto q = [](double v) { return static_cast<int32_t>(std::lround(v * 16384.0)); };
    DecCoef k;
    k.ky = q(255.0 / yr);
    k.yoff = m.full ? 0 : 16;
    k.rv = q(255.0 * 2 * (1 - m.kr) / cr);
    k.bu1 = q(255.0 * 2 * (1 - m.kb) / cr - 1.0);
    k.gu = q(255.0 * 2 * m.kb * (1 - m.kb) / kg / cr);
    k.gv = q(255.0 * 2 * m.kr * (1 - m.kr) / kg / cr);
    return k;
}

EncCoef MakeEncCoef(int cs) {
    const YuvMatrix m = YuvMatrixOf(cs);
    const double yr = m.full ? 255.0 : 219.0;
    const double cr = m.full ? 255.0 : 224.0;
    const double kg = 1.0 - m.kr - m.kb;
    auto q = [](double v) { return static_cast<int32_t>(std::lround(v * 16384.0)); };
    EncCoef k;
    k.y[0] = q(m.kr * yr / 255.0);
    k.y[1] = q(kg * yr / 255.0);
    k.y[2] = q(m.kb * yr / 255.0);
    k.yoff = m.full ? 0 : 16;
    const double su = cr / 255.0 / (2 * (1 - m.kb));
    const double sv = cr / 255.0 / (2 * (1 - m.kr));
    k.u[0] = q(-m.kr * su);
    k.u[1] = q(-kg * su);
    k.u[2] = q((1 - m.kb) * su);
    k.v[0] = q((1 - m.kr) * sv);
    k.v[1] = q(-kg * sv);
    k.v[2] = q(-m.kb * sv);
    return k;
}

namespace {

bool SameMatrix(int a, int b) {
    const YuvMatrix ma = YuvMatrixOf(a);
    const YuvMatrix mb = YuvMatrixOf(b);
    return ma.kr == mb.kr && ma.full == mb.full;
}

// ---- plain YUV <-> RGB, through planar rows ----
//
// Rows are split into one array per channel so that the arithmetic loops run over
// plain arrays; libyuv's SIMD split and merge routines do the (de)interleaving.

// Working rows for one call: two picture rows of planar R, G, B, A (a 4:2:0 chroma row
// spans two), the rounding offsets of the four Bayer rows, chroma temporaries, and two
// 4-byte rows for the vector build's 3-byte formats.
class Rows {
  public:
    Rows(int w, bool dither) : cw_((w + 1) / 2) {
        const size_t wp = (static_cast<size_t>(w) + 63) & ~size_t{63};
        const size_t cp = (static_cast<size_t>(cw_) + 31) & ~size_t{31};
        bytes_.reset(new (std::nothrow) uint8_t[17 * wp + 2 * cp]);
        words_.reset(new (std::nothrow) int32_t[8 * wp + 4 * cp + 3 * cp]);
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
        quad[0] = b + wp;
        quad[1] = b + 5 * wp;
        cu = b + 9 * wp;
        cv = cu + cp;
        int32_t* p = words_.get();
        for (int i = 0; i < 4; ++i) {
            dec_bias[i] = p + i * wp;
            enc_bias[i] = p + (4 + i) * wp;
            chroma_bias[i] = p + 8 * wp + i * cp;
        }
        tr = p + 8 * wp + 4 * cp;
        tg = tr + cp;
        tb = tg + cp;
        for (int row = 0; row < 4; ++row) {
            for (int x = 0; x < w; ++x) {
                dec_bias[row][x] = RoundBias(dither, row, x, kDecodeBits);
                enc_bias[row][x] = RoundBias(dither, row, x, kLumaBits);
            }
            for (int x = 0; x < cw_; ++x)
                chroma_bias[row][x] = RoundBias(dither, row, x, kChromaBits);
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
    uint8_t* quad[2];
    uint8_t* cu;
    uint8_t* cv;
    int32_t* dec_bias[4];
    int32_t* enc_bias[4];
    int32_t* chroma_bias[4];
    int32_t* tr;
    int32_t* tg;
    int32_t* tb;

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

    uint8_t* Y(int row) const { return y + static_cast<ptrdiff_t>(row) * sy; }
    uint8_t* C0(int cr) const { return c0 + static_cast<ptrdiff_t>(cr) * s0; }
    uint8_t* C1(int cr) const {
        return layout == Layout::I420 ? c1 + static_cast<ptrdiff_t>(cr) * s1 : nullptr;
    }
};

YuvPlanes PlanesOf(const Img& img) {
    return {img.p[0], img.p[1], img.p[2], img.s[0], img.s[1], img.s[2], LayoutOf(img.fmt)};
}

// Cb and Cr of chroma row cr as two contiguous arrays.
void ChromaRow(const YuvPlanes& yp, int cr, int cw, Rows& s, const uint8_t** u, const uint8_t** v) {
    if (yp.layout == Layout::I420) {
        *u = yp.C0(cr);
        *v = yp.C1(cr);
        return;
    }
    libyuv::SplitUVPlane(yp.C0(cr), 0, s.cu, 0, s.cv, 0, cw, 1);
    *u = yp.layout == Layout::NV12 ? s.cu : s.cv;
    *v = yp.layout == Layout::NV12 ? s.cv : s.cu;
}

// The plain build's row loops, restrict-qualified so the compiler vectorises them
// without run-time alias checks; two luma samples share one set of chroma terms.
ZOCA_HOT void DecodePairs(const uint8_t* __restrict y, const int32_t* __restrict bias,
                          const int32_t* __restrict tr, const int32_t* __restrict tg,
                          const int32_t* __restrict tb, uint8_t* __restrict R,
                          uint8_t* __restrict G, uint8_t* __restrict B, int half,
                          const DecCoef& k) {
    const int32_t yoff = k.yoff, ky = k.ky;
    for (int c = 0; c < half; ++c) {
        for (int j = 0; j < 2; ++j) {
            const int32_t yt = MulHrs((y[2 * c + j] - yoff) * 128, ky) + bias[2 * c + j];
            R[2 * c + j] = Clamp8((yt + tr[c]) >> 6);
            G[2 * c + j] = Clamp8((yt - tg[c]) >> 6);
            B[2 * c + j] = Clamp8((yt + tb[c]) >> 6);
        }
    }
}

ZOCA_HOT void EncodeLumaRow(const uint8_t* __restrict R, const uint8_t* __restrict G,
                            const uint8_t* __restrict B, const int32_t* __restrict bias,
                            uint8_t* __restrict y, int w, const EncCoef& k) {
    const int32_t off = k.yoff << kLumaBits, yr = k.y[0], yg = k.y[1], yb = k.y[2];
    for (int x = 0; x < w; ++x)
        y[x] = Clamp8((off + yr * R[x] + yg * G[x] + yb * B[x] + bias[x]) >> kLumaBits);
}

ZOCA_HOT void EncodeChromaPairs(const uint8_t* __restrict R0, const uint8_t* __restrict G0,
                                const uint8_t* __restrict B0, const uint8_t* __restrict R1,
                                const uint8_t* __restrict G1, const uint8_t* __restrict B1,
                                const int32_t* __restrict cbias, uint8_t* __restrict u,
                                uint8_t* __restrict v, int half, const EncCoef& k) {
    const int32_t off = 128 << kChromaBits;
    const int32_t ur = k.u[0], ug = k.u[1], ub = k.u[2], vr = k.v[0], vg = k.v[1], vb = k.v[2];
    for (int c = 0; c < half; ++c) {
        const int x = 2 * c;
        const int32_t sr = R0[x] + R0[x + 1] + R1[x] + R1[x + 1];
        const int32_t sg = G0[x] + G0[x + 1] + G1[x] + G1[x + 1];
        const int32_t sb = B0[x] + B0[x + 1] + B1[x] + B1[x + 1];
        u[c] = Clamp8((off + ur * sr + ug * sg + ub * sb + cbias[c]) >> kChromaBits);
        v[c] = Clamp8((off + vr * sr + vg * sg + vb * sb + cbias[c]) >> kChromaBits);
    }
}

ZOCA_CLONES void ChromaTermsRow(const uint8_t* __restrict u, const uint8_t* __restrict v,
                                int32_t* __restrict tr, int32_t* __restrict tg,
                                int32_t* __restrict tb, int cw, const DecCoef& k) {
    const DecCoef c = k;
    for (int x = 0; x < cw; ++x) {
        const ChromaTerms t = DecodeChroma(c, u[x], v[x]);
        tr[x] = t.r;
        tg[x] = t.g;
        tb[x] = t.b;
    }
}

// ---- plain YUV <-> packed 4-byte pixels, no planar rows between ----
//
// Each pixel is one 32-bit word, built or taken apart with shifts fixed at compile time,
// so the compiler sees contiguous word loads and stores; each byte order gets its own
// cloned loop.

// Shift of the byte at memory offset `at` within a word.
constexpr int ByteShift(int at) {
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? 8 * at : 24 - 8 * at;
}

template <int R, int G, int B, int A>
ZOCA_INLINE void DecodeQuadsOf(const uint8_t* __restrict y, const int32_t* __restrict bias,
                               const int32_t* __restrict tr, const int32_t* __restrict tg,
                               const int32_t* __restrict tb, uint8_t* __restrict out, int half,
                               int32_t yoff, int32_t ky) {
    for (int c = 0; c < half; ++c) {
        for (int j = 0; j < 2; ++j) {
            const int x = 2 * c + j;
            const int32_t yt = MulHrs((y[x] - yoff) * 128, ky) + bias[x];
            const uint32_t word = uint32_t{Clamp8((yt + tr[c]) >> 6)} << ByteShift(R) |
                                  uint32_t{Clamp8((yt - tg[c]) >> 6)} << ByteShift(G) |
                                  uint32_t{Clamp8((yt + tb[c]) >> 6)} << ByteShift(B) |
                                  uint32_t{255} << ByteShift(A);
            std::memcpy(out + 4 * x, &word, 4);
        }
    }
}

template <int R, int G, int B>
ZOCA_INLINE void EncodeQuadsOf(const uint8_t* __restrict p0, const uint8_t* __restrict p1,
                               const int32_t* __restrict b0, const int32_t* __restrict b1,
                               const int32_t* __restrict cbias, uint8_t* __restrict y0,
                               uint8_t* __restrict y1, uint8_t* __restrict u, uint8_t* __restrict v,
                               int half, const EncCoef& k) {
    const int32_t off = k.yoff << kLumaBits, yr = k.y[0], yg = k.y[1], yb = k.y[2];
    const int32_t ur = k.u[0], ug = k.u[1], ub = k.u[2], vr = k.v[0], vg = k.v[1], vb = k.v[2];
    auto ch = [](uint32_t word, int at) {
        return static_cast<int32_t>((word >> ByteShift(at)) & 255);
    };
    for (int c = 0; c < half; ++c) {
        int32_t sr = 0, sg = 0, sb = 0;
        for (int j = 0; j < 2; ++j) {
            const int x = 2 * c + j;
            uint32_t w0, w1;
            std::memcpy(&w0, p0 + 4 * x, 4);
            std::memcpy(&w1, p1 + 4 * x, 4);
            const int32_t r0 = ch(w0, R), g0 = ch(w0, G), bb0 = ch(w0, B);
            const int32_t r1 = ch(w1, R), g1 = ch(w1, G), bb1 = ch(w1, B);
            y0[x] = Clamp8((off + yr * r0 + yg * g0 + yb * bb0 + b0[x]) >> kLumaBits);
            y1[x] = Clamp8((off + yr * r1 + yg * g1 + yb * bb1 + b1[x]) >> kLumaBits);
            sr += r0 + r1;
            sg += g0 + g1;
            sb += bb0 + bb1;
        }
        u[c] =
            Clamp8(((128 << kChromaBits) + ur * sr + ug * sg + ub * sb + cbias[c]) >> kChromaBits);
        v[c] =
            Clamp8(((128 << kChromaBits) + vr * sr + vg * sg + vb * sb + cbias[c]) >> kChromaBits);
    }
}

#define ZOCA_QUAD_ROWS(name, R, G, B, A)                                                        \
    ZOCA_CLONES void Decode##name(const uint8_t* y, const int32_t* bias, const int32_t* tr,     \
                                  const int32_t* tg, const int32_t* tb, uint8_t* out, int half, \
                                  int32_t yoff, int32_t ky) {                                   \
        DecodeQuadsOf<R, G, B, A>(y, bias, tr, tg, tb, out, half, yoff, ky);                    \
    }                                                                                           \
    ZOCA_CLONES void Encode##name(const uint8_t* p0, const uint8_t* p1, const int32_t* b0,      \
                                  const int32_t* b1, const int32_t* cbias, uint8_t* y0,         \
                                  uint8_t* y1, uint8_t* u, uint8_t* v, int half,                \
                                  const EncCoef& k) {                                           \
        EncodeQuadsOf<R, G, B>(p0, p1, b0, b1, cbias, y0, y1, u, v, half, k);                   \
    }
ZOCA_QUAD_ROWS(Rgba, 0, 1, 2, 3)
ZOCA_QUAD_ROWS(Bgra, 2, 1, 0, 3)
ZOCA_QUAD_ROWS(Argb, 1, 2, 3, 0)
#undef ZOCA_QUAD_ROWS

using DecodeQuadsFn = void (*)(const uint8_t*, const int32_t*, const int32_t*, const int32_t*,
                               const int32_t*, uint8_t*, int, int32_t, int32_t);
using EncodeQuadsFn = void (*)(const uint8_t*, const uint8_t*, const int32_t*, const int32_t*,
                               const int32_t*, uint8_t*, uint8_t*, uint8_t*, uint8_t*, int,
                               const EncCoef&);

// Rows [r0, r0 + n) of a YUV picture (r0 even, n 1 or 2) into planar RGB.
void DecodeRows(const YuvPlanes& yp, int w, int r0, int n, const DecCoef& k, Kernel kern,
                bool dither, Rows& s) {
#if ZOCA_AVX512_BUILD
    if (kern == Kernel::Avx512) {
        if (n == 2) {
            uint8_t* const out[6] = {s.r[0], s.g[0], s.b_[0], s.r[1], s.g[1], s.b_[1]};
            avx512::DecodeRowPair(k, yp.layout, yp.Y(r0), yp.Y(r0 + 1), yp.C0(r0 / 2),
                                  yp.C1(r0 / 2), out, w, r0, dither);
            return;
        }
        for (int i = 0; i < n; ++i) {
            uint8_t* const out[3] = {s.r[i], s.g[i], s.b_[i]};
            avx512::DecodeRow(k, yp.layout, yp.Y(r0 + i), yp.C0(r0 / 2), yp.C1(r0 / 2),
                              PackedOrder{0, 0, 0, 0, -1}, out, w, r0 + i, dither);
        }
        return;
    }
#endif
    (void)kern;
    (void)dither;
    const int cw = (w + 1) / 2;
    const uint8_t* u;
    const uint8_t* v;
    ChromaRow(yp, r0 / 2, cw, s, &u, &v);
    ChromaTermsRow(u, v, s.tr, s.tg, s.tb, cw, k);
    for (int i = 0; i < n; ++i) {
        const int row = r0 + i;
        const uint8_t* y = yp.Y(row);
        const int32_t* bias = s.dec_bias[row & 3];
        DecodePairs(y, bias, s.tr, s.tg, s.tb, s.r[i], s.g[i], s.b_[i], w / 2, k);
        if (w & 1) {
            const int x = w - 1;
            DecodePixel(DecodeLuma(k, y[x], bias[x]), {s.tr[x / 2], s.tg[x / 2], s.tb[x / 2]},
                        &s.r[i][x], &s.g[i][x], &s.b_[i][x]);
        }
    }
}

// Planar RGB rows (n = 1 at an odd bottom edge, which then stands for both rows of its
// chroma block) into rows [r0, r0 + n) of a YUV picture.
void EncodeRows(Rows& s, int w, int r0, int n, const EncCoef& k, Kernel kern, bool dither,
                const YuvPlanes& yp) {
    const int cr = r0 / 2;
#if ZOCA_AVX512_BUILD
    if (kern == Kernel::Avx512) {
        const uint8_t* const in[6] = {s.r[0], s.g[0], s.b_[0], s.r[n - 1], s.g[n - 1], s.b_[n - 1]};
        avx512::EncodeRows(k, PackedOrder{0, 0, 1, 2, -1}, in, yp.layout, yp.Y(r0),
                           n == 2 ? yp.Y(r0 + 1) : nullptr, yp.C0(cr), yp.C1(cr), w, r0, dither);
        return;
    }
#endif
    (void)kern;
    (void)dither;
    for (int i = 0; i < n; ++i) {
        EncodeLumaRow(s.r[i], s.g[i], s.b_[i], s.enc_bias[(r0 + i) & 3], yp.Y(r0 + i), w, k);
    }
    const int cw = (w + 1) / 2;
    const int32_t* cbias = s.chroma_bias[cr & 3];
    const bool i420 = yp.layout == Layout::I420;
    uint8_t* u = i420 ? yp.C0(cr) : s.cu;
    uint8_t* v = i420 ? yp.C1(cr) : s.cv;
    EncodeChromaPairs(s.r[0], s.g[0], s.b_[0], s.r[n - 1], s.g[n - 1], s.b_[n - 1], cbias, u, v,
                      w / 2, k);
    if (w & 1) {  // the last column stands for both columns of its block
        const int x = w - 1;
        auto sum = [&](uint8_t* const* ch) { return 2 * (ch[0][x] + ch[n - 1][x]); };
        EncodeChroma(k, sum(s.r), sum(s.g), sum(s.b_), cbias[x / 2], &u[x / 2], &v[x / 2]);
    }
    if (!i420) {
        if (yp.layout == Layout::NV12) {
            libyuv::MergeUVPlane(u, 0, v, 0, yp.C0(cr), 0, cw, 1);
        } else {
            libyuv::MergeUVPlane(v, 0, u, 0, yp.C0(cr), 0, cw, 1);
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

// The settings of one conversion.
struct Job {
    DecCoef dk;
    EncCoef ek;
    Kernel kernel;
    bool dither;
};

// Rows [r0, r0 + n) of any picture into planar RGB.
void ToPlanar(const Img& src, int r0, int n, const Job& j, Rows& s) {
    if (IsYuv(src.fmt)) {
        DecodeRows(PlanesOf(src), src.w, r0, n, j.dk, j.kernel, j.dither, s);
        return;
    }
    for (int i = 0; i < n; ++i) {
        SplitPacked(src.p[0] + static_cast<ptrdiff_t>(r0 + i) * src.s[0], src.fmt, src.w, s, i);
    }
}

void FromPlanar(Rows& s, int r0, int n, const Job& j, const Img& dst) {
    if (IsYuv(dst.fmt)) {
        EncodeRows(s, dst.w, r0, n, j.ek, j.kernel, j.dither, PlanesOf(dst));
        return;
    }
    for (int i = 0; i < n; ++i) {
        MergePacked(s, i, dst.fmt, dst.w, dst.p[0] + static_cast<ptrdiff_t>(r0 + i) * dst.s[0]);
    }
}

Job JobOf(const Img& src, const Img& dst, Kernel k, bool dither) {
    return {MakeDecCoef(src.cs), MakeEncCoef(dst.cs), Supported(k) ? k : Kernel::Plain, dither};
}

int Planar(const Img& src, const Img& dst, PixelStage* stage, bool dither, Kernel k) {
    Rows s(src.w, dither);
    if (!s.ok()) return ZOCA_ERR_DESTINATION;
    const Job j = JobOf(src, dst, k, dither);
    for (int r0 = 0; r0 < src.h; r0 += 2) {
        const int n = std::min(2, src.h - r0);
        ToPlanar(src, r0, n, j, s);
        if (stage != nullptr) {
            for (int i = 0; i < n; ++i) stage->Run(s.r[i], s.g[i], s.b_[i], src.w);
        }
        FromPlanar(s, r0, n, j, dst);
    }
    return ZOCA_OK;
}

#if ZOCA_AVX512_BUILD
// YUV <-> packed RGB in one pass per row, no planar rows between. 3-byte pixels go
// through a 4-byte row (B, G, R, A, libyuv's "ARGB"), which libyuv converts.
constexpr PackedOrder kQuad{4, 2, 1, 0, 3};

int DirectDecode(const Img& src, const Img& dst, const Job& j) {
    Rows s(src.w, false);
    if (!s.ok()) return ZOCA_ERR_DESTINATION;
    const YuvPlanes yp = PlanesOf(src);
    const PackedOrder o = OrderOf(dst.fmt);
    for (int row = 0; row < src.h; ++row) {
        uint8_t* d = dst.p[0] + static_cast<ptrdiff_t>(row) * dst.s[0];
        uint8_t* const out[3] = {o.bpp == 4 ? d : s.quad[0], nullptr, nullptr};
        avx512::DecodeRow(j.dk, yp.layout, yp.Y(row), yp.C0(row / 2), yp.C1(row / 2),
                          o.bpp == 4 ? o : kQuad, out, src.w, row, j.dither);
        if (o.bpp == 3) {
            if (dst.fmt == ZOCA_CF_RGB) {
                libyuv::ARGBToRAW(s.quad[0], 0, d, 0, src.w, 1);
            } else {
                libyuv::ARGBToRGB24(s.quad[0], 0, d, 0, src.w, 1);
            }
        }
    }
    return ZOCA_OK;
}

int DirectEncode(const Img& src, const Img& dst, const Job& j) {
    Rows s(src.w, false);
    if (!s.ok()) return ZOCA_ERR_DESTINATION;
    const YuvPlanes yp = PlanesOf(dst);
    const PackedOrder o = OrderOf(src.fmt);
    for (int r0 = 0; r0 < src.h; r0 += 2) {
        const int n = std::min(2, src.h - r0);
        const uint8_t* in[6];
        for (int i = 0; i < 2; ++i) {
            const uint8_t* row =
                src.p[0] + static_cast<ptrdiff_t>(r0 + std::min(i, n - 1)) * src.s[0];
            if (o.bpp == 3) {
                if (src.fmt == ZOCA_CF_RGB) {
                    libyuv::RAWToARGB(row, 0, s.quad[i], 0, src.w, 1);
                } else {
                    libyuv::RGB24ToARGB(row, 0, s.quad[i], 0, src.w, 1);
                }
                row = s.quad[i];
            }
            in[i] = row;
        }
        avx512::EncodeRows(j.ek, o.bpp == 4 ? o : kQuad, in, yp.layout, yp.Y(r0),
                           n == 2 ? yp.Y(r0 + 1) : nullptr, yp.C0(r0 / 2), yp.C1(r0 / 2), src.w, r0,
                           j.dither);
    }
    return ZOCA_OK;
}
#endif

// The plain build's YUV <-> packed 4-byte pixels, one pass per row.
int QuadDecode(const Img& src, const Img& dst, const Job& j) {
    Rows s(src.w, j.dither);
    if (!s.ok()) return ZOCA_ERR_DESTINATION;
    const DecodeQuadsFn fn = dst.fmt == ZOCA_CF_RGBA   ? DecodeRgba
                             : dst.fmt == ZOCA_CF_BGRA ? DecodeBgra
                                                       : DecodeArgb;
    const YuvPlanes yp = PlanesOf(src);
    const PackedOrder o = OrderOf(dst.fmt);
    const DecCoef& k = j.dk;
    const int w = src.w;
    for (int row = 0; row < src.h; ++row) {
        if ((row & 1) == 0) {
            const uint8_t* u;
            const uint8_t* v;
            ChromaRow(yp, row / 2, (w + 1) / 2, s, &u, &v);
            ChromaTermsRow(u, v, s.tr, s.tg, s.tb, (w + 1) / 2, k);
        }
        const uint8_t* y = yp.Y(row);
        const int32_t* bias = s.dec_bias[row & 3];
        uint8_t* d = dst.p[0] + static_cast<ptrdiff_t>(row) * dst.s[0];
        fn(y, bias, s.tr, s.tg, s.tb, d, w / 2, k.yoff, k.ky);
        if (w & 1) {
            const int x = w - 1;
            uint8_t* px = d + 4 * x;
            DecodePixel(DecodeLuma(k, y[x], bias[x]), {s.tr[x / 2], s.tg[x / 2], s.tb[x / 2]},
                        &px[o.r], &px[o.g], &px[o.b]);
            px[o.a] = 255;
        }
    }
    return ZOCA_OK;
}

int QuadEncode(const Img& src, const Img& dst, const Job& j) {
    Rows s(src.w, j.dither);
    if (!s.ok()) return ZOCA_ERR_DESTINATION;
    const EncodeQuadsFn fn = src.fmt == ZOCA_CF_RGBA   ? EncodeRgba
                             : src.fmt == ZOCA_CF_BGRA ? EncodeBgra
                                                       : EncodeArgb;
    const YuvPlanes yp = PlanesOf(dst);
    const PackedOrder o = OrderOf(src.fmt);
    const EncCoef& k = j.ek;
    const int w = src.w;
    const bool i420 = yp.layout == Layout::I420;
    for (int r0 = 0; r0 < src.h; r0 += 2) {
        // At an odd bottom edge the last row stands for both rows of its chroma block; the
        // second luma row goes to scratch.
        const bool pair = r0 + 1 < src.h;
        const uint8_t* p0 = src.p[0] + static_cast<ptrdiff_t>(r0) * src.s[0];
        const uint8_t* p1 = pair ? p0 + src.s[0] : p0;
        uint8_t* y0 = yp.Y(r0);
        uint8_t* y1 = pair ? yp.Y(r0 + 1) : s.a[1];
        const int cr = r0 / 2;
        uint8_t* u = i420 ? yp.C0(cr) : s.cu;
        uint8_t* v = i420 ? yp.C1(cr) : s.cv;
        const int32_t* b0 = s.enc_bias[r0 & 3];
        const int32_t* b1 = s.enc_bias[(r0 + 1) & 3];
        const int32_t* cbias = s.chroma_bias[cr & 3];
        fn(p0, p1, b0, b1, cbias, y0, y1, u, v, w / 2, k);
        if (w & 1) {  // the last column stands for both columns of its block
            const int x = w - 1;
            const uint8_t* a = p0 + 4 * x;
            const uint8_t* b = p1 + 4 * x;
            y0[x] = EncodeLuma(k, a[o.r], a[o.g], a[o.b], b0[x]);
            y1[x] = EncodeLuma(k, b[o.r], b[o.g], b[o.b], b1[x]);
            EncodeChroma(k, 2 * (a[o.r] + b[o.r]), 2 * (a[o.g] + b[o.g]), 2 * (a[o.b] + b[o.b]),
                         cbias[x / 2], &u[x / 2], &v[x / 2]);
        }
        if (!i420) {
            const int cw = (w + 1) / 2;
            if (yp.layout == Layout::NV12) {
                libyuv::MergeUVPlane(u, 0, v, 0, yp.C0(cr), 0, cw, 1);
            } else {
                libyuv::MergeUVPlane(v, 0, u, 0, yp.C0(cr), 0, cw, 1);
            }
        }
    }
    return ZOCA_OK;
}

// libyuv's own row functions where they are exact enough: BT.709 full range decoding.
// libyuv names packed formats by a little-endian word, so its "ARGB" is B,G,R,A in
// memory; swapping U/V and passing the mirrored table exchanges R and B.
bool DecodeLibyuv(const Img& src, const Img& dst) {
    if (src.cs != ZOCA_CS_BT709_FULL) return false;
    const LibyuvTables m{&libyuv::kYuvF709Constants, &libyuv::kYvuF709Constants};
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

int Convert(const Img& src, const Img& dst, bool dither, Kernel k) {
    const bool src_yuv = IsYuv(src.fmt);
    const bool dst_yuv = IsYuv(dst.fmt);
    if (src_yuv && dst_yuv) {
        if (SameMatrix(src.cs, dst.cs)) {
            Repack(src, dst);
            return ZOCA_OK;
        }
        return Planar(src, dst, nullptr, dither, k);
    }
    if (!src_yuv && !dst_yuv) {
        if (ShufflePacked(src, dst)) return ZOCA_OK;
        return Planar(src, dst, nullptr, false, k);
    }
    if (src_yuv && !dither && DecodeLibyuv(src, dst)) return ZOCA_OK;
    const Job j = JobOf(src, dst, k, dither);
#if ZOCA_AVX512_BUILD
    if (j.kernel == Kernel::Avx512)
        return src_yuv ? DirectDecode(src, dst, j) : DirectEncode(src, dst, j);
#endif
    if (OrderOf(src_yuv ? dst.fmt : src.fmt).bpp == 4)
        return src_yuv ? QuadDecode(src, dst, j) : QuadEncode(src, dst, j);
    return Planar(src, dst, nullptr, dither, k);
}

int ConvertThrough(const Img& src, const Img& dst, PixelStage* stage, bool dither, Kernel k) {
    const bool quads = !IsYuv(src.fmt) && !IsYuv(dst.fmt) && OrderOf(src.fmt).bpp == 4 &&
                       OrderOf(dst.fmt).bpp == 4;
    if (quads && stage != nullptr && stage->RunsPacked()) {
        for (int row = 0; row < src.h; ++row) {
            stage->RunPacked(src.p[0] + static_cast<ptrdiff_t>(row) * src.s[0], OrderOf(src.fmt),
                             dst.p[0] + static_cast<ptrdiff_t>(row) * dst.s[0], OrderOf(dst.fmt),
                             src.w);
        }
        return ZOCA_OK;
    }
    return Planar(src, dst, stage, dither, k);
}

}  // namespace zoca
