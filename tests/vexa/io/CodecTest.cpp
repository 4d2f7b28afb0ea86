// PNG, JPEG and Y4M details: the kinds of input other tools produce, and damaged files.
#include <csetjmp>
#include <cstdio>  // before jpeglib.h, which uses FILE and size_t
#include <cstdlib>

#include <jpeglib.h>
#include <png.h>
#include <zlib.h>

#include "TestSupport.h"

namespace vexa::io::test {
namespace {

struct PngInput {
    const char* name;
    int colorType, bitDepth;
    bool interlaced;
    int width;
    std::vector<uint8_t> packedRow;  // one row in the file's own packing, repeated for 3 rows
    std::vector<png_color> palette;
    std::vector<uint8_t> transparency;
    int expectedFormat;
    std::vector<uint8_t> expectedRow;
};

void writePngWithLibpng(const std::string& file, const PngInput& in) {
    std::FILE* f = std::fopen(file.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        ADD_FAILURE() << "libpng failed writing " << in.name;
    } else {
        png_init_io(png, f);
        png_set_IHDR(png, info, in.width, 3, in.bitDepth, in.colorType,
                     in.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        if (!in.palette.empty()) png_set_PLTE(png, info, in.palette.data(), int(in.palette.size()));
        if (!in.transparency.empty()) {
            png_set_tRNS(png, info, in.transparency.data(), int(in.transparency.size()), nullptr);
        }
        png_write_info(png, info);
        std::vector<png_bytep> rows(3, const_cast<png_bytep>(in.packedRow.data()));
        png_write_image(png, rows.data());
        png_write_end(png, nullptr);
    }
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

using PngTest = IoTest;

TEST_F(PngTest, ExpandsEveryInputKindTo8BitRgbOrRgba) {
    // clang-format off
    const PngInput inputs[] = {
        {"gray8", PNG_COLOR_TYPE_GRAY, 8, false, 2, {10, 200}, {}, {}, kRgb, {10, 10, 10, 200, 200, 200}},
        {"gray1 across a byte", PNG_COLOR_TYPE_GRAY, 1, false, 9, {0b10100000, 0b10000000}, {}, {}, kRgb,
         {255, 255, 255, 0, 0, 0, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255}},
        {"gray+alpha", PNG_COLOR_TYPE_GRAY_ALPHA, 8, false, 2, {10, 20, 30, 40}, {}, {}, kRgba,
         {10, 10, 10, 20, 30, 30, 30, 40}},
        {"palette 4-bit with tRNS", PNG_COLOR_TYPE_PALETTE, 4, false, 3, {0x01, 0x20},
         {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}, {255, 128}, kRgba, {1, 2, 3, 255, 4, 5, 6, 128, 7, 8, 9, 255}},
        {"palette 8-bit", PNG_COLOR_TYPE_PALETTE, 8, false, 2, {1, 0}, {{1, 2, 3}, {4, 5, 6}}, {}, kRgb,
         {4, 5, 6, 1, 2, 3}},
        // Scaled by 255/65535 and dithered, not cut to the high byte: 0xFF00 is 254.007.
        {"rgb 16-bit", PNG_COLOR_TYPE_RGB, 16, false, 1, {0x12, 0x34, 0xAB, 0xCD, 0xFF, 0x00}, {}, {}, kRgb,
         {0x12, 0xAB, 0xFE}},
        {"rgba interlaced", PNG_COLOR_TYPE_RGBA, 8, true, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, {}, {},
         kRgba, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
    };
    // clang-format on
    for (const PngInput& in : inputs) {
        SCOPED_TRACE(in.name);
        writePngWithLibpng(path("in.png"), in);
        const Image image = readImage(path("in.png"));
        ASSERT_EQ(image.colorFormat, in.expectedFormat);
        ASSERT_EQ(image.width, in.width);
        ASSERT_EQ(image.height, 3);
        EXPECT_EQ(image.sourceBits, in.bitDepth == 16 ? 16 : 8);
        std::vector<uint8_t> expected;
        for (int y = 0; y < 3; ++y) {
            expected.insert(expected.end(), in.expectedRow.begin(), in.expectedRow.end());
        }
        EXPECT_EQ(image.data, expected);
    }
}

// A valid file cut in half must be refused, not decoded into a partly blank picture.
TEST_F(PngTest, RejectsTruncatedCorruptAndAbsurdFiles) {
    writeImage(path("full.png"), noiseImage(kRgb, 64, 64));
    std::vector<uint8_t> bytes = readBytes(path("full.png"));
    writeBytes(path("half.png"), {bytes.begin(), bytes.begin() + bytes.size() / 2});
    expectReadFails("half.png", {"truncated"});
    writeBytes(path("noend.png"), {bytes.begin(), bytes.end() - 12});  // without IEND
    expectReadFails("noend.png", {"PNG"});
    bytes[bytes.size() / 2] ^= 0x55;  // inside IDAT: the CRC no longer matches
    writeBytes(path("flipped.png"), bytes);
    expectReadFails("flipped.png", {"PNG"});
    writeBytes(path("text.png"), {'h', 'e', 'l', 'l', 'o'});
    expectReadFails("text.png", {"not a PNG"});

    // Refused before allocating: IHDR's width (bytes 16..19) becomes 70000, with its CRC
    // (29..32) made valid again.
    writeImage(path("a.png"), noiseImage(kRgb, 3, 2));
    bytes = readBytes(path("a.png"));
    const uint32_t width = 70000;
    for (int i = 0; i < 4; ++i) bytes[16 + i] = uint8_t(width >> (24 - 8 * i));
    const uint32_t crc = uint32_t(::crc32(0, bytes.data() + 12, 17));
    for (int i = 0; i < 4; ++i) bytes[29 + i] = uint8_t(crc >> (24 - 8 * i));
    writeBytes(path("wide.png"), bytes);
    expectReadFails("wide.png", {"limit"});
    // 20000 x 20000 fits the limits, but no 100-byte file can hold it.
    for (int i = 0; i < 8; ++i) bytes[16 + i] = uint8_t(20000u >> (24 - 8 * (i % 4)));
    const uint32_t bigCrc = uint32_t(::crc32(0, bytes.data() + 12, 17));
    for (int i = 0; i < 4; ++i) bytes[29 + i] = uint8_t(bigCrc >> (24 - 8 * i));
    writeBytes(path("big.png"), bytes);
    expectReadFails("big.png", {"too short"});
}

using JpegTest = IoTest;

TEST_F(JpegTest, RejectsTruncatedAndForeignFiles) {
    // Noise, so that most of the file is scan data and the cut lands inside it, where
    // libjpeg would otherwise carry on with grey filler.
    writeImage(path("full.jpg"), noiseImage(kRgb, 64, 64));
    const std::vector<uint8_t> bytes = readBytes(path("full.jpg"));
    writeBytes(path("half.jpg"), {bytes.begin(), bytes.begin() + bytes.size() / 2});
    expectReadFails("half.jpg", {"JPEG"});
    writeImage(path("a.png"), noiseImage(kRgb, 4, 4));
    fs::rename(path("a.png"), path("png.jpg"));
    expectReadFails("png.jpg", {"Not a JPEG"});
    writeBytes(path("empty.jpg"), {});
    expectReadFails("empty.jpg", {});
}

// Quality 50 is the reference scaling: the luminance table is Annex K's (DC step 16), and
// 100 is all ones.
TEST_F(JpegTest, QualityScalesTheStandardTables) {
    for (const auto& [quality, step] : {std::pair{50, 16}, {100, 1}, {25, 32}}) {
        WriteOptions options;
        options.jpegQuality = quality;
        writeImage(path("q.jpg"), noiseImage(kRgb, 16, 16), options);
        const std::vector<uint8_t> bytes = readBytes(path("q.jpg"));
        const uint8_t dqt[] = {0xFF, 0xDB};
        const auto at = std::search(bytes.begin(), bytes.end(), dqt, dqt + 2);
        ASSERT_LT(at + 5, bytes.end());
        EXPECT_EQ(at[5], step) << quality;  // after the length and the table's id
    }
}

std::vector<uint8_t> y4m(const std::string& header, const std::vector<Image>& frames) {
    std::vector<uint8_t> bytes(header.begin(), header.end());
    for (const Image& frame : frames) {
        for (char c : std::string("FRAME\n")) bytes.push_back(uint8_t(c));
        bytes.insert(bytes.end(), frame.data.begin(), frame.data.end());
    }
    return bytes;
}

using Y4mTest = IoTest;

TEST_F(Y4mTest, WritesAStandardHeader) {
    const Image image = noiseImage(kYuv420, 33, 17);
    writeImage(path("a.y4m"), image);
    const std::string expected = "YUV4MPEG2 W33 H17 F30:1 Ip A1:1 C420jpeg\nFRAME\n";
    const std::vector<uint8_t> bytes = readBytes(path("a.y4m"));
    ASSERT_EQ(bytes.size(), expected.size() + image.data.size());
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + expected.size()), expected);
}

TEST_F(Y4mTest, Accepts420VariantsAndPicksFrames) {
    const std::vector<Image> frames{noiseImage(kYuv420, 5, 3, 1), noiseImage(kYuv420, 5, 3, 2),
                                    noiseImage(kYuv420, 5, 3, 3)};
    for (const char* chroma : {"", " C420", " C420mpeg2 XYSCSS=420MPEG2", " C420paldv"}) {
        writeBytes(path("a.y4m"),
                   y4m(std::string("YUV4MPEG2 W5 H3 F25:1") + chroma + "\n", frames));
        EXPECT_EQ(readImage(path("a.y4m")).data, frames[0].data) << chroma;
        EXPECT_EQ(readImage(path("a.y4m"), {0, 0, 0, 2}).data, frames[2].data) << chroma;
    }
    expectReadFails("a.y4m", {"3 frame(s)"}, {0, 0, 0, 3});
}

TEST_F(Y4mTest, RejectsWhatItCannotReadSayingWhere) {
    const std::vector<Image> frame{noiseImage(kYuv420, 4, 2)};
    std::vector<uint8_t> cut = y4m("YUV4MPEG2 W4 H2\n", {frame[0], frame[0]});
    cut.pop_back();
    std::vector<uint8_t> unmarked = y4m("YUV4MPEG2 W4 H2\n", frame);
    unmarked[20] = 'X';  // FRAME -> FRAMX
    std::vector<uint8_t> longer = y4m("YUV4MPEG2 W4 H2\n", frame);
    longer.insert(longer.begin() + 21, 'X');  // FRAME -> FRAMEX
    const std::pair<std::vector<uint8_t>, std::vector<std::string>> cases[] = {
        {y4m("YUV4MPEG2 W4 H2 C444\n", frame), {"C444", "byte"}},
        {y4m("YUV4MPEG2 W4 H2 C420p10\n", frame), {"too short"}},
        {y4m("YUV4MPEG2 W4 H2 Iz C420jpeg\n", frame), {"Iz"}},
        {y4m("YUV4MPEG2 W4 H2 XCOLORRANGE=HALF\n", frame), {"colour range"}},
        {y4m("YUV4MPEG2 H2 C420jpeg\n", frame), {"width"}},
        {y4m("YUV4MPEG2 W0 H2\n", frame), {"invalid size"}},
        {y4m("YUV4MPEG2 W99999 H2\n", frame), {"limit"}},
        {y4m("YUV4MPEG2 W30000 H30000\n", frame), {"too short"}},
        {y4m("YUV4MPEG2 Wfour H2\n", frame), {"Wfour"}},
        {y4m("YUV4MPEG W4 H2\n", frame), {"not a Y4M"}},
        {cut, {"frame 1, byte 40", "ends inside the frame"}},
        {unmarked, {"frame 0, byte 16", "FRAME marker"}},
        {longer, {"frame 0, byte 16", "FRAME marker"}},
        {y4m("YUV4MPEG2 W4 H2\n", {}), {"0 frame(s)"}},
    };
    for (const auto& [bytes, causes] : cases) {
        writeBytes(path("a.y4m"), bytes);
        expectReadFails("a.y4m", causes, {0, 0, 0, 1});
    }
}

TEST_F(Y4mTest, DeepSamplesAreDitheredTo8Bits) {
    // 8x8 at 10 bits: luma 0, 1023 and 512 in rows of 8 pixels, chroma mid-grey.
    std::string bytes = "YUV4MPEG2 W8 H8 C420p10\nFRAME\n";
    for (int i = 0; i < 64 + 32; ++i) {
        const int v = i < 64 ? (i < 16 ? 0 : i < 32 ? 1023 : 512) : 512;
        bytes += {char(v & 255), char(v >> 8)};
    }
    writeBytes(path("a.y4m"), {bytes.begin(), bytes.end()});
    const Image image = readImage(path("a.y4m"));
    ASSERT_EQ(image.data.size(), 96u);
    double sum = 0;
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(image.data[i], 0);
        EXPECT_EQ(image.data[16 + i], 255);
    }
    for (int i = 32; i < 64; ++i) sum += image.data[i];
    EXPECT_NEAR(sum / 32, 512 * 255.0 / 1023, 0.1);  // dithered, not rounded to one level
}

}  // namespace
}  // namespace vexa::io::test
