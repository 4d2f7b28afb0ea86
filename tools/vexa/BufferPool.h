// Frame memory used again once a frame is done with it, so that a stream allocates and clears
// its buffers for the first few frames only, whatever its length.
#ifndef VEXA_BUFFERPOOL_H
#define VEXA_BUFFERPOOL_H

#include "mivo/core/buffer/MediaBuffer.h"
#include "mivo/ext/plugin/VexaPlugin.h"

#include <initializer_list>
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

// The plugin, putting outputs into free memory of a pool once it has made one of their kind.
// The plugin fills a buffer handed to it as it stands, and given the same input format and
// wish it makes the same output format; so after the first frame of a stream, the output can
// be a free buffer of that format. The plugin reads the rotation and the extras (rectangle,
// mirror, dithering) of the buffer it is handed, so those come from the wish.
class ReusingPlugin {
  public:
    ReusingPlugin(std::shared_ptr<mivo::core::ImgpOption> option,
                  std::initializer_list<mivo::ext::Operation> operations)
        : plugin_(std::move(option), operations) {}

    // Without a pool, every output is new memory.
    void reuse(std::shared_ptr<BufferPool> pool) { pool_ = std::move(pool); }

    // As the plugin's own; an empty output slot receives memory that goes back to the pool
    // once the output is dropped.
    int32_t operator()(const std::shared_ptr<mivo::core::MediaBuffer>& in,
                       std::shared_ptr<mivo::core::MediaBuffer>& out);

  private:
    // An output made before: its format, the format it is handed with, its memory's key.
    struct Known {
        std::shared_ptr<mivo::MediaFormat> format;
        std::shared_ptr<mivo::MediaFormat> handed;
        std::string key;
    };

    mivo::ext::VexaPlugin plugin_;
    std::shared_ptr<BufferPool> pool_;
    std::unordered_map<std::string, Known> known_;
};

}  // namespace vexa

#endif  // VEXA_BUFFERPOOL_H
