// The framework's picture buffer: the MediaBuffer interface, its shared implementation
// MediaBufferBase and the CPU buffer GenericMediaBuffer. The order of the virtual
// operations and the fields are shared with the framework and must not change.
// Everything here is compiled into each plugin except what libmivo.so supplies: the
// MediaBufferBase constructor, allocate(), deallocate() and getTypeString(). A plugin that
// imports anything else does not load next to the framework's library.
#ifndef MIVO_CORE_BUFFER_MEDIABUFFER_H
#define MIVO_CORE_BUFFER_MEDIABUFFER_H

#include "mivo/Def.h"
#include "mivo/core/buffer/BufferOption.h"
#include "mivo/core/buffer/Extra.h"
#include "mivo/core/types/ColorFormat.h"
#include "mivo/core/types/MediaFormat.h"

#include <system/graphics.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace mivo {

enum MediaBufferType : int32_t {
    MEDIA_BUFFER_TYPE_UNKNOWN = 0,
    MEDIA_BUFFER_TYPE_HEAP = 1,
    MEDIA_BUFFER_TYPE_GENERIC = 2,  // CPU memory; every buffer the plugin allocates
    MEDIA_BUFFER_TYPE_GRAPHIC = 3,
    MEDIA_BUFFER_TYPE_EXTENSION = 100,  // a type nothing has registered a view for
    MEDIA_BUFFER_TYPE_ZOCA_IMGB = 102,  // the pixel memory is itself a _ZOCA_IMGB record
};

namespace core {

template <typename T>
class PlaceHolder;

namespace detail {

// Where a buffer's pixels are: nothing, a plain address, a YCbCr plane description, or an
// address paired with either of the two.
using PixelAddress = std::variant<void*, std::shared_ptr<android_ycbcr>>;
using PixelPointer = std::variant<std::monostate, void*, std::shared_ptr<android_ycbcr>,
                                  std::pair<void*, PixelAddress>>;

}  // namespace detail

class MediaBuffer : public std::enable_shared_from_this<MediaBuffer> {
  public:
    enum Form : int32_t {
        FORM_SINGLE = 0,  // one picture or blob
        FORM_BUNDLE = 1,  // several members behind one buffer
        FORM_SLOT = 2,    // an output slot that a buffer is put into
    };

    // The names of this buffer's form and type, for descriptions.
    MIVO_EXPORT std::pair<std::string, std::string> getTypeString();

    virtual std::shared_ptr<MediaFormat> getFormat() const = 0;
    virtual int getRows() const = 0;
    virtual int getCols() const = 0;
    virtual int getChannels() const = 0;
    virtual int getStride() const = 0;
    virtual int getScanlines() const = 0;
    virtual int getSize() const = 0;
    virtual int getUsage() const = 0;
    virtual std::vector<std::shared_ptr<MediaBuffer>> asList() = 0;
    virtual std::vector<std::shared_ptr<MediaBuffer>> getMetadataBuffers() = 0;
    virtual std::shared_ptr<MediaBuffer> getExifBuffer() = 0;
    virtual std::shared_ptr<MediaBuffer> getIccBuffer() = 0;
    virtual bool isEmpty() const = 0;
    virtual bool isNotEmpty() const = 0;
    virtual MediaBufferType getType() const;
    virtual detail::PixelPointer getPixelPtr() const = 0;
    virtual void* getDataPtr() const;
    virtual void* getDirectData() const = 0;
    virtual bool containsExtra(const std::string& key) = 0;
    virtual std::optional<ExtraValue> getExtra(const std::string& key) = 0;
    virtual MediaBuffer& setExtra(const std::string& key, ExtraValue value) = 0;
    virtual MediaBuffer& copyExtraTo(const std::shared_ptr<MediaBuffer>& dst) = 0;
    virtual bool isMutable() const;
    virtual operator PlaceHolder<MediaBuffer>&();
    virtual std::string toString() = 0;
    virtual ~MediaBuffer() = default;
    virtual std::shared_ptr<detail::BufferOption> getOption() const = 0;

    // This buffer seen as a record of type T, through the views registered with
    // BufferExtension (defined in BufferExtension.h).
    template <typename T>
    T getTypedData(const std::shared_ptr<detail::BufferOption>& option) const;
};

// An output slot. put() hands over a newly built buffer.
template <typename T>
class PlaceHolder {
  public:
    virtual ~PlaceHolder() = default;
    virtual void store(std::shared_ptr<T> value) = 0;
    virtual std::shared_ptr<T> get() const = 0;

    void put(std::unique_ptr<T>&& value) {
        // Shared ownership also points the buffer's self-reference at the new owner, unless
        // a live owner already exists.
        std::shared_ptr<T> shared(std::move(value));
        value.reset();
        store(std::move(shared));
    }
};

namespace detail {

// The address a pixel pointer stands for; for a pair, the inner address. A pointer that
// holds no alternative ends the process.
inline void* innerAddress(const PixelPointer& pixels) {
    switch (pixels.index()) {
        case 0:
            return nullptr;
        case 1:
            return std::get<1>(pixels);
        case 2:
            return std::get<2>(pixels).get();
        case 3: {
            const PixelAddress& inner = std::get<3>(pixels).second;
            if (inner.index() == 0) return std::get<0>(inner);
            return std::get<1>(inner).get();  // any other index throws bad_variant_access
        }
    }
    MIVO_ASSERT("core/buffer/BufferExtension", 256, !"not supported type");
    std::abort();
}

// The address a pixel pointer starts at; for a pair, its first address. A pointer without
// an address ends the process.
inline void* outerAddress(const PixelPointer& pixels) {
    switch (pixels.index()) {
        case 1:
            return std::get<1>(pixels);
        case 2:
            return std::get<2>(pixels).get();
        case 3:
            return std::get<3>(pixels).first;
    }
    MIVO_ASSERT("core/buffer/BufferExtension", 256, !"not supported type");
    std::abort();
}

// Every buffer derives from this class: MediaBuffer's own operations read its fields.
class MediaBufferBase : public MediaBuffer {
  public:
    MIVO_EXPORT MediaBufferBase(MediaBuffer::Form form, MediaBufferType type,
                                const std::shared_ptr<MediaFormat>& format, bool owned,
                                const std::shared_ptr<BufferOption>& option);

    std::shared_ptr<MediaFormat> getFormat() const override { return format_; }
    int getRows() const override { return format_->getRows(); }
    int getCols() const override { return format_->getCols(); }
    int getChannels() const override { return format_->getChannels(); }
    int getStride() const override {
        if (strideOverride_ != -1) return strideOverride_;
        int stride = getCols();
        if (auto extra = getExtraAs<int>(*format_, extra::kStride)) stride = *extra;
        return stride * format_->getChannels();
    }
    int getScanlines() const override {
        if (scanlinesOverride_ != -1) return scanlinesOverride_;
        if (auto extra = getExtraAs<int>(*format_, extra::kScanlines)) return *extra;
        return getRows();
    }
    int getSize() const override {
        if (isMultiPlaneColorFormat(format_->getColorFormat())) {
            const int elements = getStride() * getScanlines();
            return static_cast<int>(format_->getBytesPerPixel() * static_cast<float>(elements));
        }
        return getStride() * getScanlines() * getDepthElementSize(format_->getDataType() & 0xf);
    }
    int getUsage() const override {
        // A buffer built without options has no usage.
        if (!option_) return 0;
        const BufferOptionValue* value = option_->find(BufferOption::kUsage);
        if (!value) return 0;
        if (value->index() == 0) return std::get<0>(*value);
        return static_cast<int>(std::get<2>(*value));
    }
    std::vector<std::shared_ptr<MediaBuffer>> asList() override { return {shared_from_this()}; }
    std::vector<std::shared_ptr<MediaBuffer>> getMetadataBuffers() override {
        std::vector<std::shared_ptr<MediaBuffer>> metadata;
        for (auto& member : asList()) {
            if (member->getFormat()->getKind() == MEDIA_KIND_METADATA) metadata.push_back(member);
        }
        return metadata;
    }
    std::shared_ptr<MediaBuffer> getExifBuffer() override { return firstMember(extra::kExif); }
    std::shared_ptr<MediaBuffer> getIccBuffer() override { return firstMember(extra::kIcc); }
    bool containsExtra(const std::string& key) override { return extras_.count(key) != 0; }
    std::optional<ExtraValue> getExtra(const std::string& key) override {
        auto it = extras_.find(key);
        if (it == extras_.end()) return std::nullopt;
        return it->second;
    }
    MediaBuffer& setExtra(const std::string& key, ExtraValue value) override {
        extras_[key] = std::move(value);
        return *this;
    }
    MediaBuffer& copyExtraTo(const std::shared_ptr<MediaBuffer>& dst) override {
        for (const auto& [key, value] : extras_) {
            // The destination's own value wins.
            if (!dst->getExtra(key)) dst->setExtra(key, value);
        }
        return *this;
    }
    std::string toString() override {
        std::string extras = "extra={";
        for (const auto& entry : extras_) extras += " " + entry.first;
        extras += "}";
        const auto [formName, typeName] = getTypeString();
        const std::string formAndType =
            format("form=%s, type=%s", formName.c_str(), typeName.c_str());
        return join("\n\t", formAndType, "format=" + format_->toString(), extras);
    }
    std::shared_ptr<BufferOption> getOption() const override { return option_; }

    Form getForm() const { return form_; }
    bool isOwned() const { return owned_ != 0; }

  protected:
    // Pixel memory for this buffer's format: getSize() bytes, rounded up so that the
    // chroma planes of odd-sized 4:2:0 pictures fit whole, and aligned for SIMD.
    MIVO_EXPORT void* allocate();
    MIVO_EXPORT void deallocate(void* data);

  private:
    friend class core::MediaBuffer;

    std::shared_ptr<MediaBuffer> firstMember(const char* key) {
        for (auto& member : getMetadataBuffers()) {
            if (member->getFormat()->containsExtra(key)) return member;
        }
        return nullptr;
    }

    Form form_;
    MediaBufferType type_;
    int32_t owned_;
    std::shared_ptr<MediaFormat> format_;
    int32_t strideOverride_ = -1;
    int32_t scanlinesOverride_ = -1;
    std::shared_ptr<BufferOption> option_;
    std::unordered_map<std::string, ExtraValue> extras_;
};

template <typename Data, typename Extra>
class GenericMediaBuffer;

// A buffer in CPU memory, owned or borrowed.
template <>
class GenericMediaBuffer<unsigned char*, void> final : public MediaBufferBase {
  public:
    GenericMediaBuffer(MediaBuffer::Form form, MediaBufferType type,
                       const std::shared_ptr<MediaFormat>& format, bool owned,
                       const std::shared_ptr<BufferOption>& option)
        : MediaBufferBase(form, type, format, owned, option) {}
    ~GenericMediaBuffer() override {
        if (isOwned()) deallocate(data_);
    }

    // A new owned buffer with memory for `format`: built empty, then given allocate()'s
    // memory, as the framework builds its outputs.
    static std::unique_ptr<GenericMediaBuffer> allocateFor(
        const std::shared_ptr<MediaFormat>& format,
        const std::shared_ptr<BufferOption>& option = nullptr) {
        auto buffer = std::make_unique<GenericMediaBuffer>(
            MediaBuffer::FORM_SINGLE, MEDIA_BUFFER_TYPE_GENERIC, format, true, option);
        buffer->data_ = static_cast<unsigned char*>(buffer->allocate());
        return buffer;
    }
    // A buffer over memory the caller keeps alive.
    static std::unique_ptr<GenericMediaBuffer> wrap(const std::shared_ptr<MediaFormat>& format,
                                                    unsigned char* data) {
        auto buffer = std::make_unique<GenericMediaBuffer>(
            MediaBuffer::FORM_SINGLE, MEDIA_BUFFER_TYPE_GENERIC, format, false, nullptr);
        buffer->data_ = data;
        return buffer;
    }

    bool isEmpty() const override { return data_ == nullptr; }
    bool isNotEmpty() const override { return data_ != nullptr; }
    PixelPointer getPixelPtr() const override {
        return PixelPointer(std::in_place_index<1>, data_);
    }
    void* getDirectData() const override { return data_; }
    std::string toString() override {
        const std::string joined =
            join("\n\t", MediaBufferBase::toString(), format("data=%p", static_cast<void*>(data_)));
        return "{\n\t" + joined + "\n}";
    }

    unsigned char* data() const { return data_; }

  private:
    unsigned char* data_ = nullptr;
};

using CpuMediaBuffer = GenericMediaBuffer<unsigned char*, void>;

}  // namespace detail

inline MediaBufferType MediaBuffer::getType() const {
    return static_cast<const detail::MediaBufferBase*>(this)->type_;
}

inline void* MediaBuffer::getDataPtr() const {
    return detail::innerAddress(getPixelPtr());
}

inline bool MediaBuffer::isMutable() const {
    return false;
}

inline MediaBuffer::operator PlaceHolder<MediaBuffer>&() {
    MIVO_ASSERT("core/buffer/MediaBuffer", 228, !"not supported");
    std::abort();
}

}  // namespace core
}  // namespace mivo

#endif  // MIVO_CORE_BUFFER_MEDIABUFFER_H
