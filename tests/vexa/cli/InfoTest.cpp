// The info command, and what --verbose shows of the buffers handed to the library.
#include "CliSupport.h"

namespace vexa::cli::test {
namespace {

using vexa::io::kNv12;
using vexa::io::kRgb;

class InfoTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        save("in.png", noiseImage(kRgb, 12, 6));
        save("in.nv12", noiseImage(kNv12, 10, 6));
        fs::create_directories(path("d"));
        std::string clip = "YUV4MPEG2 W4 H2 F30000:1001 C420\n";
        for (int i = 0; i < 3; ++i) clip += "FRAME\n" + std::string(12, char(16 + i));
        writeBytes(path("d/clip.y4m"), clip);
    }
    std::string bytes(const std::string& name) const {
        return std::to_string(fs::file_size(path(name))) + " bytes";
    }
};

TEST_F(InfoTest, SummaryJsonAndVerbose) {
    Outcome run = ok({"info", "in.png", "in.nv12", "d", "--size", "10x6"});
    EXPECT_EQ(run.out,
              "in.png: PNG, 12x6, rgb (8-bit RGB), sRGB (cICP tag), 1 frame, " + bytes("in.png") +
                  "\nin.nv12: raw nv12, 10x6, nv12 (8-bit YUV 4:2:0, Y plane and interleaved "
                  "CbCr), BT.709, limited range (assumed: untagged), 1 frame, 90 bytes\n"
                  "d/clip.y4m: Y4M, 4x2, yuv420 (8-bit YUV 4:2:0, three planes), BT.709, limited "
                  "range (assumed: untagged), 3 frames at 29.97 fps, " +
                  bytes("d/clip.y4m") + "\n");
    EXPECT_FALSE(contains(run.out, "record"));

    run = ok({"info", "--json", "in.png", "d", "--color-space", "bt2020"});
    EXPECT_EQ(run.out,
              "[\n  {\"file\": \"in.png\", \"type\": \"PNG\", \"width\": 12, \"height\": 6, "
              "\"colorFormat\": \"rgb\", \"bits\": 8, \"colorSpace\": \"bt2020\", "
              "\"colorSpaceAssumed\": false, \"colorTag\": \"cICP\", \"transfer\": null, "
              "\"orientation\": 1, \"frames\": 1, \"frameRate\": null, \"bytes\": " +
                  std::to_string(fs::file_size(path("in.png"))) +
                  ", \"frameBytes\": 216},\n  {\"file\": \"d/clip.y4m\", \"type\": \"Y4M\", "
                  "\"width\": 4, \"height\": 2, \"colorFormat\": \"yuv420\", \"bits\": 8, "
                  "\"colorSpace\": \"bt2020\", \"colorSpaceAssumed\": false, \"colorTag\": null, "
                  "\"transfer\": null, \"orientation\": 1, \"frames\": 3, "
                  "\"frameRate\": \"30000:1001\", \"bytes\": 87, \"frameBytes\": 12}\n]\n");

    // The tag a file carries, as vexa wrote it.
    ok({"gamut", "in.png", "--to-space", "bt2020", "-o", "wide.png"});
    EXPECT_TRUE(contains(ok({"info", "wide.png"}).out, "rgb (8-bit RGB), BT.2020 (cICP tag), "));

    run = vexa({"info", "-"}, path("d/clip.y4m"));
    EXPECT_EQ(run.out,
              "standard input: Y4M, 4x2, yuv420 (8-bit YUV 4:2:0, three planes), BT.709, limited "
              "range (assumed: untagged), 3 frames at 29.97 fps, from a pipe\n");

    run = ok({"info", "in.nv12", "--size", "10x6", "-v"});
    expectMentions(run.out, {"buffer: {", "data=", "record: colorFormat=", "plane 1: 5x3"});
    EXPECT_FALSE(contains(run.out, "plane 2"));
}

TEST_F(InfoTest, OneBadFileIsReportedAndTheOthersDescribed) {
    for (const char* flag : {"--verbose", "--json"}) {
        const Outcome run = vexa({"info", "in.png", "nothing.png", "in.nv12", "d", flag});
        EXPECT_EQ(run.code, 1) << run.dump();
        EXPECT_EQ(countOf(run.err, "vexa: error: "), 2u) << run.err;
        expectMentions(run.err, {"nothing.png", "in.nv12", "--size"});
        expectMentions(run.out, {"in.png", "d/clip.y4m"});
    }
}

TEST_F(InfoTest, VerboseShowsWhatTheLibraryWasHanded) {
    save("in.png", noiseImage(kRgb, 34, 18));
    const Outcome run = ok({"rszPd", "in.png", "--factor", "4", "-v", "-o", "out.png"});
    // Packed input is made planar and cut to a multiple of 8 before downscaling.
    expectMentions(run.out, {"trimming 34x18 to 32x16", "input record: colorFormat=",
                             "output record: colorFormat=", "rszPd returned 0"});
    EXPECT_EQ(load("out.png").width, 8);
}

}  // namespace
}  // namespace vexa::cli::test
