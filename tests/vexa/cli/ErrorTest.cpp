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
        save("wide.png", noiseImage(kRgb, 32769, 1));
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
        // Named with the sizes it can make, nearest first by width, in factor order.
        {{"rszPd", "in.png", "--to", "30x20", "-o", "out.png"}, 1, {"in.png: downscale cannot make 30x20 from 64x48", "can make 32x24 (--factor 2), 20x16 (--factor 3), 16x12 (--factor 4), 12x8 (--factor 5); resize"}},
        {{"rszPd", "in.png", "--to", "30%", "-o", "out.png"}, 1, {"'30%'", "50%, 33.3%"}},
        {{"rsz", "in.png", "--to", "32769x10!", "-o", "out.png"}, 1, {"in.png: 32769x10 is wider than the image library supports (32768)"}},
        {{"rsz", "in.png", "--to", "x40000", "-o", "out.png"}, 1, {"53333x40000 is wider than"}},
        {{"rot", "wide.png", "--angle", "90", "-o", "out.png"}, 1, {"wide.png: 32769x1 is wider than the image library supports (32768)"}},
        {{"rszRot", "in.png", "--to", "10x32769!", "--angle", "90", "-o", "out.png"}, 1, {"10x32769 is taller than"}},
        {{"rsz", "in.yuv", "--size", "34x18", "--to", "1x1!", "-o", "out.yuv"}, 1, {"1x1 is too small for a 4:2:0 picture"}},
    };
    for (const std::string size : {"0x10", "10x-4", "10x10x10", "axb", "x", "10x10!^", "1.5x2"}) {
        refusals.push_back({{"rsz", "in.png", "--to", size, "-o", "out.png"}, 2, {"size '" + size + "'"}});
    }
    for (const std::string size : {"0x10", "70000x10", "10x-4", "10", "10x10x10", "axb"}) {
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

// Limits in words, commands named with a suggestion; each refusal is the whole message.
TEST_F(ErrorTest, UsageErrorsInWords) {
    const std::string usage = "\nRun 'vexa --help' or 'vexa <command> --help' for usage.\n";
    const std::string commands = "\nRun 'vexa --help' for the commands.\n";
    // clang-format off
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "no command given" + commands},
        {{"resise", "in.png"}, "'resise' is not a vexa command; did you mean 'resize'?" + commands},
        {{"-v", "gamot", "in.png"}, "'gamot' is not a vexa command; did you mean 'gamut'?" + commands},
        {{"-j", "2", "sharpen", "in.png"}, "'sharpen' is not a vexa command" + commands},
        {{"rot", "--angle", "90"}, "no input given: name files, folders or - (standard input)" + usage},
        {{"rsz", "in.png"}, "--to is required" + usage},
        {{"crop", "in.png", "-o", "out.png"}, "--rect is required" + usage},
        {{"rszPd", "in.png", "--factor", "2", "--to", "10x10"}, "--to excludes --factor" + usage},
        {{"rotate", "in.png", "-j3", "--angel=90"}, "'--angel' is not an option of rotate; did you mean '--angle'?\nRun 'vexa rotate --help' for its options.\n"},
        {{"info", "in.png", "--size", "-x", "-x"}, "'-x' is not an option of info\nRun 'vexa info --help' for its options.\n"},
        {{"rszPd", "in.png", "--factor", "0"}, "--factor: '0' is not allowed: give a whole number from 1 to 32768" + usage},
        {{"rot", "in.png", "--angle", "90", "-j", "0"}, "--jobs: '0' is not allowed: give a whole number from 1 to 256" + usage},
        {{"-j", "x", "rot", "in.png", "--angle", "90"}, "--jobs: 'x' is not allowed: give a whole number from 1 to 256" + usage},
        {{"rot", "in.png", "--angle", "90", "--quality", "101"}, "--quality: '101' is not allowed: give a whole number from 1 to 100" + usage},
        {{"rot", "in.png", "--angle", "90", "--subsampling", "411"}, "--subsampling: '411' is not allowed: give 420, 422 or 444" + usage},
        {{"rot", "in.png", "--angle", "90", "--png-compression", "10"}, "--png-compression: '10' is not allowed: give a whole number from 0 to 9" + usage},
        {{"rot", "in.png", "--angle", "90", "--frame", "1.5"}, "--frame: '1.5' is not allowed: give a whole number 0 or more" + usage},
        {{"rot", "in.png", "--angle", "90", "--frames", "3:3"}, "frame range '3:3' is empty (A:B runs from A to B-1)\n"},
        {{"rot", "in.png", "in.yuv", "--angle", "90", "-o", "out.png"}, "'out.png' names one picture file, but the inputs are several pictures; give an output folder (-o FOLDER)\n"},
    };
    // clang-format on
    for (const auto& [args, message] : cases) {
        const Outcome run = vexa(args);
        EXPECT_EQ(run.code, 2) << run.dump();
        EXPECT_EQ(run.err, "vexa: error: " + message);
        EXPECT_EQ(entries(), before_);
    }
}

TEST_F(ErrorTest, HelpShowsTheRulesAndEveryDefault) {
    const Outcome help = ok({"rotate", "--help"});
    EXPECT_EQ(ok({"-j", "2", "help", "rotate"}).out, help.out);
    expectMentions(help.out, {"(default: 92)", "(default: one per core, here ", "bt709 for YUV",
                              "Odd sizes:"});
    expectMentions(ok({"help"}).out, {"WxH^ fills the box", "rsz, resize"});
}

// Out of memory names the picture and its size; sanitizers need address space of their own.
#ifndef __SANITIZE_ADDRESS__
TEST_F(ErrorTest, OutOfMemoryNamesThePicture) {
    const std::string command = "ulimit -v 400000 && exec " + quote(VEXA_BINARY) +
                                " resize in.png --to 12000x12000! -o out.png";
    const std::string line =
        "cd " + quote(path("")) + " && " + command + " 2>" + quote((root_ / "e").string());
    const int status = std::system(("bash -c " + quote(line)).c_str());
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(slurp(root_ / "e"),
              "vexa: error: in.png: not enough memory for a 12000x12000 RGB picture (412 MB)\n");
    EXPECT_EQ(entries(), before_);
}
#endif

}  // namespace
}  // namespace vexa::cli::test
