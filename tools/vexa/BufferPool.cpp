#include "BufferPool.h"

namespace vexa {

using mivo::core::MediaBuffer;

BufferPool::BufferPool() : shelves_(std::make_shared<Shelves>()) {}

std::shared_ptr<MediaBuffer> BufferPool::take(const std::string& key) {
    std::lock_guard<std::mutex> guard(shelves_->lock);
    auto shelf = shelves_->free.find(key);
    if (shelf == shelves_->free.end() || shelf->second.empty()) return nullptr;
    std::shared_ptr<MediaBuffer> buffer = std::move(shelf->second.back());
    shelf->second.pop_back();
    return buffer;
}

std::shared_ptr<MediaBuffer> BufferPool::lend(std::shared_ptr<MediaBuffer> owner,
                                              const std::string& key,
                                              const std::shared_ptr<mivo::MediaFormat>& format) {
    auto view = mivo::core::detail::CpuMediaBuffer::wrap(
        format, static_cast<unsigned char*>(owner->getDirectData()));
    std::weak_ptr<Shelves> shelves = shelves_;
    return std::shared_ptr<MediaBuffer>(
        view.release(), [shelves, owner = std::move(owner), key](MediaBuffer* buffer) mutable {
            delete buffer;
            if (auto alive = shelves.lock()) {
                std::lock_guard<std::mutex> guard(alive->lock);
                alive->free[key].push_back(std::move(owner));
            }
        });
}

int32_t ReusingPlugin::operator()(const std::shared_ptr<MediaBuffer>& in,
                                  std::shared_ptr<MediaBuffer>& out) {
    mivo::ext::VexaPlugin& plugin = plugin_;
    if (!pool_ || !out->isMutable() || !out->isEmpty()) return plugin(in, out);
    // An empty slot presents the wish as its format.
    const std::shared_ptr<mivo::MediaFormat> wish = out->getFormat();
    const std::string step = in->getFormat()->toString() + "|" + wish->toString();
    mivo::core::PlaceHolder<MediaBuffer>& slot = *out;
    const auto known = known_.find(step);
    if (known != known_.end()) {
        if (std::shared_ptr<MediaBuffer> memory = pool_->take(known->second.key)) {
            std::shared_ptr<MediaBuffer> handed = mivo::core::detail::CpuMediaBuffer::wrap(
                known->second.handed, static_cast<unsigned char*>(memory->getDirectData()));
            const int32_t result = plugin(in, handed);
            slot.store(pool_->lend(std::move(memory), known->second.key, known->second.format));
            return result;
        }
    }
    const int32_t result = plugin(in, out);
    std::shared_ptr<MediaBuffer> made = slot.get();
    if (result != 0 || !made || !made->getDirectData()) return result;
    Known& output = known_[step];
    output.format = made->getFormat();
    output.key = output.format->toString();
    std::unique_ptr<mivo::MutableMediaFormat> handed = output.format->mutableCopy();
    handed->setRotation(wish->getRotation());
    for (const std::string& key : wish->getExtraKeys()) handed->setExtra(key, *wish->getExtra(key));
    output.handed = handed->freeze();
    slot.store(pool_->lend(std::move(made), output.key, output.format));
    return result;
}

}  // namespace vexa
