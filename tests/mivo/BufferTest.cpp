// The buffer model: geometry accessors, usage, extras, list and metadata queries, the text
// helpers and descriptions, the output slot and buffer memory.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numeric>
#include <variant>
#include <vector>

#include "BufferSupport.h"
#include "mivo/Def.h"
#include "mivo/core/buffer/OutputSlot.h"

namespace mivo::test {
namespace {

using core::MediaBuffer;
using core::OutputSlot;
using core::PlaceHolder;
using core::detail::BufferOption;
using core::detail::CpuMediaBuffer;

struct GeometryCase {
    const char* name;
    int colorFormat, cols, rows;
    Extras extras;
    int stride, scanlines, size;
    int dataType = DATA_TYPE_U8;
    int channels = -1;         // -1: the colour format's default
    float bytesPerPixel = -1;  // -1: the colour format's default
};

void expectGeometry(const GeometryCase& c) {
    SCOPED_TRACE(c.name);
    auto format = makeImageFormat(c.colorFormat, c.cols, c.rows);
    format->setDataType(c.dataType);
    if (c.channels >= 0) format->setChannels(c.channels);
    if (c.bytesPerPixel >= 0) format->setBytesPerPixel(c.bytesPerPixel);
    for (const auto& [key, value] : c.extras) format->setExtra(key, value);
    auto buffer = CpuMediaBuffer::wrap(freeze(*format), nullptr);
    EXPECT_EQ(buffer->getRows(), c.rows);
    EXPECT_EQ(buffer->getCols(), c.cols);
    EXPECT_EQ(buffer->getStride(), c.stride);
    EXPECT_EQ(buffer->getScanlines(), c.scanlines);
    EXPECT_EQ(buffer->getSize(), c.size);
}

class ReshapedBuffer : public PointerBuffer {
  public:
    using PointerBuffer::PointerBuffer;
    int getRows() const override { return 7; }
    int getCols() const override { return 5; }
};

// clang-format off
TEST(Buffer, StrideScanlinesAndSize) {
    for (const GeometryCase& c : {
    // The stride extra is in pixels; the stride is in elements.
    GeometryCase{"stride_extra_times_channels", COLOR_FORMAT_RGB, 1080, 4, {{"stride", 1920}},
                 5760, 4, 23040},
    {"rgba_odd_stride_extra", COLOR_FORMAT_RGBA, 7, 5, {{"stride", 9}}, 36, 5, 180},
    {"nv12_scanlines_extra", COLOR_FORMAT_NV12, 1920, 1080, {{"scan-lines", 1088}}, 1920, 1088, 3133440},
    // The extra wins even when it is below the rows.
    {"scanlines_extra_below_rows", COLOR_FORMAT_RGB, 4, 10, {{"scan-lines", 6}}, 12, 6, 72},
    {"nv12_odd_truncates", COLOR_FORMAT_NV12, 33, 17, {}, 33, 17, 841},
    // The product is rounded to float before the multiplication.
    {"nv12_float_product", COLOR_FORMAT_NV12, 4097, 4097, {}, 4097, 4097, 25178112},
    // Multi-plane formats ignore the element type.
    {"p010_bytes_per_pixel", COLOR_FORMAT_P010, 64, 2, {}, 64, 2, 384, 15},
    {"vendor_bytes_per_pixel", COLOR_FORMAT_VENDOR_SPECIFIED, 10, 10, {}, 10, 10, 200, DATA_TYPE_U8, 1, 2.0f},
    {"rgb_depth_0", COLOR_FORMAT_RGB, 33, 17, {}, 99, 17, 1683},
    {"gray_u16", COLOR_FORMAT_GRAY, 10, 3, {}, 10, 3, 60, DATA_TYPE_U16},
    {"rgba_f32", COLOR_FORMAT_RGBA, 5, 2, {}, 20, 2, 160, DATA_TYPE_F32},
    // Only the low four bits of the data type are the depth code.
    {"depth_in_low_bits", COLOR_FORMAT_GRAY, 10, 3, {}, 10, 3, 240, 0x1A},
    {"depth_11_has_no_size", COLOR_FORMAT_GRAY, 10, 3, {}, 10, 3, 0, 11},
    {"depth_15_has_no_size", COLOR_FORMAT_RGB, 10, 3, {}, 30, 3, 0, 15}}) {
        expectGeometry(c);
    }
    // Mistyped extras throw.
    auto floatStride =
        CpuMediaBuffer::wrap(imageFormat(COLOR_FORMAT_RGB, 8, 8, {{"stride", 8.0f}}), nullptr);
    EXPECT_THROW(floatStride->getSize(), std::bad_variant_access);
    auto textScanlines = CpuMediaBuffer::wrap(
        imageFormat(COLOR_FORMAT_NV12, 8, 8, {{"scan-lines", std::string("8")}}), nullptr);
    EXPECT_THROW(textScanlines->getScanlines(), std::bad_variant_access);
    // Without extras, stride and scan-lines follow the buffer's own rows and columns.
    ReshapedBuffer reshaped(imageFormat(COLOR_FORMAT_RGB, 100, 200), PixelPointer{});
    EXPECT_EQ(reshaped.getStride(), 15);
    EXPECT_EQ(reshaped.getScanlines(), 7);
}
// clang-format on

TEST(Format, SetShapeStoresAPrivateMutableCopy) {
    auto format = MutableMediaFormat::create();
    auto shape = std::make_shared<Shape>(3, 4, 2);
    format->setShape(std::shared_ptr<Shape>(shape));
    EXPECT_EQ(shape.use_count(), 1);  // the shape passed in is not kept
    EXPECT_NE(format->getShape(), shape);
    EXPECT_EQ(format->getRows(), 3);
    EXPECT_EQ(format->getCols(), 4);
    EXPECT_EQ(format->getChannels(), 2);
    // A new colour format brings its layout along.
    format->setColorFormat(COLOR_FORMAT_NV12);
    EXPECT_EQ(format->getChannels(), 1);
    EXPECT_EQ(format->getBytesPerPixel(), 1.5f);
}

TEST(Buffer, UsageIsTheFirstOrThirdAlternativeUnderKeyOne) {
    auto usageOf = [](std::shared_ptr<BufferOption> option) {
        CpuMediaBuffer buffer(MediaBuffer::FORM_SINGLE, MEDIA_BUFFER_TYPE_GENERIC,
                              imageFormat(COLOR_FORMAT_RGB, 2, 2), false, option);
        return buffer.getUsage();
    };
    auto with = [](int32_t key, core::detail::BufferOptionValue value) {
        auto option = std::make_shared<BufferOption>();
        option->set(key, std::move(value));
        return option;
    };
    EXPECT_EQ(usageOf(std::make_shared<BufferOption>()), 0);
    EXPECT_EQ(usageOf(with(2, int32_t{7})), 0);
    EXPECT_EQ(usageOf(with(1, int32_t{7})), 7);
    EXPECT_EQ(usageOf(with(1, uint32_t{0x80000001u})), static_cast<int>(0x80000001u));
    EXPECT_THROW(usageOf(with(1, true)), std::bad_variant_access);
    EXPECT_THROW(usageOf(with(1, int64_t{7})), std::bad_variant_access);
}

// A destination that reports a key its map does not hold.
class ClaimingBuffer : public PointerBuffer {
  public:
    using PointerBuffer::PointerBuffer;
    std::optional<ExtraValue> getExtra(const std::string& key) override {
        if (key == "claimed") return ExtraValue(0);
        return PointerBuffer::getExtra(key);
    }
};

// Set overwrites any alternative and get copies; copyExtraTo keeps the destination's values.
TEST(Extras, SetGetAndCopyKeepingTheDestinationsValues) {
    auto buffer = CpuMediaBuffer::wrap(imageFormat(COLOR_FORMAT_RGB, 2, 2), nullptr);
    EXPECT_FALSE(buffer->getExtra("k").has_value());
    EXPECT_FALSE(buffer->containsExtra("k"));  // the lookup did not insert it

    MediaBuffer& self = buffer->setExtra("k", true);
    EXPECT_EQ(&self, buffer.get());
    buffer->setExtra("k", 5);
    auto value = buffer->getExtra("k");
    ASSERT_TRUE(value.has_value());
    ASSERT_EQ(value->index(), 3u);
    EXPECT_EQ(std::get<int>(*value), 5);

    auto src = CpuMediaBuffer::wrap(imageFormat(COLOR_FORMAT_RGB, 2, 2), nullptr);
    src->setExtra("both", 1).setExtra("src-only", std::string("s")).setExtra("claimed", 2);
    auto dst =
        std::make_shared<ClaimingBuffer>(imageFormat(COLOR_FORMAT_RGB, 2, 2), PixelPointer{});
    dst->setExtra("both", 9).setExtra("dst-only", false);

    EXPECT_EQ(&src->copyExtraTo(dst), src.get());
    EXPECT_EQ(std::get<int>(*dst->getExtra("both")), 9);
    EXPECT_EQ(std::get<std::string>(*dst->getExtra("src-only")), "s");
    EXPECT_FALSE(std::get<bool>(*dst->getExtra("dst-only")));
    // The destination answered for "claimed" itself, so nothing was set there.
    EXPECT_FALSE(dst->containsExtra("claimed"));
    // The source is unchanged.
    EXPECT_FALSE(src->containsExtra("dst-only"));
    EXPECT_EQ(std::get<int>(*src->getExtra("both")), 1);
}

std::shared_ptr<MediaBuffer> member(int kind, const Extras& extras = {}) {
    auto format = makeImageFormat(COLOR_FORMAT_GRAY, 1, 1);
    format->setKind(kind);
    for (const auto& [key, value] : extras) format->setExtra(key, value);
    return CpuMediaBuffer::wrap(freeze(*format), nullptr);
}

// Several members behind one buffer.
class BundleBuffer : public PointerBuffer {
  public:
    BundleBuffer(std::vector<std::shared_ptr<MediaBuffer>> members)
        : PointerBuffer(imageFormat(COLOR_FORMAT_GRAY, 1, 1), PixelPointer{}),
          members_(std::move(members)) {}
    std::vector<std::shared_ptr<MediaBuffer>> asList() override { return members_; }

  private:
    std::vector<std::shared_ptr<MediaBuffer>> members_;
};

// A plain buffer is a list of itself; the queries walk the list in order.
TEST(Metadata, QueriesWalkTheListInOrder) {
    auto image = member(MEDIA_KIND_IMAGE, {{"icc", true}});
    auto exif1 = member(MEDIA_KIND_METADATA, {{"exif", true}});
    auto icc = member(MEDIA_KIND_METADATA, {{"icc", true}});
    auto exif2 = member(MEDIA_KIND_METADATA, {{"exif", true}, {"icc", true}});
    auto unknown = member(MEDIA_KIND_UNKNOWN, {{"exif", true}});
    auto bundle = std::make_shared<BundleBuffer>(
        std::vector<std::shared_ptr<MediaBuffer>>{unknown, image, exif1, icc, exif2});

    EXPECT_EQ(bundle->getMetadataBuffers(),
              (std::vector<std::shared_ptr<MediaBuffer>>{exif1, icc, exif2}));
    EXPECT_EQ(bundle->getExifBuffer(), exif1);
    EXPECT_EQ(bundle->getIccBuffer(), icc);

    EXPECT_EQ(image->asList(), std::vector<std::shared_ptr<MediaBuffer>>{image});
    EXPECT_TRUE(image->getMetadataBuffers().empty());
    EXPECT_EQ(image->getIccBuffer(), nullptr);
    EXPECT_EQ(exif1->getMetadataBuffers(), std::vector<std::shared_ptr<MediaBuffer>>{exif1});
    EXPECT_EQ(exif1->getExifBuffer(), exif1);
    EXPECT_EQ(exif1->getIccBuffer(), nullptr);
}

std::string pointerText(const void* p) {
    char text[64];
    std::snprintf(text, sizeof(text), "%p", p);
    return text;
}

TEST(Text, FormatAndJoin) {
    EXPECT_EQ(format("form=%s, type=%s", "a", "b"), "form=a, type=b");
    int object = 0;
    EXPECT_EQ(format("data=%p", static_cast<void*>(&object)), "data=" + pointerText(&object));
    EXPECT_EQ(format(""), "");
    EXPECT_EQ(join("\n\t", std::string("only")), "only");
    const char* pointer = "p";
    char array[] = "arr";
    EXPECT_EQ(join(", ", std::string("s"), 'c', pointer, array), "s, c, p, arr");
    EXPECT_EQ(join("", "x", "y"), "xy");
    // A field width past INT_MAX: snprintf reports -1.
    expectAssertion([] { format("%2147483648d", 1); }, {"!(size > 0)", "%s\nerror on format string",
                                                        "Def[156] ASSERT(size > 0) failed."});
}

TEST(Text, GenericBufferDescription) {
    auto format = imageFormat(COLOR_FORMAT_NV12, 4, 2, {{"b", true}, {"a", 2.5f}}, 3);
    auto buffer = CpuMediaBuffer::wrap(format, nullptr);
    const std::string head =
        "{\n\tform=single, type=generic\n\tformat={kind=image, type=0, "
        "shape=[2, 4, 1], color=nv12(3), space=3, rotation=0, bpp=1.5, "
        "extras={a=2.5, b=true}}\n\textra=";
    EXPECT_EQ(buffer->toString(), head + "{}\n\tdata=" + pointerText(nullptr) + "\n}");

    unsigned char pixels[12] = {};
    auto withData = CpuMediaBuffer::wrap(format, pixels);
    withData->setExtra("a", 1).setExtra("b", std::string("value not printed"));
    const std::string text = withData->toString();
    const std::string tail = "\n\tdata=" + pointerText(pixels) + "\n}";
    EXPECT_TRUE(text == head + "{ a b}" + tail || text == head + "{ b a}" + tail) << text;
    EXPECT_EQ(PointerBuffer(format, {}, MEDIA_BUFFER_TYPE_ZOCA_IMGB).getTypeString(),
              std::make_pair(std::string("single"), std::string("zoca-imgb")));
}

// Records what the slot was given.
struct RecordingHolder : PlaceHolder<MediaBuffer> {
    void store(std::shared_ptr<MediaBuffer> value) override {
        ++stores;
        held = std::move(value);
    }
    std::shared_ptr<MediaBuffer> get() const override { return held; }
    int stores = 0;
    std::shared_ptr<MediaBuffer> held;
};

TEST(PlaceHolder, PutSharesTheBufferAndSetsItsSelfReference) {
    RecordingHolder holder;
    std::unique_ptr<MediaBuffer> buffer =
        CpuMediaBuffer::wrap(imageFormat(COLOR_FORMAT_RGB, 2, 2), nullptr);
    MediaBuffer* raw = buffer.get();
    holder.put(std::move(buffer));
    EXPECT_EQ(buffer, nullptr);
    ASSERT_EQ(holder.stores, 1);
    EXPECT_EQ(holder.held.get(), raw);
    EXPECT_EQ(holder.held.use_count(), 1);
    EXPECT_EQ(raw->asList(), std::vector<std::shared_ptr<MediaBuffer>>{holder.held});

    std::unique_ptr<MediaBuffer> none;
    holder.put(std::move(none));
    EXPECT_EQ(holder.stores, 2);
    EXPECT_EQ(holder.held, nullptr);
}

TEST(PixelPointer, DataPtrPerAlternative) {
    int outer = 0, inner = 0;
    auto planes = std::make_shared<android_ycbcr>();
    auto format = imageFormat(COLOR_FORMAT_NV12, 2, 2);
    auto dataPtr = [&](PixelPointer pixels) {
        return PointerBuffer(format, std::move(pixels)).getDataPtr();
    };
    EXPECT_EQ(dataPtr(PixelPointer{}), nullptr);
    EXPECT_EQ(dataPtr(PixelPointer(std::in_place_index<1>, &outer)), &outer);
    EXPECT_EQ(dataPtr(PixelPointer(std::in_place_index<2>, planes)), planes.get());
    // For a pair, the inner address.
    EXPECT_EQ(dataPtr(PixelPointer(std::in_place_index<3>, &outer, PixelAddress(&inner))), &inner);
    EXPECT_EQ(dataPtr(PixelPointer(std::in_place_index<3>, &outer, PixelAddress(planes))),
              planes.get());
    expectAssertion([&] { dataPtr(valuelessPointer()); }, kNotSupportedType);

    auto empty = CpuMediaBuffer::wrap(format, nullptr);
    const PixelPointer pixels = empty->getPixelPtr();
    ASSERT_EQ(pixels.index(), 1u);
    EXPECT_EQ(std::get<1>(pixels), nullptr);
    EXPECT_EQ(empty->getDataPtr(), nullptr);
    EXPECT_TRUE(empty->isEmpty());
    EXPECT_FALSE(empty->isNotEmpty());
}

TEST(ColorFormat, NamesAndUnknownCodes) {
    const std::pair<int, const char*> names[] = {
        {0, "n/a"},    {1, "opaque"}, {2, "gray"},        {3, "nv12"},  {4, "nv21"},
        {5, "yuv420"}, {6, "p010"},   {7, "p010_zipped"}, {8, "rgb"},   {9, "rgba"},
        {10, "argb"},  {11, "bgr"},   {12, "bgra"},       {13, "abgr"}, {100, "vendor_specified"}};
    for (const auto& [code, name] : names) EXPECT_STREQ(getColorFormatName(code), name) << code;
    for (int code : {-1, 14, 99, 101}) {
        SCOPED_TRACE(code);
        expectAssertion([code] { getColorFormatName(code); },
                        {"!(!\"not supported\")", "%s\nnot supported",
                         "core/types/ColorFormat[155] ASSERT(!\"not supported\") failed."});
    }
}

TEST(OutputSlot, OnlyASlotIsMutableAndPresentsTheBufferPutIntoIt) {
    auto buffer = CpuMediaBuffer::wrap(imageFormat(COLOR_FORMAT_RGB, 2, 2), nullptr);
    EXPECT_FALSE(buffer->isMutable());
    expectAssertion([&] { (void)static_cast<PlaceHolder<MediaBuffer>&>(*buffer); },
                    {"!(!\"not supported\")", "%s\nnot supported",
                     "core/buffer/MediaBuffer[228] ASSERT(!\"not supported\") failed."});

    auto wish = imageFormat(COLOR_FORMAT_RGBA, 6, 4, {{"stride", 8}});
    std::shared_ptr<MediaBuffer> slot = OutputSlot::create(wish);
    EXPECT_TRUE(slot->isMutable());
    EXPECT_TRUE(slot->isEmpty());
    EXPECT_EQ(slot->getStride(), 32);  // the wished format's

    PlaceHolder<MediaBuffer>& holder = *slot;
    EXPECT_EQ(&holder, &static_cast<PlaceHolder<MediaBuffer>&>(*slot));
    EXPECT_EQ(holder.get(), nullptr);

    auto output = CpuMediaBuffer::allocateFor(slot->getFormat());
    unsigned char* data = output->data();
    holder.put(std::move(output));
    EXPECT_TRUE(slot->isMutable());
    EXPECT_FALSE(slot->isEmpty());
    EXPECT_EQ(slot->getDataPtr(), data);
    EXPECT_EQ(slot->asList(), std::vector<std::shared_ptr<MediaBuffer>>{holder.get()});
    EXPECT_EQ(slot->getSize(), 128);
}

TEST(Memory, AllocatedBuffersAreAlignedZeroedAndOwned) {
    for (int colorFormat : {COLOR_FORMAT_NV12, COLOR_FORMAT_YUV420, COLOR_FORMAT_RGB}) {
        SCOPED_TRACE(colorFormat);
        auto format = imageFormat(colorFormat, 33, 17, {{"stride", 35}});
        // The allocator hands out dirty bytes (fresh pages would be zero by themselves).
        mallopt(M_PERTURB, 0x5A);
        auto buffer = CpuMediaBuffer::allocateFor(format);
        mallopt(M_PERTURB, 0);
        EXPECT_TRUE(buffer->isOwned());
        EXPECT_EQ(buffer->getType(), MEDIA_BUFFER_TYPE_GENERIC);
        EXPECT_EQ(buffer->getForm(), MediaBuffer::FORM_SINGLE);
        ASSERT_TRUE(buffer->isNotEmpty());
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer->data()) % 64, 0u);
        // Reading the whole size is in bounds under the address sanitizer.
        const int size = buffer->getSize();
        int nonZero = 0;
        for (int i = 0; i < size; ++i) nonZero += buffer->data()[i] != 0;
        EXPECT_EQ(nonZero, 0);
    }
}

// The slot a virtual member occupies, from its member pointer: under the Itanium C++ ABI a
// virtual member's pointer holds 1 + its byte offset in the vtable.
template <typename... Members>
std::vector<std::ptrdiff_t> slots(Members... members) {
    std::vector<std::ptrdiff_t> result;
    for (std::ptrdiff_t word : {reinterpret_cast<const std::ptrdiff_t&>(members)...}) {
        result.push_back(word & 1 ? (word - 1) / std::ptrdiff_t(sizeof(void*)) : -1);
    }
    return result;
}

std::vector<std::ptrdiff_t> count(std::ptrdiff_t from, std::ptrdiff_t to) {
    std::vector<std::ptrdiff_t> values(to - from + 1);
    std::iota(values.begin(), values.end(), from);
    return values;
}

// The framework calls through these slots and reads these fields of objects a plugin builds.
TEST(Abi, VirtualSlotsInTheFrameworksOrder) {
    using B = MediaBuffer;
    std::vector<std::ptrdiff_t> buffer = count(0, 24);
    buffer.push_back(27);  // getOption, after the two destructor slots
    EXPECT_EQ(slots(&B::getFormat, &B::getRows, &B::getCols, &B::getChannels, &B::getStride,
                    &B::getScanlines, &B::getSize, &B::getUsage, &B::asList, &B::getMetadataBuffers,
                    &B::getExifBuffer, &B::getIccBuffer, &B::isEmpty, &B::isNotEmpty, &B::getType,
                    &B::getPixelPtr, &B::getDataPtr, &B::getDirectData, &B::containsExtra,
                    &B::getExtra, &B::setExtra, &B::copyExtraTo, &B::isMutable,
                    &B::operator PlaceHolder<MediaBuffer>&, &B::toString, &B::getOption),
              buffer);

    using F = MediaFormat;
    using M = MutableMediaFormat;
    EXPECT_EQ(slots(&F::getKind, &F::getDataType, &F::getShape, &F::getRows, &F::getCols,
                    &F::getChannels, &F::getColorFormat, &F::getColorSpace, &F::getRotation,
                    &F::getBytesPerPixel, &F::containsExtra, &F::getExtra, &F::getExtraKeys,
                    &F::freeze, &F::mutableCopy, &F::toString),
              count(0, 15));
    // The destructor's two slots follow the queries; then the setters.
    EXPECT_EQ(slots(static_cast<M& (M::*)(std::shared_ptr<MutableShape>)>(&M::setShape),
                    &M::setRows, &M::setCols, &M::setColorFormat, &M::setColorSpace, &M::setExtra),
              count(18, 23));

    EXPECT_EQ(slots(&PlaceHolder<MediaBuffer>::store, &PlaceHolder<MediaBuffer>::get), count(2, 3));
}

template <typename T>
T fieldAt(const void* object, size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const unsigned char*>(object) + offset, sizeof(T));
    return value;
}

TEST(Abi, FieldOffsetsOfRealBuffers) {
    auto format = imageFormat(COLOR_FORMAT_RGB, 2, 2);
    auto option = std::make_shared<BufferOption>();
    auto buffer = std::make_shared<CpuMediaBuffer>(
        MediaBuffer::FORM_SLOT, MEDIA_BUFFER_TYPE_ZOCA_IMGB, format, true, option);
    buffer->setExtra("a", 1);
    const void* object = static_cast<const MediaBuffer*>(buffer.get());
    EXPECT_EQ(fieldAt<const void*>(object, 8), object);  // the weak self-reference
    EXPECT_EQ(fieldAt<int32_t>(object, 24), MediaBuffer::FORM_SLOT);
    EXPECT_EQ(fieldAt<int32_t>(object, 28), MEDIA_BUFFER_TYPE_ZOCA_IMGB);
    EXPECT_EQ(fieldAt<int32_t>(object, 32), 1);  // owned
    EXPECT_EQ(fieldAt<const void*>(object, 40), format.get());
    EXPECT_EQ(fieldAt<int32_t>(object, 56), -1);  // stride override
    EXPECT_EQ(fieldAt<int32_t>(object, 60), -1);  // scan-lines override
    EXPECT_EQ(fieldAt<const void*>(object, 64), option.get());
    EXPECT_EQ(fieldAt<size_t>(object, 80 + 24), 1u);  // the extras map's element count
    EXPECT_EQ(sizeof(core::detail::MediaBufferBase), 136u);

    unsigned char pixels[12];
    auto wrapped = CpuMediaBuffer::wrap(format, pixels);
    EXPECT_EQ(fieldAt<const void*>(static_cast<MediaBuffer*>(wrapped.get()), 136), pixels);
    EXPECT_EQ(sizeof(CpuMediaBuffer), 144u);
}

}  // namespace
}  // namespace mivo::test
