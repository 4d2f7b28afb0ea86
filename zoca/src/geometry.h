// Scaling, rotation and cropping within one colour format.
#ifndef ZOCA_SRC_GEOMETRY_H
#define ZOCA_SRC_GEOMETRY_H

#include "image.h"
#include "resample.h"

namespace zoca {

// src and dst share a format; any sizes. Separable, anti-aliased resampling with
// sample centres on sample centres (see zoca.h).
int Scale(const Img& src, const Img& dst, Simd simd = BestSimd());
// src and dst share a format; dst has the rotated shape. code is a ZOCA_ROT_* value.
int Rotate(const Img& src, int code, const Img& dst);
// Copies the dst-sized region of src at (x, y). 4:2:0 chroma keeps its place on the
// luma: at odd x or y it is resampled by the half-sample shift. The caller has checked
// that the region lies inside src.
int Crop(const Img& src, int x, int y, const Img& dst);

bool SwapsAxes(int code);

}  // namespace zoca

#endif  // ZOCA_SRC_GEOMETRY_H
