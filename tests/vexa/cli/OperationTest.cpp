// Every operation of the command on real files: what comes out, and that the pixels are right.
#include "CliSupport.h"

namespace vexa::cli::test {
namespace {

using vexa::io::kBgra;
using vexa::io::kNv12;
using vexa::io::kNv21;
using vexa::io::kRgb;
using vexa::io::kRgba;
using vexa::io::kYuv420;

struct Shape {
    std::string name;  // test name
    std::vector<std::string> args;
    std::string output;
    int width;
    int height;
    int colorFormat;
};

std::ostream& operator<<(std::ostream& os, const Shape& s) {
    return os << s.name;
}

class ShapeTest : public CliTest, public ::testing::WithParamInterface<Shape> {};

// Inputs: in.png is a 64x48 RGB PNG, in.yuv a 34x18 I420 raw file.
TEST_P(ShapeTest, WritesTheExpectedSizeAndFormat) {
    const Shape& c = GetParam();
    save("in.png", noise(kRgb, 64, 48));
    save("in.yuv", noise(kYuv420, 34, 18));
    std::vector<std::string> args = c.args;
    args.insert(args.end(), {"-o", c.output});
    const Outcome run = vexa(args);
    ASSERT_EQ(run.code, 0) << run.dump();
    EXPECT_EQ(run.out, c.output + "\n");
    EXPECT_FALSE(contains(run.err, "error")) << run.err;
    const Image out = load(c.output, c.width, c.height);
    EXPECT_EQ(out.width, c.width);
    EXPECT_EQ(out.height, c.height);
    EXPECT_EQ(out.colorFormat, c.colorFormat);
    // A raw file of another size would have been refused by the read above; a temporary
    // left behind would show here.
    EXPECT_EQ(entries().size(), 3u);
}

// clang-format off
const Shape kShapes[] = {
    {"Resize", {"rsz", "in.png", "--to", "40x30"}, "o.png", 40, 30, kRgb},
    {"ResizeAliasToJpeg", {"resize", "in.png", "--to", "17x9"}, "o.jpg", 17, 9, kRgb},
    {"ResizeI420", {"rsz", "in.yuv", "--size", "34x18", "--to", "20x12"}, "o.yuv", 20, 12, kYuv420},
    // Converting into a 4:2:0 layout evens odd sides.
    {"ResizeOddIntoNv12", {"rsz", "in.png", "--to", "33x17"}, "o.nv12", 32, 16, kNv12},
    // Trimmed to 60x48, a multiple of 2 * 3, then divided by 3.
    {"DownscaleByFactor", {"rszPd", "in.png", "--factor", "3"}, "o.png", 20, 16, kRgb},
    // 64 / 20 gives the factor 3 again; the rows follow the factor, not the target.
    {"DownscaleToSize", {"downscale", "in.png", "--to", "20x20"}, "o.png", 20, 16, kRgb},
    {"DownscaleI420", {"rszPd", "in.yuv", "--size", "34x18", "--factor", "2"}, "o.yuv", 16, 8, kYuv420},
    {"ConvertToNv12", {"csc", "in.png", "--to-format", "nv12"}, "o.nv12", 64, 48, kNv12},
    {"ConvertAliasToBgra", {"convert", "in.png", "--to-format", "bgra"}, "o.bgra", 64, 48, kBgra},
    // A PNG cannot hold NV21: the result goes back to the input's RGB.
    {"ConvertIntoPng", {"csc", "in.png", "--to-format", "nv21", "--dither"}, "o.png", 64, 48, kRgb},
    {"ConvertI420ToRgba", {"csc", "in.yuv", "--size", "34x18", "--to-format", "rgba"}, "o.rgba", 34, 18, kRgba},
    {"Rotate90", {"rot", "in.png", "--angle", "90"}, "o.png", 48, 64, kRgb},
    {"RotateAlias180", {"rotate", "in.png", "--angle", "180"}, "o.png", 64, 48, kRgb},
    {"RotateI420", {"rot", "in.yuv", "--size", "34x18", "--angle", "270"}, "o.y4m", 18, 34, kYuv420},
    // The target size is the size before turning.
    {"ResizeRotate", {"rszRot", "in.png", "--to", "40x30", "--angle", "270"}, "o.png", 30, 40, kRgb},
    {"ResizeConvert", {"rszCsc", "in.png", "--to", "32x24", "--to-format", "nv21"}, "o.nv21", 32, 24, kNv21},
    {"ConvertRotate", {"cscRot", "in.png", "--to-format", "yuv420", "--angle", "90"}, "o.y4m", 48, 64, kYuv420},
    {"Crop", {"crop", "in.png", "--rect", "4,6,20,10"}, "o.png", 20, 10, kRgb},
    // YUV has no alpha to keep: its PNG is RGB.
    {"CropI420IntoPng", {"crop", "in.yuv", "--size", "34x18", "--rect", "2,2,10,6"}, "o.png", 10, 6, kRgb},
    {"Gamut", {"cgc", "in.png", "--to-space", "bt2020"}, "o.png", 64, 48, kRgb},
    {"GamutAliasI420", {"gamut", "in.yuv", "--size", "34x18", "--to-space", "p3"}, "o.yuv", 34, 18, kYuv420},
    {"ToneMapPq", {"hdrToSdr", "in.png", "--hdr-type", "pq"}, "o.png", 64, 48, kRgb},
    {"ToneMapAliasHlgToNv12", {"tonemap", "in.png", "--hdr-type", "hlg"}, "o.nv12", 64, 48, kNv12},
    {"FlipHorizontal", {"flip", "in.png", "--direction", "h"}, "o.png", 64, 48, kRgb},
    {"FlipByOption", {"flip", "in.png", "--direction", "v", "--by-option"}, "o.png", 64, 48, kRgb},
    {"FlipOwnThroughNv12", {"flip", "in.png", "--direction", "both", "--own"}, "o.png", 64, 48, kRgb},
    // The plugin's own mirror works on whole words and row pairs: 34x18 is trimmed to 32x16.
    {"FlipOwnTrimsI420", {"flip", "in.yuv", "--size", "34x18", "--direction", "h", "--own"}, "o.nv12", 32, 16, kNv12},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Operations, ShapeTest, ::testing::ValuesIn(kShapes),
                         [](const auto& info) { return info.param.name; });

using PixelTest = CliTest;

TEST_F(PixelTest, Rotate90Then270GivesTheInputBack) {
    // Odd sides, so that a rotation that drops or pads a row or column shows.
    const Image in = noise(kRgb, 37, 23);
    save("in.png", in);
    ASSERT_EQ(vexa({"rot", "in.png", "--angle", "90", "-o", "a.png"}).code, 0);
    ASSERT_EQ(vexa({"rot", "a.png", "--angle", "270", "-o", "b.png"}).code, 0);
    const Image turned = load("a.png");
    ASSERT_EQ(turned.width, 23);
    ASSERT_EQ(turned.height, 37);
    // A quarter turn one way or the other, not a transpose or a copy.
    const Image clockwise = remap(in, 23, 37, [](int x, int y) { return std::pair(y, 22 - x); });
    const Image counter = remap(in, 23, 37, [](int x, int y) { return std::pair(36 - y, x); });
    EXPECT_TRUE(turned.data == clockwise.data || turned.data == counter.data);
    const Image back = load("b.png");
    EXPECT_EQ(back.colorFormat, kRgb);
    EXPECT_EQ(back.width, 37);
    EXPECT_TRUE(back.data == in.data);

    ASSERT_EQ(vexa({"rot", "in.png", "--angle", "180", "-o", "c.png"}).code, 0);
    const Image half = remap(in, 37, 23, [](int x, int y) { return std::pair(36 - x, 22 - y); });
    EXPECT_TRUE(load("c.png").data == half.data);
}

TEST_F(PixelTest, CropGivesExactlyTheSourceRegion) {
    const Image in = noise(kRgb, 64, 48);
    save("in.png", in);
    // Odd corner and size: a packed picture needs no rounding.
    ASSERT_EQ(vexa({"crop", "in.png", "--rect", "5,7,21,11", "-o", "part.png"}).code, 0);
    const Image part = load("part.png");
    const Image want = remap(in, 21, 11, [](int x, int y) { return std::pair(x + 5, y + 7); });
    EXPECT_EQ(part.width, 21);
    EXPECT_EQ(part.height, 11);
    EXPECT_TRUE(part.data == want.data);

    // The bottom-right corner exactly: the last row and column are inside.
    ASSERT_EQ(vexa({"crop", "in.png", "--rect", "60,40,4,8", "-o", "corner.png"}).code, 0);
    const Image corner = load("corner.png");
    EXPECT_TRUE(corner.data ==
                remap(in, 4, 8, [](int x, int y) { return std::pair(x + 60, y + 40); }).data);
}

TEST_F(PixelTest, CropOfNv12KeepsLumaAndChromaOfTheRegion) {
    const Image in = noise(kNv12, 32, 16);
    save("in.nv12", in);
    ASSERT_EQ(
        vexa({"crop", "in.nv12", "--size", "32x16", "--rect", "4,2,10,6", "-o", "part.nv12"}).code,
        0);
    const Image part = load("part.nv12", 10, 6);
    std::vector<uint8_t> want;
    for (int y = 0; y < 6; ++y) {
        const auto row = in.data.begin() + (y + 2) * 32 + 4;
        want.insert(want.end(), row, row + 10);
    }
    for (int y = 0; y < 3; ++y) {  // chroma rows start at row 1, pair 2
        const auto row = in.data.begin() + 32 * 16 + (y + 1) * 32 + 4;
        want.insert(want.end(), row, row + 10);
    }
    EXPECT_TRUE(part.data == want);
}

TEST_F(PixelTest, FlipMirrorsEveryDirection) {
    const Image in = noise(kRgb, 13, 7);
    save("in.png", in);
    const auto mirrored = [&](bool h, bool v) {
        return remap(in, 13, 7,
                     [h, v](int x, int y) { return std::pair(h ? 12 - x : x, v ? 6 - y : y); })
            .data;
    };
    struct Case {
        std::string direction;
        bool h, v;
    };
    for (const Case& c :
         {Case{"h", true, false}, Case{"vertical", false, true}, Case{"both", true, true}}) {
        for (const bool byOption : {false, true}) {
            SCOPED_TRACE(c.direction + (byOption ? " by option" : ""));
            std::vector<std::string> args = {"flip",      "in.png", "--direction",
                                             c.direction, "-o",     "out.png"};
            if (byOption) args.push_back("--by-option");
            const Outcome run = vexa(args);
            ASSERT_EQ(run.code, 0) << run.dump();
            EXPECT_TRUE(load("out.png").data == mirrored(c.h, c.v));
        }
    }
}

TEST_F(PixelTest, OwnFlipOfNv12MirrorsBothPlanes) {
    const Image in = noise(kNv12, 16, 8);
    save("in.nv12", in);
    const Outcome run = vexa(
        {"flip", "in.nv12", "--size", "16x8", "--direction", "both", "--own", "-o", "out.nv12"});
    ASSERT_EQ(run.code, 0) << run.dump();
    const Image out = load("out.nv12", 16, 8);
    std::vector<uint8_t> want;
    for (int y = 7; y >= 0; --y) {
        for (int x = 15; x >= 0; --x) want.push_back(in.data[y * 16 + x]);
    }
    for (int y = 3; y >= 0; --y) {
        for (int pair = 7; pair >= 0; --pair) {  // Cb and Cr stay in order within a pair
            want.push_back(in.data[128 + y * 16 + pair * 2]);
            want.push_back(in.data[128 + y * 16 + pair * 2 + 1]);
        }
    }
    EXPECT_TRUE(out.data == want);
}

TEST_F(PixelTest, SolidColoursSurviveARoundTripThroughNv12) {
    const uint8_t colours[][3] = {{200, 30, 90}, {16, 160, 240}, {128, 128, 128}, {250, 250, 5}};
    for (const auto& c : colours) {
        SCOPED_TRACE(::testing::Message() << int(c[0]) << "," << int(c[1]) << "," << int(c[2]));
        const Image in = solidRgb(30, 20, c[0], c[1], c[2]);
        save("in.png", in);
        ASSERT_EQ(vexa({"csc", "in.png", "--to-format", "nv12", "-o", "mid.nv12"}).code, 0);
        const Image mid = load("mid.nv12", 30, 20);
        // The luma of one colour is one value.
        EXPECT_TRUE(std::all_of(mid.data.begin(), mid.data.begin() + 600,
                                [&](uint8_t y) { return y == mid.data[0]; }));
        const Outcome run =
            vexa({"csc", "mid.nv12", "--size", "30x20", "--to-format", "rgb", "-o", "back.png"});
        ASSERT_EQ(run.code, 0) << run.dump();
        const Image back = load("back.png");
        ASSERT_EQ(back.colorFormat, kRgb);
        EXPECT_LE(maxDifference(back.data, in.data), 3);

        // The same through the conversions the command makes for the file types, from a
        // picture with alpha.
        Image withAlpha{30, 20, kRgba, {}};
        for (size_t i = 0; i < in.data.size(); i += 3) {
            withAlpha.data.insert(withAlpha.data.end(),
                                  {in.data[i], in.data[i + 1], in.data[i + 2], 77});
        }
        save("alpha.png", withAlpha);
        ASSERT_EQ(vexa({"rot", "alpha.png", "--angle", "0", "-o", "a.nv12"}).code, 0);
        ASSERT_EQ(vexa({"rot", "a.nv12", "--size", "30x20", "--angle", "0", "-o", "a.png"}).code,
                  0);
        const Image again = load("a.png");
        ASSERT_EQ(again.colorFormat, kRgb);
        EXPECT_LE(maxDifference(again.data, in.data), 3);
    }
}

TEST_F(PixelTest, SolidColourStaysSolidThroughScaling) {
    const Image in = solidRgb(48, 32, 40, 180, 220);
    save("in.png", in);
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"rsz", "in.png", "--to", "20x14"},
             {"rszRot", "in.png", "--to", "20x14", "--angle", "90"},
             {"rszPd", "in.png", "--factor", "4"}}) {
        SCOPED_TRACE(args.front());
        std::vector<std::string> all = args;
        all.insert(all.end(), {"-o", "out.png"});
        const Outcome run = vexa(all);
        ASSERT_EQ(run.code, 0) << run.dump();
        const Image out = load("out.png");
        EXPECT_LE(maxDifference(out.data, solidRgb(out.width, out.height, 40, 180, 220).data), 4);
    }
}

TEST_F(PixelTest, PlaneLayoutChangesAreLossless) {
    const Image in = noise(kYuv420, 18, 10);
    save("in.yuv", in);
    ASSERT_EQ(
        vexa({"csc", "in.yuv", "--size", "18x10", "--to-format", "nv21", "-o", "mid.nv21"}).code,
        0);
    const Image mid = load("mid.nv21", 18, 10);
    // NV21 interleaves Cr before Cb.
    EXPECT_TRUE(std::equal(in.data.begin(), in.data.begin() + 180, mid.data.begin()));
    EXPECT_EQ(mid.data[180], in.data[180 + 45]);
    EXPECT_EQ(mid.data[181], in.data[180]);
    ASSERT_EQ(
        vexa({"csc", "mid.nv21", "--size", "18x10", "--to-format", "yuv420", "-o", "b.yuv"}).code,
        0);
    EXPECT_TRUE(load("b.yuv", 18, 10).data == in.data);
}

TEST_F(PixelTest, FrameOptionPicksTheFrameOfARawFile) {
    const Image first = noise(kYuv420, 8, 4, 1);
    const Image second = noise(kYuv420, 8, 4, 2);
    std::string bytes(first.data.begin(), first.data.end());
    bytes.append(second.data.begin(), second.data.end());
    writeBytes(path("clip.yuv"), bytes);
    ASSERT_EQ(
        vexa({"rot", "clip.yuv", "--size", "8x4", "--frame", "1", "--angle", "0", "-o", "out.yuv"})
            .code,
        0);
    EXPECT_TRUE(load("out.yuv", 8, 4).data == second.data);
}

TEST_F(PixelTest, DefaultOutputIsNamedAfterInputAndOperation) {
    save("photo.png", noise(kRgb, 8, 6));
    const Outcome run = vexa({"rotate", "photo.png", "--angle", "90"});
    ASSERT_EQ(run.code, 0) << run.dump();
    EXPECT_EQ(run.out, "photo.rot.png\n");
    EXPECT_EQ(load("photo.rot.png").width, 6);
    // --ext picks the type of the default name too.
    ASSERT_EQ(vexa({"rot", "photo.png", "--angle", "90", "--ext", "nv12"}).code, 0);
    EXPECT_EQ(load("photo.rot.nv12", 6, 8).colorFormat, kNv12);
}

}  // namespace
}  // namespace vexa::cli::test
