// Folders of pictures in parallel, and the info command.
#include "CliSupport.h"

namespace vexa::cli::test {
namespace {

using vexa::io::kNv12;
using vexa::io::kRgb;
using vexa::io::kYuv420;

class BatchTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        fs::create_directories(path("in"));
        for (int i = 0; i < 5; ++i) {
            save("in/p" + std::to_string(i) + ".png", noise(kRgb, 20 + 2 * i, 10, i + 1));
        }
        writeBytes(path("in/notes.txt"), "not a picture");
    }
};

TEST_F(BatchTest, OneBadFileIsReportedAndTheOthersAreWritten) {
    const std::string png = slurp(path("in/p0.png"));
    writeBytes(path("in/bad.png"), png.substr(0, 40));
    const Outcome run = vexa({"rot", "in", "--angle", "90", "-o", "out", "-j", "2"});
    EXPECT_EQ(run.code, 1) << run.dump();
    EXPECT_EQ(countOf(run.err, "vexa: error: "), 1u) << run.err;
    EXPECT_TRUE(contains(run.err, "bad.png")) << run.err;
    EXPECT_TRUE(contains(run.err, "truncated")) << run.err;
    EXPECT_EQ(run.out.rfind("6 files, 1 failed, ", 0), 0u) << run.out;
    EXPECT_EQ(entries("out"),
              (std::vector<std::string>{"p0.png", "p1.png", "p2.png", "p3.png", "p4.png"}));
    for (int i = 0; i < 5; ++i) {
        const Image out = load("out/p" + std::to_string(i) + ".png");
        EXPECT_EQ(out.width, 10);
        EXPECT_EQ(out.height, 20 + 2 * i);
    }
}

TEST_F(BatchTest, FailuresOfTheOperationItselfAreCountedPerFile) {
    // Only the widest pictures hold the rectangle.
    const Outcome run = vexa({"crop", "in", "--rect", "0,0,25,4", "-o", "out", "-j", "2"});
    EXPECT_EQ(run.code, 1) << run.dump();
    EXPECT_EQ(countOf(run.err, "vexa: error: "), 3u) << run.err;
    for (const char* name : {"p0.png", "p1.png", "p2.png"}) {
        EXPECT_TRUE(contains(run.err, name)) << run.err;
    }
    EXPECT_EQ(run.out.rfind("5 files, 3 failed, ", 0), 0u) << run.out;
    EXPECT_EQ(entries("out"), (std::vector<std::string>{"p3.png", "p4.png"}));
}

TEST_F(BatchTest, AllGoodWithAnotherOutputType) {
    save("extra.yuv", noise(kYuv420, 16, 8));
    const Outcome run = vexa({"rsz", "in", "extra.yuv", "--size", "16x8", "--to", "12x6", "--ext",
                              "nv12", "-o", "out", "-j", "3"});
    EXPECT_EQ(run.code, 0) << run.dump();
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out.rfind("6 files, 0 failed, ", 0), 0u) << run.out;
    const std::vector<std::string> names = entries("out");
    EXPECT_EQ(names, (std::vector<std::string>{"extra.nv12", "p0.nv12", "p1.nv12", "p2.nv12",
                                               "p3.nv12", "p4.nv12"}));
    for (const std::string& name : names) {
        EXPECT_EQ(load("out/" + name, 12, 6).colorFormat, kNv12) << name;
    }
}

TEST_F(BatchTest, RefusedBeforeAnythingRuns) {
    // Two inputs whose outputs would share a name.
    save("in/p0.jpg", noise(kRgb, 8, 8));
    Outcome run = vexa({"rot", "in", "--angle", "90", "--ext", "png", "-o", "out"});
    EXPECT_EQ(run.code, 2) << run.dump();
    EXPECT_TRUE(contains(run.err, "p0.png") && contains(run.err, "p0.jpg")) << run.err;
    EXPECT_FALSE(fs::exists(path("out")) && !fs::is_empty(path("out")));

    run = vexa({"rot", "in/p1.png", "in/p2.png", "--angle", "90"});
    EXPECT_EQ(run.code, 2) << run.dump();
    EXPECT_TRUE(contains(run.err, "output folder")) << run.err;

    fs::create_directories(path("empty"));
    run = vexa({"rot", "empty", "--angle", "90", "-o", "out"});
    EXPECT_EQ(run.code, 2) << run.dump();
    EXPECT_TRUE(contains(run.err, "empty")) << run.err;
}

using InfoTest = CliTest;

TEST_F(InfoTest, PrintsTheBufferAndTheRecord) {
    save("in.png", noise(kRgb, 12, 6));
    Outcome run = vexa({"info", "in.png"});
    ASSERT_EQ(run.code, 0) << run.dump();
    for (const char* part : {"in.png: 12x6 rgb", "form=", "format=", "data=", "colorFormat=",
                             "plane 0: 12x6 stride=36"}) {
        EXPECT_TRUE(contains(run.out, part)) << part << " not in:\n" << run.out;
    }
    EXPECT_FALSE(contains(run.out, "plane 1"));

    save("in.nv12", noise(kNv12, 10, 6));
    run = vexa({"info", "in.nv12", "--size", "10x6"});
    ASSERT_EQ(run.code, 0) << run.dump();
    EXPECT_TRUE(contains(run.out, "10x6 nv12")) << run.out;
    EXPECT_TRUE(contains(run.out, "plane 1: 5x3")) << run.out;
    EXPECT_FALSE(contains(run.out, "plane 2"));

    run = vexa({"info", "in.nv12"});
    EXPECT_EQ(run.code, 1) << run.dump();
    EXPECT_TRUE(contains(run.err, "in.nv12")) << run.err;
    run = vexa({"info", "nothing.png"});
    EXPECT_EQ(run.code, 1) << run.dump();
    EXPECT_TRUE(contains(run.err, "nothing.png")) << run.err;
}

TEST_F(InfoTest, VerboseShowsWhatTheLibraryWasHanded) {
    save("in.png", noise(kRgb, 34, 18));
    const Outcome run = vexa({"rszPd", "in.png", "--factor", "4", "-v", "-o", "out.png"});
    ASSERT_EQ(run.code, 0) << run.dump();
    // Packed input is made planar and cut to a multiple of 8 before downscaling.
    EXPECT_TRUE(contains(run.out, "trimming 34x18 to 32x16")) << run.out;
    EXPECT_TRUE(contains(run.out, "input record: colorFormat=")) << run.out;
    EXPECT_TRUE(contains(run.out, "output record: colorFormat=")) << run.out;
    EXPECT_TRUE(contains(run.out, "rszPd returned 0")) << run.out;
    EXPECT_EQ(load("out.png").width, 8);
}

}  // namespace
}  // namespace vexa::cli::test
