// The framework's picture buffer: the MediaBuffer interface, its shared implementation
// MediaBufferBase and the CPU buffer GenericMediaBuffer. The order of the virtual
// operations is shared with the framework and must not change.
#ifndef MIVO_CORE_BUFFER_MEDIABUFFER_H
#define MIVO_CORE_BUFFER_MEDIABUFFER_H

#include "mivo/core/buffer/BufferOption.h"
#include "mivo/core/buffer/Extra.h"
#include "mivo/core/types/MediaFormat.h"

#include <system/graphics.h>

#include <cstdint>
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

    // The names of a form and a type, for descriptions.
    static std::pair<std::string, std::string> getTypeString(Form form, MediaBufferType type);

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

    void put(std::unique_ptr<T>&& value);
};

template <>
void PlaceHolder<MediaBuffer>::put(std::unique_ptr<MediaBuffer>&& value);

namespace detail {

class MediaBufferBase : public MediaBuffer {
  public:
    MediaBufferBase(MediaBuffer::Form form, MediaBufferType type,
                    const std::shared_ptr<MediaFormat>& format, bool owned,
                    const std::shared_ptr<BufferOption>& option);

    std::shared_ptr<MediaFormat> getFormat() const override { return format_; }
    int getRows() const override { return format_->getRows(); }
    int getCols() const override { return format_->getCols(); }
    int getChannels() const override { return format_->getChannels(); }
    int getStride() const override;
    int getScanlines() const override;
    int getSize() const override;
    int getUsage() const override;
    std::vector<std::shared_ptr<MediaBuffer>> asList() override;
    std::vector<std::shared_ptr<MediaBuffer>> getMetadataBuffers() override;
    std::shared_ptr<MediaBuffer> getExifBuffer() override;
    std::shared_ptr<MediaBuffer> getIccBuffer() override;
    MediaBufferType getType() const override { return type_; }
    bool containsExtra(const std::string& key) override;
    std::optional<ExtraValue> getExtra(const std::string& key) override;
    MediaBuffer& setExtra(const std::string& key, ExtraValue value) override;
    MediaBuffer& copyExtraTo(const std::shared_ptr<MediaBuffer>& dst) override;
    std::string toString() override;
    std::shared_ptr<BufferOption> getOption() const override { return option_; }

    Form getForm() const { return form_; }
    bool isOwned() const { return owned_ != 0; }

  protected:
    // Pixel memory for this buffer's format: getSize() bytes, rounded up so that the
    // chroma planes of odd-sized 4:2:0 pictures fit whole, and aligned for SIMD.
    void* allocate();
    void deallocate(void* data);

  private:
    std::shared_ptr<MediaBuffer> firstMember(const char* key);

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
    ~GenericMediaBuffer() override;

    // A new owned buffer with memory for `format`.
    static std::unique_ptr<GenericMediaBuffer> allocateFor(
        const std::shared_ptr<MediaFormat>& format,
        const std::shared_ptr<BufferOption>& option = nullptr);
    // A buffer over memory the caller keeps alive.
    static std::unique_ptr<GenericMediaBuffer> wrap(const std::shared_ptr<MediaFormat>& format,
                                                    unsigned char* data);

    bool isEmpty() const override { return data_ == nullptr; }
    bool isNotEmpty() const override { return data_ != nullptr; }
    PixelPointer getPixelPtr() const override {
        return PixelPointer(std::in_place_index<1>, data_);
    }
    void* getDirectData() const override { return data_; }
    std::string toString() override;

    unsigned char* data() const { return data_; }

  private:
    unsigned char* data_ = nullptr;
};

using CpuMediaBuffer = GenericMediaBuffer<unsigned char*, void>;

}  // namespace detail
}  // namespace core
}  // namespace mivo

#endif  // MIVO_CORE_BUFFER_MEDIABUFFER_H
