#include "mivo/core/plugin/Plugin.h"

namespace mivo::core {

Plugin::~Plugin() = default;

}  // namespace mivo::core
