// What files say beside their pixels: colour tags both ways, EXIF orientation, and the
// encoder settings that change what is stored (chroma subsampling, PNG compression).
#include <algorithm>
#include <cstdio>  // before jpeglib.h, which uses FILE and size_t
#include <cstring>
#include <functional>
#include <initializer_list>
#include <utility>

#include <jpeglib.h>
#include <lcms2.h>
#include <zlib.h>

#include "TestSupport.h"
#include "vexa/io/Internal.h"

namespace vexa::io::test {
namespace {

using Chunk = std::pair<std::string, std::vector<uint8_t>>;

std::vector<uint8_t> bigEndian(std::initializer_list<uint32_t> values) {
    std::vector<uint8_t> bytes;
    for (uint32_t v : values) {
        bytes.insert(bytes.end(),
                     {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)});
    }
    return bytes;
}

// Rewrites a PNG without its colour chunks but those named in `keep`, with `add` after its
// header, as other programs tag their files.
void retag(const std::string& file, const std::vector<Chunk>& add, const std::string& keep = "") {
    const std::vector<uint8_t> in = readBytes(file);
    std::vector<uint8_t> out(in.begin(), in.begin() + 33);  // signature and IHDR
    for (const auto& [type, data] : add) {
        const std::vector<uint8_t> length = bigEndian({uint32_t(data.size())});
        out.insert(out.end(), length.begin(), length.end());
        out.insert(out.end(), type.begin(), type.end());
        out.insert(out.end(), data.begin(), data.end());
        const Bytef* crcd = &out[out.size() - data.size() - 4];
        const std::vector<uint8_t> crc =
            bigEndian({uint32_t(::crc32(0, crcd, uInt(data.size() + 4)))});
        out.insert(out.end(), crc.begin(), crc.end());
    }
    for (size_t at = 33; at + 12 <= in.size();) {
        const size_t length =
            size_t(in[at]) << 24 | in[at + 1] << 16 | in[at + 2] << 8 | in[at + 3];
        const std::string type(in.begin() + at + 4, in.begin() + at + 8);
        if (std::string("cICP iCCP sRGB gAMA cHRM").find(type) == std::string::npos ||
            keep.find(type) != std::string::npos) {
            out.insert(out.end(), in.begin() + at, in.begin() + at + 12 + length);
        }
        at += 12 + length;
    }
    writeBytes(file, out);
}

// A JPEG written by libjpeg at quality 100 (4:2:0 for lumaSampling 2), grey for a kYuv420 image
// (its first plane); `markers` adds markers of its own.
void writeJpegWithLibjpeg(const std::string& file, const Image& image,
                          const std::function<void(jpeg_compress_struct&)>& markers = {},
                          int lumaSampling = 1) {
    std::FILE* f = std::fopen(file.c_str(), "wb");
    jpeg_compress_struct cinfo{};
    jpeg_error_mgr err{};
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, f);
    cinfo.image_width = image.width;
    cinfo.image_height = image.height;
    cinfo.input_components = image.colorFormat == kRgb ? 3 : 1;
    cinfo.in_color_space = image.colorFormat == kRgb ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 100, TRUE);
    cinfo.comp_info[0].h_samp_factor = cinfo.comp_info[0].v_samp_factor = lumaSampling;
    jpeg_start_compress(&cinfo, TRUE);
    if (markers) markers(cinfo);
    const size_t rowBytes = size_t(image.width) * cinfo.input_components;
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(&image.data[cinfo.next_scanline * rowBytes]);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    std::fclose(f);
}

// Little CMS's own sRGB profile, or Adobe RGB (1998), which vexa has no colour space for.
std::vector<uint8_t> profile(bool adobe) {
    const cmsCIExyY white{0.3127, 0.3290, 1};
    const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}};
    cmsToneCurve* gamma = cmsBuildGamma(nullptr, 2.2);
    cmsToneCurve* curves[3] = {gamma, gamma, gamma};
    cmsHPROFILE p =
        adobe ? cmsCreateRGBProfile(&white, &primaries, curves) : cmsCreate_sRGBProfile();
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(p, nullptr, &size);
    std::vector<uint8_t> bytes(size);
    cmsSaveProfileToMem(p, bytes.data(), &size);
    cmsCloseProfile(p);
    cmsFreeToneCurve(gamma);
    return bytes;
}

// An iCCP chunk's data: name, compression method, the deflated profile.
std::vector<uint8_t> iccp(const std::vector<uint8_t>& profile) {
    uLongf size = compressBound(uLong(profile.size()));
    std::vector<uint8_t> data{'i', 'c', 'c', 0, 0};
    data.resize(5 + size);
    compress(&data[5], &size, profile.data(), uLong(profile.size()));
    data.resize(5 + size);
    return data;
}

using ColourTagTest = IoTest;

TEST_F(ColourTagTest, WhatVexaWritesReadsBackInBothFileTypes) {
    struct Case {
        int space, hdrType;
        int read;      // from PNG's cICP and JPEG's ICC profile
        int fallback;  // from PNG's sRGB or gAMA/cHRM alone
    };
    const Case cases[] = {
        {0, 0, kSpaceSrgb, kSpaceSrgb},
        {kSpaceSrgb, 0, kSpaceSrgb, kSpaceSrgb},
        {kSpaceBt709, 0, kSpaceBt709, kSpaceBt709},
        {kSpaceBt709Full, 0, kSpaceBt709, kSpaceBt709},
        {kSpaceBt601, 0, kSpaceBt601, kSpaceBt601},
        {kSpaceBt601_625, 0, kSpaceBt601_625, kSpaceBt601_625},
        {kSpaceDisplayP3, 0, kSpaceDisplayP3, kSpaceDisplayP3},
        {kSpaceBt2020Full, 0, kSpaceBt2020, kSpaceBt2020},
        {kSpaceBt2100, 3, kSpaceBt2100, kSpaceBt2020},  // gAMA has no PQ nor HLG
        {kSpaceBt2100, 4, kSpaceBt2100, kSpaceBt2020},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "space " << c.space << " hdr " << c.hdrType);
        Image image = noiseImage(kRgb, 8, 8);
        image.colorSpace = c.space;
        image.hdrType = c.hdrType;
        writeImage(path("a.png"), image);
        writeImage(path("a.jpg"), image);
        const Image png = readImage(path("a.png"));
        EXPECT_EQ(png.data, image.data);
        EXPECT_EQ(png.colorSpace, c.read);
        EXPECT_EQ(png.hdrType, c.hdrType);
        EXPECT_EQ(png.colorTag, "cICP");
        // sRGB is what a JPEG without a profile means, so none is written.
        const bool srgb = c.read == kSpaceSrgb;
        const Image jpeg = readImage(path("a.jpg"));
        EXPECT_EQ(jpeg.colorSpace, srgb ? 0 : c.read);
        EXPECT_EQ(jpeg.hdrType, c.hdrType);
        retag(path("a.png"), {}, "sRGB gAMA cHRM");  // as read without cICP
        const Image old = readImage(path("a.png"));
        EXPECT_EQ(old.colorSpace, c.fallback);
        EXPECT_EQ(old.colorTag, srgb ? "sRGB" : "gAMA/cHRM");
    }
}

TEST_F(ColourTagTest, ReadsTheTagsOfOtherWritersInTheirOrder) {
    const std::vector<uint8_t> p3 =
        bigEndian({31270, 32900, 68000, 32000, 26500, 69000, 15000, 6000});
    const std::vector<uint8_t> adobe =
        bigEndian({31270, 32900, 64000, 33000, 21000, 71000, 15000, 6000});
    struct Case {
        std::vector<Chunk> tags;
        int space, hdrType;
        const char* from;
    };
    const Case cases[] = {
        {{}, 0, 0, ""},
        {{{"sRGB", {0}}}, kSpaceSrgb, 0, "sRGB"},
        {{{"gAMA", bigEndian({45455})}}, kSpaceSrgb, 0, "gAMA/cHRM"},
        {{{"gAMA", bigEndian({41667})}}, kSpaceBt709, 0, "gAMA/cHRM"},
        {{{"gAMA", bigEndian({45455})}, {"cHRM", p3}}, kSpaceDisplayP3, 0, "gAMA/cHRM"},
        {{{"cHRM", adobe}}, 0, 0, "gAMA/cHRM, not recognised"},
        {{{"iCCP", iccp(profile(false))}}, kSpaceSrgb, 0, "ICC"},
        {{{"iCCP", iccp(profile(true))}}, 0, 0, "ICC, not recognised"},
        {{{"iCCP", iccp(profile(false))}, {"cICP", {9, 16, 0, 1}}}, kSpaceBt2100, 3, "cICP"},
        {{{"cICP", {11, 17, 0, 1}}}, 0, 0, "cICP, not recognised"},  // DCI-P3
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.from);
        writeImage(path("a.png"), noiseImage(kRgb, 2, 2));
        retag(path("a.png"), c.tags);
        const Image image = readImage(path("a.png"));
        EXPECT_EQ(image.colorSpace, c.space);
        EXPECT_EQ(image.hdrType, c.hdrType);
        EXPECT_EQ(image.colorTag, c.from);
    }
    // JPEG carries profiles in APP2; a grey one without comes out as untagged rgb.
    for (bool adobeProfile : {false, true}) {
        const std::vector<uint8_t> bytes = profile(adobeProfile);
        writeJpegWithLibjpeg(path("a.jpg"), noiseImage(kRgb, 8, 8), [&](jpeg_compress_struct& c) {
            jpeg_write_icc_profile(&c, bytes.data(), unsigned(bytes.size()));
        });
        EXPECT_EQ(readImage(path("a.jpg")).colorSpace, adobeProfile ? 0 : kSpaceSrgb);
    }
    writeJpegWithLibjpeg(path("grey.jpg"), {16, 8, kYuv420, std::vector<uint8_t>(128, 77)});
    const Image grey = readImage(path("grey.jpg"));
    ASSERT_EQ(describe(grey), "16x8 rgb, 384 bytes");
    for (uint8_t v : grey.data) EXPECT_NEAR(v, 77, 1);
    EXPECT_EQ(grey.colorTag, "");
}

// An EXIF block of two entries, a width and then the orientation, in either byte order.
std::vector<uint8_t> exif(uint8_t orientation, bool bigEndian) {
    if (bigEndian) {
        return {'E', 'x', 'i', 'f', 0, 0, 'M', 'M',         0, 42, 0, 0, 0,  8, 0,
                2,   1,   0,   0,   4, 0, 0,   0,           1, 0,  0, 0, 32, 1, 0x12,
                0,   3,   0,   0,   0, 1, 0,   orientation, 0, 0,  0, 0, 0,  0};
    }
    return {'E', 'x', 'i', 'f', 0, 0, 'I',         'I', 42, 0,  8, 0, 0, 0,    2,
            0,   0,   1,   4,   0, 1, 0,           0,   0,  32, 0, 0, 0, 0x12, 1,
            3,   0,   1,   0,   0, 0, orientation, 0,   0,  0,  0, 0, 0, 0};
}

TEST(Orientation, EveryExifValueTurnsThePictureUpright) {
    // A 3x2 picture whose pixels are numbered 10 * y + x + 1; the corners of the upright
    // picture (top left, top right, bottom left, bottom right) for each orientation.
    struct Case {
        uint8_t orientation, width, corners[4];
    };
    const Case cases[] = {{1, 3, {1, 3, 11, 13}}, {2, 3, {3, 1, 13, 11}}, {3, 3, {13, 11, 3, 1}},
                          {4, 3, {11, 13, 1, 3}}, {5, 2, {1, 11, 3, 13}}, {6, 2, {11, 1, 13, 3}},
                          {7, 2, {13, 3, 11, 1}}, {8, 2, {3, 13, 1, 11}}};
    for (const Case& c : cases) {
        for (bool bigEndian : {false, true}) {
            const std::vector<uint8_t> block = exif(c.orientation, bigEndian);
            EXPECT_EQ(detail::exifOrientation(block.data(), block.size()), c.orientation);
        }
        Image image{3, 2, kRgb, {}};
        for (uint8_t id : {1, 2, 3, 11, 12, 13}) image.data.insert(image.data.end(), {id, id, id});
        detail::orient(image, c.orientation);
        ASSERT_EQ(image.width, c.width);
        ASSERT_EQ(image.height, 6 / c.width);
        const size_t last = image.data.size() - 3;
        const size_t rowEnd = size_t(image.width) * 3 - 3;
        EXPECT_EQ((std::vector<uint8_t>{image.data[0], image.data[rowEnd],
                                        image.data[last - rowEnd], image.data[last]}),
                  std::vector<uint8_t>(c.corners, c.corners + 4))
            << int(c.orientation);
    }
    // Damaged or foreign blocks leave the picture as stored.
    std::vector<uint8_t> cut = exif(6, false), outOfRange = exif(9, true), notTiff = exif(6, false);
    cut.resize(cut.size() - 10);
    notTiff[6] = 'X';
    for (const auto& block : {cut, outOfRange, notTiff}) {
        EXPECT_EQ(detail::exifOrientation(block.data(), block.size()), 1);
    }
}

TEST_F(IoTest, JpegInputsComeUprightUnlessAskedNotTo) {
    Image stored{32, 16, kRgb, {}};  // red on the left, blue on the right
    for (int i = 0; i < 32 * 16; ++i) {
        const uint8_t left = i % 32 < 16 ? 255 : 0;
        stored.data.insert(stored.data.end(), {left, 0, uint8_t(255 - left)});
    }
    writeJpegWithLibjpeg(path("a.jpg"), stored, [](jpeg_compress_struct& c) {
        const std::vector<uint8_t> block = exif(6, true);
        jpeg_write_marker(&c, JPEG_APP0 + 1, block.data(), unsigned(block.size()));
    });
    const Image upright = readImage(path("a.jpg"));
    EXPECT_EQ(upright.orientation, 6);
    ASSERT_EQ(describe(upright), "16x32 rgb, 1536 bytes");
    // A quarter turn clockwise: the stored left half (red) is now on top.
    EXPECT_GT(upright.data[0], 250);
    EXPECT_GT(upright.data.back(), 250);
    RawOptions asStored;
    asStored.autoOrient = false;
    const Image kept = readImage(path("a.jpg"), asStored);
    EXPECT_EQ(kept.orientation, 6);
    EXPECT_EQ(describe(kept), "32x16 rgb, 1536 bytes");
    // Decoded smaller by the DCT while the upright picture stays at least this large.
    struct Shrink {
        int minWidth, minHeight;
        const char* size;
    };
    for (const Shrink& c :
         {Shrink{4, 8, "4x8"}, {5, 8, "8x16"}, {8, 17, "16x32"}, {0, 8, "16x32"}}) {
        RawOptions small;
        small.minWidth = c.minWidth;
        small.minHeight = c.minHeight;
        const Image image = readImage(path("a.jpg"), small);
        EXPECT_EQ(std::to_string(image.width) + "x" + std::to_string(image.height), c.size);
        EXPECT_EQ(image.shrink, 16 / image.width);
    }
}

TEST_F(IoTest, EncoderSettingsChangeWhatIsStoredButNotThePixels) {
    // Chroma subsampling: by quality, or as asked.
    struct Subsampling {
        int quality, asked, h, v;
    };
    for (const Subsampling& c : {Subsampling{90, 0, 1, 1},
                                 {89, 0, 2, 2},
                                 {95, 420, 2, 2},
                                 {50, 444, 1, 1},
                                 {92, 422, 2, 1}}) {
        writeImage(path("a.jpg"), noiseImage(kRgb, 16, 16), {c.quality, c.asked});
        // The first component's sampling factors, in the baseline frame header (SOF0).
        const std::vector<uint8_t> bytes = readBytes(path("a.jpg"));
        const uint8_t sof[] = {0xFF, 0xC0};
        const auto at = std::search(bytes.begin(), bytes.end(), sof, sof + 2) - bytes.begin();
        EXPECT_EQ(bytes.at(at + 11), c.h << 4 | c.v) << c.quality << " " << c.asked;
    }
    // Quality and sampling reach the encoder; large pictures, encoded in bands on every core,
    // decode as one encoder's output would.
    for (const Image& image : {noiseImage(kRgb, 33, 17), noiseImage(kRgb, 1024, 1037)}) {
        for (int luma : {1, 2}) {
            writeImage(path("a.jpg"), image, {100, luma == 1 ? 444 : 420});
            writeJpegWithLibjpeg(path("b.jpg"), image, {}, luma);
            EXPECT_TRUE(readImage(path("a.jpg")).data == readImage(path("b.jpg")).data)
                << image.width << " " << luma;
        }
    }
    // PNG compression: lossless at every level; 0 stores every byte.
    Image smooth{256, 64, kRgba, {}};
    for (int i = 0; i < 256 * 64; ++i) {
        smooth.data.insert(smooth.data.end(), {uint8_t(i), uint8_t(i / 256), 7, uint8_t(i * 3)});
    }
    for (int level : {0, -1, 6, 9}) {
        writeImage(path("a.png"), smooth, {92, 0, level});
        EXPECT_EQ(readImage(path("a.png")).data, smooth.data) << level;
        EXPECT_GT(fs::file_size(path("a.png")), level == 0 ? smooth.data.size() : 0) << level;
    }
}

}  // namespace
}  // namespace vexa::io::test
