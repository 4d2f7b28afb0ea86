// AVX2 build of the vertical resampling pass: two rows at a time, interleaved word by
// word and multiplied into int32 by weight pairs (vpmaddwd). A row's last partial
// vector goes to the plain code, which computes the same sums.
#include "resample.h"

#if ZOCA_AVX512_BUILD

#include <immintrin.h>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

namespace zoca {
namespace resample {
namespace avx2 {
namespace {

inline __m256i Load16(const void* row, int i, bool in16) {
    if (in16) {
        return _mm256_loadu_si256(
            reinterpret_cast<const __m256i*>(static_cast<const int16_t*>(row) + i));
    }
    return _mm256_cvtepu8_epi16(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(static_cast<const uint8_t*>(row) + i)));
}

}  // namespace

bool Available() {
    static const bool ok = __builtin_cpu_supports("avx2");
    return ok;
}

void VRow(const VRowJob& j) {
    const __m256i round = _mm256_set1_epi32(1 << (j.shift - 1));
    const __m128i shift = _mm_cvtsi32_si128(j.shift);
    int i = 0;
    for (; i + 16 <= j.words; i += 16) {
        __m256i lo = round, hi = round;
        for (int k = 0; k < j.taps; k += 2) {
            const __m256i a = Load16(j.rows[k], i, j.in16);
            const __m256i b = Load16(j.rows[k + 1], i, j.in16);
            const __m256i c = _mm256_set1_epi32(static_cast<int32_t>(
                static_cast<uint16_t>(j.coef[k]) | static_cast<uint32_t>(j.coef[k + 1]) << 16));
            lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), c));
            hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), c));
        }
        // The in-lane pack undoes the in-lane unpack: words come out in row order.
        const __m256i w =
            _mm256_packs_epi32(_mm256_sra_epi32(lo, shift), _mm256_sra_epi32(hi, shift));
        if (j.out16) {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(static_cast<int16_t*>(j.out) + i), w);
        } else {
            const __m256i b = _mm256_permute4x64_epi64(_mm256_packus_epi16(w, w), 0x08);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(static_cast<uint8_t*>(j.out) + i),
                             _mm256_castsi256_si128(b));
        }
    }
    if (i < j.words) plain::VRow(j, i);
}

}  // namespace avx2
}  // namespace resample
}  // namespace zoca

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif  // ZOCA_AVX512_BUILD
