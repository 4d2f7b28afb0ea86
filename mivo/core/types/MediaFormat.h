// The format of a media buffer: what kind of content, its element type, shape, colour
// format, colour space, rotation and extras. MediaFormat is read-only; a MutableMediaFormat
// is a private copy that is edited and then frozen back into a shared MediaFormat.
#ifndef MIVO_CORE_TYPES_MEDIAFORMAT_H
#define MIVO_CORE_TYPES_MEDIAFORMAT_H

#include "mivo/Def.h"
#include "mivo/core/buffer/Extra.h"
#include "mivo/core/types/Shape.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mivo {

enum MediaKind : int {
    MEDIA_KIND_UNKNOWN = 0,
    MEDIA_KIND_IMAGE = 1,
    MEDIA_KIND_VIDEO = 2,
    MEDIA_KIND_AUDIO = 3,
    MEDIA_KIND_METADATA = 4,  // EXIF blocks, ICC profiles and other blobs beside a picture
};

// Element types; the low four bits are the depth code that sizes an element.
enum DataType : int {
    DATA_TYPE_U8 = 0,
    DATA_TYPE_S8 = 1,
    DATA_TYPE_U16 = 2,
    DATA_TYPE_S16 = 3,
    DATA_TYPE_U32 = 4,
    DATA_TYPE_S32 = 5,
    DATA_TYPE_U64 = 6,
    DATA_TYPE_S64 = 7,
    DATA_TYPE_F32 = 8,
    DATA_TYPE_Q16 = 9,  // 16.16 fixed point
    DATA_TYPE_F64 = 10,
};

// Bytes of one element of depth code `depth` (the low four bits of a data type); 0 for the
// codes that have no element size.
constexpr int getDepthElementSize(int depth) {
    constexpr int kSizes[] = {1, 1, 2, 2, 4, 4, 8, 8, 4, 4, 8};
    return depth >= 0 && depth <= 10 ? kSizes[depth] : 0;
}

// The framework's colour spaces (the ones the image library distinguishes).
enum ColorSpace : int {
    COLOR_SPACE_UNKNOWN = 0,
    COLOR_SPACE_BT601 = 1,
    COLOR_SPACE_BT709 = 2,
    COLOR_SPACE_BT2020 = 3,
    COLOR_SPACE_BT601_625 = 4,
    COLOR_SPACE_DISPLAY_P3 = 5,
    COLOR_SPACE_SRGB = 18,
    COLOR_SPACE_BT2100 = 19,
    COLOR_SPACE_BT601_FULL = 33,
    COLOR_SPACE_BT709_FULL = 34,
    COLOR_SPACE_BT2020_FULL = 35,
};

class MutableMediaFormat;

// The slot order of the virtual operations is the framework's: getKind first, the
// destructor after the queries.
class MediaFormat {
  public:
    virtual int getKind() const = 0;
    virtual int getDataType() const = 0;
    virtual std::shared_ptr<Shape> getShape() const = 0;
    virtual int getRows() const = 0;
    virtual int getCols() const = 0;
    virtual int getChannels() const = 0;
    virtual int getColorFormat() const = 0;
    virtual int getColorSpace() const = 0;
    virtual int getRotation() const = 0;
    virtual float getBytesPerPixel() const = 0;
    virtual bool containsExtra(const std::string& key) const = 0;
    virtual std::optional<FormatExtraValue> getExtra(const std::string& key) const = 0;
    virtual std::vector<std::string> getExtraKeys() const = 0;
    virtual std::unique_ptr<MediaFormat> freeze() const = 0;
    virtual std::unique_ptr<MutableMediaFormat> mutableCopy() const = 0;
    virtual std::string toString() const = 0;
    virtual ~MediaFormat() = default;
};

class MutableMediaFormat : public MediaFormat {
  public:
    // An empty format (kind unknown, 0 x 0, no colour format).
    MIVO_EXPORT static std::unique_ptr<MutableMediaFormat> create();

    virtual MutableMediaFormat& setShape(std::shared_ptr<MutableShape> shape) = 0;
    virtual MutableMediaFormat& setRows(int rows) = 0;
    virtual MutableMediaFormat& setCols(int cols) = 0;
    // For a colour format of known layout, also sets the channels and bytes per pixel to
    // that layout's (a later setChannels or setBytesPerPixel still wins).
    virtual MutableMediaFormat& setColorFormat(int colorFormat) = 0;
    virtual MutableMediaFormat& setColorSpace(int colorSpace) = 0;
    virtual MutableMediaFormat& setExtra(const std::string& key, FormatExtraValue value) = 0;
    virtual MutableMediaFormat& removeExtra(const std::string& key) = 0;
    virtual MutableMediaFormat& setKind(int kind) = 0;
    virtual MutableMediaFormat& setDataType(int dataType) = 0;
    virtual MutableMediaFormat& setChannels(int channels) = 0;
    virtual MutableMediaFormat& setRotation(int degrees) = 0;
    virtual MutableMediaFormat& setBytesPerPixel(float bytesPerPixel) = 0;

    // Takes a private mutable copy of `shape`; the shape passed in is not kept.
    MIVO_EXPORT MutableMediaFormat& setShape(std::shared_ptr<Shape>&& shape);
};

// An 8-bit picture format: kind image, channels and bytes per pixel from the colour format.
MIVO_EXPORT std::unique_ptr<MutableMediaFormat> makeImageFormat(
    int colorFormat, int cols, int rows, int colorSpace = COLOR_SPACE_UNKNOWN);

// Reads a format extra as alternative T: empty when absent, bad_variant_access when the
// value holds another alternative.
template <typename T>
std::optional<T> getExtraAs(const MediaFormat& format, const std::string& key) {
    std::optional<FormatExtraValue> value = format.getExtra(key);
    if (!value) return std::nullopt;
    return std::get<T>(*value);
}

}  // namespace mivo

#endif  // MIVO_CORE_TYPES_MEDIAFORMAT_H
