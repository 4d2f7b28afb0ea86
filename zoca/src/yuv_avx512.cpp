// AVX-512 build of the fixed-point YUV <-> RGB rows in yuv.h: the same arithmetic on 32
// pixels a step (decoding in 16-bit lanes; encoding two rows at once in VNNI dot products,
// the 2x2 chroma sums in registers), so the two builds give the same bytes. Partial steps at the
// end of a row read and write under a mask and never touch a byte past the row.
#include "yuv.h"

#if ZOCA_AVX512_BUILD

#include <immintrin.h>

#include <cstring>

#if defined(__clang__)
#pragma clang attribute push(                                                   \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vnni"))), \
    apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vnni")
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace zoca {
namespace avx512 {
namespace {

// How far ahead of its reads the encoder asks for memory, in bytes.
constexpr int kAhead = 4096;

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

    // 32 luma words and their 16 chroma pairs -> R, G, B words before the clamp to
    // 0..255, which a saturating pack to bytes does by itself.
    void Raw(__m512i y, __m512i c, __m512i* r, __m512i* g, __m512i* b) const {
        __m512i tr, tg, tb;
        Terms(c, &tr, &tg, &tb);
        Luma(y, tr, tg, tb, r, g, b);
    }
    // The chroma terms of each pixel, which both rows of a chroma row share.
    void Terms(__m512i c, __m512i* tr, __m512i* tg, __m512i* tb) const {
        c = _mm512_slli_epi16(_mm512_sub_epi16(c, _mm512_set1_epi16(128)), 7);
        const __m512i cu = _mm512_shuffle_epi8(c, dup_u);
        const __m512i cv = _mm512_shuffle_epi8(c, dup_v);
        *tr = _mm512_mulhrs_epi16(cv, rv);
        *tg = _mm512_add_epi16(_mm512_mulhrs_epi16(cu, gu), _mm512_mulhrs_epi16(cv, gv));
        *tb = _mm512_add_epi16(_mm512_srai_epi16(cu, 1), _mm512_mulhrs_epi16(cu, bu1));
    }
    void Luma(__m512i y, __m512i tr, __m512i tg, __m512i tb, __m512i* r, __m512i* g,
              __m512i* b) const {
        const __m512i yt = _mm512_add_epi16(
            _mm512_mulhrs_epi16(_mm512_slli_epi16(_mm512_sub_epi16(y, yoff), 7), ky), bias);
        // Saturation only ever hits sums far past 255, which clamp there anyway.
        *r = _mm512_srai_epi16(_mm512_adds_epi16(yt, tr), 6);
        *g = _mm512_srai_epi16(_mm512_subs_epi16(yt, tg), 6);
        *b = _mm512_srai_epi16(_mm512_adds_epi16(yt, tb), 6);
    }

    // The same in 0..255.
    void Run(__m512i y, __m512i c, __m512i* r, __m512i* g, __m512i* b) const {
        Raw(y, c, r, g, b);
        const __m512i zero = _mm512_setzero_si512();
        *r = _mm512_min_epi16(_mm512_max_epi16(*r, zero), max);
        *g = _mm512_min_epi16(_mm512_max_epi16(*g, zero), max);
        *b = _mm512_min_epi16(_mm512_max_epi16(*b, zero), max);
    }
};

}  // namespace

void DecodeRow(const DecCoef& k, Layout l, const uint8_t* y, const uint8_t* c0, const uint8_t* c1,
               PackedOrder o, uint8_t* const out[3], int w, int row, bool dither) {
    const Decoder d(k, l, row, dither);
    const __m512i opaque = _mm512_set1_epi16(255);
    const __m512i first = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
    const __m512i second = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
    int x = 0;
    if (o.bpp == 0) {
        // Planar rows 64 pixels a step: the pack of two steps' words saturates to bytes,
        // in 128-bit lanes that one qword permute puts back in order.
        const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
        for (; x + 64 <= w; x += 64) {
            __m512i a[3], b[3];
            for (int h = 0; h < 2; ++h) {
                const int at = x + 32 * h;
                const __m512i yw = _mm512_cvtepu8_epi16(
                    _mm256_loadu_si256(reinterpret_cast<const __m256i*>(y + at)));
                d.Raw(yw, LoadChroma(l, c0, c1, at / 2, 16), h == 0 ? &a[0] : &b[0],
                      h == 0 ? &a[1] : &b[1], h == 0 ? &a[2] : &b[2]);
            }
            for (int c = 0; c < 3; ++c) {
                _mm512_storeu_si512(
                    out[c] + x, _mm512_permutexvar_epi64(order, _mm512_packus_epi16(a[c], b[c])));
            }
        }
    }
    for (; x < w; x += 32) {
        const int n = w - x < 32 ? w - x : 32;
        const __m512i yw = _mm512_cvtepu8_epi16(
            n == 32 ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(y + x))
                    : _mm256_maskz_loadu_epi8(Mask32(n), y + x));
        const __m512i cw = LoadChroma(l, c0, c1, x / 2, (n + 1) / 2);
        __m512i ch[4];
        d.Run(yw, cw, &ch[0], &ch[1], &ch[2]);
        if (o.bpp == 0) {
            for (int c = 0; c < 3; ++c) {
                const __m256i v = _mm512_cvtepi16_epi8(ch[c]);
                if (n == 32) {  // masked stores only at the row's end, as below
                    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[c] + x), v);
                } else {
                    _mm256_mask_storeu_epi8(out[c] + x, Mask32(n), v);
                }
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

void DecodeRowPair(const DecCoef& k, Layout l, const uint8_t* y0, const uint8_t* y1,
                   const uint8_t* c0, const uint8_t* c1, uint8_t* const out[6], int w, int row,
                   bool dither) {
    const Decoder d[2] = {{k, l, row, dither}, {k, l, row + 1, dither}};
    const uint8_t* const y[2] = {y0, y1};
    // As in DecodeRow's planar steps: pack two steps' words to bytes, then fix the lanes.
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    int x = 0;
    for (; x + 64 <= w; x += 64) {
        // The frame streams from memory: ask for all three rows well ahead.
        _mm_prefetch(reinterpret_cast<const char*>(y0 + x) + kAhead, _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char*>(y1 + x) + kAhead, _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char*>(c0 + (l == Layout::I420 ? x / 2 : x)) + kAhead,
                     _MM_HINT_T0);
        if (l == Layout::I420) {
            _mm_prefetch(reinterpret_cast<const char*>(c1 + x / 2) + kAhead, _MM_HINT_T0);
        }
        __m512i v[2][3][2];  // [row][channel][half]
        for (int h = 0; h < 2; ++h) {
            const int at = x + 32 * h;
            __m512i tr, tg, tb;
            d[0].Terms(LoadChroma(l, c0, c1, at / 2, 16), &tr, &tg, &tb);
            for (int r = 0; r < 2; ++r) {
                const __m512i yw = _mm512_cvtepu8_epi16(
                    _mm256_loadu_si256(reinterpret_cast<const __m256i*>(y[r] + at)));
                d[r].Luma(yw, tr, tg, tb, &v[r][0][h], &v[r][1][h], &v[r][2][h]);
            }
        }
        for (int r = 0; r < 2; ++r) {
            for (int c = 0; c < 3; ++c) {
                _mm512_storeu_si512(
                    out[3 * r + c] + x,
                    _mm512_permutexvar_epi64(order, _mm512_packus_epi16(v[r][c][0], v[r][c][1])));
            }
        }
    }
    if (x == w) return;
    // The rest one row at a time; x is a multiple of 64, so the dither keeps its phase.
    const uint8_t* const cx0 = c0 + (l == Layout::I420 ? x / 2 : x);
    const uint8_t* const cx1 = l == Layout::I420 ? c1 + x / 2 : nullptr;
    for (int r = 0; r < 2; ++r) {
        uint8_t* const o[3] = {out[3 * r] + x, out[3 * r + 1] + x, out[3 * r + 2] + x};
        DecodeRow(k, l, y[r] + x, cx0, cx1, PackedOrder{0, 0, 0, 0, -1}, o, w - x, row + r, dither);
    }
}

namespace {

// 16 pixels as dwords (bytes in the source's order; planar R, G, B become bytes 0, 1, 2).
// Past the row's end the lanes are zero; an odd last column stands for both columns of
// its chroma block, so it is repeated.
inline __m512i LoadPixels(const PackedOrder& o, const uint8_t* const* in, int x, int n) {
    if (n <= 0) return _mm512_setzero_si512();
    alignas(64) uint8_t tmp[3][64];
    if (o.bpp == 4) {
        const uint8_t* p = in[0] + 4 * x;
        if (n < 16) {
            std::memset(tmp[0], 0, 64);
            std::memcpy(tmp[0], p, 4 * n);
            if (n & 1) std::memcpy(tmp[0] + 4 * n, p + 4 * (n - 1), 4);
            p = tmp[0];
        }
        return _mm512_loadu_si512(p);
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
    return _mm512_ternarylogic_epi32(c[0], _mm512_slli_epi32(c[1], 8), _mm512_slli_epi32(c[2], 16),
                                     0xfe);
}

// One Q14 weight set as two signed bytes per channel, w = 128 * hi + lo with lo in
// 0..127, so that a pixel's weighted sum is two VNNI dot products of its four bytes.
struct Weights {
    __m512i hi, lo;
    Weights(const int32_t* rgb, const PackedOrder& o) {
        int8_t h[4] = {0, 0, 0, 0}, l[4] = {0, 0, 0, 0};
        const int at[3] = {o.r, o.g, o.b};
        for (int c = 0; c < 3; ++c) {
            h[at[c]] = static_cast<int8_t>(rgb[c] >> 7);
            l[at[c]] = static_cast<int8_t>(rgb[c] & 127);
        }
        int32_t hw, lw;
        std::memcpy(&hw, h, 4);
        std::memcpy(&lw, l, 4);
        hi = _mm512_set1_epi32(hw);
        lo = _mm512_set1_epi32(lw);
    }
    // acc / 128 + the sums of a and b: acc's low 7 bits must be zero.
    __m512i Sum(__m512i acc_hi, __m512i a) const {
        return _mm512_dpbusd_epi32(_mm512_slli_epi32(_mm512_dpbusd_epi32(acc_hi, a, hi), 7), a, lo);
    }
    __m512i Sum2(__m512i acc_hi, __m512i a, __m512i b) const {
        const __m512i h = _mm512_dpbusd_epi32(_mm512_dpbusd_epi32(acc_hi, a, hi), b, hi);
        return _mm512_dpbusd_epi32(_mm512_dpbusd_epi32(_mm512_slli_epi32(h, 7), a, lo), b, lo);
    }
};

// Byte picks after the saturating packs, which interleave 128-bit lanes.
// Luma: lane k of the pack holds, for row r and half h, columns 16h + 4k .. + 3 at byte
// 16k + 8r + 4h; the pick gives row 0's 32 bytes, then row 1's.
__m512i LumaPick() {
    alignas(64) uint8_t idx[64];
    for (int r = 0; r < 2; ++r) {
        for (int c = 0; c < 32; ++c) {
            const int h = c / 16, i = c % 16;
            idx[32 * r + c] = static_cast<uint8_t>(16 * (i / 4) + 8 * r + 4 * h + i % 4);
        }
    }
    return _mm512_load_si512(idx);
}

// Chroma: Cb sample j at byte 16 (j / 4) + j % 4, Cr 4 bytes later. Written in the
// destination's order: Cb,Cr pairs (NV12), Cr,Cb (NV21), or 16 Cb then 16 Cr (I420).
__m512i ChromaPick(Layout l) {
    alignas(64) uint8_t idx[64] = {};
    for (int j = 0; j < 16; ++j) {
        const uint8_t u = static_cast<uint8_t>(16 * (j / 4) + j % 4);
        const uint8_t v = static_cast<uint8_t>(u + 4);
        if (l == Layout::I420) {
            idx[j] = u;
            idx[16 + j] = v;
        } else {
            idx[2 * j] = l == Layout::NV12 ? u : v;
            idx[2 * j + 1] = l == Layout::NV12 ? v : u;
        }
    }
    return _mm512_load_si512(idx);
}

}  // namespace

void EncodeRows(const EncCoef& k, PackedOrder o, const uint8_t* const in[6], Layout l, uint8_t* y0,
                uint8_t* y1, uint8_t* c0, uint8_t* c1, int w, int row, bool dither) {
    const PackedOrder pos = o.bpp == 4 ? o : PackedOrder{0, 0, 1, 2, 3};
    const Weights wy(k.y, pos), wu(k.u, pos), wv(k.v, pos);
    // Offsets and rounding, over 128 (the high bytes' sums are scaled up by 128 after).
    // Each column's chroma sum carries half its block's offset.
    int32_t b[3][16];
    for (int i = 0; i < 16; ++i) {
        b[0][i] = ((k.yoff << kLumaBits) + RoundBias(dither, row, i, kLumaBits)) >> 7;
        b[1][i] = ((k.yoff << kLumaBits) + RoundBias(dither, row + 1, i, kLumaBits)) >> 7;
        b[2][i] =
            ((128 << (kChromaBits - 1)) + RoundBias(dither, row / 2, i / 2, kChromaBits - 1)) >> 7;
    }
    const __m512i bias[2] = {_mm512_loadu_si512(b[0]), _mm512_loadu_si512(b[1])};
    const __m512i cbias = _mm512_loadu_si512(b[2]);
    const __m512i luma_pick = LumaPick();
    const __m512i chroma_pick = ChromaPick(l);
    const __m512i even =
        _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const __m512i odd = _mm512_add_epi32(even, _mm512_set1_epi32(1));
    const uint8_t* const* in1 = o.bpp == 4 ? in + 1 : in + 3;
    // Planar R, G, B bytes into pixel dwords (R, G, B, 0): pixel i of half h takes byte
    // 16 h + i of each row, R and G by one two-table permute, B inserted by a second.
    alignas(64) uint8_t ix[2][2][64] = {};
    for (int h = 0; h < 2; ++h) {
        for (int i = 0; i < 16; ++i) {
            ix[h][0][4 * i] = static_cast<uint8_t>(16 * h + i);
            ix[h][0][4 * i + 1] = static_cast<uint8_t>(64 + 16 * h + i);
            ix[h][1][4 * i + 2] = static_cast<uint8_t>(16 * h + i);
        }
    }
    const __m512i rg_pick[2] = {_mm512_load_si512(ix[0][0]), _mm512_load_si512(ix[1][0])};
    const __m512i b_pick[2] = {_mm512_load_si512(ix[0][1]), _mm512_load_si512(ix[1][1])};
    constexpr __mmask64 kRg = 0x3333333333333333ull, kB = 0x4444444444444444ull;
    // 32 pixels of both rows a step, as two halves of 16.
    for (int x = 0; x < w; x += 32) {
        const int n = w - x < 32 ? w - x : 32;
        __m512i p[2][2];  // [row][half]
        if (n == 32 && o.bpp == 4) {
            // The frame streams from memory: ask for both rows well ahead.
            for (int r = 0; r < 2; ++r) {
                const uint8_t* src = (r == 0 ? in[0] : in1[0]) + 4 * x;
                _mm_prefetch(reinterpret_cast<const char*>(src) + kAhead, _MM_HINT_T0);
                _mm_prefetch(reinterpret_cast<const char*>(src) + kAhead + 64, _MM_HINT_T0);
                p[r][0] = _mm512_loadu_si512(src);
                p[r][1] = _mm512_loadu_si512(src + 64);
            }
        } else if (n == 32) {
            for (int r = 0; r < 2; ++r) {
                const uint8_t* const* rows = r == 0 ? in : in1;
                __m512i c[3];
                for (int i = 0; i < 3; ++i) {
                    c[i] = _mm512_castsi256_si512(
                        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[i] + x)));
                }
                for (int h = 0; h < 2; ++h) {
                    p[r][h] = _mm512_mask_permutexvar_epi8(
                        _mm512_maskz_permutex2var_epi8(kRg, c[0], rg_pick[h], c[1]), kB, b_pick[h],
                        c[2]);
                }
            }
        } else {
            for (int h = 0; h < 2; ++h) {
                p[0][h] = LoadPixels(o, in, x + 16 * h, n - 16 * h);
                p[1][h] = LoadPixels(o, in1, x + 16 * h, n - 16 * h);
            }
        }
        __m512i packed[2];
        for (int r = 0; r < 2; ++r) {
            packed[r] = _mm512_packs_epi32(_mm512_srai_epi32(wy.Sum(bias[r], p[r][0]), kLumaBits),
                                           _mm512_srai_epi32(wy.Sum(bias[r], p[r][1]), kLumaBits));
        }
        const __m512i luma =
            _mm512_permutexvar_epi8(luma_pick, _mm512_packus_epi16(packed[0], packed[1]));
        // Each column's sum over both rows, then each pair of columns.
        auto chroma = [&](const Weights& wt) {
            const __m512i a = wt.Sum2(cbias, p[0][0], p[1][0]);
            const __m512i c = wt.Sum2(cbias, p[0][1], p[1][1]);
            return _mm512_srai_epi32(_mm512_add_epi32(_mm512_permutex2var_epi32(a, even, c),
                                                      _mm512_permutex2var_epi32(a, odd, c)),
                                     kChromaBits);
        };
        const __m512i uv = _mm512_packs_epi32(chroma(wu), chroma(wv));
        const __m256i ch = _mm512_castsi512_si256(
            _mm512_permutexvar_epi8(chroma_pick, _mm512_packus_epi16(uv, uv)));
        const __m256i l0 = _mm512_castsi512_si256(luma);
        const __m256i l1 = _mm512_extracti64x4_epi64(luma, 1);
        const int cn = (n + 1) / 2;
        uint8_t* const cr = l == Layout::I420 ? c1 + x / 2 : nullptr;
        uint8_t* const cb = l == Layout::I420 ? c0 + x / 2 : c0 + x;
        if (n == 32) {  // masked stores are slow on some parts: only at the row's end
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(y0 + x), l0);
            if (y1 != nullptr) _mm256_storeu_si256(reinterpret_cast<__m256i*>(y1 + x), l1);
            if (cr != nullptr) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(cb), _mm256_castsi256_si128(ch));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(cr), _mm256_extracti128_si256(ch, 1));
            } else {
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(cb), ch);
            }
            continue;
        }
        _mm256_mask_storeu_epi8(y0 + x, Mask32(n), l0);
        if (y1 != nullptr) _mm256_mask_storeu_epi8(y1 + x, Mask32(n), l1);
        if (cr != nullptr) {
            _mm_mask_storeu_epi8(cb, Mask16(cn), _mm256_castsi256_si128(ch));
            _mm_mask_storeu_epi8(cr, Mask16(cn), _mm256_extracti128_si256(ch, 1));
        } else {
            _mm256_mask_storeu_epi8(cb, Mask32(2 * cn), ch);
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
