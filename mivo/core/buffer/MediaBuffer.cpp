#include "mivo/core/buffer/MediaBuffer.h"

#include "mivo/Def.h"
#include "mivo/core/types/ColorFormat.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace mivo::core {

std::pair<std::string, std::string> MediaBuffer::getTypeString() {
    const auto& self = static_cast<const detail::MediaBufferBase&>(*this);
    const Form form = self.form_;
    const MediaBufferType type = self.type_;
    std::string formName;
    switch (form) {
        case FORM_SINGLE:
            formName = "single";
            break;
        case FORM_BUNDLE:
            formName = "bundle";
            break;
        case FORM_SLOT:
            formName = "slot";
            break;
        default:
            formName = format("form(%d)", static_cast<int>(form));
            break;
    }
    std::string typeName;
    switch (type) {
        case MEDIA_BUFFER_TYPE_UNKNOWN:
            typeName = "unknown";
            break;
        case MEDIA_BUFFER_TYPE_HEAP:
            typeName = "heap";
            break;
        case MEDIA_BUFFER_TYPE_GENERIC:
            typeName = "generic";
            break;
        case MEDIA_BUFFER_TYPE_GRAPHIC:
            typeName = "graphic";
            break;
        case MEDIA_BUFFER_TYPE_EXTENSION:
            typeName = "extension";
            break;
        case MEDIA_BUFFER_TYPE_ZOCA_IMGB:
            typeName = "zoca-imgb";
            break;
        default:
            typeName = format("type(%d)", static_cast<int>(type));
            break;
    }
    return {formName, typeName};
}

namespace detail {

MediaBufferBase::MediaBufferBase(MediaBuffer::Form form, MediaBufferType type,
                                 const std::shared_ptr<MediaFormat>& format, bool owned,
                                 const std::shared_ptr<BufferOption>& option)
    : form_(form), type_(type), owned_(owned ? 1 : 0), format_(format), option_(option) {}

namespace {

constexpr size_t kAlignment = 64;

// Bytes the image descriptor of a 4:2:0 picture spans: luma rows, then whole chroma rows
// even when the size is odd.
size_t planarFootprint(const MediaBufferBase& buffer) {
    const int colorFormat = buffer.getFormat()->getColorFormat();
    if (colorFormat != COLOR_FORMAT_NV12 && colorFormat != COLOR_FORMAT_NV21 &&
        colorFormat != COLOR_FORMAT_YUV420) {
        return 0;
    }
    const size_t stride = static_cast<size_t>(std::max(buffer.getStride(), 0));
    const size_t rows = static_cast<size_t>(std::max({buffer.getRows(), buffer.getScanlines(), 0}));
    return stride * rows + 2 * ((stride + 1) / 2) * ((rows + 1) / 2);
}

}  // namespace

void* MediaBufferBase::allocate() {
    const int size = getSize();
    if (size < 0) throw std::bad_alloc();
    size_t bytes = std::max(static_cast<size_t>(size), planarFootprint(*this));
    bytes = std::max<size_t>((bytes + kAlignment - 1) / kAlignment * kAlignment, kAlignment);
    void* data = std::aligned_alloc(kAlignment, bytes);
    if (!data) throw std::bad_alloc();
    // Zeroed, so bytes an operation leaves unwritten are the same on every run.
    std::memset(data, 0, bytes);
    return data;
}

void MediaBufferBase::deallocate(void* data) {
    std::free(data);
}

}  // namespace detail
}  // namespace mivo::core
