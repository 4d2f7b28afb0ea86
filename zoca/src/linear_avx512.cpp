// AVX-512 build of the linear-light kernels, 64 pixels a step. Tables of 256 floats are
// held as four planes of bytes (byte k of every entry) so that VBMI byte permutes look up
// 64 codes per instruction; gathers would be slower than scalar loads on many parts.
// Encoding computes the 1/2.4 power (per-octave value times a polynomial) instead of
// reading the plain build's 12 k table.
#include "linear.h"

#if ZOCA_AVX512_BUILD

#include <immintrin.h>

#include <cstring>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw,avx512vbmi,fma"))), \
                             apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vbmi,fma")
// GCC 12's intrinsic headers seed results with a self-initialised "undefined" vector,
// which it then reports once inlined here.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace zoca {
namespace avx512 {
namespace {

// Unpacking the four byte planes interleaves within 128-bit lanes, so the 64 floats come
// out as four vectors in a fixed shuffled order; every step after it works lane by lane
// and Pack64 undoes the order.
ZOCA_INLINE void Lookup64(const SlicedTable& t, __m512i codes, __m512 out[4]) {
    const __mmask64 upper = _mm512_movepi8_mask(codes);
    __m512i b[4];
    for (int k = 0; k < 4; ++k) {
        const uint8_t* p = t.plane[k];
        const __m512i lo =
            _mm512_permutex2var_epi8(_mm512_load_si512(p), codes, _mm512_load_si512(p + 64));
        const __m512i hi =
            _mm512_permutex2var_epi8(_mm512_load_si512(p + 128), codes, _mm512_load_si512(p + 192));
        b[k] = _mm512_mask_blend_epi8(upper, lo, hi);
    }
    const __m512i w0 = _mm512_unpacklo_epi8(b[0], b[1]);
    const __m512i w1 = _mm512_unpackhi_epi8(b[0], b[1]);
    const __m512i u0 = _mm512_unpacklo_epi8(b[2], b[3]);
    const __m512i u1 = _mm512_unpackhi_epi8(b[2], b[3]);
    out[0] = _mm512_castsi512_ps(_mm512_unpacklo_epi16(w0, u0));
    out[1] = _mm512_castsi512_ps(_mm512_unpackhi_epi16(w0, u0));
    out[2] = _mm512_castsi512_ps(_mm512_unpacklo_epi16(w1, u1));
    out[3] = _mm512_castsi512_ps(_mm512_unpackhi_epi16(w1, u1));
}

// Four vectors of codes in Lookup64's order -> 64 bytes in pixel order, saturating.
ZOCA_INLINE __m512i Pack64(const __m512i c[4]) {
    return _mm512_packus_epi16(_mm512_packs_epi32(c[0], c[1]), _mm512_packs_epi32(c[2], c[3]));
}

// PowerCurve with every value scaled by k (255 folds the step to codes into it), its
// cubic rewritten in m itself, which saves the subtraction.
struct Power {
    __m512 o0, o1, d0, d1, d2, d3;
    Power(const PowerCurve& pc, float k)
        : o0(_mm512_mul_ps(_mm512_loadu_ps(pc.octave), _mm512_set1_ps(k))),
          o1(_mm512_mul_ps(_mm512_loadu_ps(pc.octave + 16), _mm512_set1_ps(k))) {
        const double a = -1.5, c0 = pc.c[0], c1 = pc.c[1], c2 = pc.c[2], c3 = pc.c[3];
        d0 = _mm512_set1_ps(static_cast<float>(c0 + a * (c1 + a * (c2 + a * c3))));
        d1 = _mm512_set1_ps(static_cast<float>(c1 + 2 * a * c2 + 3 * a * a * c3));
        d2 = _mm512_set1_ps(static_cast<float>(c2 + 3 * a * c3));
        d3 = _mm512_set1_ps(static_cast<float>(c3));
    }

    // The octave factor and the cubic of k * x^g for x in [2^-31, 2): the permute reads
    // the low 5 bits of the biased exponent, and 96..127 (2^-31..1) already are 0..31.
    ZOCA_INLINE void Parts(__m512 x, __m512* oct, __m512* poly) const {
        const __m512i bits = _mm512_castps_si512(x);
        *oct = _mm512_permutex2var_ps(o0, _mm512_srli_epi32(bits, 23), o1);
        const __m512 m = _mm512_castsi512_ps(_mm512_ternarylogic_epi32(
            bits, _mm512_set1_epi32(0x007fffff), _mm512_set1_epi32(0x3f800000), 0xea));
        __m512 p = _mm512_fmadd_ps(d3, m, d2);
        p = _mm512_fmadd_ps(p, m, d1);
        *poly = _mm512_fmadd_ps(p, m, d0);
    }
    ZOCA_INLINE __m512 At(__m512 x) const {
        __m512 oct, poly;
        Parts(x, &oct, &poly);
        return _mm512_mul_ps(oct, poly);
    }
};

constexpr float kDarkest = 0x1p-31f;

// Whether any lane of r, g, b lies outside [0, 1]: as integers, the floats in [+0, 1]
// are exactly those at or below the bits of 1.0 (negatives have the top bit set).
ZOCA_INLINE __mmask16 Outside(__m512 r, __m512 g, __m512 b) {
    const __m512i hi = _mm512_max_epu32(
        _mm512_max_epu32(_mm512_castps_si512(r), _mm512_castps_si512(g)), _mm512_castps_si512(b));
    return _mm512_cmp_epu32_mask(hi, _mm512_set1_epi32(0x3f800000), _MM_CMPINT_NLE);
}

// The output stage, built for the destination curve (kSrgb) and for whether colours
// can leave the gamut (kMap) so that neither costs a test per pixel.
template <bool kSrgb, bool kMap>
struct Out {
    __m512 m[9];
    __m512 lum[3];
    Power power;

    explicit Out(const GamutParams& p) : power(p.enc.power, kSrgb ? 255.0f * 1.055f : 255.0f) {
        for (int i = 0; i < 9; ++i) m[i] = _mm512_set1_ps(p.m[i]);
        // The luminance is taken from the source values, so that it runs beside the matrix
        // rather than after it.
        for (int j = 0; j < 3; ++j) {
            double y = 0;
            for (int i = 0; i < 3; ++i) y += static_cast<double>(p.lum[i]) * p.m[3 * i + j];
            lum[j] = _mm512_set1_ps(static_cast<float>(y));
        }
    }

    // Anything darker than 2^-31 encodes to 0 on both curves. Nothing reaches 2 (the
    // mapping keeps colours within [0, 1]; without it the rows are convex sums of values
    // in [0, 1]), and [1, 2) saturates to 255, so no upper clamp is needed.
    ZOCA_INLINE __m512i Encode(__m512 l) const {
        l = _mm512_max_ps(l, _mm512_set1_ps(kDarkest));
        __m512 oct, poly;
        power.Parts(l, &oct, &poly);
        if (!kSrgb) return _mm512_cvtps_epi32(_mm512_mul_ps(oct, poly));
        __m512 v = _mm512_fmsub_ps(oct, poly, _mm512_set1_ps(255.0f * 0.055f));
        const __mmask16 toe = _mm512_cmp_ps_mask(l, _mm512_set1_ps(0.0031308f), _CMP_LE_OQ);
        v = _mm512_mask_mul_ps(v, toe, l, _mm512_set1_ps(255.0f * 12.92f));
        return _mm512_cvtps_epi32(v);
    }

    // Into the destination primaries, the gamut mapping of the plain build, and codes,
    // for the four groups of a step. One test for the whole step keeps the groups in
    // one straight run of code, which the processor overlaps.
    ZOCA_INLINE void Finish(const __m512 r[4], const __m512 g[4], const __m512 b[4], __m512i* R,
                            __m512i* G, __m512i* B) const {
        __m512 r2[4], g2[4], b2[4], l[4];
        __mmask16 out[4];
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q) {
            r2[q] =
                _mm512_fmadd_ps(m[2], b[q], _mm512_fmadd_ps(m[1], g[q], _mm512_mul_ps(m[0], r[q])));
            g2[q] =
                _mm512_fmadd_ps(m[5], b[q], _mm512_fmadd_ps(m[4], g[q], _mm512_mul_ps(m[3], r[q])));
            b2[q] =
                _mm512_fmadd_ps(m[8], b[q], _mm512_fmadd_ps(m[7], g[q], _mm512_mul_ps(m[6], r[q])));
            if (kMap) {
                out[q] = Outside(r2[q], g2[q], b2[q]);
                l[q] = _mm512_fmadd_ps(lum[2], b[q],
                                       _mm512_fmadd_ps(lum[1], g[q], _mm512_mul_ps(lum[0], r[q])));
            }
        }
        if (kMap && (out[0] | out[1] | out[2] | out[3]) != 0) {
#pragma GCC unroll 4
            for (int q = 0; q < 4; ++q) Map(out[q], l[q], &r2[q], &g2[q], &b2[q]);
        }
        __m512i cr[4], cg[4], cb[4];
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q) {
            cr[q] = Encode(r2[q]);
            cg[q] = Encode(g2[q]);
            cb[q] = Encode(b2[q]);
        }
        *R = Pack64(cr);
        *G = Pack64(cg);
        *B = Pack64(cb);
    }

    ZOCA_INLINE void Map(__mmask16 outside, __m512 l, __m512* r, __m512* g, __m512* b) const {
        const __m512 one = _mm512_set1_ps(1.0f);
        const __m512 zero = _mm512_setzero_ps();
        const __m512 hi = _mm512_max_ps(*r, _mm512_max_ps(*g, *b));
        const __m512 lo = _mm512_min_ps(*r, _mm512_min_ps(*g, *b));
        l = _mm512_min_ps(_mm512_max_ps(l, zero), one);
        const __m512 tiny = _mm512_set1_ps(1e-6f);
        const __m512 dh = _mm512_max_ps(_mm512_sub_ps(hi, l), tiny);
        const __m512 dl = _mm512_max_ps(_mm512_sub_ps(l, lo), tiny);
        // t c + (1 - t) l with t = min(1, (1 - l) / dh, l / dl) moves each outside colour to
        // t on its way to l. The channel that sets t lands on 0 or 1, where a reciprocal
        // estimate's error would show as several codes in the dark. Two divisions side by
        // side make a shorter chain than one over a common denominator.
        const __m512 t = _mm512_min_ps(
            _mm512_min_ps(_mm512_div_ps(_mm512_sub_ps(one, l), dh), _mm512_div_ps(l, dl)), one);
        const __m512 rest = _mm512_fnmadd_ps(t, l, l);
        *r = _mm512_mask_fmadd_ps(*r, outside, t, rest);
        *g = _mm512_mask_fmadd_ps(*g, outside, t, rest);
        *b = _mm512_mask_fmadd_ps(*b, outside, t, rest);
    }
};

// The row in steps of 64 pixels; the last, partial step reads and writes under a mask.
struct Rows {
    uint8_t* r;
    uint8_t* g;
    uint8_t* b;
    int w;
    int x = 0;
    __mmask64 m = 0;

    bool Next(__m512i* R, __m512i* G, __m512i* B) {
        if (x >= w) return false;
        const int n = w - x < 64 ? w - x : 64;
        m = n == 64 ? ~0ull : (1ull << n) - 1;
        *R = _mm512_maskz_loadu_epi8(m, r + x);
        *G = _mm512_maskz_loadu_epi8(m, g + x);
        *B = _mm512_maskz_loadu_epi8(m, b + x);
        return true;
    }
    void Put(__m512i R, __m512i G, __m512i B) {
        _mm512_mask_storeu_epi8(r + x, m, R);
        _mm512_mask_storeu_epi8(g + x, m, G);
        _mm512_mask_storeu_epi8(b + x, m, B);
        x += 64;
    }
};

// 64 packed 4-byte pixels a step, straight from and to the pictures' rows. Channels are
// picked out with byte permutes into an order that the byte unpacks of Put turn back
// into consecutive pixels: lane position 16k + 4q + i holds pixel 16q + 4k + i. Every
// kernel step works lane by lane, so the order never shows.
struct PackedRows {
    const uint8_t* src;
    uint8_t* dst;
    PackedOrder so, dor;
    int w;
    int x = 0;
    int n = 0;        // pixels in the current step
    __m512i pick[4];  // by source byte position
    __m512i A;        // the alpha of the current step, passed through

    PackedRows(const uint8_t* s, PackedOrder sorder, uint8_t* d, PackedOrder dorder, int width)
        : src(s), dst(d), so(sorder), dor(dorder), w(width) {
        alignas(64) uint8_t idx[64];
        for (int c = 0; c < 4; ++c) {
            for (int p = 0; p < 64; ++p) {
                const int k = p / 16, q = (p / 4) % 4, i = p % 4;
                idx[p] = static_cast<uint8_t>(64 * (q & 1) + 4 * (4 * k + i) + c);
            }
            pick[c] = _mm512_load_si512(idx);
        }
    }

    static __mmask16 Part(int n, int q) {
        const int m = n - 16 * q;
        return static_cast<__mmask16>(m >= 16 ? 0xffff : m <= 0 ? 0 : (1u << m) - 1);
    }

    bool Next(__m512i* R, __m512i* G, __m512i* B) {
        if (x >= w) return false;
        n = w - x < 64 ? w - x : 64;
        const uint8_t* s = src + 4 * x;
        __m512i v[4];
        for (int q = 0; q < 4; ++q) {
            // The frame streams from memory: ask for it well ahead.
            _mm_prefetch(reinterpret_cast<const char*>(s + 64 * q) + 4096, _MM_HINT_T0);
            v[q] = n == 64 ? _mm512_loadu_si512(s + 64 * q)
                           : _mm512_maskz_loadu_epi32(Part(n, q), s + 64 * q);
        }
        constexpr __mmask64 kUpper = 0xff00ff00ff00ff00ull;  // lanes with q >= 2
        auto channel = [&](int c) {
            return _mm512_mask_blend_epi8(kUpper, _mm512_permutex2var_epi8(v[0], pick[c], v[1]),
                                          _mm512_permutex2var_epi8(v[2], pick[c], v[3]));
        };
        *R = channel(so.r);
        *G = channel(so.g);
        *B = channel(so.b);
        A = channel(so.a);
        return true;
    }

    void Put(__m512i R, __m512i G, __m512i B) {
        __m512i at[4];
        at[dor.r] = R;
        at[dor.g] = G;
        at[dor.b] = B;
        at[dor.a] = A;
        const __m512i lo01 = _mm512_unpacklo_epi8(at[0], at[1]);
        const __m512i hi01 = _mm512_unpackhi_epi8(at[0], at[1]);
        const __m512i lo23 = _mm512_unpacklo_epi8(at[2], at[3]);
        const __m512i hi23 = _mm512_unpackhi_epi8(at[2], at[3]);
        const __m512i q[4] = {_mm512_unpacklo_epi16(lo01, lo23), _mm512_unpackhi_epi16(lo01, lo23),
                              _mm512_unpacklo_epi16(hi01, hi23), _mm512_unpackhi_epi16(hi01, hi23)};
        uint8_t* d = dst + 4 * x;
        for (int i = 0; i < 4; ++i) {
            if (n == 64) {
                _mm512_storeu_si512(d + 64 * i, q[i]);
            } else {
                _mm512_mask_storeu_epi32(d + 64 * i, Part(n, i), q[i]);
            }
        }
        x += 64;
    }
};

// The HLG curve's ratio on 16 lanes, times k, from the coarse RatioCubic, for top in
// [2^-8, 1) (the caller clamps: below 2^-8 the curve is the identity, which the first
// interval's cubic holds too). The intervals are kept rotated so that the low 5 bits of
// the float's exponent and two leading mantissa bits index them directly.
struct Ratio {
    static_assert(kCurveOctaves == 8 && kRatioSteps == 2, "the rotation below assumes 32 steps");
    __m512 c[4][2];  // coefficient n, slots 16 j .. 16 j + 15

    Ratio(const RatioCubic& rc, float k) {
        for (int n = 0; n < 4; ++n) {
            const __m512i v0 =
                _mm512_castps_si512(_mm512_mul_ps(_mm512_loadu_ps(rc.c[n]), _mm512_set1_ps(k)));
            const __m512i v1 = _mm512_castps_si512(
                _mm512_mul_ps(_mm512_loadu_ps(rc.c[n] + 16), _mm512_set1_ps(k)));
            // Interval i of octave 2^-8 (exponent 119, low bits 7) goes to slot 28 + i,
            // so slot s holds interval (s + 4) mod 32.
            c[n][0] = _mm512_castsi512_ps(_mm512_alignr_epi32(v1, v0, 4));
            c[n][1] = _mm512_castsi512_ps(_mm512_alignr_epi32(v0, v1, 4));
        }
    }

    ZOCA_INLINE __m512 At(__m512 top) const {
        constexpr int kShift = 23 - kRatioSteps;
        const __m512i bits = _mm512_castps_si512(top);
        const __m512i i = _mm512_srli_epi32(bits, kShift);
        // The fraction within the interval: its mantissa bits under the exponent of 1.
        const __m512 f =
            _mm512_sub_ps(_mm512_castsi512_ps(_mm512_ternarylogic_epi32(
                              _mm512_slli_epi32(bits, kRatioSteps), _mm512_set1_epi32(0x007fffff),
                              _mm512_set1_epi32(0x3f800000), 0xea)),
                          _mm512_set1_ps(1.0f));
        auto pick = [&](int n) { return _mm512_permutex2var_ps(c[n][0], i, c[n][1]); };
        __m512 v = _mm512_fmadd_ps(pick(3), f, pick(2));
        v = _mm512_fmadd_ps(v, f, pick(1));
        return _mm512_fmadd_ps(v, f, pick(0));
    }
};

template <bool kSrgb, bool kMap, typename IO>
void Gamut(const GamutParams& p, IO& rows) {
    const Out<kSrgb, kMap> out(p);
    __m512i R, G, B;
    while (rows.Next(&R, &G, &B)) {
        __m512 r[4], g[4], b[4];
        Lookup64(p.decode->bytes, R, r);
        Lookup64(p.decode->bytes, G, g);
        Lookup64(p.decode->bytes, B, b);
        out.Finish(r, g, b, &R, &G, &B);
        rows.Put(R, G, B);
    }
}

template <bool kSrgb, bool kMap, bool kHlg, typename IO>
void Tone(const ToneParams& p, IO& rows) {
    const Out<kSrgb, kMap> out(p.out);
    const Power ootf(p.ootf_power, 1.0f);
    const Ratio ratio(*p.ratio, p.scale);
    __m512i R, G, B;
    while (rows.Next(&R, &G, &B)) {
        __m512 r[4], g[4], b[4];
        if (kHlg) {
            Lookup64(p.scene->bytes, R, r);
            Lookup64(p.scene->bytes, G, g);
            Lookup64(p.scene->bytes, B, b);
#pragma GCC unroll 4
            for (int q = 0; q < 4; ++q) {
                const __m512 ys =
                    _mm512_fmadd_ps(_mm512_set1_ps(0.0593f), b[q],
                                    _mm512_fmadd_ps(_mm512_set1_ps(0.6780f), g[q],
                                                    _mm512_mul_ps(_mm512_set1_ps(0.2627f), r[q])));
                // Scene light is at most 1, so ys stays below 2, as Power needs.
                const __m512 od = ootf.At(_mm512_max_ps(ys, _mm512_set1_ps(kDarkest)));
                const __m512 top = _mm512_min_ps(
                    _mm512_max_ps(_mm512_mul_ps(od, _mm512_max_ps(r[q], _mm512_max_ps(g[q], b[q]))),
                                  _mm512_set1_ps(0x1p-8f)),
                    _mm512_set1_ps(0x1.fffffep-1f));
                const __m512 k = _mm512_mul_ps(od, ratio.At(top));
                r[q] = _mm512_mul_ps(r[q], k);
                g[q] = _mm512_mul_ps(g[q], k);
                b[q] = _mm512_mul_ps(b[q], k);
            }
        } else {
            __m512 gain[4];
            Lookup64(p.gain->bytes, _mm512_max_epu8(R, _mm512_max_epu8(G, B)), gain);
            Lookup64(p.nits->bytes, R, r);
            Lookup64(p.nits->bytes, G, g);
            Lookup64(p.nits->bytes, B, b);
#pragma GCC unroll 4
            for (int q = 0; q < 4; ++q) {
                r[q] = _mm512_mul_ps(r[q], gain[q]);
                g[q] = _mm512_mul_ps(g[q], gain[q]);
                b[q] = _mm512_mul_ps(b[q], gain[q]);
            }
        }
        out.Finish(r, g, b, &R, &G, &B);
        rows.Put(R, G, B);
    }
}

// Gamut and Tone built for the destination's curve and mapping.
template <typename IO>
void GamutFor(const GamutParams& p, IO& rows) {
    if (p.enc.srgb) {
        return p.map ? Gamut<true, true>(p, rows) : Gamut<true, false>(p, rows);
    }
    return p.map ? Gamut<false, true>(p, rows) : Gamut<false, false>(p, rows);
}

template <bool kHlg, typename IO>
void ToneFor(const ToneParams& p, IO& rows) {
    if (p.out.enc.srgb) {
        return p.out.map ? Tone<true, true, kHlg>(p, rows) : Tone<true, false, kHlg>(p, rows);
    }
    return p.out.map ? Tone<false, true, kHlg>(p, rows) : Tone<false, false, kHlg>(p, rows);
}

// Each route in its own loop, so that neither holds the other's constants.
template <typename IO>
void ToneFor(const ToneParams& p, IO& rows) {
    return p.hlg ? ToneFor<true>(p, rows) : ToneFor<false>(p, rows);
}

}  // namespace

void GamutRow(const GamutParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w) {
    Rows rows{r, g, b, w};
    GamutFor(p, rows);
}

void ToneRow(const ToneParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w) {
    Rows rows{r, g, b, w};
    ToneFor(p, rows);
}

void GamutPacked(const GamutParams& p, const uint8_t* src, PackedOrder so, uint8_t* dst,
                 PackedOrder dor, int w) {
    PackedRows rows(src, so, dst, dor, w);
    GamutFor(p, rows);
}

void TonePacked(const ToneParams& p, const uint8_t* src, PackedOrder so, uint8_t* dst,
                PackedOrder dor, int w) {
    PackedRows rows(src, so, dst, dor, w);
    ToneFor(p, rows);
}

}  // namespace avx512
}  // namespace zoca

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif  // ZOCA_AVX512_BUILD
