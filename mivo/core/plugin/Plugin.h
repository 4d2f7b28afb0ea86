// The framework's plugin base: the request's option and an ordered list of processors.
#ifndef MIVO_CORE_PLUGIN_PLUGIN_H
#define MIVO_CORE_PLUGIN_PLUGIN_H

#include "mivo/Def.h"
#include "mivo/core/buffer/MediaBuffer.h"
#include "mivo/core/plugin/ImgpOption.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>

namespace mivo::core {

class MIVO_EXPORT Plugin {
  public:
    using Processor = std::function<int32_t(const std::shared_ptr<MediaBuffer>& in,
                                            std::shared_ptr<MediaBuffer>& out,
                                            const std::shared_ptr<ImgpOption>& option)>;

    virtual ~Plugin();
    virtual int32_t operator()(const std::shared_ptr<MediaBuffer>& in,
                               std::shared_ptr<MediaBuffer>& out) = 0;

    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

  protected:
    explicit Plugin(std::shared_ptr<ImgpOption> option) : option_(std::move(option)) {}

    // Members are released in reverse order: processors, then option, then handle.
    std::shared_ptr<void> handle_;  // reserved for the framework
    std::shared_ptr<ImgpOption> option_;
    std::list<Processor> processors_;
};

}  // namespace mivo::core

#endif  // MIVO_CORE_PLUGIN_PLUGIN_H
