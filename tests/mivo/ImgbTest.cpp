// The descriptor conversion: plane geometry and addresses for every colour format and
// pixel pointer, the colour space table, the way back to a pixel pointer, and buffer memory
// that covers what a descriptor describes.
#include <gtest/gtest.h>

#include <malloc.h>
#include <algorithm>
#include <array>
#include <cstring>
#include <variant>

#include "BufferSupport.h"
#include "mivo/ext/plugin/ImgbView.h"

namespace mivo::test {
namespace {

using core::detail::CpuMediaBuffer;
using ext::detail::imgbFromPixel;
using ext::detail::imgbToPixel;

// Addresses are only carried, never read, so any value does.
constexpr uintptr_t kBase = 0x10000;

void* at(uintptr_t address) {
    return reinterpret_cast<void*>(address);
}

_ZOCA_IMGB fromPixel(const std::shared_ptr<MediaFormat>& format, const PixelPointer& pixels) {
    return imgbFromPixel(*format, pixels, nullptr);
}

// The descriptor of a buffer at kBase.
_ZOCA_IMGB atBase(const std::shared_ptr<MediaFormat>& format) {
    return fromPixel(format, PixelPointer(std::in_place_index<1>, at(kBase)));
}

bool allZero(const uint8_t* bytes, size_t n) {
    return std::all_of(bytes, bytes + n, [](uint8_t b) { return b == 0; });
}

struct PlaneCase {
    const char* name;
    int colorFormat, cols, rows;
    Extras extras;
    int imgbFormat;
    // Per plane in use; the scan-lines equal the heights.
    std::array<int, 3> width, height, stride;
    std::array<uintptr_t, 3> offset;  // from the buffer's address
};

void expectPlanes(const PlaneCase& c) {
    SCOPED_TRACE(c.name);
    const auto format = imageFormat(c.colorFormat, c.cols, c.rows, c.extras);
    const _ZOCA_IMGB image = atBase(format);
    // A pair's inner address counts, not its first one.
    const _ZOCA_IMGB paired =
        fromPixel(format, PixelPointer(std::in_place_index<3>, at(0x999), PixelAddress(at(kBase))));
    EXPECT_EQ(std::memcmp(paired.stride, image.stride, sizeof(image.stride)), 0);
    EXPECT_EQ(std::memcmp(paired.addr, image.addr, sizeof(image.addr)), 0);
    EXPECT_EQ(image.colorFormat, c.imgbFormat);
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        const bool used = i < 3 && c.width[i] != 0;
        EXPECT_EQ(image.width[i], used ? c.width[i] : 0);
        EXPECT_EQ(image.height[i], used ? c.height[i] : 0);
        EXPECT_EQ(image.scanlines[i], used ? c.height[i] : 0);
        EXPECT_EQ(image.stride[i], used ? c.stride[i] : 0);
        EXPECT_EQ(image.addr[i], used ? kBase + c.offset[i] : 0u);
    }
    EXPECT_EQ(image.startX, 0);
    EXPECT_EQ(image.startY, 0);
    EXPECT_EQ(image.colorSpace, 0);
    EXPECT_TRUE(allZero(image.reserved0, sizeof(image.reserved0)));
    EXPECT_TRUE(allZero(image.reserved1, sizeof(image.reserved1)));
}

// clang-format off
TEST(Imgb, PlaneGeometryAndAddressesFromAPlainAddress) {
    for (const PlaneCase& c : {
        PlaneCase{"nv12_1919x1081", COLOR_FORMAT_NV12, 1919, 1081, {}, 6,
              {1919, 960}, {1081, 541}, {1919, 1920}, {0, 2074439}},
        PlaneCase{"nv21_1x1", COLOR_FORMAT_NV21, 1, 1, {}, 7, {1, 1}, {1, 1}, {1, 2}, {0, 1}},
        PlaneCase{"nv12_even_stride_extra", COLOR_FORMAT_NV12, 1920, 1080, {{"stride", 2000}}, 6,
              {1920, 960}, {1080, 540}, {2000, 2000}, {0, 2160000}},
        PlaneCase{"nv12_odd_stride_extra", COLOR_FORMAT_NV12, 1920, 1080, {{"stride", 1999}}, 6,
              {1920, 960}, {1080, 540}, {1999, 2000}, {0, 2158920}},
        PlaneCase{"nv12_scanlines_extra_ignored", COLOR_FORMAT_NV12, 1920, 1080,
              {{"scan-lines", 1088}}, 6, {1920, 960}, {1080, 540}, {1920, 1920}, {0, 2073600}},
        PlaneCase{"nv21_odd_size_even_stride", COLOR_FORMAT_NV21, 33, 17, {{"stride", 34}}, 7,
              {33, 17}, {17, 9}, {34, 34}, {0, 578}},
        PlaneCase{"yuv420_1x1", COLOR_FORMAT_YUV420, 1, 1, {}, 1,
              {1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {0, 1, 2}},
        PlaneCase{"yuv420_odd_size_odd_stride", COLOR_FORMAT_YUV420, 33, 17, {{"stride", 35}}, 1,
              {33, 17, 17}, {17, 9, 9}, {35, 18, 18}, {0, 595, 757}},
        PlaneCase{"yuv420_scanlines_extra_ignored", COLOR_FORMAT_YUV420, 64, 32,
              {{"stride", 72}, {"scan-lines", 40}}, 1,
              {64, 32, 32}, {32, 16, 16}, {72, 36, 36}, {0, 2304, 2880}},
        PlaneCase{"rgb_odd", COLOR_FORMAT_RGB, 33, 17, {}, 400, {33}, {17}, {99}, {0}},
        PlaneCase{"rgb_stride_extra", COLOR_FORMAT_RGB, 500, 3, {{"stride", 1000}}, 400,
              {500}, {3}, {3000}, {0}},
        PlaneCase{"bgr_odd_stride_extra", COLOR_FORMAT_BGR, 7, 5, {{"stride", 9}}, 401,
              {7}, {5}, {27}, {0}},
        PlaneCase{"rgba_odd", COLOR_FORMAT_RGBA, 7, 5, {}, 500, {7}, {5}, {28}, {0}},
        PlaneCase{"bgra_odd_stride_extra", COLOR_FORMAT_BGRA, 7, 5, {{"stride", 9}}, 501,
              {7}, {5}, {36}, {0}},
        PlaneCase{"argb_1x1", COLOR_FORMAT_ARGB, 1, 1, {}, 502, {1}, {1}, {4}, {0}}}) {
        expectPlanes(c);
    }
}
// clang-format on

TEST(Imgb, ColorSpaceTableAppliesToEveryFormat) {
    const std::pair<int, int> spaces[] = {{2, 10}, {18, 10}, {3, 20},  {19, 20}, {5, 30},
                                          {33, 1}, {34, 11}, {35, 21}, {0, 0},   {1, 0},
                                          {4, 0},  {6, 0},   {17, 0},  {36, 0},  {-1, 0}};
    for (int colorFormat : {COLOR_FORMAT_NV12, COLOR_FORMAT_YUV420, COLOR_FORMAT_RGBA}) {
        for (const auto& [space, code] : spaces) {
            SCOPED_TRACE(testing::Message() << colorFormat << " " << space);
            EXPECT_EQ(atBase(imageFormat(colorFormat, 4, 4, {}, space)).colorSpace, code);
        }
    }
}

// Each 4:2:0 format with the line of its assertion for a pointer without an address.
const std::pair<int, int> kYuvFormats[] = {
    {COLOR_FORMAT_NV12, 251}, {COLOR_FORMAT_NV21, 281}, {COLOR_FORMAT_YUV420, 312}};

TEST(Imgb, UndescribableBuffersAssertAndMistypedStrideThrows) {
    for (int colorFormat : {0, 1, 2, 6, 7, 13, 100, 14, -1}) {
        SCOPED_TRACE(colorFormat);
        expectAssertion([&] { atBase(imageFormat(colorFormat, 4, 4)); },
                        {"!(! \"not implemented yet\")", "%s\nnot supported",
                         "ext/plugin/VexaPlugin[367] ASSERT(! \"not implemented yet\") failed."});
    }
    for (int colorFormat : {COLOR_FORMAT_NV12, COLOR_FORMAT_RGB}) {
        EXPECT_THROW(atBase(imageFormat(colorFormat, 4, 4, {{"stride", 4.0f}})),
                     std::bad_variant_access);
    }
    // A 4:2:0 pointer without an address asserts at its format's line.
    for (const auto& [colorFormat, line] : kYuvFormats) {
        SCOPED_TRACE(colorFormat);
        const auto format = imageFormat(colorFormat, 33, 17, {{"stride", 35}});
        const ExpectedAssertion expected{"!(!\"not supported yet\")", "%s\nnot supported",
                                         "ext/plugin/VexaPlugin[" + std::to_string(line) +
                                             "] ASSERT(!\"not supported yet\") failed."};
        expectAssertion([&] { fromPixel(format, PixelPointer{}); }, expected);
        expectAssertion([&] { fromPixel(format, valuelessPointer()); }, expected);
    }
}

TEST(Imgb, YuvPlaneDescriptionWinsOverTheFormatsStrides) {
    auto planes = std::make_shared<android_ycbcr>();
    planes->y = at(0x1000);
    planes->cb = at(0x2000);
    planes->cr = at(0x3000);
    planes->ystride = 64;
    planes->cstride = 48;
    planes->chroma_step = 5;  // not read
    const PixelPointer pointers[] = {
        PixelPointer(std::in_place_index<2>, planes),
        PixelPointer(std::in_place_index<3>, at(0x999), PixelAddress(planes)),
    };
    const long owners = planes.use_count();
    for (const auto& [colorFormat, line] : kYuvFormats) {
        const auto format = imageFormat(colorFormat, 33, 17, {{"stride", 35}});
        const bool planar = colorFormat == COLOR_FORMAT_YUV420;
        const bool crFirst = colorFormat == COLOR_FORMAT_NV21;
        for (const PixelPointer& pixels : pointers) {
            SCOPED_TRACE(testing::Message() << colorFormat << " " << pixels.index());
            const _ZOCA_IMGB image = fromPixel(format, pixels);
            EXPECT_EQ(image.stride[0], 64);
            EXPECT_EQ(image.stride[1], 48);
            EXPECT_EQ(image.stride[2], planar ? 48 : 0);
            EXPECT_EQ(image.addr[0], 0x1000u);
            EXPECT_EQ(image.addr[1], crFirst ? 0x3000u : 0x2000u);
            EXPECT_EQ(image.addr[2], planar ? 0x3000u : 0u);
            EXPECT_EQ(image.width[1], 17);
            EXPECT_EQ(image.height[1], 9);
            EXPECT_EQ(image.scanlines[0], 17);
        }
    }
    EXPECT_EQ(planes.use_count(), owners);  // held only while it was read
}

TEST(Imgb, PackedFormatsTakeWhateverAddressThePointerHolds) {
    auto planes = std::make_shared<android_ycbcr>();
    planes->y = at(0x1000);
    const std::pair<PixelPointer, uintptr_t> cases[] = {
        {PixelPointer{}, 0},
        {PixelPointer(std::in_place_index<1>, at(kBase)), kBase},
        // The description's own address, not its luma plane.
        {PixelPointer(std::in_place_index<2>, planes), reinterpret_cast<uintptr_t>(planes.get())},
        {PixelPointer(std::in_place_index<3>, at(0x999), PixelAddress(at(kBase))), kBase},
        {PixelPointer(std::in_place_index<3>, at(0x999), PixelAddress(planes)),
         reinterpret_cast<uintptr_t>(planes.get())},
    };
    for (int colorFormat : {COLOR_FORMAT_RGB, COLOR_FORMAT_ARGB}) {
        const auto format = imageFormat(colorFormat, 7, 5);
        for (const auto& [pixels, address] : cases) {
            SCOPED_TRACE(testing::Message() << colorFormat << " " << pixels.index());
            const _ZOCA_IMGB image = fromPixel(format, pixels);
            EXPECT_EQ(image.addr[0], address);
            EXPECT_EQ(image.addr[1], 0u);
            EXPECT_EQ(image.width[0], 7);
        }
        expectAssertion([&] { fromPixel(format, valuelessPointer()); }, kNotSupportedType);
    }
}

_ZOCA_IMGB record(int colorFormat) {
    _ZOCA_IMGB image{};
    image.colorFormat = colorFormat;
    for (int i = 0; i < 3; ++i) image.addr[i] = 0x1000 * (i + 1);
    image.stride[0] = 64;
    image.stride[1] = 66;
    image.stride[2] = 70;
    return image;
}

TEST(Imgb, ToPixel) {
    for (int code : {200, 400, 502}) {  // packed: the plain address
        const PixelPointer pixels = imgbToPixel(*imageFormat(0, 1, 1), record(code), nullptr);
        ASSERT_EQ(pixels.index(), 1u) << code;
        EXPECT_EQ(std::get<1>(pixels), at(0x1000));
    }
    struct Case {
        int code;
        uintptr_t cb, cr;
        size_t step;
    };
    for (const Case& c : {Case{6, 0x2000, 0x2001, 2}, Case{7, 0x2001, 0x2000, 2},
                          Case{1, 0x2000, 0x3000, 1}, Case{199, 0x2000, 0x3000, 1}}) {
        SCOPED_TRACE(c.code);
        const PixelPointer pixels = imgbToPixel(*imageFormat(0, 1, 1), record(c.code), nullptr);
        ASSERT_EQ(pixels.index(), 2u);
        const android_ycbcr& planes = *std::get<2>(pixels);
        EXPECT_EQ(planes.y, at(0x1000));
        EXPECT_EQ(planes.cb, at(c.cb));
        EXPECT_EQ(planes.cr, at(c.cr));
        EXPECT_EQ(planes.ystride, 64u);
        EXPECT_EQ(planes.cstride, 66u);
        EXPECT_EQ(planes.chroma_step, c.step);
        EXPECT_TRUE(
            allZero(reinterpret_cast<const uint8_t*>(planes.reserved), sizeof(planes.reserved)));
    }
}

// Every byte a buffer's descriptor describes lies inside the memory allocated for it.
TEST(Imgb, AllocatedMemoryCoversTheDescriptor) {
    for (int colorFormat : {COLOR_FORMAT_NV12, COLOR_FORMAT_NV21, COLOR_FORMAT_YUV420,
                            COLOR_FORMAT_RGB, COLOR_FORMAT_RGBA}) {
        for (const Extras& extras : {Extras{}, Extras{{"stride", 35}}, Extras{{"stride", 34}}}) {
            SCOPED_TRACE(testing::Message() << colorFormat << " " << extras.size());
            const auto format = imageFormat(colorFormat, 33, 17, extras);
            auto buffer = CpuMediaBuffer::allocateFor(format);
            const _ZOCA_IMGB image = fromPixel(format, buffer->getPixelPtr());
            const uintptr_t base = reinterpret_cast<uintptr_t>(buffer->data());
            for (int i = 0; i < 3 && image.width[i] != 0; ++i) {
                EXPECT_LE(
                    image.addr[i] - base + static_cast<size_t>(image.stride[i]) * image.height[i],
                    malloc_usable_size(buffer->data()))
                    << i;
            }
        }
    }
}

}  // namespace
}  // namespace mivo::test
