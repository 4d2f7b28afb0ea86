// The output of a request: a mutable buffer that stays empty until a buffer is put into it,
// carries the caller's wishes for the output in its format, and from then on presents the
// buffer put into it.
#ifndef MIVO_CORE_BUFFER_OUTPUTSLOT_H
#define MIVO_CORE_BUFFER_OUTPUTSLOT_H

#include "mivo/core/buffer/MediaBuffer.h"

#include <memory>

namespace mivo::core {

class MIVO_EXPORT OutputSlot final : public detail::MediaBufferBase {
  public:
    // `wish` describes what the caller wants of the output (size, colour format, colour
    // space, rotation and extras such as "crop-rect").
    static std::shared_ptr<OutputSlot> create(std::shared_ptr<MediaFormat> wish);

    explicit OutputSlot(std::shared_ptr<MediaFormat> wish);

    // The buffer put into the slot; null while it is empty.
    std::shared_ptr<MediaBuffer> get() const { return holder_.held; }

    std::shared_ptr<MediaFormat> getFormat() const override { return current().getFormat(); }
    int getRows() const override { return current().getRows(); }
    int getCols() const override { return current().getCols(); }
    int getChannels() const override { return current().getChannels(); }
    int getStride() const override { return current().getStride(); }
    int getScanlines() const override { return current().getScanlines(); }
    int getSize() const override { return current().getSize(); }
    int getUsage() const override { return current().getUsage(); }
    std::vector<std::shared_ptr<MediaBuffer>> asList() override;
    std::vector<std::shared_ptr<MediaBuffer>> getMetadataBuffers() override {
        return current().getMetadataBuffers();
    }
    std::shared_ptr<MediaBuffer> getExifBuffer() override { return current().getExifBuffer(); }
    std::shared_ptr<MediaBuffer> getIccBuffer() override { return current().getIccBuffer(); }
    bool isEmpty() const override { return !holder_.held || holder_.held->isEmpty(); }
    bool isNotEmpty() const override { return !isEmpty(); }
    MediaBufferType getType() const override { return current().getType(); }
    detail::PixelPointer getPixelPtr() const override { return current().getPixelPtr(); }
    void* getDirectData() const override { return current().getDirectData(); }
    bool containsExtra(const std::string& key) override { return current().containsExtra(key); }
    std::optional<ExtraValue> getExtra(const std::string& key) override {
        return current().getExtra(key);
    }
    MediaBuffer& setExtra(const std::string& key, ExtraValue value) override;
    MediaBuffer& copyExtraTo(const std::shared_ptr<MediaBuffer>& dst) override;
    bool isMutable() const override { return true; }
    operator PlaceHolder<MediaBuffer>&() override { return holder_; }
    std::string toString() override;
    std::shared_ptr<detail::BufferOption> getOption() const override {
        return current().getOption();
    }

  private:
    struct Holder final : PlaceHolder<MediaBuffer> {
        void store(std::shared_ptr<MediaBuffer> value) override { held = std::move(value); }
        std::shared_ptr<MediaBuffer> get() const override { return held; }
        std::shared_ptr<MediaBuffer> held;
    };

    MediaBuffer& current() const { return holder_.held ? *holder_.held : *wish_; }

    std::shared_ptr<MediaBuffer> wish_;  // an empty buffer of the wished format
    Holder holder_;
};

}  // namespace mivo::core

#endif  // MIVO_CORE_BUFFER_OUTPUTSLOT_H
