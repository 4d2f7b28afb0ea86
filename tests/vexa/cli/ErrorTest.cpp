// Bad input of every kind: a non-zero exit, one message naming the file and the cause, and
// nothing written.
#include "CliSupport.h"

namespace vexa::cli::test {
namespace {

using vexa::io::kRgb;
using vexa::io::kYuv420;

struct Refusal {
    std::vector<std::string> args;
    int code;
    std::vector<std::string> parts;  // each must be in the message
};

class ErrorTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        save("in.png", noiseImage(kRgb, 64, 48));
        save("in.yuv", noiseImage(kYuv420, 34, 18));
        const std::string png = slurp(path("in.png"));
        writeBytes(path("cut.png"), png.substr(0, png.size() / 2));
        writeBytes(path("text.png"), "not a picture at all");
        fs::copy_file(path("in.png"), path("in.bmp"));
        before_ = entries();
    }

    // Each command must fail with its code, saying every one of its parts, writing nothing.
    void expectRefused(const std::vector<Refusal>& refusals) {
        for (const Refusal& r : refusals) {
            SCOPED_TRACE(::testing::PrintToString(r.args));
            const Outcome run = vexa(r.args);
            EXPECT_EQ(run.code, r.code) << run.dump();
            EXPECT_EQ(run.out, "");
            EXPECT_EQ(run.err.rfind("vexa: error: ", 0), 0u) << run.err;
            EXPECT_EQ(countOf(run.err, "\n"), 1u) << run.err;
            for (const std::string& part : r.parts) EXPECT_TRUE(contains(run.err, part)) << run.err;
            EXPECT_EQ(entries(), before_);
        }
    }

    std::vector<std::string> before_;
};

// clang-format off
TEST_F(ErrorTest, UnreadableInputs) {
    expectRefused({
        {{"rot", "missing.png", "--angle", "90", "-o", "out.png"}, 1, {"missing.png", "does not exist"}},
        {{"rot", "cut.png", "--angle", "90", "-o", "out.png"}, 1, {"cut.png", "truncated"}},
        {{"rot", "text.png", "--angle", "90", "-o", "out.png"}, 1, {"text.png", "PNG"}},
        {{"rot", "in.bmp", "--angle", "90", "-o", "out.png"}, 1, {"in.bmp", "unknown file type"}},
        {{"rot", "in.yuv", "--size", "30x18", "--angle", "90", "-o", "out.png"}, 1, {"in.yuv", "size mismatch"}},
        {{"rot", "in.yuv", "--angle", "90", "-o", "out.png"}, 1, {"in.yuv", "width and height"}},
        // The file holds one frame only.
        {{"rot", "in.yuv", "--size", "34x18", "--frame", "1", "--angle", "90", "-o", "out.png"}, 1, {"in.yuv", "frame"}},
    });
}

TEST_F(ErrorTest, UnknownOutputTypes) {
    expectRefused({
        {{"rot", "in.png", "--angle", "90", "-o", "out.bmp"}, 2, {"out.bmp", "unknown file type"}},
        {{"rot", "in.png", "--angle", "90", "--ext", "tiff"}, 2, {"in.rot.tiff", "unknown file type"}},
        {{"rot", "in.png", "--angle", "90", "-o", "in.png"}, 2, {"in.png", "overwrite its own input"}},
    });
}

TEST_F(ErrorTest, ImpossibleSizesAndRectangles) {
    std::vector<Refusal> refusals{
        {{"rszPd", "in.png", "--to", "65x10", "-o", "out.png"}, 1, {"in.png", "only shrinks"}},
        {{"rszPd", "in.png", "--factor", "25", "-o", "out.png"}, 1, {"in.png", "too small"}},
        {{"rszPd", "in.png", "-o", "out.png"}, 2, {"--factor"}},
        // The plugin's resize would quietly even the sides of a 4:2:0 picture.
        {{"rsz", "in.yuv", "--size", "34x18", "--to", "33x18", "-o", "out.yuv"}, 1, {"in.yuv", "even"}},
        {{"rszCsc", "in.png", "--to", "33x17", "--to-format", "nv12", "-o", "out.nv12"}, 1, {"in.png", "even"}},
    };
    for (const std::string size : {"0x10", "70000x10", "10x-4", "10", "10x10x10", "axb"}) {
        refusals.push_back({{"rsz", "in.png", "--to", size, "-o", "out.png"}, 2, {"'" + size + "'"}});
        refusals.push_back({{"rot", "in.yuv", "--size", size, "--angle", "90", "-o", "out.png"}, 2, {"'" + size + "'"}});
    }
    for (const std::string rect : {"60,40,10,10", "0,0,65,48", "64,0,1,1", "0,48,1,1"}) {
        refusals.push_back({{"crop", "in.png", "--rect", rect, "-o", "out.png"}, 1, {"in.png", "outside the 64x48 picture"}});
    }
    for (const std::string rect : {"1,2,3", "-1,0,4,4", "0,0,0,4", "1,2,3,4,5", "a,b,c,d"}) {
        refusals.push_back({{"crop", "in.png", "--rect", rect, "-o", "out.png"}, 2, {"'" + rect + "'"}});
    }
    expectRefused(refusals);
}

// The plugin's own mirror and the perceptual downscaler only know planar YUV; a work format
// they cannot read must be refused rather than crash or give garbage.
TEST_F(ErrorTest, UnknownNamesAndUnusableWorkFormats) {
    expectRefused({
        {{"csc", "in.png", "--to-format", "yuv422", "-o", "out.png"}, 2, {"'yuv422'", "colour format"}},
        {{"rot", "in.yuv", "--size", "34x18", "--format", "p010", "--angle", "90", "-o", "out.png"}, 2, {"'p010'", "colour format"}},
        {{"rot", "in.png", "--work-format", "gray", "--angle", "90", "-o", "out.png"}, 2, {"'gray'"}},
        {{"cgc", "in.png", "--to-space", "adobe", "-o", "out.png"}, 2, {"'adobe'", "colour space"}},
        {{"rot", "in.png", "--angle", "45", "-o", "out.png"}, 2, {"'45'"}},
        {{"flip", "in.png", "--direction", "sideways", "-o", "out.png"}, 2, {"'sideways'"}},
        {{"hdrToSdr", "in.png", "--hdr-type", "dolby", "-o", "out.png"}, 2, {"'dolby'"}},
        {{"flip", "in.png", "--direction", "h", "--own", "--work-format", "rgb", "-o", "out.png"}, 1, {"in.png", "rgb"}},
        {{"rszPd", "in.png", "--factor", "2", "--work-format", "rgba", "-o", "out.png"}, 1, {"in.png", "rgba"}},
    });
}
// clang-format on

TEST_F(ErrorTest, FailureKeepsAnExistingOutput) {
    save("out.png", noiseImage(kRgb, 5, 5, 7));
    const std::string old = slurp(path("out.png"));
    before_ = entries();
    expectRefused({{{"crop", "in.png", "--rect", "0,0,100,100", "-o", "out.png"}, 1, {"in.png"}}});
    EXPECT_EQ(slurp(path("out.png")), old);
}

TEST_F(ErrorTest, UsageErrorsOfTheParser) {
    for (const auto& args : std::vector<std::vector<std::string>>{
             {},
             {"sharpen", "in.png"},
             {"rot", "--angle", "90"},
             {"rsz", "in.png"},
             {"crop", "in.png", "-o", "out.png"},
             {"rot", "in.png", "--angle", "90", "-j", "0"},
             {"rot", "in.png", "--angle", "90", "--quality", "101"},
             {"rot", "in.png", "--angle", "90", "--subsampling", "411"},
             {"rot", "in.png", "--angle", "90", "--png-compression", "10"},
             {"rszPd", "in.png", "--factor", "2", "--to", "10x10"}}) {
        SCOPED_TRACE(::testing::PrintToString(args));
        const Outcome run = vexa(args);
        EXPECT_EQ(run.code, 2) << run.dump();
        EXPECT_FALSE(run.err.empty());
        EXPECT_EQ(entries(), before_);
    }
}

}  // namespace
}  // namespace vexa::cli::test
