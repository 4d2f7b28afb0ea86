// The framework's colour format codes and their names.
#ifndef MIVO_CORE_TYPES_COLORFORMAT_H
#define MIVO_CORE_TYPES_COLORFORMAT_H

#include "mivo/Def.h"

#include <cstdlib>

namespace mivo {

enum ColorFormat : int {
    COLOR_FORMAT_NONE = 0,
    COLOR_FORMAT_OPAQUE = 1,
    COLOR_FORMAT_GRAY = 2,
    COLOR_FORMAT_NV12 = 3,
    COLOR_FORMAT_NV21 = 4,
    COLOR_FORMAT_YUV420 = 5,  // three planes: Y, Cb, Cr
    COLOR_FORMAT_P010 = 6,
    COLOR_FORMAT_P010_ZIPPED = 7,
    COLOR_FORMAT_RGB = 8,
    COLOR_FORMAT_RGBA = 9,
    COLOR_FORMAT_ARGB = 10,
    COLOR_FORMAT_BGR = 11,
    COLOR_FORMAT_BGRA = 12,
    COLOR_FORMAT_ABGR = 13,
    COLOR_FORMAT_VENDOR_SPECIFIED = 100,
};

// The multi-plane, chroma-subsampled formats: their sizes follow from the bytes per pixel,
// and pictures in them have even width and height.
constexpr bool isMultiPlaneColorFormat(int colorFormat) {
    return (colorFormat >= COLOR_FORMAT_NV12 && colorFormat <= COLOR_FORMAT_P010_ZIPPED) ||
           colorFormat == COLOR_FORMAT_VENDOR_SPECIFIED;
}

// The name used in logs ("nv12", "rgba", ...). Any other code ends the process.
inline const char* getColorFormatName(int colorFormat) {
    switch (colorFormat) {
        case COLOR_FORMAT_NONE:
            return "n/a";
        case COLOR_FORMAT_OPAQUE:
            return "opaque";
        case COLOR_FORMAT_GRAY:
            return "gray";
        case COLOR_FORMAT_NV12:
            return "nv12";
        case COLOR_FORMAT_NV21:
            return "nv21";
        case COLOR_FORMAT_YUV420:
            return "yuv420";
        case COLOR_FORMAT_P010:
            return "p010";
        case COLOR_FORMAT_P010_ZIPPED:
            return "p010_zipped";
        case COLOR_FORMAT_RGB:
            return "rgb";
        case COLOR_FORMAT_RGBA:
            return "rgba";
        case COLOR_FORMAT_ARGB:
            return "argb";
        case COLOR_FORMAT_BGR:
            return "bgr";
        case COLOR_FORMAT_BGRA:
            return "bgra";
        case COLOR_FORMAT_ABGR:
            return "abgr";
        case COLOR_FORMAT_VENDOR_SPECIFIED:
            return "vendor_specified";
    }
    MIVO_ASSERT("core/types/ColorFormat", 155, !"not supported");
    std::abort();
}

// Whether a code names a known colour format (the name function accepts it).
inline bool isKnownColorFormat(int colorFormat) {
    return (colorFormat >= COLOR_FORMAT_NONE && colorFormat <= COLOR_FORMAT_ABGR) ||
           colorFormat == COLOR_FORMAT_VENDOR_SPECIFIED;
}

// Channels and bytes per pixel a caller describes a picture with, for the formats whose
// layout is known; 0 for the others.
inline int getDefaultChannels(int colorFormat) {
    switch (colorFormat) {
        case COLOR_FORMAT_GRAY:
        case COLOR_FORMAT_NV12:
        case COLOR_FORMAT_NV21:
        case COLOR_FORMAT_YUV420:
        case COLOR_FORMAT_P010:
        case COLOR_FORMAT_P010_ZIPPED:
            return 1;
        case COLOR_FORMAT_RGB:
        case COLOR_FORMAT_BGR:
            return 3;
        case COLOR_FORMAT_RGBA:
        case COLOR_FORMAT_ARGB:
        case COLOR_FORMAT_BGRA:
        case COLOR_FORMAT_ABGR:
            return 4;
        default:
            return 0;
    }
}

inline float getDefaultBytesPerPixel(int colorFormat) {
    switch (colorFormat) {
        case COLOR_FORMAT_NV12:
        case COLOR_FORMAT_NV21:
        case COLOR_FORMAT_YUV420:
            return 1.5f;
        case COLOR_FORMAT_P010:
            return 3.0f;
        case COLOR_FORMAT_P010_ZIPPED:  // 10-bit samples packed without padding
            return 1.875f;
        default:
            return static_cast<float>(getDefaultChannels(colorFormat));
    }
}

}  // namespace mivo

#endif  // MIVO_CORE_TYPES_COLORFORMAT_H
