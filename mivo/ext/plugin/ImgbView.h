// The _ZOCA_IMGB view of media buffers: how a framework buffer becomes the image library's
// descriptor record and back, and the registration of that view with BufferExtension.
#ifndef MIVO_EXT_PLUGIN_IMGBVIEW_H
#define MIVO_EXT_PLUGIN_IMGBVIEW_H

#include "mivo/core/buffer/BufferExtension.h"
#include "mivo/core/buffer/MediaBuffer.h"
#include "mivo/core/types/MediaFormat.h"

#include <zoca/zoca.h>

#include <memory>

namespace mivo::ext::detail {

// Descriptor colour format of a framework colour format; unknown ones end the process.
int toImgbColorFormat(int colorFormat);

// Descriptor colour space of a framework colour space (0 for the ones it does not know).
int toImgbColorSpace(int colorSpace);

// A buffer's format and pixel pointer described as a record. Odd sizes round up.
_ZOCA_IMGB imgbFromPixel(const MediaFormat& format, const core::detail::PixelPointer& pixels,
                         const std::shared_ptr<core::detail::BufferOption>& option);

// A record's planes as a pixel pointer: a plain address for the packed formats, a YCbCr
// plane description for the YUV ones.
core::detail::PixelPointer imgbToPixel(const MediaFormat& format, const _ZOCA_IMGB& image,
                                       const std::shared_ptr<core::detail::BufferOption>& option);

core::BufferExtension::Registry<_ZOCA_IMGB> makeImgbRegistry();

// Adds the view to the registry once per process; later calls return at once. Concurrent
// first callers wait until the first one is done. A failure leaves it for the next caller.
void registerImgbView();

}  // namespace mivo::ext::detail

#endif  // MIVO_EXT_PLUGIN_IMGBVIEW_H
