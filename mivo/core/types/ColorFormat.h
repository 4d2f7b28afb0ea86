// The framework's colour format codes and their names.
#ifndef MIVO_CORE_TYPES_COLORFORMAT_H
#define MIVO_CORE_TYPES_COLORFORMAT_H

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

// The name used in logs ("nv12", "rgba", ...). Any other code ends the process.
const char* getColorFormatName(int colorFormat);

// Whether a code names a known colour format (the name function accepts it).
bool isKnownColorFormat(int colorFormat);

// The multi-plane, chroma-subsampled formats: their sizes follow from the bytes per pixel,
// and pictures in them have even width and height.
constexpr bool isMultiPlaneColorFormat(int colorFormat) {
    return (colorFormat >= COLOR_FORMAT_NV12 && colorFormat <= COLOR_FORMAT_P010_ZIPPED) ||
           colorFormat == COLOR_FORMAT_VENDOR_SPECIFIED;
}

// Channels and bytes per pixel a caller describes a picture with, for the formats whose
// layout is known; 0 for the others.
int getDefaultChannels(int colorFormat);
float getDefaultBytesPerPixel(int colorFormat);

}  // namespace mivo

#endif  // MIVO_CORE_TYPES_COLORFORMAT_H
