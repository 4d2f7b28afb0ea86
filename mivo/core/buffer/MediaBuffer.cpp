#include "mivo/core/buffer/MediaBuffer.h"

#include "mivo/Def.h"
#include "mivo/core/buffer/BufferExtension.h"
#include "mivo/core/types/ColorFormat.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace mivo::core {

std::pair<std::string, std::string> MediaBuffer::getTypeString(Form form, MediaBufferType type) {
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

MediaBufferType MediaBuffer::getType() const {
    return MEDIA_BUFFER_TYPE_UNKNOWN;
}

void* MediaBuffer::getDataPtr() const {
    return detail::innerAddress(getPixelPtr());
}

bool MediaBuffer::isMutable() const {
    return false;
}

MediaBuffer::operator PlaceHolder<MediaBuffer>&() {
    MIVO_ASSERT("core/buffer/MediaBuffer", 228, !"not supported");
    std::abort();
}

template <>
void PlaceHolder<MediaBuffer>::put(std::unique_ptr<MediaBuffer>&& value) {
    // Shared ownership also points the buffer's self-reference at the new owner, unless a
    // live owner already exists.
    std::shared_ptr<MediaBuffer> shared(std::move(value));
    value.reset();
    store(std::move(shared));
}

namespace detail {

MediaBufferBase::MediaBufferBase(MediaBuffer::Form form, MediaBufferType type,
                                 const std::shared_ptr<MediaFormat>& format, bool owned,
                                 const std::shared_ptr<BufferOption>& option)
    : form_(form), type_(type), owned_(owned ? 1 : 0), format_(format), option_(option) {}

int MediaBufferBase::getStride() const {
    if (strideOverride_ != -1) return strideOverride_;
    int stride = getCols();
    if (auto extra = getExtraAs<int>(*format_, extra::kStride)) stride = *extra;
    return stride * format_->getChannels();
}

int MediaBufferBase::getScanlines() const {
    if (scanlinesOverride_ != -1) return scanlinesOverride_;
    if (auto extra = getExtraAs<int>(*format_, extra::kScanlines)) return *extra;
    return getRows();
}

int MediaBufferBase::getSize() const {
    if (isMultiPlaneColorFormat(format_->getColorFormat())) {
        const int elements = getStride() * getScanlines();
        return static_cast<int>(format_->getBytesPerPixel() * static_cast<float>(elements));
    }
    const int depth = format_->getDataType() & 0xf;
    return getStride() * getScanlines() * getDepthElementSize(depth);
}

int MediaBufferBase::getUsage() const {
    // A buffer built without options has no usage.
    if (!option_) return 0;
    const BufferOptionValue* value = option_->find(BufferOption::kUsage);
    if (!value) return 0;
    if (value->index() == 0) return std::get<0>(*value);
    return static_cast<int>(std::get<2>(*value));
}

std::vector<std::shared_ptr<MediaBuffer>> MediaBufferBase::asList() {
    return {shared_from_this()};
}

std::vector<std::shared_ptr<MediaBuffer>> MediaBufferBase::getMetadataBuffers() {
    std::vector<std::shared_ptr<MediaBuffer>> metadata;
    for (auto& member : asList()) {
        if (member->getFormat()->getKind() == MEDIA_KIND_METADATA) metadata.push_back(member);
    }
    return metadata;
}

std::shared_ptr<MediaBuffer> MediaBufferBase::firstMember(const char* key) {
    for (auto& member : getMetadataBuffers()) {
        if (member->getFormat()->containsExtra(key)) return member;
    }
    return nullptr;
}

std::shared_ptr<MediaBuffer> MediaBufferBase::getExifBuffer() {
    return firstMember(extra::kExif);
}

std::shared_ptr<MediaBuffer> MediaBufferBase::getIccBuffer() {
    return firstMember(extra::kIcc);
}

bool MediaBufferBase::containsExtra(const std::string& key) {
    return extras_.count(key) != 0;
}

std::optional<ExtraValue> MediaBufferBase::getExtra(const std::string& key) {
    auto it = extras_.find(key);
    if (it == extras_.end()) return std::nullopt;
    return it->second;
}

MediaBuffer& MediaBufferBase::setExtra(const std::string& key, ExtraValue value) {
    extras_[key] = value;
    return *this;
}

MediaBuffer& MediaBufferBase::copyExtraTo(const std::shared_ptr<MediaBuffer>& dst) {
    for (const auto& [key, value] : extras_) {
        // The destination's own value wins.
        if (!dst->getExtra(key)) dst->setExtra(key, value);
    }
    return *this;
}

std::string MediaBufferBase::toString() {
    std::string extras = "extra={";
    for (const auto& entry : extras_) extras += " " + entry.first;
    extras += "}";
    const auto [formName, typeName] = getTypeString(form_, type_);
    const std::string formAndType = format("form=%s, type=%s", formName.c_str(), typeName.c_str());
    return join("\n\t", formAndType, "format=" + format_->toString(), extras);
}

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

CpuMediaBuffer::~GenericMediaBuffer() {
    if (isOwned()) deallocate(data_);
}

std::unique_ptr<CpuMediaBuffer> CpuMediaBuffer::allocateFor(
    const std::shared_ptr<MediaFormat>& format, const std::shared_ptr<BufferOption>& option) {
    auto buffer = std::make_unique<CpuMediaBuffer>(MediaBuffer::FORM_SINGLE,
                                                   MEDIA_BUFFER_TYPE_GENERIC, format, true, option);
    buffer->data_ = static_cast<unsigned char*>(buffer->allocate());
    return buffer;
}

std::unique_ptr<CpuMediaBuffer> CpuMediaBuffer::wrap(const std::shared_ptr<MediaFormat>& format,
                                                     unsigned char* data) {
    auto buffer = std::make_unique<CpuMediaBuffer>(
        MediaBuffer::FORM_SINGLE, MEDIA_BUFFER_TYPE_GENERIC, format, false, nullptr);
    buffer->data_ = data;
    return buffer;
}

std::string CpuMediaBuffer::toString() {
    const std::string joined =
        join("\n\t", MediaBufferBase::toString(), format("data=%p", static_cast<void*>(data_)));
    return "{\n\t" + joined + "\n}";
}

}  // namespace detail
}  // namespace mivo::core
