// Frame memory used again once a frame is done with it, so that a stream allocates and clears
// its buffers for the first few frames only, whatever its length.
#ifndef VEXA_BUFFERPOOL_H
#define VEXA_BUFFERPOOL_H

#include "mivo/core/buffer/MediaBuffer.h"

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace vexa {

// Buffers that own their memory, filed by a key that names their size. Shared by threads;
// buffers lent out may outlive the pool.
class BufferPool {
  public:
    BufferPool();

    // A free buffer filed under `key`, or null when every one is in use.
    std::shared_ptr<mivo::core::MediaBuffer> take(const std::string& key);

    // A buffer of `format` over the memory of `owner`, which goes back under `key` once the
    // last copy of the result is gone.
    std::shared_ptr<mivo::core::MediaBuffer> lend(std::shared_ptr<mivo::core::MediaBuffer> owner,
                                                  const std::string& key,
                                                  const std::shared_ptr<mivo::MediaFormat>& format);

  private:
    struct Shelves {
        std::mutex lock;
        std::unordered_map<std::string, std::vector<std::shared_ptr<mivo::core::MediaBuffer>>> free;
    };
    std::shared_ptr<Shelves> shelves_;
};

}  // namespace vexa

#endif  // VEXA_BUFFERPOOL_H
