#include "mivo/core/buffer/OutputSlot.h"

namespace mivo::core {

std::shared_ptr<OutputSlot> OutputSlot::create(std::shared_ptr<MediaFormat> wish) {
    return std::make_shared<OutputSlot>(std::move(wish));
}

OutputSlot::OutputSlot(std::shared_ptr<MediaFormat> wish)
    : MediaBufferBase(FORM_SLOT, MEDIA_BUFFER_TYPE_GENERIC, wish, false, nullptr),
      wish_(std::make_shared<detail::CpuMediaBuffer>(FORM_SLOT, MEDIA_BUFFER_TYPE_GENERIC,
                                                     std::move(wish), false, nullptr)) {}

std::vector<std::shared_ptr<MediaBuffer>> OutputSlot::asList() {
    if (holder_.held) return holder_.held->asList();
    return {shared_from_this()};
}

MediaBuffer& OutputSlot::setExtra(const std::string& key, ExtraValue value) {
    current().setExtra(key, std::move(value));
    return *this;
}

MediaBuffer& OutputSlot::copyExtraTo(const std::shared_ptr<MediaBuffer>& dst) {
    current().copyExtraTo(dst);
    return *this;
}

std::string OutputSlot::toString() {
    if (holder_.held) return holder_.held->toString();
    return "{\n\tform=slot, empty\n\twish=" + wish_->getFormat()->toString() + "\n}";
}

}  // namespace mivo::core
