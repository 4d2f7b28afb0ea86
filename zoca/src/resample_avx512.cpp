// AVX-512 build of the resampling row kernels. Both passes multiply int16 pairs into
// int32 (vpmaddwd): the vertical one pairs two rows word by word, the horizontal one
// gathers each output's two taps from a 64-word window with a word permute.
#include "resample.h"

#if ZOCA_AVX512_BUILD

#include <immintrin.h>

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

void VRow(const VRowJob& j) {
    const __m512i round = _mm512_set1_epi32(1 << (j.shift - 1));
    const __m128i shift = _mm_cvtsi32_si128(j.shift);
    for (int i = 0; i < j.words; i += 32) {
        const __mmask32 m = Mask32(j.words - i);
        __m512i lo = round, hi = round;
        for (int k = 0; k < j.taps; k += 2) {
            const __m512i a = Load32(j.rows[k], i, j.in16, m);
            const __m512i b = Load32(j.rows[k + 1], i, j.in16, m);
            const __m512i c = _mm512_set1_epi32(Pair(j.coef + k));
            lo = _mm512_dpwssd_epi32(lo, _mm512_unpacklo_epi16(a, b), c);
            hi = _mm512_dpwssd_epi32(hi, _mm512_unpackhi_epi16(a, b), c);
        }
        // The in-lane pack undoes the in-lane unpack: words come out in row order.
        const __m512i w =
            _mm512_packs_epi32(_mm512_sra_epi32(lo, shift), _mm512_sra_epi32(hi, shift));
        if (j.out16) {
            _mm512_mask_storeu_epi16(static_cast<int16_t*>(j.out) + i, m, w);
        } else {
            const __m256i b = _mm512_cvtusepi16_epi8(_mm512_max_epi16(w, _mm512_setzero_si512()));
            _mm256_mask_storeu_epi8(static_cast<uint8_t*>(j.out) + i, m, b);
        }
    }
}

namespace {

// One run of blocks; with P known the run's permutes and weights stay in registers.
template <int P, bool kDirect, bool kOut16>
void Run(const int16_t* in, const int32_t* base, const uint16_t* idx, const int32_t* coef,
         int pairs, int blocks, int step, int o, int words, __m512i round, __m128i shift,
         void* out) {
    constexpr int kHeld = P > 0 ? P : 1;
    __m512i ix[kHeld], cf[kHeld];
    if (P > 0) {
        for (int p = 0; p < P; ++p) {
            ix[p] = _mm512_loadu_si512(idx + 32 * p);
            cf[p] = _mm512_loadu_si512(coef + 16 * p);
        }
    }
    const int n = P > 0 ? P : pairs;
    for (int b = 0; b < blocks; ++b, o += 16) {
        __m512i acc = round;
        for (int p = 0; p < n; ++p) {
            const int16_t* at = in + base[p] + b * step;
            const __m512i c = P > 0 ? cf[p] : _mm512_loadu_si512(coef + 16 * p);
            __m512i v;
            if (kDirect) {
                v = _mm512_loadu_si512(at);
            } else {
                const __m512i i = P > 0 ? ix[p] : _mm512_loadu_si512(idx + 32 * p);
                v = _mm512_permutex2var_epi16(_mm512_loadu_si512(at), i,
                                              _mm512_loadu_si512(at + 32));
            }
            acc = _mm512_dpwssd_epi32(acc, v, c);
        }
        acc = _mm512_sra_epi32(acc, shift);
        const __mmask16 m =
            words - o >= 16 ? __mmask16(0xffff) : __mmask16((1u << (words - o)) - 1);
        if (kOut16) {
            _mm256_mask_storeu_epi16(static_cast<int16_t*>(out) + o, m,
                                     _mm512_cvtsepi32_epi16(acc));
        } else {
            const __m128i v = _mm512_cvtusepi32_epi8(_mm512_max_epi32(acc, _mm512_setzero_si512()));
            _mm_mask_storeu_epi8(static_cast<uint8_t*>(out) + o, m, v);
        }
    }
}

using RunFn = void (*)(const int16_t*, const int32_t*, const uint16_t*, const int32_t*, int, int,
                       int, int, int, __m512i, __m128i, void*);

template <bool kDirect, bool kOut16>
RunFn RunFor(int pairs) {
    switch (pairs) {
        case 1:
            return Run<1, kDirect, kOut16>;
        case 2:
            return Run<2, kDirect, kOut16>;
        case 3:
            return Run<3, kDirect, kOut16>;
        case 4:
            return Run<4, kDirect, kOut16>;
        case 5:
            return Run<5, kDirect, kOut16>;
        case 6:
            return Run<6, kDirect, kOut16>;
        case 7:
            return Run<7, kDirect, kOut16>;
        case 8:
            return Run<8, kDirect, kOut16>;
        default:
            return Run<0, kDirect, kOut16>;
    }
}

}  // namespace

void HRow(const HRowJob& j) {
    const HTable& t = *j.table;
    const int pairs = j.axis->taps / 2;
    const int words = j.outs * j.n;
    const __m512i round = _mm512_set1_epi32(1 << (j.shift - 1));
    const __m128i shift = _mm_cvtsi32_si128(j.shift);
    const RunFn fns[2] = {j.out16 ? RunFor<false, true>(pairs) : RunFor<false, false>(pairs),
                          j.out16 ? RunFor<true, true>(pairs) : RunFor<true, false>(pairs)};
    int o = 0;
    for (size_t r = 0; r < t.runs.size(); ++r) {
        const HRun& run = t.runs[r];
        fns[run.direct](j.in, &t.base[r * pairs], &t.idx[r * pairs * 32], &t.coef[r * pairs * 16],
                        pairs, run.blocks, run.step, o, words, round, shift, j.out);
        o += 16 * run.blocks;
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
