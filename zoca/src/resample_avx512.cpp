// AVX-512 build of the resampling row kernels. Both passes multiply int16 pairs into
// int32 (vpdpwssd): the vertical one pairs two rows word by word, the horizontal one
// gathers each output's two taps from a 64-word window (a word permute, an in-lane
// byte shuffle, or nothing when the pairs already lie in order).
#include "resample.h"

#if ZOCA_AVX512_BUILD

#include <immintrin.h>

#include <algorithm>
#include <vector>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw,avx512vl,avx512vnni"))), \
                             apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vl,avx512vnni")
// GCC 12's intrinsic headers seed results with a self-initialised "undefined" vector,
// which it then reports once inlined here.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace zoca {
namespace resample {
namespace avx512 {
namespace {

inline __mmask32 Mask32(int left) {
    return left >= 32 ? ~__mmask32{0} : (__mmask32{1} << left) - 1;
}

inline __m512i Load32(const void* row, int i, bool in16, __mmask32 m) {
    if (in16) return _mm512_maskz_loadu_epi16(m, static_cast<const int16_t*>(row) + i);
    return _mm512_cvtepu8_epi16(_mm256_maskz_loadu_epi8(m, static_cast<const uint8_t*>(row) + i));
}

inline int32_t Pair(const int16_t* c) {
    return static_cast<int32_t>(static_cast<uint16_t>(c[0]) | static_cast<uint32_t>(c[1]) << 16);
}

}  // namespace

bool Available() {
    static const bool ok =
        __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vnni");
    return ok;
}

namespace {

// U chunks of 32 words: independent sums keep the multiply-adds' latency hidden.
template <int U, bool kIn16, bool kOut16>
void VChunks(const VRowJob& j, const int32_t* pairs, int i, __mmask32 last) {
    const __m512i round = _mm512_set1_epi32(1 << (j.shift - 1));
    const __m128i shift = _mm_cvtsi32_si128(j.shift);
    __m512i lo[U], hi[U];
    for (int u = 0; u < U; ++u) lo[u] = hi[u] = round;
    for (int k = 0; k < j.taps; k += 2) {
        const __m512i c = _mm512_set1_epi32(pairs[k / 2]);
        for (int u = 0; u < U; ++u) {
            const __mmask32 m = u + 1 == U ? last : ~__mmask32{0};
            const __m512i a = Load32(j.rows[k], i + 32 * u, kIn16, m);
            const __m512i b = Load32(j.rows[k + 1], i + 32 * u, kIn16, m);
            lo[u] = _mm512_dpwssd_epi32(lo[u], _mm512_unpacklo_epi16(a, b), c);
            hi[u] = _mm512_dpwssd_epi32(hi[u], _mm512_unpackhi_epi16(a, b), c);
        }
    }
    for (int u = 0; u < U; ++u) {
        const __mmask32 m = u + 1 == U ? last : ~__mmask32{0};
        // The in-lane pack undoes the in-lane unpack: words come out in row order.
        const __m512i w =
            _mm512_packs_epi32(_mm512_sra_epi32(lo[u], shift), _mm512_sra_epi32(hi[u], shift));
        if (kOut16) {
            _mm512_mask_storeu_epi16(static_cast<int16_t*>(j.out) + i + 32 * u, m, w);
        } else {
            const __m256i b = _mm512_cvtusepi16_epi8(_mm512_max_epi16(w, _mm512_setzero_si512()));
            _mm256_mask_storeu_epi8(static_cast<uint8_t*>(j.out) + i + 32 * u, m, b);
        }
    }
}

// Byte rows, U chunks of 64 columns: two in-lane byte unpacks interleave the rows, two
// more against zero widen the pairs to words. Sum q of a chunk holds columns
// 16 L + 4 q + 0..3 of each 128-bit lane L; a qword permute restores row order.
// Sums q of 64 columns (see below) -> 64 results in row order at out + at.
template <bool kOut16>
inline void Store64(const __m512i acc[4], __m128i shift, void* out, int at, __mmask64 last) {
    const __m512i order[2] = {_mm512_set_epi64(11, 10, 3, 2, 9, 8, 1, 0),
                              _mm512_set_epi64(15, 14, 7, 6, 13, 12, 5, 4)};
    const __m512i p01 =
        _mm512_packs_epi32(_mm512_sra_epi32(acc[0], shift), _mm512_sra_epi32(acc[1], shift));
    const __m512i p23 =
        _mm512_packs_epi32(_mm512_sra_epi32(acc[2], shift), _mm512_sra_epi32(acc[3], shift));
    for (int h = 0; h < 2; ++h) {
        const __mmask32 m = static_cast<__mmask32>(last >> (32 * h));
        const __m512i w = _mm512_permutex2var_epi64(p01, order[h], p23);
        if (kOut16) {
            _mm512_mask_storeu_epi16(static_cast<int16_t*>(out) + at + 32 * h, m, w);
        } else {
            const __m256i b = _mm512_cvtusepi16_epi8(_mm512_max_epi16(w, _mm512_setzero_si512()));
            _mm256_mask_storeu_epi8(static_cast<uint8_t*>(out) + at + 32 * h, m, b);
        }
    }
}

// Byte rows, U chunks of 64 columns: two in-lane byte unpacks interleave two rows, two
// more against zero widen the pairs to words. Sum q of a chunk holds columns
// 16 L + 4 q + 0..3 of each 128-bit lane L; Store64 restores row order. With kTwo, a
// second output row whose rows start `lead` rows later shares the
// interleaved pairs: step s feeds the first row while s < taps / 2, the second (its
// weights shifted by lead rows) from s = lead / 2 on.
template <int U, bool kOut16, bool kTwo>
void VChunksBytes(const VRowJob& j, const int32_t* pairs, const int32_t* pairs2, int lead, int i,
                  __mmask64 last) {
    const __m512i round = _mm512_set1_epi32(1 << (j.shift - 1));
    const __m128i shift = _mm_cvtsi32_si128(j.shift);
    const __m512i z = _mm512_setzero_si512();
    __m512i acc[U][4], acc2[kTwo ? U : 1][4];
    for (int u = 0; u < U; ++u)
        for (int q = 0; q < 4; ++q) acc[u][q] = round;
    if (kTwo)
        for (int u = 0; u < U; ++u)
            for (int q = 0; q < 4; ++q) acc2[u][q] = round;
    const int half = j.taps / 2, steps = kTwo ? (j.taps + lead + 1) / 2 : half;
    for (int st = 0; st < steps; ++st) {
        const bool first = !kTwo || st < half, second = kTwo && st >= lead / 2;
        const __m512i c = _mm512_set1_epi32(first ? pairs[st] : 0);
        const __m512i c2 = _mm512_set1_epi32(second ? pairs2[st] : 0);
        const uint8_t* ra = static_cast<const uint8_t*>(j.rows[2 * st]) + i;
        const uint8_t* rb = static_cast<const uint8_t*>(j.rows[2 * st + 1]) + i;
        for (int u = 0; u < U; ++u) {
            const __mmask64 m = u + 1 == U ? last : ~__mmask64{0};
            const __m512i a = _mm512_maskz_loadu_epi8(m, ra + 64 * u);
            const __m512i b = _mm512_maskz_loadu_epi8(m, rb + 64 * u);
            const __m512i lo = _mm512_unpacklo_epi8(a, b), hi = _mm512_unpackhi_epi8(a, b);
            const __m512i v[4] = {_mm512_unpacklo_epi8(lo, z), _mm512_unpackhi_epi8(lo, z),
                                  _mm512_unpacklo_epi8(hi, z), _mm512_unpackhi_epi8(hi, z)};
            if (first)
                for (int q = 0; q < 4; ++q) acc[u][q] = _mm512_dpwssd_epi32(acc[u][q], v[q], c);
            if (second)
                for (int q = 0; q < 4; ++q) acc2[u][q] = _mm512_dpwssd_epi32(acc2[u][q], v[q], c2);
        }
    }
    for (int u = 0; u < U; ++u) {
        const __mmask64 m = u + 1 == U ? last : ~__mmask64{0};
        Store64<kOut16>(acc[u], shift, j.out, i + 64 * u, m);
        if (kTwo) Store64<kOut16>(acc2[u], shift, j.out2, i + 64 * u, m);
    }
}

template <bool kOut16, bool kTwo>
void VRowBytes(const VRowJob& j, const int32_t* pairs, const int32_t* pairs2) {
    int i = 0;
    for (; i + 128 <= j.words; i += 128)
        VChunksBytes<2, kOut16, kTwo>(j, pairs, pairs2, j.lead, i, ~__mmask64{0});
    for (; i < j.words; i += 64) {
        const int left = j.words - i;
        VChunksBytes<1, kOut16, kTwo>(j, pairs, pairs2, j.lead, i,
                                      left >= 64 ? ~__mmask64{0} : (__mmask64{1} << left) - 1);
    }
}

template <bool kIn16, bool kOut16>
void VRowOf(const VRowJob& j) {
    const int pair_count = j.taps / 2 + (j.out2 != nullptr ? (j.taps + j.lead + 1) / 2 : 0);
    constexpr int kHeld = 128;
    int32_t held[kHeld];
    std::vector<int32_t> many;
    int32_t* pairs = held;
    if (pair_count > kHeld) {
        many.resize(pair_count);
        pairs = many.data();
    }
    for (int k = 0; k < j.taps; k += 2) pairs[k / 2] = Pair(j.coef + k);
    if (!kIn16) {
        if (j.out2 != nullptr) {
            // The second row's weights over the shared rows: none for the first `lead`.
            int32_t* pairs2 = pairs + j.taps / 2;
            for (int r = 0; r < j.taps + j.lead; r += 2) {
                int16_t c[2];
                for (int t = 0; t < 2; ++t) {
                    const int k = r + t - j.lead;
                    c[t] = k >= 0 && k < j.taps ? j.coef2[k] : 0;
                }
                pairs2[r / 2] = Pair(c);
            }
            return VRowBytes<kOut16, true>(j, pairs, pairs2);
        }
        return VRowBytes<kOut16, false>(j, pairs, nullptr);
    }
    int i = 0;
    for (; i + 128 <= j.words; i += 128) VChunks<4, kIn16, kOut16>(j, pairs, i, ~__mmask32{0});
    for (; i < j.words; i += 32) VChunks<1, kIn16, kOut16>(j, pairs, i, Mask32(j.words - i));
}

}  // namespace

void VRow(const VRowJob& j) {
    if (j.in16) {
        j.out16 ? VRowOf<true, true>(j) : VRowOf<true, false>(j);
    } else {
        j.out16 ? VRowOf<false, true>(j) : VRowOf<false, false>(j);
    }
}

namespace {

// One run of blocks; with P known the run's permutes and weights stay in registers.
template <int P, int kGather, bool kOut16>
void Run(const int16_t* in, const int32_t* base, const uint16_t* idx, const int32_t* coef,
         int pairs, int blocks, int step, int o, int words, __m512i round, __m128i shift,
         void* out) {
    constexpr int kHeld = P > 0 ? P : 1;
    __m512i ix[kHeld], cf[kHeld];
    const int16_t* at[kHeld];
    if (P > 0) {
        for (int p = 0; p < P; ++p) {
            ix[p] = _mm512_loadu_si512(idx + 32 * p);
            cf[p] = _mm512_loadu_si512(coef + 16 * p);
            at[p] = in + base[p];
        }
    }
    const int n = P > 0 ? P : pairs;
    auto gather = [&](int p, ptrdiff_t off) {
        const int16_t* from = (P > 0 ? at[p] : in + base[p]) + off;
        if (kGather == HRun::kDirect) return _mm512_loadu_si512(from);
        const __m512i i = P > 0 ? ix[p] : _mm512_loadu_si512(idx + 32 * p);
        if (kGather == HRun::kInLane) return _mm512_shuffle_epi8(_mm512_loadu_si512(from), i);
        return _mm512_permutex2var_epi16(_mm512_loadu_si512(from), i,
                                         _mm512_loadu_si512(from + 32));
    };
    auto weights = [&](int p) { return P > 0 ? cf[p] : _mm512_loadu_si512(coef + 16 * p); };
    // Two blocks a step: two chains of multiply-adds, and 32 outputs packed at once.
    const __m512i order = _mm512_set_epi64(7, 5, 3, 1, 6, 4, 2, 0);
    int b = 0;
    for (; b < blocks; b += 2, o += 32) {
        __m512i a0 = round, a1 = round;
        const ptrdiff_t off = static_cast<ptrdiff_t>(b) * step;
        const bool two = b + 1 < blocks;
        if (kGather == HRun::kShared) {
            // One window (two vectors) a block serves every pair.
            const int16_t* from = in + base[0] + off;
            const __m512i lo0 = _mm512_loadu_si512(from), hi0 = _mm512_loadu_si512(from + 32);
            __m512i lo1 = lo0, hi1 = hi0;
            if (two) {
                lo1 = _mm512_loadu_si512(from + step);
                hi1 = _mm512_loadu_si512(from + step + 32);
            }
            for (int p = 0; p < n; ++p) {
                const __m512i i = P > 0 ? ix[p] : _mm512_loadu_si512(idx + 32 * p);
                a0 = _mm512_dpwssd_epi32(a0, _mm512_permutex2var_epi16(lo0, i, hi0), weights(p));
                if (two)
                    a1 =
                        _mm512_dpwssd_epi32(a1, _mm512_permutex2var_epi16(lo1, i, hi1), weights(p));
            }
        } else {
            for (int p = 0; p < n; ++p) {
                a0 = _mm512_dpwssd_epi32(a0, gather(p, off), weights(p));
                if (two) a1 = _mm512_dpwssd_epi32(a1, gather(p, off + step), weights(p));
            }
        }
        const int left = std::min(words - o, two ? 32 : 16);
        const __mmask32 m = left >= 32 ? ~__mmask32{0} : (__mmask32{1} << left) - 1;
        // packs interleaves the blocks by 128-bit lane; the qword permute undoes it.
        const __m512i w = _mm512_permutexvar_epi64(
            order, _mm512_packs_epi32(_mm512_sra_epi32(a0, shift), _mm512_sra_epi32(a1, shift)));
        if (kOut16) {
            _mm512_mask_storeu_epi16(static_cast<int16_t*>(out) + o, m, w);
        } else {
            const __m256i v = _mm512_cvtusepi16_epi8(_mm512_max_epi16(w, _mm512_setzero_si512()));
            _mm256_mask_storeu_epi8(static_cast<uint8_t*>(out) + o, m, v);
        }
    }
}

using RunFn = void (*)(const int16_t*, const int32_t*, const uint16_t*, const int32_t*, int, int,
                       int, int, int, __m512i, __m128i, void*);

template <int kGather, bool kOut16>
RunFn RunFor(int pairs) {
    switch (pairs) {
        case 1:
            return Run<1, kGather, kOut16>;
        case 2:
            return Run<2, kGather, kOut16>;
        case 3:
            return Run<3, kGather, kOut16>;
        case 4:
            return Run<4, kGather, kOut16>;
        case 5:
            return Run<5, kGather, kOut16>;
        case 6:
            return Run<6, kGather, kOut16>;
        case 7:
            return Run<7, kGather, kOut16>;
        case 8:
            return Run<8, kGather, kOut16>;
        default:
            return Run<0, kGather, kOut16>;
    }
}

}  // namespace

void Widen(const uint8_t* in, int words, int16_t* out) {
    for (int i = 0; i < words; i += 32) {
        const __mmask32 m = Mask32(words - i);
        _mm512_mask_storeu_epi16(out + i, m,
                                 _mm512_cvtepu8_epi16(_mm256_maskz_loadu_epi8(m, in + i)));
    }
}

namespace {

// vpermt2w indices (n = 1, 2, 4) from the two packed vectors of a 64-byte block of HalfV
// to planar order: each channel's samples in a row, one channel after another.
struct HalfOrder {
    alignas(64) uint16_t idx[3][2][32];
};
const HalfOrder& Orders() {
    static const HalfOrder orders = [] {
        HalfOrder o{};
        for (int g = 0; g < 3; ++g) {
            const int n = 1 << g, px = 64 / n;
            for (int v = 0; v < 2; ++v) {
                for (int lane = 0; lane < 4; ++lane) {
                    for (int t = 0; t < 8; ++t) {
                        const int col = 16 * lane + 8 * v + t;
                        const int flat = col % n * px + col / n;
                        o.idx[g][flat / 32][flat % 32] =
                            static_cast<uint16_t>(32 * v + 8 * lane + t);
                    }
                }
            }
        }
        return o;
    }();
    return orders;
}

// Rows f and 11 - f share a weight: their bytes are summed first (maddubs against ones,
// exact), then folds f and f + 1 are interleaved word by word for vpdpwssd. Lane L of sum
// q holds columns 16 L + 4 q .. + 3 of the 64-byte block; the words go to planar order
// by two vpermt2w.
struct HalfVConst {
    __m512i cp[3], ones, round, i0, i1;
};

template <int N, bool kMasked>
inline void HalfVBlock(const uint8_t* const* r, int i, __mmask64 m, const HalfVConst& k,
                       int16_t* const* planes) {
    __m512i acc[4] = {k.round, k.round, k.round, k.round};
    __m512i sum[2][2];  // [fold parity][lo, hi]
    for (int f = 0; f < 6; ++f) {
        const __m512i a =
            kMasked ? _mm512_maskz_loadu_epi8(m, r[f] + i) : _mm512_loadu_si512(r[f] + i);
        const __m512i b =
            kMasked ? _mm512_maskz_loadu_epi8(m, r[11 - f] + i) : _mm512_loadu_si512(r[11 - f] + i);
        sum[f & 1][0] = _mm512_maddubs_epi16(_mm512_unpacklo_epi8(a, b), k.ones);
        sum[f & 1][1] = _mm512_maddubs_epi16(_mm512_unpackhi_epi8(a, b), k.ones);
        if (f & 1) {
            for (int h = 0; h < 2; ++h) {
                acc[2 * h] = _mm512_dpwssd_epi32(
                    acc[2 * h], _mm512_unpacklo_epi16(sum[0][h], sum[1][h]), k.cp[f / 2]);
                acc[2 * h + 1] = _mm512_dpwssd_epi32(
                    acc[2 * h + 1], _mm512_unpackhi_epi16(sum[0][h], sum[1][h]), k.cp[f / 2]);
            }
        }
    }
    constexpr int kShift = kCoefBits - kMidBits;
    const __m512i p0 =
        _mm512_packs_epi32(_mm512_srai_epi32(acc[0], kShift), _mm512_srai_epi32(acc[1], kShift));
    const __m512i p1 =
        _mm512_packs_epi32(_mm512_srai_epi32(acc[2], kShift), _mm512_srai_epi32(acc[3], kShift));
    const __m512i w0 = _mm512_permutex2var_epi16(p0, k.i0, p1);
    const __m512i w1 = _mm512_permutex2var_epi16(p0, k.i1, p1);
    const int p = i / N;
    if (N == 1) {
        _mm512_storeu_si512(planes[0] + i, w0);
        _mm512_storeu_si512(planes[0] + i + 32, w1);
    } else if (N == 2) {
        _mm512_storeu_si512(planes[0] + p, w0);
        _mm512_storeu_si512(planes[1] + p, w1);
    } else {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(planes[0] + p), _mm512_castsi512_si256(w0));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(planes[1] + p),
                            _mm512_extracti64x4_epi64(w0, 1));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(planes[2] + p), _mm512_castsi512_si256(w1));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(planes[3] + p),
                            _mm512_extracti64x4_epi64(w1, 1));
    }
}

template <int N>
void HalfVOf(const uint8_t* const* rows, const Half& v, int bytes, int16_t* const* planes,
             const uint8_t* const* next) {
    constexpr int kG = N == 1 ? 0 : N == 2 ? 1 : 2;
    HalfVConst k;
    for (int f = 0; f < 3; ++f) k.cp[f] = _mm512_set1_epi32(Pair(v.k + 2 * f));
    k.ones = _mm512_set1_epi8(1);
    k.round = _mm512_set1_epi32(1 << (kCoefBits - kMidBits - 1));
    k.i0 = _mm512_load_si512(Orders().idx[kG][0]);
    k.i1 = _mm512_load_si512(Orders().idx[kG][1]);
    const uint8_t* r[12];
    std::copy_n(rows, 12, r);
    int i = 0;
    for (; i + 64 <= bytes; i += 64) {
        if (next != nullptr) {
            _mm_prefetch(reinterpret_cast<const char*>(next[0] + i), _MM_HINT_T1);
            _mm_prefetch(reinterpret_cast<const char*>(next[1] + i), _MM_HINT_T1);
        }
        HalfVBlock<N, false>(r, i, 0, k, planes);
    }
    if (i < bytes) HalfVBlock<N, true>(r, i, (__mmask64{1} << (bytes - i)) - 1, k, planes);
}

// 16 outputs from d on of one plane: input pairs (2 j + off + 2 m, + 1) lie as dwords
// in order, so tap pair m is the window of two vectors shifted by m dwords (the planes
// are placed so that the windows start on 64-byte lines: loads across lines cost twice).
template <int N>
void HalfHOf(const int16_t* const* planes, const Half& h, uint8_t* out) {
    __m512i c[6];
    for (int m = 0; m < 6; ++m) c[m] = _mm512_set1_epi32(Pair(h.k + 2 * m));
    const __m512i round = _mm512_set1_epi32(1 << (kCoefBits + kMidBits - 1));
    auto block = [&](const int16_t* t, int d) {
        const int16_t* at = t + 2 * d + h.off;
        const __m512i x0 = _mm512_load_si512(at), x1 = _mm512_load_si512(at + 32);
        __m512i acc = _mm512_dpwssd_epi32(round, x0, c[0]);
        acc = _mm512_dpwssd_epi32(acc, _mm512_alignr_epi32(x1, x0, 1), c[1]);
        acc = _mm512_dpwssd_epi32(acc, _mm512_alignr_epi32(x1, x0, 2), c[2]);
        acc = _mm512_dpwssd_epi32(acc, _mm512_alignr_epi32(x1, x0, 3), c[3]);
        acc = _mm512_dpwssd_epi32(acc, _mm512_alignr_epi32(x1, x0, 4), c[4]);
        acc = _mm512_dpwssd_epi32(acc, _mm512_alignr_epi32(x1, x0, 5), c[5]);
        return _mm512_srai_epi32(acc, kCoefBits + kMidBits);
    };
    // After the packs, 128-bit lane L holds outputs 4 L .. 4 L + 3 of each block.
    const __m512i order1 = _mm512_set_epi32(15, 11, 7, 3, 14, 10, 6, 2, 13, 9, 5, 1, 12, 8, 4, 0);
    const __m512i order2 = _mm512_set_epi64(7, 5, 3, 1, 6, 4, 2, 0);
    const __m512i pairs2 =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
    const __m512i quads4 =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15));
    constexpr int kPer = 64 / N;
    for (int d = h.lo; d < h.hi; d += kPer) {
        const int left = std::min(kPer, h.hi - d) * N;
        const __mmask64 m = left >= 64 ? ~__mmask64{0} : (__mmask64{1} << left) - 1;
        __m512i v;
        if (N == 1) {
            const __m512i p01 = _mm512_packs_epi32(block(planes[0], d), block(planes[0], d + 16));
            const __m512i p23 =
                _mm512_packs_epi32(block(planes[0], d + 32), block(planes[0], d + 48));
            v = _mm512_permutexvar_epi32(order1, _mm512_packus_epi16(p01, p23));
        } else if (N == 2) {
            const __m512i pa = _mm512_packs_epi32(block(planes[0], d), block(planes[1], d));
            const __m512i pb =
                _mm512_packs_epi32(block(planes[0], d + 16), block(planes[1], d + 16));
            v = _mm512_permutexvar_epi64(order2,
                                         _mm512_shuffle_epi8(_mm512_packus_epi16(pa, pb), pairs2));
        } else {
            const __m512i prg = _mm512_packs_epi32(block(planes[0], d), block(planes[1], d));
            const __m512i pba = _mm512_packs_epi32(block(planes[2], d), block(planes[3], d));
            v = _mm512_shuffle_epi8(_mm512_packus_epi16(prg, pba), quads4);
        }
        _mm512_mask_storeu_epi8(out + static_cast<ptrdiff_t>(d) * N, m, v);
    }
}

}  // namespace

void HalfV(const uint8_t* const* rows, const Half& v, int bytes, int n, int16_t* const* planes,
           const uint8_t* const* next) {
    if (n == 1) return HalfVOf<1>(rows, v, bytes, planes, next);
    if (n == 2) return HalfVOf<2>(rows, v, bytes, planes, next);
    HalfVOf<4>(rows, v, bytes, planes, next);
}

void HalfEdges(const int16_t* const* planes, const Axis& a, int n, int from, int to, uint8_t* out) {
    const __mmask16 m = static_cast<__mmask16>((1u << a.taps) - 1);
    for (int x = from; x < to; ++x) {
        const __m256i c = _mm256_maskz_loadu_epi16(m, &a.coef[static_cast<size_t>(x) * a.taps]);
        for (int ch = 0; ch < n; ++ch) {
            const __m256i v = _mm256_maskz_loadu_epi16(m, planes[ch] + a.start[x]);
            const __m256i p = _mm256_madd_epi16(c, v);
            __m128i s = _mm_add_epi32(_mm256_castsi256_si128(p), _mm256_extracti128_si256(p, 1));
            s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0x4e));
            s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0xb1));
            const int32_t acc = _mm_cvtsi128_si32(s) + (1 << (kCoefBits + kMidBits - 1));
            out[x * n + ch] =
                static_cast<uint8_t>(std::clamp(acc >> (kCoefBits + kMidBits), 0, 255));
        }
    }
}

void HalfH(const int16_t* const* planes, const Half& h, int n, uint8_t* out) {
    if (n == 1) return HalfHOf<1>(planes, h, out);
    if (n == 2) return HalfHOf<2>(planes, h, out);
    HalfHOf<4>(planes, h, out);
}

namespace {

template <bool kOut16>
inline void Store16(__m512i acc, __m128i shift, int o, int words, void* out) {
    const __m256i w = _mm512_cvtsepi32_epi16(_mm512_sra_epi32(acc, shift));
    const __mmask16 m = words - o >= 16 ? __mmask16(0xffff) : __mmask16((1u << (words - o)) - 1);
    if (kOut16) {
        _mm256_mask_storeu_epi16(static_cast<int16_t*>(out) + o, m, w);
    } else {
        const __m128i b = _mm256_cvtusepi16_epi8(_mm256_max_epi16(w, _mm256_setzero_si256()));
        _mm_mask_storeu_epi8(static_cast<uint8_t*>(out) + o, m, b);
    }
}

// A cycle of K single blocks of P pairs: their windows and weights stay in registers.
template <int P, int K, bool kOut16>
void Cycle(const int16_t* in, const HTable& t, const HCycle& c, int o, int words, __m512i round,
           __m128i shift, void* out) {
    __m512i ix[K][P], cf[K][P];
    const int16_t* at[K][P];
    const bool lane = t.runs[c.run].gather == HRun::kInLane;  // alike over the cycle
    for (int k = 0; k < K; ++k) {
        for (int p = 0; p < P; ++p) {
            const size_t e = (c.run + k) * P + p;
            ix[k][p] = _mm512_loadu_si512(&t.idx[e * 32]);
            cf[k][p] = _mm512_loadu_si512(&t.coef[e * 16]);
            at[k][p] = in + t.base[e];
        }
    }
    for (int rep = 0; rep < c.reps; ++rep) {
        const ptrdiff_t off = static_cast<ptrdiff_t>(rep) * c.step;
        for (int k = 0; k < K; ++k, o += 16) {
            __m512i acc = round;
            for (int p = 0; p < P; ++p) {
                const int16_t* from = at[k][p] + off;
                const __m512i a = _mm512_loadu_si512(from);
                const __m512i v =
                    lane ? _mm512_shuffle_epi8(a, ix[k][p])
                         : _mm512_permutex2var_epi16(a, ix[k][p], _mm512_loadu_si512(from + 32));
                acc = _mm512_dpwssd_epi32(acc, v, cf[k][p]);
            }
            Store16<kOut16>(acc, shift, o, words, out);
        }
    }
}

using CycleFn = void (*)(const int16_t*, const HTable&, const HCycle&, int, int, __m512i, __m128i,
                         void*);

template <int P, bool kOut16>
CycleFn CycleOf(int k) {
    if (k == 2) return Cycle<P, 2, kOut16>;
    if (k == 3) return Cycle<P, 3, kOut16>;
    return P * 4 <= 12 ? Cycle<P, (P * 4 <= 12 ? 4 : 3), kOut16> : nullptr;
}

template <bool kOut16>
CycleFn CycleFor(int pairs, int k) {
    switch (pairs) {
        case 1:
            return CycleOf<1, kOut16>(k);
        case 2:
            return CycleOf<2, kOut16>(k);
        case 3:
            return CycleOf<3, kOut16>(k);
        case 4:
            return CycleOf<4, kOut16>(k);
        default:
            return nullptr;
    }
}

}  // namespace

void HRow(const HRowJob& j) {
    const HTable& t = *j.table;
    const int pairs = j.axis->taps / 2;
    const int words = j.outs * j.n;
    const __m512i round = _mm512_set1_epi32(1 << (j.shift - 1));
    const __m128i shift = _mm_cvtsi32_si128(j.shift);
    const RunFn fns[4] = {
        j.out16 ? RunFor<HRun::kPermute, true>(pairs) : RunFor<HRun::kPermute, false>(pairs),
        j.out16 ? RunFor<HRun::kDirect, true>(pairs) : RunFor<HRun::kDirect, false>(pairs),
        j.out16 ? RunFor<HRun::kInLane, true>(pairs) : RunFor<HRun::kInLane, false>(pairs),
        j.out16 ? RunFor<HRun::kShared, true>(pairs) : RunFor<HRun::kShared, false>(pairs)};
    int o = 0;
    size_t cycle = 0;  // the next cycle
    for (size_t r = 0; r < t.runs.size();) {
        const HRun& run = t.runs[r];
        if (run.blocks > 1) {
            fns[run.gather](j.in, &t.base[r * pairs], &t.idx[r * pairs * 32],
                            &t.coef[r * pairs * 16], pairs, run.blocks, run.step, o, words, round,
                            shift, j.out);
            o += 16 * run.blocks;
            ++r;
            continue;
        }
        while (cycle < t.cycles.size() && t.cycles[cycle].run < r) ++cycle;
        if (cycle < t.cycles.size() && t.cycles[cycle].run == r) {
            const HCycle& c = t.cycles[cycle];
            const CycleFn fn =
                j.out16 ? CycleFor<true>(pairs, c.period) : CycleFor<false>(pairs, c.period);
            if (fn != nullptr) {
                fn(j.in, t, c, o, words, round, shift, j.out);
                r += static_cast<size_t>(c.period) * c.reps;
                o += 16 * c.period * c.reps;
                continue;
            }
        }
        // A single block (a pattern that repeats only after several blocks, or not at
        // all), its entries read from the table.
        {
            __m512i acc = round;
            for (int p = 0; p < pairs; ++p) {
                const size_t e = r * pairs + p;
                const int16_t* at = j.in + t.base[e];
                const __m512i i = _mm512_loadu_si512(&t.idx[e * 32]);
                const __m512i a = _mm512_loadu_si512(at);
                const __m512i v =
                    t.runs[r].gather == HRun::kInLane
                        ? _mm512_shuffle_epi8(a, i)
                        : _mm512_permutex2var_epi16(a, i, _mm512_loadu_si512(at + 32));
                acc = _mm512_dpwssd_epi32(acc, v, _mm512_loadu_si512(&t.coef[e * 16]));
            }
            j.out16 ? Store16<true>(acc, shift, o, words, j.out)
                    : Store16<false>(acc, shift, o, words, j.out);
            ++r;
            o += 16;
        }
    }
}

}  // namespace avx512
}  // namespace resample
}  // namespace zoca

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif  // ZOCA_AVX512_BUILD
