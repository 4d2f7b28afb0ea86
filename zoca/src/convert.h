// Colour format conversion between pictures of equal size.
#ifndef ZOCA_SRC_CONVERT_H
#define ZOCA_SRC_CONVERT_H

#include <cstdint>

#include "image.h"
#include "linear.h"

namespace zoca {

// Work applied to one row of planar R, G, B samples between decoding and encoding.
class PixelStage {
  public:
    virtual ~PixelStage() = default;
    virtual void Run(uint8_t* r, uint8_t* g, uint8_t* b, int width) = 0;
    // Whether RunPacked can take rows of packed 4-byte pixels whole, which saves
    // splitting them into planes and merging them back.
    virtual bool RunsPacked() const { return false; }
    virtual void RunPacked(const uint8_t* src, PackedOrder so, uint8_t* dst, PackedOrder dor,
                           int width) {
        (void)src, (void)so, (void)dst, (void)dor, (void)width;
    }
};

// Converts src into dst (same width and height). A YUV side uses its own record's
// matrix and range; with dither set, every rounding to 8 bits is ordered-dithered.
// Returns a ZOCA_* code (only allocation can fail). Both kernel builds give the same
// bytes.
int Convert(const Img& src, const Img& dst, bool dither, Kernel k = BestKernel());

// Decodes src row by row to planar RGB, runs stage on each row, encodes into dst.
int ConvertThrough(const Img& src, const Img& dst, PixelStage* stage, bool dither,
                   Kernel k = BestKernel());

}  // namespace zoca

#endif  // ZOCA_SRC_CONVERT_H
