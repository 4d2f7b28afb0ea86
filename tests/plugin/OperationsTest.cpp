// What each operation allocates and exactly what it hands the image library.
#include "PluginTestSupport.h"

#include <climits>
#include <optional>
#include <string>
#include <variant>

namespace mivo::test {
namespace {

using Operation = int32_t (*)(const MediaBuffer&, MediaBuffer&, const std::shared_ptr<ImgpOption>&);

class OperationTest : public PluginTest {
  protected:
    // Runs `op` and expects one call of `function` whose records are the untouched
    // descriptors of `in` and of whatever `out` holds afterwards.
    // With `colorSpace`, both records are expected to carry it instead.
    ZocaCall runPlain(Operation op, const MediaBuffer& in, MediaBuffer& out, const char* function,
                      const std::shared_ptr<ImgpOption>& option = nullptr,
                      std::optional<int> colorSpace = std::nullopt) {
        op(in, out, option);
        ZocaCall call = onlyCall();
        EXPECT_EQ(call.function, function);
        _ZOCA_IMGB src = describe(in);
        _ZOCA_IMGB dst = describe(out);
        if (colorSpace) src.colorSpace = dst.colorSpace = *colorSpace;
        EXPECT_TRUE(sameBytes(call.src, src));
        EXPECT_TRUE(sameBytes(call.dst, dst));
        return call;
    }
};

std::shared_ptr<ImgpOption> optionWith(int id, core::ImgpOptionValue value) {
    auto option = std::make_shared<ImgpOption>();
    option->set(id, std::move(value));
    return option;
}

// ---------------------------------------------------------------- every operation

struct Named {
    const char* name;
    Operation op;
    const char* function;  // nullptr: computed by the plugin
};

const Named kOperations[] = {
    {"rsz", &Plugin::rsz, "vexa_rsz"},
    {"rszPd", &Plugin::rszPd, nullptr},
    {"csc", &Plugin::csc, "vexa_rsz"},  // same colour format on both sides
    {"rot", &Plugin::rot, "vexa_rot"},
    {"rszCsc", &Plugin::rszCsc, "vexa_rsz"},
    {"rszRot", &Plugin::rszRot, "vexa_rsz_rot"},
    {"cscRot", &Plugin::cscRot, "vexa_csc_rot"},
    {"crop", &Plugin::crop, "vexa_crop"},
    {"cgc", &Plugin::cgc, "vexa_cgc"},
    {"hdrToSdr", &Plugin::hdrToSdr, "vexa_hdr_to_sdr"},
};

// An output that is immutable, or mutable but already holding memory, is used as it stands.
// An empty one is allocated, keeps the library's result and stays even when that fails.
TEST_F(OperationTest, OnlyEmptyMutableOutputsAreAllocated) {
    const Buffer in = picture(imageFormat(COLOR_FORMAT_NV12, 64, 48, 2));
    const auto given = imageFormat(COLOR_FORMAT_NV12, 40, 30, 33, [](MutableMediaFormat& f) {
        f.setRotation(90);
        f.setExtra(extra::kCropRect, android::Rect(2, 2, 22, 12));
    });
    for (const Named& named : kOperations) {
        SCOPED_TRACE(named.name);
        const Buffer immutable = picture(given);
        const Buffer filled = emptySlot(imageFormat(COLOR_FORMAT_RGBA, 8, 8));
        static_cast<core::PlaceHolder<MediaBuffer>&>(*filled).put(
            CpuMediaBuffer::allocateFor(given));
        const Buffer inside = held(filled);
        for (const Buffer& out : {immutable, filled}) {
            const _ZOCA_IMGB before = describe(*out);
            EXPECT_EQ(named.op(*in, *out, nullptr), 0);
            std::vector<ZocaCall> calls = takeZocaCalls();
            if (!named.function) {
                EXPECT_TRUE(calls.empty());
                continue;
            }
            ASSERT_EQ(calls.size(), 1u);
            EXPECT_EQ(calls[0].function, named.function);
            EXPECT_EQ(calls[0].dst.width[0], 40);
            EXPECT_EQ(calls[0].dst.height[0], 30);
            EXPECT_EQ(calls[0].dst.colorSpace, ZOCA_CS_BT601_FULL);
            EXPECT_EQ(calls[0].dst.addr[0], before.addr[0]);
        }
        EXPECT_EQ(held(filled), inside);
        if (!named.function) continue;
        const Buffer fresh =
            emptySlot(imageFormat(COLOR_FORMAT_NV12, 32, 24, 0,
                                  withExtra(extra::kCropRect, android::Rect(0, 0, 16, 16))));
        scriptZocaResults({-2});
        EXPECT_EQ(named.op(*in, *fresh, nullptr), -2);
        takeZocaCalls();
        EXPECT_NE(held(fresh), nullptr);
    }
}

// ---------------------------------------------------------------- shapes

bool hasDescriptor(int colorFormat) {
    return colorFormat != COLOR_FORMAT_P010 && colorFormat != COLOR_FORMAT_P010_ZIPPED &&
           colorFormat != COLOR_FORMAT_VENDOR_SPECIFIED;
}

// p010 and vendor-specific inputs come as ready records; describing the new output then
// fails, after the allocation.
Buffer inputOf(int colorFormat, int cols, int rows) {
    const auto format = imageFormat(colorFormat, cols, rows);
    if (hasDescriptor(colorFormat)) return picture(format);
    _ZOCA_IMGB record{};
    record.width[0] = cols;
    record.height[0] = rows;
    return std::make_shared<RecordBuffer>(format, record);
}

void runExpectingNoDescriptor(Operation op, const MediaBuffer& in, MediaBuffer& out, int cf) {
    if (hasDescriptor(cf)) {
        op(in, out, nullptr);
    } else {
        EXPECT_THROW(op(in, out, nullptr), AssertionFailure);
    }
}

// rsz takes the wished size, crop the rectangle's; the 4:2:0 codes are made even, and crop's
// origin stays unrounded.
TEST_F(OperationTest, RszAndCropMakeSizesEvenFor420) {
    const android::Rect rect(10, 7, 651, 486);  // 641 x 479
    const auto wish =
        imageFormat(COLOR_FORMAT_GRAY, 641, 479, 0, withExtra(extra::kCropRect, rect));
    const std::pair<int, bool> formats[] = {
        {COLOR_FORMAT_NV12, true},        {COLOR_FORMAT_NV21, true},
        {COLOR_FORMAT_YUV420, true},      {COLOR_FORMAT_P010, true},
        {COLOR_FORMAT_P010_ZIPPED, true}, {COLOR_FORMAT_VENDOR_SPECIFIED, true},
        {COLOR_FORMAT_RGB, false},        {COLOR_FORMAT_RGBA, false},
        {COLOR_FORMAT_ARGB, false},       {COLOR_FORMAT_BGR, false},
        {COLOR_FORMAT_BGRA, false},
    };
    for (const auto& [cf, even] : formats) {
        for (const bool cropping : {false, true}) {
            SCOPED_TRACE(std::to_string(cf) + (cropping ? " crop" : " rsz"));
            const Buffer in = inputOf(cf, 1280, 720);
            const Buffer out = emptySlot(wish);
            runExpectingNoDescriptor(cropping ? &Plugin::crop : &Plugin::rsz, *in, *out, cf);
            ASSERT_TRUE(hasShape(held(out), even ? 640 : 641, even ? 478 : 479, cf));
            if (!hasDescriptor(cf)) continue;
            const ZocaCall call = onlyCall();
            EXPECT_EQ(call.function, cropping ? "vexa_crop" : "vexa_rsz");
            _ZOCA_IMGB src = describe(*in);
            if (cropping) src.startX = 10, src.startY = 7;
            EXPECT_TRUE(sameBytes(call.src, src));
            EXPECT_TRUE(sameBytes(call.dst, describe(*held(out))));
        }
    }
}

TEST_F(OperationTest, CropWithoutRectangleAssertsBeforeDescribingTheOutput) {
    const Buffer in = picture(imageFormat(COLOR_FORMAT_NV12, 64, 48));
    const Buffer out = emptySlot(imageFormat(COLOR_FORMAT_NV12, 32, 24));
    expectAssertion([&] { Plugin::crop(*in, *out, nullptr); },
                    {"!(cropInfo.has_value())", "%s\n",
                     "ext/plugin/VexaPlugin[991] ASSERT(cropInfo.has_value()) failed."});
    EXPECT_EQ(held(out), nullptr);
    EXPECT_TRUE(takeZocaCalls().empty());
}

// Whole-shape copies: no rounding, the input's colour format and colour space.
TEST_F(OperationTest, RotatingOperationsSwapFor90And270WithoutRounding) {
    struct Rotating {
        const char* name;
        Operation op;
        const char* function;
        bool wishedShape;  // takes the wish's shape before swapping (else the input's)
        bool wishedColor;  // takes the wish's colour format (else the input's)
    };
    const Rotating rotating[] = {
        {"rot", &Plugin::rot, "vexa_rot", false, false},
        {"rszRot", &Plugin::rszRot, "vexa_rsz_rot", true, false},
        {"cscRot", &Plugin::cscRot, "vexa_csc_rot", false, true},
    };
    const std::pair<int, int> codes[] = {
        {90, ZOCA_ROT_90},    {270, ZOCA_ROT_270},  {180, ZOCA_ROT_180}, {0, ZOCA_ROT_NONE},
        {360, ZOCA_ROT_NONE}, {-90, ZOCA_ROT_NONE}, {45, ZOCA_ROT_NONE}, {450, ZOCA_ROT_NONE}};
    const Buffer in = picture(imageFormat(COLOR_FORMAT_NV12, 31, 17));
    for (const Rotating& r : rotating) {
        for (const auto& [degrees, code] : codes) {
            SCOPED_TRACE(std::string(r.name) + " " + std::to_string(degrees));
            const Buffer out =
                emptySlot(imageFormat(COLOR_FORMAT_RGBA, 13, 7, 0,
                                      [d = degrees](MutableMediaFormat& f) { f.setRotation(d); }));
            EXPECT_EQ(runPlain(r.op, *in, *out, r.function).argument, code);
            const int cols = r.wishedShape ? 13 : 31;
            const int rows = r.wishedShape ? 7 : 17;
            const bool swaps = degrees == 90 || degrees == 270;
            EXPECT_TRUE(hasShape(held(out), swaps ? rows : cols, swaps ? cols : rows,
                                 r.wishedColor ? COLOR_FORMAT_RGBA : COLOR_FORMAT_NV12));
        }
    }
    // An existing output supplies the angle.
    const Buffer out = picture(imageFormat(COLOR_FORMAT_RGBA, 10, 20, 0,
                                           [](MutableMediaFormat& f) { f.setRotation(270); }));
    EXPECT_EQ(runPlain(&Plugin::cscRot, *in, *out, "vexa_csc_rot").argument, ZOCA_ROT_270);
    EXPECT_EQ(runPlain(&Plugin::rot, *in, *out, "vexa_rot").argument, ZOCA_ROT_270);
}

// ---------------------------------------------------------------- csc

// The target is the option's, else the wish's "preferred-color", else the wish's own format.
// Two-plane YUV to and from rgba runs in full-range BT.601 whatever the records say;
// "dithering" picks the dither function; one colour format on both sides is a copy.
TEST_F(OperationTest, CscTargetFunctionAndColorSpace) {
    struct Case {
        const char* what;
        int from, to;
        std::shared_ptr<ImgpOption> option;
        int preferred;  // 0: none
        bool dither;
        int expected;
        const char* function;
        bool override;
    };
    constexpr int kNv12 = COLOR_FORMAT_NV12, kNv21 = COLOR_FORMAT_NV21, kRgba = COLOR_FORMAT_RGBA,
                  kArgb = COLOR_FORMAT_ARGB, kBgr = COLOR_FORMAT_BGR, kBgra = COLOR_FORMAT_BGRA;
    // clang-format off
    const Case cases[] = {
        {"option int over extra", kNv12, kArgb, optionWith(12, int32_t{9}), kBgr, false, kRgba, "vexa_csc", true},
        {"option ColorFormat", kNv12, kArgb, optionWith(12, kBgra), kBgr, false, kBgra, "vexa_csc", false},
        {"extra over output", kNv12, kArgb, nullptr, kBgr, false, kBgr, "vexa_csc", false},
        {"empty option", kNv12, kArgb, std::make_shared<ImgpOption>(), kBgr, false, kBgr, "vexa_csc", false},
        {"other ids only", kNv12, kArgb, optionWith(8, int32_t{9}), kBgr, false, kBgr, "vexa_csc", false},
        {"nv12 to argb", kNv12, kArgb, nullptr, 0, false, kArgb, "vexa_csc", false},
        {"nv12 to rgba", kNv12, kRgba, nullptr, 0, false, kRgba, "vexa_csc", true},
        {"nv21 to rgba", kNv21, kRgba, nullptr, 0, false, kRgba, "vexa_csc", true},
        {"rgba to nv12", kRgba, kNv12, nullptr, 0, false, kNv12, "vexa_csc", true},
        {"rgba to nv21", kRgba, kNv21, nullptr, 0, false, kNv21, "vexa_csc", true},
        {"nv12 to bgra", kNv12, kBgra, nullptr, 0, false, kBgra, "vexa_csc", false},
        {"yuv420 to rgba", COLOR_FORMAT_YUV420, kRgba, nullptr, 0, false, kRgba, "vexa_csc", false},
        {"rgb to nv12", COLOR_FORMAT_RGB, kNv12, nullptr, 0, false, kNv12, "vexa_csc", false},
        {"dithered", kNv12, kRgba, nullptr, 0, true, kRgba, "vexa_csc_dither", true},
        {"same format", kNv12, kNv12, nullptr, 0, true, kNv12, "vexa_rsz", false}};
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Buffer in = picture(imageFormat(c.from, 32, 16, 3));
        const Buffer out = emptySlot(imageFormat(c.to, 8, 8, 5, [&c](MutableMediaFormat& f) {
            f.setExtra(extra::kDithering, c.dither);
            if (c.preferred) f.setExtra(extra::kPreferredColor, c.preferred);
        }));
        // The output copies the input's size and colour space.
        runPlain(&Plugin::csc, *in, *out, c.function, c.option,
                 c.override ? ZOCA_CS_BT601_FULL : ZOCA_CS_BT2020);
        EXPECT_TRUE(hasShape(held(out), 32, 16, c.expected));
    }
}

// 4:2:0 targets need even sizes: the output and the source's plane-0 size are trimmed (its
// stride and memory stay), with one warning.
TEST_F(OperationTest, CscTrimsOddSizesFor420TargetsWithAWarning) {
    struct Case {
        int target, cols, rows;
        const char* line;  // nullptr: no warning, size kept
    };
    // clang-format off
    const Case cases[] = {
        {COLOR_FORMAT_NV12, 1919, 1080, "[1919, 1080] image to nv12 is not supported! --> force to [1918, 1080]"},
        {COLOR_FORMAT_RGB, 1919, 1080, nullptr},
        {COLOR_FORMAT_NV21, 1919, 1079, "[1919, 1079] image to nv21 is not supported! --> force to [1918, 1078]"},
        {COLOR_FORMAT_YUV420, 20, 11, "[20, 11] image to yuv420 is not supported! --> force to [20, 10]"},
        {COLOR_FORMAT_NV12, 20, 10, nullptr},
        {COLOR_FORMAT_P010, 7, 5, "[7, 5] image to p010 is not supported! --> force to [6, 4]"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line ? c.line : "no warning");
        const Buffer in = picture(imageFormat(COLOR_FORMAT_RGBA, c.cols, c.rows));
        const Buffer out = emptySlot(imageFormat(c.target, 4, 4));
        // p010 has no descriptor: the new output is in place before describing it fails.
        runExpectingNoDescriptor(&Plugin::csc, *in, *out, c.target);
        const std::vector<LogLine> lines = takeLogLines();
        const int cols = c.line ? c.cols & ~1 : c.cols;
        const int rows = c.line ? c.rows & ~1 : c.rows;
        ASSERT_TRUE(hasShape(held(out), cols, rows, c.target));
        ASSERT_EQ(lines.size(), c.line ? 1u : 0u);
        if (c.line) {
            EXPECT_EQ(lines[0].priority, ANDROID_LOG_WARN);
            EXPECT_EQ(lines[0].tag, "MivoVexaPlugin");
            EXPECT_EQ(lines[0].text, c.line);
        }
        if (!hasDescriptor(c.target)) continue;
        const ZocaCall call = onlyCall();
        _ZOCA_IMGB src = describe(*in);
        _ZOCA_IMGB dst = describe(*held(out));
        src.width[0] = cols;
        src.height[0] = rows;
        if (c.target == COLOR_FORMAT_NV12 || c.target == COLOR_FORMAT_NV21) {
            src.colorSpace = dst.colorSpace = ZOCA_CS_BT601_FULL;  // rgba to two-plane YUV
        }
        EXPECT_TRUE(sameBytes(call.src, src));
        EXPECT_TRUE(sameBytes(call.dst, dst));
    }
}

// A mistyped extra or option throws before anything is allocated or called.
TEST_F(OperationTest, MistypedExtrasAndOptionsThrowBeforeAllocating) {
    struct Case {
        const char* what;
        Operation op;  // nullptr: flip
        std::shared_ptr<ImgpOption> option;
        FormatEdit in, out;
    };
    const Case cases[] = {
        {"crop rectangle", &Plugin::crop, nullptr, {}, withExtra(extra::kCropRect, 16)},
        {"csc dithering", &Plugin::csc, nullptr, {}, withExtra(extra::kDithering, 1)},
        {"csc preferred float", &Plugin::csc, nullptr, {}, withExtra(extra::kPreferredColor, 9.0f)},
        {"csc preferred rect",
         &Plugin::csc,
         nullptr,
         {},
         withExtra(extra::kPreferredColor, android::Rect())},
        {"csc option bool", &Plugin::csc, optionWith(12, true), {}, {}},
        {"csc option uint32", &Plugin::csc, optionWith(12, uint32_t{9}), {}, {}},
        {"csc option string", &Plugin::csc, optionWith(12, std::string("rgba")), {}, {}},
        {"hdr type", &Plugin::hdrToSdr, nullptr, withExtra(extra::kHdrType, 3.0f), {}},
        {"flip option bool", nullptr, optionWith(8, true), {}, {}},
        {"flip option format", nullptr, optionWith(8, COLOR_FORMAT_NV12), {}, {}},
        {"flip option float", nullptr, optionWith(8, 1.0f), {}, {}},
        {"flip type float", nullptr, nullptr, {}, withExtra(extra::kFlipType, 1.0f)},
        {"flip type bool behind option 0",
         nullptr,
         optionWith(8, int32_t{0}),
         {},
         withExtra(extra::kFlipType, true)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Buffer in = picture(imageFormat(COLOR_FORMAT_NV12, 32, 16, 3, c.in));
        Buffer out = emptySlot(imageFormat(COLOR_FORMAT_RGBA, 32, 16, 0, c.out));
        if (c.op) {
            EXPECT_THROW(c.op(*in, *out, c.option), std::bad_variant_access);
        } else {
            EXPECT_THROW(Plugin::flip(in, out, c.option), std::bad_variant_access);
        }
        EXPECT_EQ(held(out), nullptr);
        EXPECT_TRUE(takeZocaCalls().empty());
    }
}

// ---------------------------------------------------------------- the rest

FormatEdit hdrType(int type) {
    return withExtra(extra::kHdrType, type);
}
FormatEdit flipType(int type) {
    return withExtra(extra::kFlipType, type);
}
FormatEdit space(int colorSpace) {
    return [colorSpace](MutableMediaFormat& f) { f.setColorSpace(colorSpace); };
}

// From an nv12 31x17 input in colour space 2, wishing for rgba 13x7 in colour space 33: the
// new output's shape, format and space, and the call's function and argument; the call's
// records are the untouched descriptors of the input and the new output.
TEST_F(OperationTest, NewOutputAndTheCallOfTheOtherOperations) {
    struct Case {
        const char* what;
        Operation op;  // nullptr: flip
        FormatEdit in, wish;
        std::shared_ptr<ImgpOption> option;
        const char* function;  // nullptr: no call
        int argument, cols, rows, colorFormat, colorSpace;
    };
    constexpr int kNv12 = COLOR_FORMAT_NV12, kRgba = COLOR_FORMAT_RGBA, kNone = ZOCA_ROT_NONE;
    // clang-format off
    const Case cases[] = {
        // Whole-shape copies: no rounding; rszCsc takes the wished colour format too.
        {"rszPd", &Plugin::rszPd, {}, {}, nullptr, nullptr, 0, 13, 7, kNv12, 2},
        {"rszCsc", &Plugin::rszCsc, {}, {}, nullptr, "vexa_rsz", -1, 13, 7, kRgba, 2},
        {"cgc", &Plugin::cgc, {}, {}, nullptr, "vexa_cgc", -1, 31, 17, kNv12, 33},
        {"cgc to 19", &Plugin::cgc, {}, space(19), nullptr, "vexa_cgc", -1, 31, 17, kNv12, 19},
        {"cgc to its own", &Plugin::cgc, {}, space(2), nullptr, "vexa_cgc", -1, 31, 17, kNv12, 2},
        // The input's "hdr-type" picks the mode.
        {"hdr absent", &Plugin::hdrToSdr, {}, {}, nullptr, "vexa_hdr_to_sdr", 1, 31, 17, kNv12, 2},
        {"hdr 0", &Plugin::hdrToSdr, hdrType(0), {}, nullptr, "vexa_hdr_to_sdr", 1, 31, 17, kNv12, 2},
        {"hdr 2", &Plugin::hdrToSdr, hdrType(2), {}, nullptr, "vexa_hdr_to_sdr", 1, 31, 17, kNv12, 2},
        {"hdr 3", &Plugin::hdrToSdr, hdrType(3), {}, nullptr, "vexa_hdr_to_sdr", 3, 31, 17, kNv12, 2},
        {"hdr 4", &Plugin::hdrToSdr, hdrType(4), {}, nullptr, "vexa_hdr_to_sdr", 2, 31, 17, kNv12, 2},
        {"hdr 5", &Plugin::hdrToSdr, hdrType(5), {}, nullptr, "vexa_hdr_to_sdr", 4, 31, 17, kNv12, 2},
        {"hdr 6", &Plugin::hdrToSdr, hdrType(6), {}, nullptr, "vexa_hdr_to_sdr", 1, 31, 17, kNv12, 2},
        {"hdr -1", &Plugin::hdrToSdr, hdrType(-1), {}, nullptr, "vexa_hdr_to_sdr", 1, 31, 17, kNv12, 2},
        {"hdr min", &Plugin::hdrToSdr, hdrType(INT_MIN), {}, nullptr, "vexa_hdr_to_sdr", 1, 31, 17, kNv12, 2},
        // The flip type, from the option or the wish's extra, becomes a library code.
        {"flip 1", nullptr, {}, flipType(1), nullptr, "vexa_rot", ZOCA_ROT_MIRROR_H, 31, 17, kNv12, 2},
        {"flip 2", nullptr, {}, flipType(2), nullptr, "vexa_rot", ZOCA_ROT_MIRROR_V, 31, 17, kNv12, 2},
        {"flip 3 is a copy", nullptr, {}, flipType(3), nullptr, "vexa_rot", kNone, 31, 17, kNv12, 2},
        {"flip 0", nullptr, {}, flipType(0), nullptr, "vexa_rot", kNone, 31, 17, kNv12, 2},
        {"flip 7", nullptr, {}, flipType(7), nullptr, "vexa_rot", kNone, 31, 17, kNv12, 2},
        {"flip absent", nullptr, {}, {}, nullptr, "vexa_rot", kNone, 31, 17, kNv12, 2},
        {"option int over extra", nullptr, {}, flipType(1), optionWith(8, int32_t{2}), "vexa_rot",
         ZOCA_ROT_MIRROR_V, 31, 17, kNv12, 2},
        {"option uint32", nullptr, {}, flipType(2), optionWith(8, uint32_t{1}), "vexa_rot",
         ZOCA_ROT_MIRROR_H, 31, 17, kNv12, 2},
        {"option 0 defers", nullptr, {}, flipType(2), optionWith(8, int32_t{0}), "vexa_rot",
         ZOCA_ROT_MIRROR_V, 31, 17, kNv12, 2},
        {"option 3 is a copy", nullptr, {}, flipType(1), optionWith(8, int32_t{3}), "vexa_rot",
         kNone, 31, 17, kNv12, 2},
        {"empty option", nullptr, {}, flipType(1), std::make_shared<ImgpOption>(), "vexa_rot",
         ZOCA_ROT_MIRROR_H, 31, 17, kNv12, 2},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Buffer in = picture(imageFormat(kNv12, 31, 17, 2, c.in));
        Buffer out = emptySlot(imageFormat(kRgba, 13, 7, 33, c.wish));
        EXPECT_EQ(c.op ? c.op(*in, *out, c.option) : Plugin::flip(in, out, c.option), 0);
        ASSERT_TRUE(hasShape(held(out), c.cols, c.rows, c.colorFormat));
        EXPECT_EQ(held(out)->getFormat()->getColorSpace(), c.colorSpace);
        if (c.op == &Plugin::hdrToSdr) {
            EXPECT_EQ(getExtraAs<int>(*held(out)->getFormat(), extra::kHdrType), 1);
        }
        if (!c.function) {
            EXPECT_TRUE(takeZocaCalls().empty());
            continue;
        }
        const ZocaCall call = onlyCall();
        EXPECT_EQ(call.function, c.function);
        EXPECT_EQ(call.argument, c.argument);
        EXPECT_TRUE(sameBytes(call.src, describe(*in)));
        EXPECT_TRUE(sameBytes(call.dst, describe(*held(out))));
    }
    // An existing output keeps its "hdr-type".
    const Buffer in = picture(imageFormat(kNv12, 32, 16, 3, hdrType(4)));
    const Buffer existing = picture(imageFormat(kNv12, 32, 16, 0, hdrType(7)));
    EXPECT_EQ(runPlain(&Plugin::hdrToSdr, *in, *existing, "vexa_hdr_to_sdr").argument, 2);
    EXPECT_EQ(getExtraAs<int>(*existing->getFormat(), extra::kHdrType), 7);
}

}  // namespace
}  // namespace mivo::test
