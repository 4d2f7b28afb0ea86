#include "mivo/core/types/ColorFormat.h"

#include "mivo/Def.h"

namespace mivo {

const char* getColorFormatName(int colorFormat) {
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
    return nullptr;
}

bool isKnownColorFormat(int colorFormat) {
    return (colorFormat >= COLOR_FORMAT_NONE && colorFormat <= COLOR_FORMAT_ABGR) ||
           colorFormat == COLOR_FORMAT_VENDOR_SPECIFIED;
}

int getDefaultChannels(int colorFormat) {
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

float getDefaultBytesPerPixel(int colorFormat) {
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
