// The three passes of the downscaler fused by rows, included by one file per instruction set
// that defines PD_FUSED_NAME. Each pass loops over a row with independent samples, so the
// compiler vectorises it to the target's width without reordering any sample's arithmetic
// (no fast-math, no contraction): the bytes equal the plain kernel's.
//
// Only rows y and y + 1 of the block statistics and rows y - 1 and y of the neighbourhood
// statistics are alive at a time; they take two-row rings at the start of the scratch arrays
// so the working set stays in the first-level cache. Nothing here uses the standard library's
// templates: their out-of-line copies would be shared with the other instruction sets. No
// include guard: each instruction-set file includes this once under its own name.

#include "mivo/ext/plugin/PerceptualDownscale.h"

namespace mivo::ext::detail {

namespace {

constexpr float kNormalise = 0.003921569f;  // 1 / 255
constexpr float kVarianceFloor = 0.000001f;

// The plain kernel's std::min(std::max(v, 0), 1): a NaN stays a NaN.
inline float clampUnit(float v) {
    v = v < 0.0f ? 0.0f : v;
    return 1.0f < v ? 1.0f : v;
}

inline int minInt(int a, int b) {
    return b < a ? b : a;
}

// Adds one sample of every block in a row: lanes are `stride` bytes apart.
template <int kStride>
void addSamples(const uint8_t* __restrict p, int bw, int stride, float* __restrict sum,
                float* __restrict squares) {
    const size_t s = kStride != 0 ? kStride : stride;
    for (int x = 0; x < bw; ++x) {
        const float v = p[static_cast<size_t>(x) * s] * kNormalise;
        sum[x] += v;
        squares[x] += v * v;
    }
}

// A whole block row in one sweep, for the common factors: the sums stay in registers.
template <int kFactor, int kStep, int kBlock>
void blockRowFixed(const uint8_t* __restrict p, size_t rowBytes, int bw, float inverseArea,
                   float* __restrict mean, float* __restrict squareMean) {
    for (int x = 0; x < bw; ++x) {
        float sum = 0.0f;
        float squares = 0.0f;
        for (int j = 0; j < kBlock; ++j) {
            for (int i = 0; i < kBlock; ++i) {
                const float v =
                    p[j * rowBytes + static_cast<size_t>(x) * kFactor * kStep + i * kStep] *
                    kNormalise;
                sum += v;
                squares += v * v;
            }
        }
        mean[x] = clampUnit(sum * inverseArea);
        squareMean[x] = clampUnit(squares * inverseArea);
    }
}

void blockRow(const PdPlane& plane, int by, int bw, float inverseArea, float* __restrict mean,
              float* __restrict squareMean) {
    const size_t rowBytes = static_cast<size_t>(plane.width) * plane.step;
    const uint8_t* first =
        plane.source + static_cast<size_t>(by) * plane.factor * rowBytes + plane.offset;
    // Factor, step and block side as decimal digits (the block is never above the factor).
    const int shape = plane.factor * 100 + plane.step * 10 + plane.block;
    switch (shape) {
        case 212:
            return blockRowFixed<2, 1, 2>(first, rowBytes, bw, inverseArea, mean, squareMean);
        case 221:
            return blockRowFixed<2, 2, 1>(first, rowBytes, bw, inverseArea, mean, squareMean);
        case 313:
            return blockRowFixed<3, 1, 3>(first, rowBytes, bw, inverseArea, mean, squareMean);
        case 321:
            return blockRowFixed<3, 2, 1>(first, rowBytes, bw, inverseArea, mean, squareMean);
        case 414:
            return blockRowFixed<4, 1, 4>(first, rowBytes, bw, inverseArea, mean, squareMean);
        case 422:
            return blockRowFixed<4, 2, 2>(first, rowBytes, bw, inverseArea, mean, squareMean);
        default:
            break;
    }
    // Other factors add one sample of every block at a time.
    for (int x = 0; x < bw; ++x) mean[x] = squareMean[x] = 0.0f;
    const int stride = plane.factor * plane.step;
    for (int j = 0; j < plane.block; ++j) {
        const uint8_t* row = plane.source +
                             static_cast<size_t>(by * plane.factor + j) * plane.width * plane.step +
                             plane.offset;
        for (int i = 0; i < plane.block; ++i) {
            const uint8_t* p = row + static_cast<size_t>(i) * plane.step;
            switch (stride) {
                case 2:
                    addSamples<2>(p, bw, stride, mean, squareMean);
                    break;
                case 4:
                    addSamples<4>(p, bw, stride, mean, squareMean);
                    break;
                case 8:
                    addSamples<8>(p, bw, stride, mean, squareMean);
                    break;
                default:
                    addSamples<0>(p, bw, stride, mean, squareMean);
                    break;
            }
        }
    }
    for (int x = 0; x < bw; ++x) {
        mean[x] = clampUnit(mean[x] * inverseArea);
        squareMean[x] = clampUnit(squareMean[x] * inverseArea);
    }
}

inline void finish(float sumL, float sumLL, float sumL2, float area, float& mean, float& ratio) {
    const float m = sumL / area;
    const float sl = sumLL / area - m * m;
    const float sh = sumL2 / area - m * m;
    mean = clampUnit(m);
    const float root = __builtin_sqrtf(sh / sl);
    ratio = sl >= kVarianceFloor ? (1.0f < root ? 1.0f : root) : 0.0f;
}

// Neighbourhood statistics of one row from block rows l0/q0 and the next one l1/q1.
void neighbourRow(int bw, int r, const float* __restrict l0, const float* __restrict q0,
                  const float* __restrict l1, const float* __restrict q1, float* __restrict mean,
                  float* __restrict ratio) {
    const float area = static_cast<float>(r * r);
    if (r < 2) {
        for (int x = 0; x < bw; ++x)
            finish(0.0f + l0[x], 0.0f + l0[x] * l0[x], 0.0f + q0[x], area, mean[x], ratio[x]);
        return;
    }
    auto at = [&](int x, int x1) {
        const float sumL = 0.0f + l0[x] + l0[x1] + l1[x] + l1[x1];
        const float sumLL =
            0.0f + l0[x] * l0[x] + l0[x1] * l0[x1] + l1[x] * l1[x] + l1[x1] * l1[x1];
        const float sumL2 = 0.0f + q0[x] + q0[x1] + q1[x] + q1[x1];
        finish(sumL, sumLL, sumL2, area, mean[x], ratio[x]);
    };
    for (int x = 0; x + 1 < bw; ++x) at(x, x + 1);
    at(bw - 1, bw - 1);
}

inline float term(float mean, float detail, float centre) {
    return clampUnit(mean + centre * detail - mean * detail);
}

// The plain kernel's truncation of (sum x inverseArea) x 255.0 in double precision, clamped to a
// byte with a NaN as 0, done in float so it takes full vectors: g x 256 is exact, so g x 255
// rounds at most once, and the exact difference of g x 256 to the truncated result tells
// whether that rounding went up onto the next integer. A comparison with the double form over
// all 2^32 float bit patterns found no difference.
inline uint8_t toByte(float sum, float inverseArea) {
    const float f = sum * inverseArea;
    const float g = f > 0.0f ? (f < 1.0f ? f : 1.0f) : 0.0f;
    const float a = g * 256.0f;
    const int t = static_cast<int>(a - g);
    return static_cast<uint8_t>(t - static_cast<int>(a - static_cast<float>(t) < g));
}

// The first `count` output samples of a row from its block means, its neighbourhood
// statistics m/ratio and those of the row above.
void outputRow(const PdPlane& plane, int count, int r, const float* __restrict l,
               const float* __restrict m, const float* __restrict ratio,
               const float* __restrict mAbove, const float* __restrict ratioAbove,
               uint8_t* __restrict out) {
    const float inverseArea = 1.0f / static_cast<float>(r * r);
    const size_t step = plane.step;
    if (r < 2) {
        for (int x = 0; x < count; ++x)
            out[x * step] = toByte(term(m[x], ratio[x], l[x]), inverseArea);
        return;
    }
    // At the left and top border a neighbour is the centre itself, counted again.
    auto at = [&](int x, int xp) {
        const float c = l[x];
        float sum = term(m[x], ratio[x], c);
        sum += term(m[xp], ratio[xp], c);
        sum += term(mAbove[x], ratioAbove[x], c);
        sum += term(mAbove[xp], ratioAbove[xp], c);
        out[x * step] = toByte(sum, inverseArea);
    };
    if (count > 0) at(0, 0);
    for (int x = 1; x < count; ++x) at(x, x - 1);
}

}  // namespace

void PD_FUSED_NAME(const PdPlane& plane, int bw, int bh, size_t limit, PdBuffer& scratch) {
    const size_t step = plane.step;
    // Samples, in output order, whose byte lies before `limit`.
    const size_t fit =
        limit > static_cast<size_t>(plane.offset) ? (limit - plane.offset + step - 1) / step : 0;
    const size_t total = static_cast<size_t>(bw) * bh;
    const int rows = static_cast<int>((fit < total ? fit : total) + bw - 1) / bw;
    if (rows == 0) return;
    const int r = plane.neighbour;
    const float blockInverse = 1.0f / static_cast<float>(plane.block * plane.block);
    auto slot = [bw](int row) { return static_cast<size_t>(row & 1) * bw; };
    float* const l = scratch.blockMean;
    float* const q = scratch.blockSquareMean;
    float* const m = scratch.neighbourMean;
    float* const ratio = scratch.detailRatio;
    int ready = -1;  // the last block row computed
    for (int y = 0; y < rows; ++y) {
        const int next = r >= 2 ? minInt(y + 1, bh - 1) : y;
        while (ready < next) {
            ++ready;
            blockRow(plane, ready, bw, blockInverse, l + slot(ready), q + slot(ready));
        }
        const size_t at = slot(y);
        neighbourRow(bw, r, l + at, q + at, l + slot(next), q + slot(next), m + at, ratio + at);
        const size_t above = slot(y > 0 ? y - 1 : 0);
        const size_t first = static_cast<size_t>(y) * bw;
        const int count =
            static_cast<int>(fit - first < static_cast<size_t>(bw) ? fit - first : bw);
        outputRow(plane, count, r, l + at, m + at, ratio + at, m + above, ratio + above,
                  plane.destination + first * step + plane.offset);
    }
}

}  // namespace mivo::ext::detail
