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

}  // namespace vexa
