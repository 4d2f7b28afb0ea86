// AVX2 build of the resampling row kernels. Vertical: two rows at a time, interleaved
// word by word and multiplied into int32 by weight pairs (vpmaddwd); a row's last
// partial vector goes to the plain code, which computes the same sums. Horizontal: the
// windows of the AVX-512 tables, loaded where they can be, gathered where not.
#include "resample.h"

#if ZOCA_AVX512_BUILD

#include <immintrin.h>

#include <algorithm>
#include <cstring>

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

void HRow(const HRowJob& j) {
    // The AVX-512 tables in halves of 8 outputs (two 128-bit lanes). Pairs that lie as they
    // are or within their lane are loaded (and shuffled); others are gathered, one dword
    // per lane when the pair is two adjacent words (one channel), else one per word.
    const HTable& t = *j.table;
    const int pairs = j.axis->taps / 2;
    const int words = j.outs * j.n;
    const __m256i round = _mm256_set1_epi32(1 << (j.shift - 1));
    const __m128i shift = _mm_cvtsi32_si128(j.shift);
    const __m256i low = _mm256_set1_epi32(0xffff);
    const int* in32 = reinterpret_cast<const int*>(j.in);
    int o = 0;
    for (size_t r = 0; r < t.runs.size(); ++r) {
        const HRun& run = t.runs[r];
        const int end = std::min(words, o + 16 * run.blocks);
        const int32_t* base = &t.base[r * pairs];
        const uint16_t* idx = &t.idx[r * pairs * 32];
        const int32_t* coef = &t.coef[r * pairs * 16];
        auto pair_of = [&](int p, ptrdiff_t off, int h) {
            const int16_t* at = j.in + base[p] + off + 16 * h;
            const __m256i* ix = reinterpret_cast<const __m256i*>(idx + 32 * p + 16 * h);
            if (run.gather == HRun::kDirect) {
                return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
            }
            if (run.gather == HRun::kInLane) {
                return _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)),
                                           _mm256_loadu_si256(ix));
            }
            // idx holds (lo, hi) word offsets from base per lane; gathers read a dword at
            // any word (the row has slack past its end).
            const __m256i from = _mm256_set1_epi32(static_cast<int>(base[p] + off));
            const __m256i lh = _mm256_loadu_si256(ix);
            const __m256i lo =
                _mm256_i32gather_epi32(in32, _mm256_add_epi32(_mm256_and_si256(lh, low), from), 2);
            if (j.n == 1) return lo;  // hi is lo + 1: the dword holds both
            const __m256i hi =
                _mm256_i32gather_epi32(in32, _mm256_add_epi32(_mm256_srli_epi32(lh, 16), from), 2);
            return _mm256_or_si256(_mm256_and_si256(lo, low), _mm256_slli_epi32(hi, 16));
        };
        for (int b = 0; b < run.blocks; ++b) {
            for (int h = 0; h < 2; ++h, o += 8) {
                if (o >= words) break;
                __m256i acc = round;
                for (int p = 0; p < pairs; ++p) {
                    const __m256i c =
                        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(coef + 16 * p + 8 * h));
                    acc = _mm256_add_epi32(
                        acc,
                        _mm256_madd_epi16(pair_of(p, static_cast<ptrdiff_t>(b) * run.step, h), c));
                }
                acc = _mm256_sra_epi32(acc, shift);
                // 8 words in order: the pack works per lane, the qword permute joins them.
                const __m256i w = _mm256_permute4x64_epi64(_mm256_packs_epi32(acc, acc), 0x08);
                alignas(32) uint8_t bytes[16];
                const int n = std::min(8, words - o);
                if (j.out16) {
                    _mm_store_si128(reinterpret_cast<__m128i*>(bytes), _mm256_castsi256_si128(w));
                    std::memcpy(static_cast<int16_t*>(j.out) + o, bytes, 2 * n);
                } else {
                    const __m128i w8 =
                        _mm_packus_epi16(_mm256_castsi256_si128(w), _mm_setzero_si128());
                    _mm_store_si128(reinterpret_cast<__m128i*>(bytes), w8);
                    std::memcpy(static_cast<uint8_t*>(j.out) + o, bytes, n);
                }
            }
        }
        o = end;
    }
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
