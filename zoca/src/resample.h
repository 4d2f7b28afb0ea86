// Separable 8-bit resampling in fixed point: 14-bit weights that sum to exactly 1 << 14,
// a 16-bit intermediate with 6 fraction bits, and rows filtered one at a time so that
// working memory is a few rows. The plain, AVX2 and AVX-512 builds give the same bytes.
#ifndef ZOCA_SRC_RESAMPLE_H
#define ZOCA_SRC_RESAMPLE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zoca {

enum class Simd { Plain, Avx2, Avx512 };

// Whether this CPU (and this build) runs s; Plain always does.
bool Supported(Simd s);
// The fastest supported build; ZOCA_KERNEL=plain in the environment forces the plain one.
Simd BestSimd();

// n interleaved 8-bit channels of one plane: channel c of column x is at
// base + row * stride + x * n + c.
struct Channels {
    uint8_t* base;
    ptrdiff_t stride;
    int n;
};

// Resamples the source region (left, top, rw x rh, in source samples, fractional) of
// src (sw x sh) onto the whole of dst (dw x dh). Sample centres map to sample centres:
// dst sample j is at left + (j + 0.5) * rw / dw - 0.5 in the source. Shrinking in
// either axis uses Lanczos-3 widened by the ratio in both, otherwise Catmull-Rom;
// samples past the edges mirror back in. Returns a ZOCA_* code.
int Resample(const Channels& src, int sw, int sh, double left, double top, double rw, double rh,
             const Channels& dst, int dw, int dh, Simd simd = BestSimd());

constexpr int kCoefBits = 14;
constexpr int kMidBits = 6;  // fraction bits of the 16-bit intermediate

// One axis of a filter: output i reads inputs start[i] .. start[i] + taps - 1 (taps is
// even; padding weights are 0 and the inputs they name are readable).
struct Axis {
    int taps = 0;
    std::vector<int> start;
    std::vector<int16_t> coef;  // taps per output
    bool identity = false;      // a copy: output i is input i
};

// The AVX-512 horizontal pass: 16 outputs (interleaved words) a block, two taps a
// step. Step j of a block reads 64 words from its base and picks each lane's pair with
// idx. Where the tap positions repeat (every block alike, shifted by `step` words, as at
// 2:1 or 3:2), one entry serves a whole run of blocks.
struct HRun {
    int blocks;  // consecutive blocks served by this entry
    int step;    // words between the bases of two blocks of the run
    // How a step gathers its pairs: word permute over two vectors, as they lie (every
    // idx is 0, 1, 2, ...), a byte shuffle within 128-bit lanes (idx then holds the
    // shuffle's 64 byte indices), or word permutes all over the same two vectors (every
    // pair's base is the first's).
    enum Gather : uint8_t { kPermute, kDirect, kInLane, kShared } gather;
};
// Single-block entries run .. run + period - 1 whose pattern comes back `reps` times,
// `step` words further each time (as at 2:3): the AVX-512 pass keeps them in registers.
struct HCycle {
    size_t run;
    int period, reps, step;
};
struct HTable {
    bool ok = false;
    std::vector<HRun> runs;
    std::vector<HCycle> cycles;  // in order of run
    std::vector<int32_t> base;   // runs x pairs: bases of the run's first block
    std::vector<uint16_t> idx;   // runs x pairs x 32
    std::vector<int32_t> coef;   // runs x pairs x 16, (lo weight, hi weight) per dword
};

// Row kernels. Vertical: out[i] = sum_k coef[k] * rows[k][i] over `words` words, rounded
// by `shift` bits; rows are bytes or (in16) int16. With out2 (byte rows only), also
// out2[i] = sum_k coef2[k] * rows[lead + k][i] (rows holds taps + lead rows, rounded up
// to even): two output rows that share most of their input rows. Horizontal: n interleaved
// channels, int16 in (readable up to 64 words past the last tap), bytes or int16 out.
struct VRowJob {
    const void* const* rows;
    const int16_t* coef;
    int taps;
    int words;
    bool in16, out16;
    int shift;
    void* out;
    const int16_t* coef2 = nullptr;
    int lead = 0;
    void* out2 = nullptr;
};
struct HRowJob {
    const Axis* axis;
    const HTable* table;
    int n;
    int outs;  // output samples
    const int16_t* in;
    bool out16;
    int shift;
    void* out;
};

void VRow(const VRowJob& j, Simd s);
void HRow(const HRowJob& j, Simd s);

// An exact 2:1 axis: outputs lo .. hi - 1 read inputs 2 j + off .. 2 j + off + 11 with
// one symmetric 12-tap kernel k; the outputs outside (the edges, where taps mirror back
// in) take their own weights from the Axis.
struct Half {
    bool ok = false;
    int lo = 0, hi = 0, off = 0;
    int16_t k[12] = {};
};
Half FindHalf(const Axis& a, int in);

// Kernels of each build, named apart from the other kernels of the library.
namespace resample {
namespace plain {
void VRow(const VRowJob& j, int from);  // words from .. words - 1
void HRow(const HRowJob& j);
}  // namespace plain
namespace avx2 {
bool Available();
void VRow(const VRowJob& j);
void HRow(const HRowJob& j);  // runs the table's direct and in-lane runs
}  // namespace avx2
namespace avx512 {
bool Available();
void VRow(const VRowJob& j);
void HRow(const HRowJob& j);
void Widen(const uint8_t* in, int words, int16_t* out);  // bytes to int16
// 2:1 with n = 1, 2 or 4 interleaved channels, as VRow and HRow compute it, through
// planar int16 rows (one plane per channel, readable and writable 256 words past
// their end). HalfV: 12 byte rows, `bytes` wide, to the planes (kCoefBits - kMidBits
// fraction bits dropped; the two rows of `next`, if any, are fetched into cache on the
// way). HalfH: outputs lo .. hi - 1 from the planes, to bytes; word 2 lo + off of each
// plane starts a 64-byte line.
void HalfV(const uint8_t* const* rows, const Half& v, int bytes, int n, int16_t* const* planes,
           const uint8_t* const* next);
void HalfH(const int16_t* const* planes, const Half& h, int n, uint8_t* out);
// The outputs from .. to - 1 of a (of at most 16 taps) from the planes, to bytes.
void HalfEdges(const int16_t* const* planes, const Axis& a, int n, int from, int to, uint8_t* out);
}  // namespace avx512
}  // namespace resample

}  // namespace zoca

#endif  // ZOCA_SRC_RESAMPLE_H
