// Perceptually based downscaling: each output sample mixes the mean of the input block
// under it with a contrast-restoring term from the local variance of the block means, so
// edges and texture stay sharper than with plain block averaging.
#ifndef MIVO_EXT_PLUGIN_PERCEPTUALDOWNSCALE_H
#define MIVO_EXT_PLUGIN_PERCEPTUALDOWNSCALE_H

#include <zoca/zoca.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace mivo::ext::detail {

// Scratch of one plane: four arrays of n floats, one entry per output sample.
class PdBuffer {
  public:
    explicit PdBuffer(size_t n);
    ~PdBuffer();
    PdBuffer(const PdBuffer&) = delete;
    PdBuffer& operator=(const PdBuffer&) = delete;

    float* blockMean;        // L: mean of the block's samples
    float* blockSquareMean;  // L2: mean of their squares
    float* neighbourMean;    // M: mean of L over the neighbourhood
    float* detailRatio;      // R: sqrt of the variance ratio, capped at 1, or 0
};

// One plane's sampling: bytes at (row * width + col) * step + offset from base.
struct PdPlane {
    const uint8_t* source;
    uint8_t* destination;
    int width;   // samples per source row
    int height;  // source rows
    int step;
    int offset;
    int factor;     // k
    int block;      // P
    int neighbour;  // r
};

// Which code computes a plane. Every kernel gives the same bytes as `Plain`, the reference
// that walks the passes one sample at a time over whole-plane scratch; the others fuse the
// three passes row by row in two-row rings of the scratch, with wider vectors where the CPU
// has them.
enum class PdKernel { Plain, Fused, FusedAvx2, FusedAvx512, Best };

// Whether this CPU can run `kernel` (Best and the portable ones always).
bool pdKernelSupported(PdKernel kernel);

// Downscales every plane of `src` into `dst` by the factor of their plane-0 widths. Samples
// whose bytes would fall past a destination plane are skipped, all others written.
void perceptualDownscale(const _ZOCA_IMGB& src, const _ZOCA_IMGB& dst,
                         PdKernel kernel = PdKernel::Best);

// The fused kernels, one per instruction set; `limit` is the plane's size in bytes.
void pdFusedBase(const PdPlane& plane, int bw, int bh, size_t limit, PdBuffer& scratch);
void pdFusedAvx2(const PdPlane& plane, int bw, int bh, size_t limit, PdBuffer& scratch);
void pdFusedAvx512(const PdPlane& plane, int bw, int bh, size_t limit, PdBuffer& scratch);

}  // namespace mivo::ext::detail

#endif  // MIVO_EXT_PLUGIN_PERCEPTUALDOWNSCALE_H
