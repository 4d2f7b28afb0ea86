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

// Block statistics, one position at a time: the reference.
void pdBlockStatsScalar(const PdPlane& plane, int bw, int bh, PdBuffer& scratch);
// Block statistics four positions at a time; equal to the reference byte for byte.
void pdBlockStatsVector(const PdPlane& plane, int bw, int bh, PdBuffer& scratch);

// Downscales every plane of `src` into `dst` by the factor of their plane-0 widths.
// `vectorised` picks the block-statistics kernel.
void perceptualDownscale(const _ZOCA_IMGB& src, const _ZOCA_IMGB& dst, bool vectorised = true);

}  // namespace mivo::ext::detail

#endif  // MIVO_EXT_PLUGIN_PERCEPTUALDOWNSCALE_H
