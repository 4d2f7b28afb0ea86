// AVX-512 build of the fixed-point YUV <-> RGB rows in yuv.h: the same arithmetic on 32
// pixels (decoding, 16-bit lanes) or 16 pixels (encoding, 32-bit sums) a step, so the
// two builds give the same bytes. Partial steps at the end of a row read and write under
// a mask and never touch a byte past the row.
#include "yuv.h"

#if ZOCA_AVX512_BUILD

#include <immintrin.h>

#include <cstring>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw,avx512vl"))), \
                             apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vl")
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace zoca {
namespace avx512 {
namespace {

inline __mmask32 Mask32(int n) {
    return n >= 32 ? ~0u : (1u << n) - 1;
}
inline __mmask16 Mask16(int n) {
    return static_cast<__mmask16>(n >= 16 ? 0xffff : n <= 0 ? 0 : (1u << n) - 1);
}

// 32 Cb, Cr pairs... of which 16 are read: words u0 v0 u1 v1 ... (NV21: v0 u0 ...).
inline __m512i LoadChroma(Layout l, const uint8_t* c0, const uint8_t* c1, int cx, int cn) {
    if (l == Layout::I420) {
        const bool whole = cn == 16;
        const __m128i u = whole ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(c0 + cx))
                                : _mm_maskz_loadu_epi8(Mask16(cn), c0 + cx);
        const __m128i v = whole ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(c1 + cx))
                                : _mm_maskz_loadu_epi8(Mask16(cn), c1 + cx);
        const __m256i uv = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_unpacklo_epi8(u, v)),
                                                   _mm_unpackhi_epi8(u, v), 1);
        return _mm512_cvtepu8_epi16(uv);
    }
    return _mm512_cvtepu8_epi16(
        cn == 16 ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(c0 + 2 * cx))
                 : _mm256_maskz_loadu_epi8(Mask32(2 * cn), c0 + 2 * cx));
}

struct Decoder {
    __m512i ky, yoff, rv, gu, gv, bu1, bias, dup_u, dup_v, max;

    Decoder(const DecCoef& k, Layout l, int row, bool dither)
        : ky(_mm512_set1_epi16(static_cast<int16_t>(k.ky))),
          yoff(_mm512_set1_epi16(static_cast<int16_t>(k.yoff))),
          rv(_mm512_set1_epi16(static_cast<int16_t>(k.rv))),
          gu(_mm512_set1_epi16(static_cast<int16_t>(k.gu))),
          gv(_mm512_set1_epi16(static_cast<int16_t>(k.gv))),
          bu1(_mm512_set1_epi16(static_cast<int16_t>(k.bu1))),
          max(_mm512_set1_epi16(255)) {
        int16_t b[32];
        for (int i = 0; i < 32; ++i) b[i] = static_cast<int16_t>(RoundBias(dither, row, i, 6));
        bias = _mm512_loadu_si512(b);
        // Each pixel takes the pair of its chroma sample (word i & ~1 and the one after).
        const __m512i first = _mm512_broadcast_i32x4(
            _mm_setr_epi8(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13));
        const __m512i second = _mm512_add_epi8(first, _mm512_set1_epi8(2));
        dup_u = l == Layout::NV21 ? second : first;
        dup_v = l == Layout::NV21 ? first : second;
    }

    // 32 luma words and their 16 chroma pairs -> R, G, B words in 0..255.
    void Run(__m512i y, __m512i c, __m512i* r, __m512i* g, __m512i* b) const {
        c = _mm512_slli_epi16(_mm512_sub_epi16(c, _mm512_set1_epi16(128)), 7);
        const __m512i cu = _mm512_shuffle_epi8(c, dup_u);
        const __m512i cv = _mm512_shuffle_epi8(c, dup_v);
        const __m512i yt = _mm512_add_epi16(
            _mm512_mulhrs_epi16(_mm512_slli_epi16(_mm512_sub_epi16(y, yoff), 7), ky), bias);
        const __m512i tr = _mm512_mulhrs_epi16(cv, rv);
        const __m512i tg =
            _mm512_add_epi16(_mm512_mulhrs_epi16(cu, gu), _mm512_mulhrs_epi16(cv, gv));
        const __m512i tb = _mm512_add_epi16(_mm512_srai_epi16(cu, 1), _mm512_mulhrs_epi16(cu, bu1));
        // Saturation only ever hits sums far past 255, which clamp there anyway.
        const __m512i zero = _mm512_setzero_si512();
        *r = _mm512_min_epi16(
            _mm512_max_epi16(_mm512_srai_epi16(_mm512_adds_epi16(yt, tr), 6), zero), max);
        *g = _mm512_min_epi16(
            _mm512_max_epi16(_mm512_srai_epi16(_mm512_subs_epi16(yt, tg), 6), zero), max);
        *b = _mm512_min_epi16(
            _mm512_max_epi16(_mm512_srai_epi16(_mm512_adds_epi16(yt, tb), 6), zero), max);
    }
};

}  // namespace

void DecodeRow(const DecCoef& k, Layout l, const uint8_t* y, const uint8_t* c0, const uint8_t* c1,
               PackedOrder o, uint8_t* const out[3], int w, int row, bool dither) {
    const Decoder d(k, l, row, dither);
    const __m512i opaque = _mm512_set1_epi16(255);
    const __m512i first = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
    const __m512i second = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
    for (int x = 0; x < w; x += 32) {
        const int n = w - x < 32 ? w - x : 32;
        const __m512i yw = _mm512_cvtepu8_epi16(
            n == 32 ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(y + x))
                    : _mm256_maskz_loadu_epi8(Mask32(n), y + x));
        const __m512i cw = LoadChroma(l, c0, c1, x / 2, (n + 1) / 2);
        __m512i ch[4];
        d.Run(yw, cw, &ch[0], &ch[1], &ch[2]);
        if (o.bpp == 0) {
            for (int c = 0; c < 3; ++c) {
                _mm256_mask_storeu_epi8(out[c] + x, Mask32(n), _mm512_cvtepi16_epi8(ch[c]));
            }
            continue;
        }
        // Channel words by byte position: two bytes a word, two words a pixel.
        __m512i at[4];
        at[o.r] = ch[0];
        at[o.g] = ch[1];
        at[o.b] = ch[2];
        at[o.a] = opaque;
        const __m512i lo = _mm512_or_si512(at[0], _mm512_slli_epi16(at[1], 8));
        const __m512i hi = _mm512_or_si512(at[2], _mm512_slli_epi16(at[3], 8));
        const __m512i p0 = _mm512_unpacklo_epi16(lo, hi);  // pixels 8j .. 8j+3 of lane j
        const __m512i p1 = _mm512_unpackhi_epi16(lo, hi);  // pixels 8j+4 .. 8j+7
        uint8_t* dst = out[0] + 4 * x;
        const __m512i q0 = _mm512_permutex2var_epi64(p0, first, p1);
        const __m512i q1 = _mm512_permutex2var_epi64(p0, second, p1);
        if (n == 32) {  // masked stores are slow on some parts: only at the row's end
            _mm512_storeu_si512(dst, q0);
            _mm512_storeu_si512(dst + 64, q1);
        } else {
            _mm512_mask_storeu_epi32(dst, Mask16(n), q0);
            _mm512_mask_storeu_epi32(dst + 64, Mask16(n - 16), q1);
        }
    }
}

namespace {

// Words of byte 0 and 2 (lo) and of byte 1 and 3 (hi) of 16 pixels, from packed 4-byte
// pixels or from planar R, G, B taken as bytes 0, 1, 2 (byte 3 zero).
struct Pixels {
    __m512i lo, hi;
};

inline Pixels LoadPixels(const PackedOrder& o, const uint8_t* const* in, int x, int n) {
    const __m512i byte_mask = _mm512_set1_epi32(0x00ff00ff);
    alignas(64) uint8_t tmp[3][64];
    if (o.bpp == 4) {
        const uint8_t* p = in[0] + 4 * x;
        if (n < 16) {  // an odd last column stands for both columns of its block
            std::memcpy(tmp[0], p, 4 * n);
            if (n & 1) std::memcpy(tmp[0] + 4 * n, p + 4 * (n - 1), 4);
            p = tmp[0];
        }
        const __m512i v = _mm512_loadu_si512(p);
        return {_mm512_and_si512(v, byte_mask),
                _mm512_and_si512(_mm512_srli_epi32(v, 8), byte_mask)};
    }
    __m512i c[3];
    for (int i = 0; i < 3; ++i) {
        const uint8_t* p = in[i] + x;
        if (n < 16) {
            std::memcpy(tmp[i], p, n);
            if (n & 1) tmp[i][n] = p[n - 1];
            p = tmp[i];
        }
        c[i] = _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    return {_mm512_or_si512(c[0], _mm512_slli_epi32(c[2], 16)), c[1]};
}

// Q15 weights of bytes 0, 2 and of bytes 1, 3 as word pairs.
struct Weights {
    __m512i w02, w13;
    Weights(const int32_t* rgb, const PackedOrder& o) {
        int32_t at[4] = {0, 0, 0, 0};
        at[o.r] = rgb[0];
        at[o.g] = rgb[1];
        at[o.b] = rgb[2];
        w02 = _mm512_set1_epi32(static_cast<int32_t>((static_cast<uint32_t>(at[2]) << 16) |
                                                     (static_cast<uint32_t>(at[0]) & 0xffff)));
        w13 = _mm512_set1_epi32(static_cast<int32_t>((static_cast<uint32_t>(at[3]) << 16) |
                                                     (static_cast<uint32_t>(at[1]) & 0xffff)));
    }
    __m512i Apply(const Pixels& p) const {
        return _mm512_add_epi32(_mm512_madd_epi16(p.lo, w02), _mm512_madd_epi16(p.hi, w13));
    }
};

}  // namespace

void EncodeRows(const EncCoef& k, PackedOrder o, const uint8_t* const in[6], Layout l, uint8_t* y0,
                uint8_t* y1, uint8_t* c0, uint8_t* c1, int w, int row, bool dither) {
    const PackedOrder pos = o.bpp == 4 ? o : PackedOrder{0, 0, 1, 2, 3};
    const Weights wy(k.y, pos), wu(k.u, pos), wv(k.v, pos);
    int32_t b[3][16];
    for (int i = 0; i < 16; ++i) {
        b[0][i] = (k.yoff << 15) + RoundBias(dither, row, i, kLumaBits);
        b[1][i] = (k.yoff << 15) + RoundBias(dither, row + 1, i, kLumaBits);
        b[2][i] = (128 << 17) + RoundBias(dither, row / 2, i / 2, kChromaBits);
    }
    const __m512i bias0 = _mm512_loadu_si512(b[0]);
    const __m512i bias1 = _mm512_loadu_si512(b[1]);
    const __m512i cbias = _mm512_loadu_si512(b[2]);
    const __m512i zero = _mm512_setzero_si512();
    const __m128i planar = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
    const uint8_t* const* in1 = o.bpp == 4 ? in + 1 : in + 3;
    for (int x = 0; x < w; x += 16) {
        const int n = w - x < 16 ? w - x : 16;
        const Pixels p0 = LoadPixels(o, in, x, n);
        const Pixels p1 = LoadPixels(o, in1, x, n);
        const __m128i luma0 =
            _mm512_cvtusepi32_epi8(_mm512_srai_epi32(_mm512_add_epi32(wy.Apply(p0), bias0), 15));
        const __m128i luma1 =
            _mm512_cvtusepi32_epi8(_mm512_srai_epi32(_mm512_add_epi32(wy.Apply(p1), bias1), 15));
        // 2x2 sums: the two rows, then each pixel with its neighbour (both dwords of a
        // pair hold the pair's sum).
        Pixels s{_mm512_add_epi16(p0.lo, p1.lo), _mm512_add_epi16(p0.hi, p1.hi)};
        s.lo = _mm512_add_epi16(s.lo, _mm512_shuffle_epi32(s.lo, _MM_PERM_CDAB));
        s.hi = _mm512_add_epi16(s.hi, _mm512_shuffle_epi32(s.hi, _MM_PERM_CDAB));
        const __m512i u =
            _mm512_max_epi32(_mm512_srai_epi32(_mm512_add_epi32(wu.Apply(s), cbias), 17), zero);
        const __m512i v =
            _mm512_max_epi32(_mm512_srai_epi32(_mm512_add_epi32(wv.Apply(s), cbias), 17), zero);
        __m128i uv =
            _mm512_cvtusepi32_epi8(l == Layout::NV21 ? _mm512_mask_blend_epi32(0xaaaa, v, u)
                                                     : _mm512_mask_blend_epi32(0xaaaa, u, v));
        if (l == Layout::I420) uv = _mm_shuffle_epi8(uv, planar);  // 8 Cb, then 8 Cr
        uint8_t* const cb = l == Layout::I420 ? c0 + x / 2 : c0 + x;
        uint8_t* const cr = l == Layout::I420 ? c1 + x / 2 : nullptr;
        if (n == 16) {  // masked stores are slow on some parts: only at the row's end
            _mm_storeu_si128(reinterpret_cast<__m128i*>(y0 + x), luma0);
            if (y1 != nullptr) _mm_storeu_si128(reinterpret_cast<__m128i*>(y1 + x), luma1);
            if (cr != nullptr) {
                _mm_storel_epi64(reinterpret_cast<__m128i*>(cb), uv);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(cr), _mm_srli_si128(uv, 8));
            } else {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(cb), uv);
            }
            continue;
        }
        const int cn = (n + 1) / 2;
        _mm_mask_storeu_epi8(y0 + x, Mask16(n), luma0);
        if (y1 != nullptr) _mm_mask_storeu_epi8(y1 + x, Mask16(n), luma1);
        if (cr != nullptr) {
            _mm_mask_storeu_epi8(cb, Mask16(cn), uv);
            _mm_mask_storeu_epi8(cr, Mask16(cn), _mm_srli_si128(uv, 8));
        } else {
            _mm_mask_storeu_epi8(cb, Mask16(2 * cn), uv);
        }
    }
}

}  // namespace avx512
}  // namespace zoca

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif  // ZOCA_AVX512_BUILD
