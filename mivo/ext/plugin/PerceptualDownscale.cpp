#include "mivo/ext/plugin/PerceptualDownscale.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace mivo::ext::detail {

namespace {

constexpr float kNormalise = 0.003921569f;  // 1 / 255
constexpr float kVarianceFloor = 0.000001f;
constexpr size_t kMaxElements = 1073741823;

float* allocateFloats(size_t n) {
    // Past this count the byte size of the request would not fit a 32-bit size.
    if (n > kMaxElements) throw std::bad_array_new_length();
    return new float[n];
}

// std::max / std::min semantics, so a NaN stays a NaN in both kernels.
inline float clampUnit(float v) {
    return std::min(std::max(v, 0.0f), 1.0f);
}

}  // namespace

PdBuffer::PdBuffer(size_t n)
    : blockMean(allocateFloats(n)),
      blockSquareMean(nullptr),
      neighbourMean(nullptr),
      detailRatio(nullptr) {
    try {
        blockSquareMean = allocateFloats(n);
        neighbourMean = allocateFloats(n);
        detailRatio = allocateFloats(n);
    } catch (...) {
        delete[] blockMean;
        delete[] blockSquareMean;
        delete[] neighbourMean;
        throw;
    }
}

PdBuffer::~PdBuffer() {
    delete[] blockMean;
    delete[] blockSquareMean;
    delete[] neighbourMean;
    delete[] detailRatio;
}

namespace {

// One position of the block statistics.
void blockStatsAt(const PdPlane& plane, int bx, int by, int bw, float inverseArea,
                  PdBuffer& scratch) {
    float sum = 0.0f;
    float squares = 0.0f;
    for (int j = 0; j < plane.block; ++j) {
        const size_t row = static_cast<size_t>(by * plane.factor + j) * plane.width;
        for (int i = 0; i < plane.block; ++i) {
            const size_t col = static_cast<size_t>(bx * plane.factor + i);
            const float v = plane.source[(row + col) * plane.step + plane.offset] * kNormalise;
            sum += v;
            squares += v * v;
        }
    }
    const size_t at = static_cast<size_t>(by) * bw + bx;
    scratch.blockMean[at] = clampUnit(sum * inverseArea);
    scratch.blockSquareMean[at] = clampUnit(squares * inverseArea);
}

void blockStats(const PdPlane& plane, int bw, int bh, PdBuffer& scratch) {
    const float inverseArea = 1.0f / static_cast<float>(plane.block * plane.block);
    for (int by = 0; by < bh; ++by) {
        for (int bx = 0; bx < bw; ++bx) blockStatsAt(plane, bx, by, bw, inverseArea, scratch);
    }
}

// Mean and detail ratio from a neighbourhood's sums; r x r = area positions.
inline void finishNeighbourhood(float sumL, float sumLL, float sumL2, float area, float& mean,
                                float& ratio) {
    const float m = sumL / area;
    const float sl = sumLL / area - m * m;
    const float sh = sumL2 / area - m * m;
    mean = clampUnit(m);
    // A negative sh from rounding gives NaN, kept as computed.
    ratio = sl >= kVarianceFloor ? std::min(std::sqrt(sh / sl), 1.0f) : 0.0f;
}

// Rows are walked with the far column and row clamped outside the inner loops, so that
// those loops vectorise; every position sums in the order of the plain definition.
void neighbourhoodStats(const PdPlane& plane, int bw, int bh, PdBuffer& scratch) {
    const int r = plane.neighbour;
    const float area = static_cast<float>(r * r);
    for (int y = 0; y < bh; ++y) {
        const size_t row = static_cast<size_t>(y) * bw;
        const size_t next = static_cast<size_t>(std::min(y + 1, bh - 1)) * bw;
        const float* l0 = scratch.blockMean + row;
        const float* q0 = scratch.blockSquareMean + row;
        const float* l1 = scratch.blockMean + next;
        const float* q1 = scratch.blockSquareMean + next;
        float* mean = scratch.neighbourMean + row;
        float* ratio = scratch.detailRatio + row;
        if (r < 2) {
            for (int x = 0; x < bw; ++x) {
                finishNeighbourhood(0.0f + l0[x], 0.0f + l0[x] * l0[x], 0.0f + q0[x], area, mean[x],
                                    ratio[x]);
            }
            continue;
        }
        auto at = [&](int x, int x1) {
            const float sumL = 0.0f + l0[x] + l0[x1] + l1[x] + l1[x1];
            const float sumLL =
                0.0f + l0[x] * l0[x] + l0[x1] * l0[x1] + l1[x] * l1[x] + l1[x1] * l1[x1];
            const float sumL2 = 0.0f + q0[x] + q0[x1] + q1[x] + q1[x1];
            finishNeighbourhood(sumL, sumLL, sumL2, area, mean[x], ratio[x]);
        };
        for (int x = 0; x + 1 < bw; ++x) at(x, x + 1);
        at(bw - 1, bw - 1);
    }
}

// Only the first `fit` samples, in output order, are stored (the statistics span the plane).
void writeOutput(const PdPlane& plane, int bw, int bh, size_t fit, const PdBuffer& scratch) {
    const int r = plane.neighbour;
    const float inverseArea = 1.0f / static_cast<float>(r * r);
    for (int y = 0; y < bh && static_cast<size_t>(y) * bw < fit; ++y) {
        const size_t row = static_cast<size_t>(y) * bw;
        const int count = static_cast<int>(std::min<size_t>(fit - row, bw));
        const size_t above = static_cast<size_t>(std::max(y, 1) - 1) * bw;
        const float* l = scratch.blockMean + row;
        const float* m = scratch.neighbourMean + row;
        const float* ratio = scratch.detailRatio + row;
        const float* mAbove = scratch.neighbourMean + above;
        const float* ratioAbove = scratch.detailRatio + above;
        uint8_t* out = plane.destination + row * plane.step + plane.offset;
        auto term = [](float mean, float detail, float centre) {
            return clampUnit(mean + centre * detail - mean * detail);
        };
        auto store = [&](int x, float sum) {
            const double value = sum * inverseArea * 255.0;
            // Truncation toward zero, clamped to a byte; a NaN becomes 0.
            const int sample = value >= 255.0 ? 255 : (value > 0.0 ? static_cast<int>(value) : 0);
            out[static_cast<size_t>(x) * plane.step] = static_cast<uint8_t>(sample);
        };
        if (r < 2) {
            for (int x = 0; x < count; ++x) store(x, term(m[x], ratio[x], l[x]));
            continue;
        }
        // At the left and top border a neighbour is the centre itself, counted again.
        auto at = [&](int x, int xp) {
            const float c = l[x];
            float sum = term(m[x], ratio[x], c);
            sum += term(m[xp], ratio[xp], c);
            sum += term(mAbove[x], ratioAbove[x], c);
            sum += term(mAbove[xp], ratioAbove[xp], c);
            store(x, sum);
        };
        at(0, 0);
        for (int x = 1; x < count; ++x) at(x, x - 1);
    }
}

}  // namespace

bool pdKernelSupported(PdKernel kernel) {
#if defined(__x86_64__) || defined(__i386__)
    if (kernel == PdKernel::FusedAvx2) return __builtin_cpu_supports("avx2");
    if (kernel == PdKernel::FusedAvx512)
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
               __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq");
    return true;
#else
    return kernel != PdKernel::FusedAvx2 && kernel != PdKernel::FusedAvx512;
#endif
}

namespace {

PdKernel bestKernel() {
    static const PdKernel best = pdKernelSupported(PdKernel::FusedAvx512) ? PdKernel::FusedAvx512
                                 : pdKernelSupported(PdKernel::FusedAvx2) ? PdKernel::FusedAvx2
                                                                          : PdKernel::Fused;
    return best;
}

}  // namespace

void perceptualDownscale(const _ZOCA_IMGB& src, const _ZOCA_IMGB& dst, PdKernel kernel) {
    if (kernel == PdKernel::Best || !pdKernelSupported(kernel)) kernel = bestKernel();
    const int k = dst.width[0] != 0 ? src.width[0] / dst.width[0] : 0;
    const bool semiPlanar = src.colorFormat == ZOCA_CF_NV12 || src.colorFormat == ZOCA_CF_NV21;
    std::shared_ptr<PdBuffer> scratch;
    for (int p = 0; p < 3; ++p) {
        const bool interleavedChroma = p > 0 && semiPlanar;
        const int q = interleavedChroma ? 1 : p;
        PdPlane plane;
        plane.source = reinterpret_cast<const uint8_t*>(src.addr[q]);
        plane.destination = reinterpret_cast<uint8_t*>(dst.addr[q]);
        plane.width = src.width[q];
        plane.height = src.height[q];
        plane.step = interleavedChroma ? 2 : 1;
        plane.offset = interleavedChroma ? p - 1 : 0;
        plane.factor = k;
        plane.block = interleavedChroma ? k / 2 : k;
        plane.neighbour = interleavedChroma ? 1 : 2;
        const int bw = k != 0 ? plane.width / k : 0;
        const int bh = k != 0 ? plane.height / k : 0;
        scratch = std::make_shared<PdBuffer>(static_cast<size_t>(bw) * static_cast<size_t>(bh));
        if (bw == 0 || bh == 0) continue;
        // Output rows are bw samples long whatever the destination's width, so a factor that
        // does not divide the sizes would run past the destination plane: samples whose byte
        // lies beyond it are skipped.
        const size_t limit = static_cast<size_t>(std::max(dst.stride[q], 0)) *
                             static_cast<size_t>(std::max(dst.scanlines[q], 0));
        switch (kernel) {
            case PdKernel::FusedAvx512:
                pdFusedAvx512(plane, bw, bh, limit, *scratch);
                break;
            case PdKernel::FusedAvx2:
                pdFusedAvx2(plane, bw, bh, limit, *scratch);
                break;
            case PdKernel::Fused:
                pdFusedBase(plane, bw, bh, limit, *scratch);
                break;
            default: {
                const size_t fit = limit > static_cast<size_t>(plane.offset)
                                       ? (limit - plane.offset + plane.step - 1) / plane.step
                                       : 0;
                blockStats(plane, bw, bh, *scratch);
                neighbourhoodStats(plane, bw, bh, *scratch);
                writeOutput(plane, bw, bh, fit, *scratch);
            }
        }
    }
}

}  // namespace mivo::ext::detail
