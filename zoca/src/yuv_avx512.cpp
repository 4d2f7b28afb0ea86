// AVX-512 build of the fixed-point YUV <-> RGB rows in yuv.h: the same arithmetic on 32
// pixels (decoding, 16-bit lanes) or 16 pixels (encoding, 32-bit sums) a step, so the
// two builds give the same bytes. Partial steps at the end of a row read and write under
// a mask and never touch a byte past the row.
#include "yuv.h"

#if ZOCA_AVX512_BUILD

#include <immintrin.h>

#include <cstring>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi"))), \
                             apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vl,avx512vbmi")
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
    if (n <= 0) return {_mm512_setzero_si512(), _mm512_setzero_si512()};  // past the row
    alignas(64) uint8_t tmp[3][64];
    if (o.bpp == 4) {
        const uint8_t* p = in[0] + 4 * x;
        if (n < 16) {  // an odd last column stands for both columns of its block
            std::memset(tmp[0], 0, 64);
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
            std::memset(tmp[i], 0, 16);
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

// Byte picks of 32 luma values held as dwords in two vectors (16 pixels each).
__m512i LumaPick() {
    alignas(64) uint8_t idx[64] = {};
    for (int j = 0; j < 32; ++j) idx[j] = static_cast<uint8_t>(j < 16 ? 4 * j : 64 + 4 * (j - 16));
    return _mm512_load_si512(idx);
}

// Byte picks of 16 chroma samples held as dwords: Cb in the first vector, Cr in the
// second, lane 2j for pair j of the first 16 pixels and lane 2j+1 for pair j of the
// next 16. Written in the destination's order: Cb,Cr pairs (NV12), Cr,Cb (NV21), or 16
// Cb then 16 Cr (I420).
__m512i ChromaPick(Layout l) {
    alignas(64) uint8_t idx[64] = {};
    for (int p = 0; p < 16; ++p) {
        const int lane = p < 8 ? 2 * p : 2 * (p - 8) + 1;
        const uint8_t u = static_cast<uint8_t>(4 * lane);
        const uint8_t v = static_cast<uint8_t>(64 + 4 * lane);
        if (l == Layout::I420) {
            idx[p] = u;
            idx[16 + p] = v;
        } else {
            idx[2 * p] = l == Layout::NV12 ? u : v;
            idx[2 * p + 1] = l == Layout::NV12 ? v : u;
        }
    }
    return _mm512_load_si512(idx);
}

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
    const __m512i bias[2] = {_mm512_loadu_si512(b[0]), _mm512_loadu_si512(b[1])};
    const __m512i cbias = _mm512_loadu_si512(b[2]);
    const __m512i zero = _mm512_setzero_si512();
    const __m512i top = _mm512_set1_epi32(255);
    const __m512i luma_pick = LumaPick();
    const __m512i chroma_pick = ChromaPick(l);
    const uint8_t* const* in1 = o.bpp == 4 ? in + 1 : in + 3;
    uint8_t* const ys[2] = {y0, y1};
    // 32 pixels a step, as two halves of 16.
    for (int x = 0; x < w; x += 32) {
        const int n = w - x < 32 ? w - x : 32;
        Pixels p[2][2];  // [half][row]
        for (int h = 0; h < 2; ++h) {
            p[h][0] = LoadPixels(o, in, x + 16 * h, n - 16 * h);
            p[h][1] = LoadPixels(o, in1, x + 16 * h, n - 16 * h);
        }
        __m256i luma[2];
        for (int r = 0; r < 2; ++r) {
            __m512i v[2];
            for (int h = 0; h < 2; ++h) {
                v[h] = _mm512_min_epi32(
                    _mm512_srai_epi32(_mm512_add_epi32(wy.Apply(p[h][r]), bias[r]), 15), top);
            }
            luma[r] = _mm512_castsi512_si256(_mm512_permutex2var_epi8(v[0], luma_pick, v[1]));
        }
        // 2x2 sums: the two rows, then each pixel with its neighbour (both dwords of a
        // pair hold the pair's sum); the first half's pairs go to even lanes, the
        // second's to odd ones.
        Pixels s[2];
        for (int h = 0; h < 2; ++h) {
            s[h] = {_mm512_add_epi16(p[h][0].lo, p[h][1].lo),
                    _mm512_add_epi16(p[h][0].hi, p[h][1].hi)};
            s[h].lo = _mm512_add_epi16(s[h].lo, _mm512_shuffle_epi32(s[h].lo, _MM_PERM_CDAB));
            s[h].hi = _mm512_add_epi16(s[h].hi, _mm512_shuffle_epi32(s[h].hi, _MM_PERM_CDAB));
        }
        const Pixels both{_mm512_mask_blend_epi32(0xaaaa, s[0].lo, s[1].lo),
                          _mm512_mask_blend_epi32(0xaaaa, s[0].hi, s[1].hi)};
        auto finish = [&](const Weights& wt) {
            const __m512i c = _mm512_srai_epi32(_mm512_add_epi32(wt.Apply(both), cbias), 17);
            return _mm512_min_epi32(_mm512_max_epi32(c, zero), top);
        };
        const __m256i chroma =
            _mm512_castsi512_si256(_mm512_permutex2var_epi8(finish(wu), chroma_pick, finish(wv)));
        const int cn = (n + 1) / 2;
        uint8_t* const cr = l == Layout::I420 ? c1 + x / 2 : nullptr;
        uint8_t* const cb = l == Layout::I420 ? c0 + x / 2 : c0 + x;
        if (n == 32) {  // masked stores are slow on some parts: only at the row's end
            for (int r = 0; r < 2; ++r) {
                if (ys[r] != nullptr)
                    _mm256_storeu_si256(reinterpret_cast<__m256i*>(ys[r] + x), luma[r]);
            }
            if (cr != nullptr) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(cb), _mm256_castsi256_si128(chroma));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(cr),
                                 _mm256_extracti128_si256(chroma, 1));
            } else {
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(cb), chroma);
            }
            continue;
        }
        for (int r = 0; r < 2; ++r) {
            if (ys[r] != nullptr) _mm256_mask_storeu_epi8(ys[r] + x, Mask32(n), luma[r]);
        }
        if (cr != nullptr) {
            _mm_mask_storeu_epi8(cb, Mask16(cn), _mm256_castsi256_si128(chroma));
            _mm_mask_storeu_epi8(cr, Mask16(cn), _mm256_extracti128_si256(chroma, 1));
        } else {
            _mm256_mask_storeu_epi8(cb, Mask32(2 * cn), chroma);
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
