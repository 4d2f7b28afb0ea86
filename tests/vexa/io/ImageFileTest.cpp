// Layout helpers, round trips through every file type, raw frames and safe writing.
#include <signal.h>
#include <sys/resource.h>

#include "TestSupport.h"

namespace vexa::io::test {
namespace {

TEST(ImageLayout, ExtensionsMapToStoredFormats) {
    const std::pair<const char*, int> cases[] = {
        {"a/b.PNG", kRgba},  {"x.jpg", kRgb},   {"x.JPEG", kRgb},  {"x.y4m", kYuv420},
        {"x.yuv", kYuv420},  {"x.nv12", kNv12}, {"x.Nv21", kNv21}, {"x.rgb", kRgb},
        {"x.rgba", kRgba},   {"x.bgra", kBgra}, {"x.bmp", 0},      {"png", 0},
        {"dir.png/file", 0}, {"x.png.txt", 0},
    };
    for (auto [name, format] : cases) {
        EXPECT_EQ(preferredColorFormatForExtension(name), format) << name;
        EXPECT_EQ(isSupportedInput(name), format != 0) << name;
        EXPECT_EQ(isSupportedOutput(name), format != 0) << name;
    }
}

using RoundTripTest = IoTest;

TEST_F(RoundTripTest, EveryLosslessTypeReadsBackExactly) {
    struct Case {
        const char* file;
        int colorFormat, width, height;
    };
    for (const Case& c : {Case{"a.png", kRgb, 33, 17},
                          {"a.png", kRgba, 33, 17},
                          {"a.PNG", kRgba, 1, 1},
                          {"a.y4m", kYuv420, 33, 17},
                          {"a.y4m", kYuv420, 1, 1},
                          {"a.yuv", kYuv420, 33, 17},
                          {"a.nv12", kNv12, 33, 17},
                          {"a.nv21", kNv21, 33, 17},
                          {"a.NV12", kNv12, 64, 48},
                          {"a.rgb", kRgb, 33, 17},
                          {"a.rgba", kRgba, 33, 17},
                          {"a.bgra", kBgra, 33, 17}}) {
        SCOPED_TRACE(testing::Message() << c.file << " " << c.width << "x" << c.height);
        const Image written = noiseImage(c.colorFormat, c.width, c.height, 7);
        writeImage(path(c.file), written);
        const Image read = readImage(path(c.file), {c.width, c.height});
        EXPECT_EQ(describe(read), describe(written));
        EXPECT_TRUE(read.data == written.data);
        EXPECT_EQ(entries(), std::vector<std::string>{c.file});  // no temporary left behind
        fs::remove(path(c.file));
    }
}

using RawTest = IoTest;

TEST_F(RawTest, PicksTheRequestedFrame) {
    std::vector<uint8_t> file;
    std::vector<Image> frames;
    for (uint32_t i = 0; i < 3; ++i) {
        frames.push_back(noiseImage(kNv21, 33, 17, i + 1));
        file.insert(file.end(), frames.back().data.begin(), frames.back().data.end());
    }
    writeBytes(path("clip.nv21"), file);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(readImage(path("clip.nv21"), {33, 17, 0, i}).data == frames[i].data) << i;
    }
    expectReadFails("clip.nv21", {"frame 3", "3 frame(s)"}, {33, 17, 0, 3});
    expectReadFails("clip.nv21", {"frame -1"}, {33, 17, 0, -1});
}

TEST_F(RawTest, FormatOverrideAndBadSizes) {
    const Image nv12 = noiseImage(kNv12, 6, 4);
    writeBytes(path("a.yuv"), nv12.data);
    const Image read = readImage(path("a.yuv"), {6, 4, kNv12});
    EXPECT_EQ(read.colorFormat, kNv12);
    EXPECT_TRUE(read.data == nv12.data);

    expectReadFails("a.yuv", {"width and height"});
    expectReadFails("a.yuv", {"42"}, {6, 4, 42});
    expectReadFails("a.yuv", {"limit of 65536 per side"}, {70000, 2});
    expectReadFails("a.yuv", {"limit of 65536 per side"}, {2, 70000});
    expectReadFails("a.yuv", {"limit"}, {40000, 40000, kRgba});
    expectReadFails("a.yuv", {"invalid size"}, {-6, 4});
    // A size mismatch says both sizes.
    expectReadFails("a.yuv", {"867", "36 bytes"}, {33, 17});
    writeBytes(path("empty.rgb"), {});
    expectReadFails("empty.rgb", {"12", "0 bytes"}, {2, 2});
}

TEST_F(IoTest, MissingUnknownAndDirectoryInputs) {
    expectReadFails("none.png", {"does not exist"});
    writeBytes(path("a.bmp"), {1, 2, 3});
    expectReadFails("a.bmp", {"'.bmp'"});
    fs::create_directory(path("d.png"));
    expectReadFails("d.png", {"directory"});
}

using WriteTest = IoTest;

TEST_F(WriteTest, RefusesWhatTheFileTypeCannotHoldAndCreatesNothing) {
    const std::pair<const char*, int> cases[] = {{"a.png", kNv12},  {"a.jpg", kRgba},
                                                 {"a.bgra", kRgba}, {"a.y4m", kNv12},
                                                 {"a.yuv", kNv21},  {"a.bmp", kRgb}};
    for (const auto& [name, format] : cases) {
        expectWriteFails(name, noiseImage(format, 4, 4), {colorFormatName(format)});
    }
    Image shortData = noiseImage(kRgb, 4, 4);
    shortData.data.pop_back();
    expectWriteFails("a.rgb", shortData, {"47 bytes", "48"});
    expectWriteFails("a.jpg", noiseImage(kRgb, 4, 4), {"quality 0"}, {0});
    expectWriteFails("a.jpg", noiseImage(kRgb, 4, 4), {"subsampling 411"}, {92, 411});
    expectWriteFails("a.png", noiseImage(kRgb, 4, 4), {"compression 10"}, {92, 0, 10});
    expectWriteFails("no/such/a.png", noiseImage(kRgb, 4, 4), {"does not exist"});
    EXPECT_TRUE(entries().empty());
}

TEST_F(WriteTest, FailureMidWriteKeepsTheOldFileAndNoTemporary) {
    const std::vector<uint8_t> old{'o', 'l', 'd'};
    for (const auto& [name, format] :
         {std::pair{"a.png", kRgba}, {"a.rgba", kRgba}, {"a.jpg", kRgb}, {"a.y4m", kYuv420}}) {
        writeBytes(path(name), old);
        // Caps the size of files this process may write, so the write fails halfway through;
        // SIGXFSZ ignored gives EFBIG instead of the end of the process.
        const sighandler_t handler = ::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit saved = limit;
        limit.rlim_cur = 4096;
        ::setrlimit(RLIMIT_FSIZE, &limit);
        expectWriteFails(name, noiseImage(format, 256, 256), {"File too large"});
        ::setrlimit(RLIMIT_FSIZE, &saved);
        ::signal(SIGXFSZ, handler);
        EXPECT_EQ(readBytes(path(name)), old) << name;
        EXPECT_EQ(entries(), std::vector<std::string>{name});
        fs::remove(path(name));
    }
}

TEST_F(WriteTest, ReplacesAFileButNotAFolder) {
    writeBytes(path("a.rgb"), std::vector<uint8_t>(1000, 9));
    const Image image = noiseImage(kRgb, 4, 4);
    writeImage(path("a.rgb"), image);
    EXPECT_EQ(readBytes(path("a.rgb")), image.data);
    // The failed rename removes the temporary.
    fs::create_directory(path("a.png"));
    expectWriteFails("a.png", image, {"replace"});
    EXPECT_EQ(entries(), (std::vector<std::string>{"a.png", "a.rgb"}));
}

}  // namespace
}  // namespace vexa::io::test
