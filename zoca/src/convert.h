// Colour format conversion between pictures of equal size.
#ifndef ZOCA_SRC_CONVERT_H
#define ZOCA_SRC_CONVERT_H

#include <cstdint>

#include "image.h"

namespace zoca {

// Work applied to rows of B,G,R,A pixels between decoding and encoding.
class PixelStage {
public:
    virtual ~PixelStage() = default;
    virtual void Run(uint8_t* bgra, int stride, int width, int rows) const = 0;
};

// Converts src into dst (same width and height). A YUV side uses its own record's
// matrix and range; with dither set, every rounding to 8 bits is ordered-dithered.
// Returns a ZOCA_* code (only allocation can fail).
int Convert(const Img& src, const Img& dst, bool dither);

// Decodes src to B,G,R,A strips, runs stage on them, encodes into dst.
int ConvertThrough(const Img& src, const Img& dst, const PixelStage* stage, bool dither);

// Rows [r0, r0 + rows) of img; r0 must be even for 4:2:0 formats.
Img SubRows(const Img& img, int r0, int rows);

}  // namespace zoca

#endif  // ZOCA_SRC_CONVERT_H
