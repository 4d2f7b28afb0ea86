// Typed values under string keys, carried by buffers and by formats.
#ifndef MIVO_CORE_BUFFER_EXTRA_H
#define MIVO_CORE_BUFFER_EXTRA_H

#include <ui/Rect.h>

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace mivo {
class Shape;
namespace core {
class ImgpOption;
}

// The alternatives' order is shared with the framework: readers test the index.
using ExtraValue =
    std::variant<bool, std::string, float, int, std::vector<int>, std::shared_ptr<Shape>,
                 android::Rect, std::shared_ptr<core::ImgpOption>, void*>;

// The format store holds the first seven alternatives of ExtraValue.
using FormatExtraValue = std::variant<bool, std::string, float, int, std::vector<int>,
                                      std::shared_ptr<Shape>, android::Rect>;

// Keys of the format extras in use.
namespace extra {
inline constexpr const char* kStride = "stride";
inline constexpr const char* kScanlines = "scan-lines";
inline constexpr const char* kPreferredColor = "preferred-color";
inline constexpr const char* kCropRect = "crop-rect";
inline constexpr const char* kFlipType = "flip-type";
inline constexpr const char* kDithering = "dithering";
inline constexpr const char* kHdrType = "hdr-type";
inline constexpr const char* kExif = "exif";
inline constexpr const char* kIcc = "icc";
}  // namespace extra

}  // namespace mivo

#endif  // MIVO_CORE_BUFFER_EXTRA_H
