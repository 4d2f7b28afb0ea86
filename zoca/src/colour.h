// Gamut conversion and HDR tone mapping, both in linear light through lookup tables.
#ifndef ZOCA_SRC_COLOUR_H
#define ZOCA_SRC_COLOUR_H

#include "image.h"
#include "linear.h"

namespace zoca {

// True when two colour space codes share primaries and transfer, so that changing
// between them needs no work in linear light.
bool SameGamut(int cs_a, int cs_b);
// The kernels' parameters for a change of colour space and for a tone-mapping mode;
// they point into tables built on first use that live as long as the process.
GamutParams GamutParamsOf(int from_cs, int to_cs);
ToneParams ToneParamsOf(int mode);

// Converts src (its record's primaries and transfer) into dst's, same size.
int GamutConvert(const Img& src, const Img& dst, Kernel k = BestKernel());
// Tone-maps 8-bit PQ or HLG BT.2020 src into SDR BT.709 dst, same size. mode is a
// valid ZOCA_HDR_* value.
int ToneMap(const Img& src, const Img& dst, int mode, Kernel k = BestKernel());

}  // namespace zoca

#endif  // ZOCA_SRC_COLOUR_H
