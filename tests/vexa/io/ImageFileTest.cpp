// Layout helpers, round trips through every file type, raw frames and safe writing.
#include <signal.h>
#include <sys/resource.h>

#include "TestSupport.h"

namespace vexa::io::test {
namespace {

TEST(ImageLayout, ByteSizesFollowTheFrameworkPlanes) {
    for (auto [w, h] : {std::pair{1, 1}, {2, 2}, {33, 17}, {1920, 1080}}) {
        const size_t luma = size_t(w) * h;
        const size_t nv = luma + size_t((w + 1) & ~1) * ((h + 1) / 2);
        EXPECT_EQ(imageByteSize(kNv12, w, h), nv) << w << "x" << h;
        EXPECT_EQ(imageByteSize(kNv21, w, h), nv);
        EXPECT_EQ(imageByteSize(kYuv420, w, h), luma + 2 * size_t((w + 1) / 2) * ((h + 1) / 2));
        EXPECT_EQ(imageByteSize(kBgr, w, h), luma * 3);
        EXPECT_EQ(imageByteSize(kArgb, w, h), luma * 4);
    }
    EXPECT_EQ(imageByteSize(kRgb, 0, 5), 0u);
    EXPECT_EQ(imageByteSize(kRgb, 5, -1), 0u);
    EXPECT_EQ(imageByteSize(6, 4, 4), 0u);  // p010: not 8-bit
    EXPECT_EQ(describe(noiseImage(kNv12, 1920, 1080)), "1920x1080 nv12, 3110400 bytes");
}

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

struct RoundTrip {
    const char* file;
    int colorFormat;
    int width, height;
};

class RoundTripTest : public IoTest, public ::testing::WithParamInterface<RoundTrip> {};

TEST_P(RoundTripTest, ReadsBackExactly) {
    const RoundTrip& p = GetParam();
    const Image written = noiseImage(p.colorFormat, p.width, p.height, 7);
    writeImage(path(p.file), written);
    const Image read = readImage(path(p.file), {p.width, p.height});
    EXPECT_EQ(read.width, p.width);
    EXPECT_EQ(read.height, p.height);
    EXPECT_EQ(read.colorFormat, p.colorFormat);
    EXPECT_TRUE(read.data == written.data) << describe(read);
    EXPECT_EQ(entries(), std::vector<std::string>{p.file});  // no temporary left behind
}

INSTANTIATE_TEST_SUITE_P(
    AllLosslessTypes, RoundTripTest,
    ::testing::Values(RoundTrip{"a.png", kRgb, 33, 17}, RoundTrip{"a.png", kRgba, 33, 17},
                      RoundTrip{"a.PNG", kRgba, 1, 1}, RoundTrip{"a.y4m", kYuv420, 33, 17},
                      RoundTrip{"a.y4m", kYuv420, 1, 1}, RoundTrip{"a.yuv", kYuv420, 33, 17},
                      RoundTrip{"a.nv12", kNv12, 33, 17}, RoundTrip{"a.nv21", kNv21, 33, 17},
                      RoundTrip{"a.NV12", kNv12, 64, 48}, RoundTrip{"a.rgb", kRgb, 33, 17},
                      RoundTrip{"a.rgba", kRgba, 33, 17}, RoundTrip{"a.bgra", kBgra, 33, 17}),
    [](const ::testing::TestParamInfo<RoundTrip>& info) {
        std::string name =
            std::string(info.param.file) + "_" + colorFormatName(info.param.colorFormat) + "_" +
            std::to_string(info.param.width) + "x" + std::to_string(info.param.height);
        std::replace(name.begin(), name.end(), '.', '_');
        return name;
    });

class RawTest : public IoTest {};

TEST_F(RawTest, SizeMismatchSaysExpectedAndActual) {
    writeBytes(path("a.yuv"), std::vector<uint8_t>(100));
    expectMentions(errorOf([&] {
                       readImage(path("a.yuv"), {33, 17});
                   }),
                   {path("a.yuv"), "867", "100 bytes"});
    writeBytes(path("empty.rgb"), {});
    expectMentions(errorOf([&] { readImage(path("empty.rgb"), {2, 2}); }), {"12", "0 bytes"});
}

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
    expectMentions(errorOf([&] {
                       readImage(path("clip.nv21"), {33, 17, 0, 3});
                   }),
                   {"frame 3", "3 frame(s)"});
    expectMentions(errorOf([&] { readImage(path("clip.nv21"), {33, 17, 0, -1}); }), {"frame -1"});
}

TEST_F(RawTest, FormatOverrideAndBadSizes) {
    const Image nv12 = noiseImage(kNv12, 6, 4);
    writeBytes(path("a.yuv"), nv12.data);
    const Image read = readImage(path("a.yuv"), {6, 4, kNv12});
    EXPECT_EQ(read.colorFormat, kNv12);
    EXPECT_TRUE(read.data == nv12.data);

    expectMentions(errorOf([&] { readImage(path("a.yuv")); }), {"width and height"});
    expectMentions(errorOf([&] { readImage(path("a.yuv"), {6, 4, 42}); }), {"42"});
    expectMentions(errorOf([&] { readImage(path("a.yuv"), {70000, 1}); }), {"limit"});
    expectMentions(errorOf([&] { readImage(path("a.yuv"), {40000, 40000, kRgba}); }), {"limit"});
    expectMentions(errorOf([&] { readImage(path("a.yuv"), {-6, 4}); }), {"invalid size"});
}

class ReadErrorTest : public IoTest {};

TEST_F(ReadErrorTest, MissingUnknownAndDirectory) {
    expectMentions(errorOf([&] { readImage(path("none.png")); }),
                   {path("none.png"), "does not exist"});
    writeBytes(path("a.bmp"), {1, 2, 3});
    expectMentions(errorOf([&] { readImage(path("a.bmp")); }), {path("a.bmp"), "'.bmp'"});
    fs::create_directory(path("d.png"));
    expectMentions(errorOf([&] { readImage(path("d.png")); }), {"directory"});
}

class WriteTest : public IoTest {};

TEST_F(WriteTest, RefusesWhatTheFileTypeCannotHold) {
    const std::pair<const char*, Image> cases[] = {
        {"a.png", noiseImage(kNv12, 4, 4)},  {"a.jpg", noiseImage(kRgba, 4, 4)},
        {"a.bgra", noiseImage(kRgba, 4, 4)}, {"a.y4m", noiseImage(kNv12, 4, 4)},
        {"a.yuv", noiseImage(kNv21, 4, 4)},  {"a.bmp", noiseImage(kRgb, 4, 4)},
    };
    for (const auto& [name, image] : cases) {
        expectMentions(errorOf([&] { writeImage(path(name), image); }),
                       {path(name), colorFormatName(image.colorFormat)});
    }
    Image shortData = noiseImage(kRgb, 4, 4);
    shortData.data.pop_back();
    expectMentions(errorOf([&] { writeImage(path("a.rgb"), shortData); }), {"47 bytes", "48"});
    expectMentions(errorOf([&] { writeImage(path("a.jpg"), noiseImage(kRgb, 4, 4), {0}); }),
                   {"quality 0"});
    EXPECT_TRUE(entries().empty());
}

TEST_F(WriteTest, MissingFolderCreatesNothing) {
    expectMentions(errorOf([&] { writeImage(path("no/such/a.png"), noiseImage(kRgb, 4, 4)); }),
                   {path("no/such/a.png"), "does not exist"});
    EXPECT_TRUE(entries().empty());
}

// Caps the size of files this process may write, so a write fails halfway through.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        oldHandler_ = ::signal(SIGXFSZ, SIG_IGN);  // get EFBIG instead of being killed
        ::getrlimit(RLIMIT_FSIZE, &old_);
        rlimit capped = old_;
        capped.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &capped);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &old_);
        ::signal(SIGXFSZ, oldHandler_);
    }

  private:
    rlimit old_{};
    sighandler_t oldHandler_;
};

TEST_F(WriteTest, FailureMidWriteKeepsTheOldFileAndNoTemporary) {
    const std::vector<uint8_t> old{'o', 'l', 'd'};
    for (const auto& [name, format] :
         {std::pair{"a.png", kRgba}, {"a.rgba", kRgba}, {"a.jpg", kRgb}, {"a.y4m", kYuv420}}) {
        writeBytes(path(name), old);
        std::string message;
        {
            FileSizeLimit limit(4096);
            message = errorOf([&] { writeImage(path(name), noiseImage(format, 256, 256)); });
        }
        expectMentions(message, {path(name), "File too large"});
        EXPECT_EQ(readBytes(path(name)), old) << name;
        EXPECT_EQ(entries(), std::vector<std::string>{name});
        fs::remove(path(name));
    }
}

TEST_F(WriteTest, FailedRenameRemovesTheTemporary) {
    fs::create_directory(path("a.png"));
    expectMentions(errorOf([&] { writeImage(path("a.png"), noiseImage(kRgb, 4, 4)); }),
                   {path("a.png"), "replace"});
    EXPECT_EQ(entries(), std::vector<std::string>{"a.png"});
}

TEST_F(WriteTest, ReplacesAnExistingFile) {
    writeBytes(path("a.rgb"), std::vector<uint8_t>(1000, 9));
    const Image image = noiseImage(kRgb, 4, 4);
    writeImage(path("a.rgb"), image);
    EXPECT_EQ(readBytes(path("a.rgb")), image.data);
}

}  // namespace
}  // namespace vexa::io::test
