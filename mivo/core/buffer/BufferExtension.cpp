#include "mivo/core/buffer/BufferExtension.h"

#include <cstdlib>

namespace mivo::core {

BufferExtension::BufferExtension() = default;
BufferExtension::~BufferExtension() = default;

namespace detail {

namespace {

[[noreturn]] void unsupportedPointer() {
    MIVO_ASSERT("core/buffer/BufferExtension", 256, !"not supported type");
    std::abort();
}

}  // namespace

void* innerAddress(const PixelPointer& pixels) {
    switch (pixels.index()) {
        case 0:
            return nullptr;
        case 1:
            return std::get<1>(pixels);
        case 2:
            return std::get<2>(pixels).get();
        case 3: {
            const PixelAddress& inner = std::get<3>(pixels).second;
            if (inner.index() == 0) return std::get<0>(inner);
            return std::get<1>(inner).get();  // any other index throws bad_variant_access
        }
        default:
            unsupportedPointer();
    }
}

void* outerAddress(const PixelPointer& pixels) {
    switch (pixels.index()) {
        case 1:
            return std::get<1>(pixels);
        case 2:
            return std::get<2>(pixels).get();
        case 3:
            return std::get<3>(pixels).first;
        default:
            unsupportedPointer();
    }
}

}  // namespace detail
}  // namespace mivo::core
