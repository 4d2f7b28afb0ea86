// EXIF orientation: where the camera says the top of the picture is, and turning the pixels so
// that it is at the top.
#include <cstring>

#include "vexa/io/Internal.h"

namespace vexa::io::detail {

int exifOrientation(const uint8_t* data, size_t size) {
    // "Exif\0\0", then a TIFF header: byte order, 42, offset of the first directory.
    if (size < 14 || std::memcmp(data, "Exif\0\0", 6) != 0) return 1;
    const uint8_t* tiff = data + 6;
    const size_t length = size - 6;
    const bool little = tiff[0] == 'I' && tiff[1] == 'I';
    if (!little && !(tiff[0] == 'M' && tiff[1] == 'M')) return 1;
    const auto u16 = [&](size_t at) -> uint32_t {
        return little ? tiff[at] | tiff[at + 1] << 8 : tiff[at] << 8 | tiff[at + 1];
    };
    const auto u32 = [&](size_t at) -> uint32_t {
        return little ? u16(at) | u16(at + 2) << 16 : u16(at) << 16 | u16(at + 2);
    };
    if (u16(2) != 42) return 1;
    const size_t directory = u32(4);
    if (directory > length - 2) return 1;
    const size_t entries = u16(directory);
    for (size_t i = 0; i < entries; ++i) {
        const size_t entry = directory + 2 + 12 * i;
        if (entry + 12 > length) return 1;
        // Orientation: one SHORT, stored in the first two bytes of the value field.
        if (u16(entry) == 0x0112 && u16(entry + 2) == 3) {
            const uint32_t value = u16(entry + 8);
            return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
        }
    }
    return 1;
}

void orient(Image& image, int orientation) {
    if (orientation <= 1 || orientation > 8) return;
    const int bytes = image.colorFormat == kRgb || image.colorFormat == kBgr ? 3 : 4;
    const int w = image.width;
    const int h = image.height;
    const bool swap = orientation >= 5;
    const int outW = swap ? h : w;
    const int outH = swap ? w : h;
    std::vector<uint8_t> out(image.data.size());
    // For each pixel of the upright picture, the stored pixel it shows.
    for (int y = 0; y < outH; ++y) {
        uint8_t* row = out.data() + size_t(y) * outW * bytes;
        for (int x = 0; x < outW; ++x) {
            int sx = x, sy = y;
            switch (orientation) {
                case 2:
                    sx = w - 1 - x;
                    break;
                case 3:
                    sx = w - 1 - x;
                    sy = h - 1 - y;
                    break;
                case 4:
                    sy = h - 1 - y;
                    break;
                case 5:
                    sx = y;
                    sy = x;
                    break;
                case 6:
                    sx = y;
                    sy = h - 1 - x;
                    break;
                case 7:
                    sx = w - 1 - y;
                    sy = h - 1 - x;
                    break;
                case 8:
                    sx = w - 1 - y;
                    sy = x;
                    break;
            }
            std::memcpy(row + size_t(x) * bytes, image.data.data() + (size_t(sy) * w + sx) * bytes,
                        bytes);
        }
    }
    image.data.swap(out);
    image.width = outW;
    image.height = outH;
}

}  // namespace vexa::io::detail
