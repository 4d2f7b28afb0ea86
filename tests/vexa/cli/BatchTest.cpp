// Folders of pictures in parallel, and the info command.
#include "CliSupport.h"

namespace vexa::cli::test {
namespace {

using vexa::io::kNv12;
using vexa::io::kRgb;
using vexa::io::kYuv420;
using Names = std::vector<std::string>;

class BatchTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        fs::create_directories(path("in"));
        for (int i = 0; i < 5; ++i) {
            save("in/p" + std::to_string(i) + ".png", noiseImage(kRgb, 20 + 2 * i, 10, i + 1));
        }
        writeBytes(path("in/notes.txt"), "not a picture");
    }

    // Runs a batch expecting `code`, `failed` errors naming `failures`, and the summary line.
    Outcome batch(const Names& args, int code, size_t files, size_t failed,
                  const Names& failures = {}) {
        const Outcome run = vexa(args);
        EXPECT_EQ(run.code, code) << run.dump();
        EXPECT_EQ(countOf(run.err, "vexa: error: "), failed) << run.err;
        expectMentions(run.err, failures);
        const std::string summary =
            std::to_string(files) + " files, " + std::to_string(failed) + " failed, ";
        EXPECT_EQ(run.out.rfind(summary, 0), 0u) << run.out;
        return run;
    }
};

TEST_F(BatchTest, OneBadFileIsReportedAndTheOthersAreWritten) {
    writeBytes(path("in/bad.png"), slurp(path("in/p0.png")).substr(0, 40));
    batch({"rot", "in", "--angle", "90", "-o", "out", "-j", "2"}, 1, 6, 1,
          {"bad.png", "truncated"});
    EXPECT_EQ(entries("out"), (Names{"p0.png", "p1.png", "p2.png", "p3.png", "p4.png"}));
    for (int i = 0; i < 5; ++i) {
        const Image out = load("out/p" + std::to_string(i) + ".png");
        EXPECT_EQ(out.width, 10);
        EXPECT_EQ(out.height, 20 + 2 * i);
    }
}

TEST_F(BatchTest, FailuresOfTheOperationItselfAreCountedPerFile) {
    // Only the widest pictures hold the rectangle.
    batch({"crop", "in", "--rect", "0,0,25,4", "-o", "out", "-j", "2"}, 1, 5, 3,
          {"p0.png", "p1.png", "p2.png"});
    EXPECT_EQ(entries("out"), (Names{"p3.png", "p4.png"}));
}

TEST_F(BatchTest, AllGoodWithAnotherOutputType) {
    save("extra.yuv", noiseImage(kYuv420, 16, 8));
    const Outcome run = batch({"rsz", "in", "extra.yuv", "--size", "16x8", "--to", "12x6", "--ext",
                               "nv12", "-o", "out", "-j", "3"},
                              0, 6, 0);
    EXPECT_EQ(run.err, "");
    const Names names = entries("out");
    EXPECT_EQ(names, (Names{"extra.nv12", "p0.nv12", "p1.nv12", "p2.nv12", "p3.nv12", "p4.nv12"}));
    for (const std::string& name : names) {
        EXPECT_EQ(load("out/" + name, 12, 6).colorFormat, kNv12) << name;
    }
}

TEST_F(BatchTest, RefusedBeforeAnythingRuns) {
    save("in/p0.jpg", noiseImage(kRgb, 8, 8));  // its output would share a name with p0.png's
    fs::create_directories(path("empty"));
    for (const auto& [args, parts] : std::vector<std::pair<Names, Names>>{
             {{"rot", "in", "--angle", "90", "--ext", "png", "-o", "out"}, {"p0.png", "p0.jpg"}},
             {{"rot", "in/p1.png", "in/p2.png", "--angle", "90"}, {"output folder"}},
             {{"rot", "empty", "--angle", "90", "-o", "out"}, {"empty"}}}) {
        const Outcome run = vexa(args);
        EXPECT_EQ(run.code, 2) << run.dump();
        expectMentions(run.err, parts);
        EXPECT_FALSE(fs::exists(path("out")) && !fs::is_empty(path("out")));
    }
}

using InfoTest = CliTest;

TEST_F(InfoTest, PrintsTheBufferAndTheRecord) {
    save("in.png", noiseImage(kRgb, 12, 6));
    save("in.nv12", noiseImage(kNv12, 10, 6));
    Outcome run = ok({"info", "in.png"});
    expectMentions(run.out, {"in.png: 12x6 rgb", "form=", "format=", "data=", "colorFormat=",
                             "plane 0: 12x6 stride=36"});
    EXPECT_FALSE(contains(run.out, "plane 1"));
    run = ok({"info", "in.nv12", "--size", "10x6"});
    expectMentions(run.out, {"10x6 nv12", "plane 1: 5x3"});
    EXPECT_FALSE(contains(run.out, "plane 2"));

    for (const char* name : {"in.nv12", "nothing.png"}) {
        run = vexa({"info", name});
        EXPECT_EQ(run.code, 1) << run.dump();
        expectMentions(run.err, {name});
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
