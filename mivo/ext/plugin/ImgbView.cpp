#include "mivo/ext/plugin/ImgbView.h"

#include "mivo/Def.h"
#include "mivo/core/types/ColorFormat.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace mivo::ext::detail {

using core::detail::PixelAddress;
using core::detail::PixelPointer;

int toImgbColorFormat(int colorFormat) {
    switch (colorFormat) {
        case COLOR_FORMAT_NV12:
            return ZOCA_CF_NV12;
        case COLOR_FORMAT_NV21:
            return ZOCA_CF_NV21;
        case COLOR_FORMAT_YUV420:
            return ZOCA_CF_I420;
        case COLOR_FORMAT_RGB:
            return ZOCA_CF_RGB;
        case COLOR_FORMAT_BGR:
            return ZOCA_CF_BGR;
        case COLOR_FORMAT_RGBA:
            return ZOCA_CF_RGBA;
        case COLOR_FORMAT_BGRA:
            return ZOCA_CF_BGRA;
        case COLOR_FORMAT_ARGB:
            return ZOCA_CF_ARGB;
    }
    // The blank after '!' is part of the logged condition text.
    // clang-format off
    MIVO_ASSERT("ext/plugin/VexaPlugin", 367, ! "not implemented yet");
    // clang-format on
    std::abort();
}

int toImgbColorSpace(int colorSpace) {
    switch (colorSpace) {
        case COLOR_SPACE_BT709:
        case COLOR_SPACE_SRGB:
            return ZOCA_CS_BT709;
        case COLOR_SPACE_BT2020:
        case COLOR_SPACE_BT2100:
            return ZOCA_CS_BT2020;
        case COLOR_SPACE_DISPLAY_P3:
            return ZOCA_CS_DISPLAY_P3;
        case COLOR_SPACE_BT601_FULL:
            return ZOCA_CS_BT601_FULL;
        case COLOR_SPACE_BT709_FULL:
            return ZOCA_CS_BT709_FULL;
        case COLOR_SPACE_BT2020_FULL:
            return ZOCA_CS_BT2020_FULL;
        default:
            return ZOCA_CS_BT601;
    }
}

namespace {

constexpr int half(int n) {
    return (n + 1) >> 1;
}

bool isPackedImgb(int imgbColorFormat) {
    return imgbColorFormat > 199;
}

[[noreturn]] void yuvWithoutAddress(int colorFormat) {
    switch (colorFormat) {
        case COLOR_FORMAT_NV12:
            MIVO_ASSERT("ext/plugin/VexaPlugin", 251, !"not supported yet");
        case COLOR_FORMAT_NV21:
            MIVO_ASSERT("ext/plugin/VexaPlugin", 281, !"not supported yet");
        default:
            MIVO_ASSERT("ext/plugin/VexaPlugin", 312, !"not supported yet");
    }
    std::abort();
}

void setGeometry(_ZOCA_IMGB& image, int cols, int rows, int sp) {
    switch (image.colorFormat) {
        case ZOCA_CF_NV12:
        case ZOCA_CF_NV21:
            image.width[0] = cols;
            image.width[1] = half(cols);
            image.height[0] = image.scanlines[0] = rows;
            image.height[1] = image.scanlines[1] = half(rows);
            image.stride[0] = sp;
            image.stride[1] = (sp + 1) & ~1;
            break;
        case ZOCA_CF_I420:
            image.width[0] = cols;
            image.width[1] = image.width[2] = half(cols);
            image.height[0] = image.scanlines[0] = rows;
            image.height[1] = image.height[2] = half(rows);
            image.scanlines[1] = image.scanlines[2] = half(rows);
            image.stride[0] = sp;
            image.stride[1] = image.stride[2] = half(sp);
            break;
        case ZOCA_CF_RGB:
        case ZOCA_CF_BGR:
            image.width[0] = cols;
            image.height[0] = image.scanlines[0] = rows;
            image.stride[0] = 3 * sp;
            break;
        default:  // the 4-byte packed formats
            image.width[0] = cols;
            image.height[0] = image.scanlines[0] = rows;
            image.stride[0] = 4 * sp;
            break;
    }
}

uintptr_t address(const void* p) {
    return reinterpret_cast<uintptr_t>(p);
}

void setPlanesFromAddress(_ZOCA_IMGB& image, void* base) {
    image.addr[0] = address(base);
    image.addr[1] =
        image.addr[0] +
        static_cast<uintptr_t>(static_cast<intptr_t>(image.scanlines[0]) * image.stride[0]);
    if (image.colorFormat == ZOCA_CF_I420) {
        image.addr[2] =
            image.addr[1] +
            static_cast<uintptr_t>(static_cast<intptr_t>(image.stride[1]) * image.height[1]);
    }
}

void setPlanesFromYcbcr(_ZOCA_IMGB& image, std::shared_ptr<android_ycbcr> planes) {
    image.stride[0] = static_cast<int32_t>(planes->ystride);
    image.stride[1] = static_cast<int32_t>(planes->cstride);
    image.addr[0] = address(planes->y);
    switch (image.colorFormat) {
        case ZOCA_CF_NV21:
            image.addr[1] = address(planes->cr);
            break;
        case ZOCA_CF_I420:
            image.stride[2] = static_cast<int32_t>(planes->cstride);
            image.addr[1] = address(planes->cb);
            image.addr[2] = address(planes->cr);
            break;
        default:
            image.addr[1] = address(planes->cb);
            break;
    }
}

}  // namespace

_ZOCA_IMGB imgbFromPixel(const MediaFormat& format, const PixelPointer& pixels,
                         const std::shared_ptr<core::detail::BufferOption>& /*option*/) {
    const int rows = format.getRows();
    const int cols = format.getCols();
    // Plane positions follow the rows, not the scan-lines: only the stride is taken here.
    const int sp = getExtraAs<int>(format, extra::kStride).value_or(cols);

    _ZOCA_IMGB image;
    std::memset(&image, 0, sizeof(image));
    const int colorFormat = format.getColorFormat();
    image.colorFormat = toImgbColorFormat(colorFormat);
    image.colorSpace = toImgbColorSpace(format.getColorSpace());
    setGeometry(image, cols, rows, sp);

    if (isPackedImgb(image.colorFormat)) {
        image.addr[0] = address(core::detail::innerAddress(pixels));
        return image;
    }
    switch (pixels.index()) {
        case 1:
            setPlanesFromAddress(image, std::get<1>(pixels));
            break;
        case 2:
            setPlanesFromYcbcr(image, std::get<2>(pixels));
            break;
        case 3: {
            const PixelAddress& inner = std::get<3>(pixels).second;
            if (inner.index() == 0) {
                setPlanesFromAddress(image, std::get<0>(inner));
            } else if (inner.index() == 1) {
                setPlanesFromYcbcr(image, std::get<1>(inner));
            } else {
                yuvWithoutAddress(colorFormat);
            }
            break;
        }
        default:
            yuvWithoutAddress(colorFormat);
    }
    return image;
}

PixelPointer imgbToPixel(const MediaFormat& /*format*/, const _ZOCA_IMGB& image,
                         const std::shared_ptr<core::detail::BufferOption>& /*option*/) {
    if (isPackedImgb(image.colorFormat)) {
        return PixelPointer(std::in_place_index<1>, reinterpret_cast<void*>(image.addr[0]));
    }
    auto planes = std::make_shared<android_ycbcr>();
    std::memset(planes.get(), 0, sizeof(android_ycbcr));
    auto* chroma = reinterpret_cast<unsigned char*>(image.addr[1]);
    planes->y = reinterpret_cast<void*>(image.addr[0]);
    planes->ystride = static_cast<size_t>(image.stride[0]);
    planes->cstride = static_cast<size_t>(image.stride[1]);
    switch (image.colorFormat) {
        case ZOCA_CF_NV12:
            planes->cb = chroma;
            planes->cr = chroma + 1;
            planes->chroma_step = 2;
            break;
        case ZOCA_CF_NV21:
            planes->cr = chroma;
            planes->cb = chroma + 1;
            planes->chroma_step = 2;
            break;
        default:
            planes->cb = chroma;
            planes->cr = reinterpret_cast<void*>(image.addr[2]);
            planes->chroma_step = 1;
            break;
    }
    return PixelPointer(std::in_place_index<2>, std::move(planes));
}

core::BufferExtension::Registry<_ZOCA_IMGB> makeImgbRegistry() {
    core::BufferExtension::Registry<_ZOCA_IMGB> registry;
    registry.identify = [] { return MEDIA_BUFFER_TYPE_ZOCA_IMGB; };
    registry.toPixel = imgbToPixel;
    registry.fromPixel = imgbFromPixel;
    return registry;
}

void registerImgbView() {
    static std::once_flag registered;
    std::call_once(registered, [] {
        auto& extension = core::Singleton<core::BufferExtension>::get();
        extension->add(makeImgbRegistry());
    });
}

}  // namespace mivo::ext::detail
