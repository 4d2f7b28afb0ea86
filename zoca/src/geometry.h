// Scaling, rotation and cropping within one colour format.
#ifndef ZOCA_SRC_GEOMETRY_H
#define ZOCA_SRC_GEOMETRY_H

#include "image.h"

namespace zoca {

// src and dst share a format; any sizes.
int Scale(const Img& src, const Img& dst);
// src and dst share a format; dst has the rotated shape. code is a ZOCA_ROT_* value.
int Rotate(const Img& src, int code, const Img& dst);
// Copies the dst-sized region of src at (x, y); for 4:2:0 the chroma region starts at
// (x / 2, y / 2). The caller has checked that the region lies inside src.
void Crop(const Img& src, int x, int y, const Img& dst);

bool SwapsAxes(int code);

}  // namespace zoca

#endif  // ZOCA_SRC_GEOMETRY_H
