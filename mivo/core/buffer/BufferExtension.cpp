#include "mivo/core/buffer/BufferExtension.h"

namespace mivo::core {

BufferExtension::BufferExtension() = default;
BufferExtension::~BufferExtension() = default;

}  // namespace mivo::core
