// With the real liblog an assertion ends the process and leaves its message on stderr.
#include <gtest/gtest.h>

#include "mivo/core/types/ColorFormat.h"
#include "mivo/core/types/MediaFormat.h"
#include "mivo/ext/plugin/ImgbView.h"

namespace mivo {
namespace {

TEST(AssertDeathTest, UnknownColorFormatNameEndsTheProcess) {
    EXPECT_DEATH(getColorFormatName(14),
                 "core/types/ColorFormat\\[155\\] ASSERT\\(!\"not supported\"\\) failed\\.");
}

TEST(AssertDeathTest, ConvertingAFormatWithoutDescriptorEndsTheProcess) {
    const std::shared_ptr<MediaFormat> format = makeImageFormat(COLOR_FORMAT_P010, 4, 4)->freeze();
    static unsigned char pixels[64];
    EXPECT_DEATH(ext::detail::imgbFromPixel(
                     *format, core::detail::PixelPointer(std::in_place_index<1>, pixels), nullptr),
                 "ext/plugin/VexaPlugin\\[367\\] ASSERT\\(! \"not implemented yet\"\\) failed\\.");
}

}  // namespace
}  // namespace mivo
