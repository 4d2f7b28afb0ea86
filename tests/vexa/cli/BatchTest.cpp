// Clips frame by frame, and folders of pictures in parallel.
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
    const Outcome run = batch({"rsz", "in", "extra.yuv", "--size", "16x8", "--to", "12x6!", "--ext",
                               "nv12", "-o", "out", "-j", "3"},
                              0, 6, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(countOf(run.out, "done: "), 0u);
    const Names names = entries("out");
    EXPECT_EQ(names, (Names{"extra.nv12", "p0.nv12", "p1.nv12", "p2.nv12", "p3.nv12", "p4.nv12"}));
    for (const std::string& name : names) {
        EXPECT_EQ(load("out/" + name, 12, 6).colorFormat, kNv12) << name;
    }
}

// On a terminal a line shows files done, the time left and the file at work; --verbose
// names each file done instead. Options that apply everywhere may come before the command.
TEST_F(BatchTest, ProgressOnATerminalAndFilesNamedWithVerbose) {
    const std::string line =
        "cd " + quote(path("")) + " && " + quote(VEXA_BINARY) + " -j 1 rot in --angle 90 -o out";
    const std::string command =
        "script -qec " + quote(line) + " /dev/null >" + quote((root_ / "tty").string());
    ASSERT_EQ(std::system(command.c_str()), 0);
    expectMentions(slurp(root_ / "tty"), {"\033[K[......", "] 0/5, in/p0.png", "] 1/5, ",
                                          " s left, in/p1.png", "5 files, 0 failed"});
    const Outcome run = ok({"-v", "-j", "2", "rot", "in", "--angle", "90", "-o", "out"});
    expectMentions(run.out, {"done: in/p0.png -> out/p0.png\n", "done: in/p4.png -> out/p4.png\n"});
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

// Clips of 32x16 frames whose luma is all 10 * i + 16 in frame i, so any frame is known by value.
class StreamTest : public CliTest {
  protected:
    static std::string clip(int frames, const std::string& tags = "F25:1 Ip A1:1 C420") {
        std::string bytes = "YUV4MPEG2 W32 H16 " + tags + "\n";
        for (int i = 0; i < frames; ++i) {
            bytes += "FRAME\n" + std::string(512, char(10 * i + 16)) + std::string(256, char(128));
        }
        return bytes;
    }
    // The first luma sample of each frame of a Y4M file; the header through `header`.
    std::vector<int> frames(const std::string& name, std::string* header = nullptr) const {
        const std::string bytes = slurp(path(name));
        if (header) *header = bytes.substr(0, bytes.find('\n'));
        vexa::io::FrameReader reader(path(name), {});
        std::vector<int> firsts;
        for (Image frame; reader.next(frame);) firsts.push_back(frame.data[0]);
        return firsts;
    }
    // A shell line in work/; returns its exit status and keeps stderr in run.err.
    Outcome sh(const std::string& line) const {
        const std::string command = "cd " + quote(path("")) + " && V=" + quote(VEXA_BINARY) +
                                    " && { " + line + "; } 2>" + quote((root_ / "e").string());
        const int status = std::system(("bash -c " + quote(command)).c_str());
        return {WEXITSTATUS(status), "", slurp(root_ / "e")};
    }
    static std::vector<int> values(int from, int to) {
        std::vector<int> v;
        for (int i = from; i < to; ++i) v.push_back(10 * i + 16);
        return v;
    }
};

TEST_F(StreamTest, EveryFrameInOrderWithItsTags) {
    writeBytes(path("clip.y4m"), clip(12, "F30000:1001 It A4:3 C420mpeg2 XCOLORRANGE=FULL"));
    const Outcome run = ok({"resize", "clip.y4m", "--to", "16x8", "-j", "3", "-o", "out.y4m"});
    EXPECT_EQ(run.err, "");  // no progress where standard error is not a terminal
    std::string header;
    EXPECT_EQ(frames("out.y4m", &header), values(0, 12));
    EXPECT_EQ(header, "YUV4MPEG2 W16 H8 F30000:1001 It A4:3 C420jpeg XCOLORRANGE=FULL");
    expectMentions(ok({"rotate", "clip.y4m", "--angle", "90", "-v", "-o", "r.y4m"}).err,
                   {"12 frame(s) in"});
}

TEST_F(StreamTest, FrameRangesCountFromZero) {
    writeBytes(path("clip.y4m"), clip(12));
    const std::vector<std::pair<Names, std::vector<int>>> cases{
        {{"--frames", "3:5"}, values(3, 5)},   {{"--frame", "7"}, values(7, 8)},
        {{"--frames", "10:"}, values(10, 12)}, {{"--frames", ":2"}, values(0, 2)},
        {{"--frames", "10:13"}, {}},           {{"--frame", "12"}, {}}};
    for (const auto& [range, expected] : cases) {
        Names args{"rotate", "clip.y4m", "--angle", "180", "-o", "out.y4m"};
        args.insert(args.end(), range.begin(), range.end());
        const Outcome run = vexa(args);
        EXPECT_EQ(run.code, expected.empty() ? 1 : 0) << run.dump();
        if (expected.empty()) expectMentions(run.err, {"12 frame(s)"});
        EXPECT_EQ(expected.empty() ? std::vector<int>{} : frames("out.y4m"), expected);
        fs::remove(path("out.y4m"));
    }
}

TEST_F(StreamTest, PipesOfY4mAndRawAndDeepSamples) {
    writeBytes(path("clip.y4m"), clip(5));
    Outcome run =
        sh("cat clip.y4m | $V resize - --to 16x8 -o - | $V rotate - --angle 90 -o - "
           "--ext nv12 | $V convert - --size 8x16 --format nv12 --to-format yuv420 "
           "-o - >out.y4m");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(frames("out.y4m"), values(0, 5));
    std::string deep = "YUV4MPEG2 W2 H2 C420p10\nFRAME\n";
    for (int i = 0; i < 6; ++i) deep += std::string{char(0xff), char(0x03)};
    writeBytes(path("deep.y4m"), deep);
    run = sh("$V rotate - --angle 90 -o out.y4m <deep.y4m");
    EXPECT_EQ(run.code, 0) << run.err;
    expectMentions(run.err, {"10-bit", "ordered dithering"});
    EXPECT_EQ(frames("out.y4m"), std::vector<int>{255});
}

TEST_F(StreamTest, PictureOutputsNumberTheFramesOrRefuse) {
    writeBytes(path("clip.y4m"), clip(3));
    ok({"convert", "clip.y4m", "--to-format", "rgb", "-o", "f-%02d.png"});
    ok({"convert", "clip.y4m", "--to-format", "rgb", "--frame", "1", "-o", "one.jpg"});
    const Outcome run = vexa({"convert", "clip.y4m", "--to-format", "rgb", "-o", "f.png"});
    EXPECT_EQ(run.code, 1);
    expectMentions(run.err, {"f.png", "several frames", "%04d"});
    EXPECT_EQ(entries(), (Names{"clip.y4m", "f-00.png", "f-01.png", "f-02.png", "one.jpg"}));
}

TEST_F(StreamTest, EachFrameComesOutAsThatFrameAlone) {
    // Noise, so that memory used again for a later frame shows in any byte left unwritten;
    // more frames than -j 2 holds at once, so that memory is used again.
    std::string clip = "YUV4MPEG2 W30 H22 C420\n";
    for (int i = 0; i < 8; ++i) {
        const Image frame = noiseImage(kYuv420, 30, 22, i + 1);
        clip += "FRAME\n" + std::string(frame.data.begin(), frame.data.end());
    }
    writeBytes(path("noise.y4m"), clip);
    for (const Names& operation : std::vector<Names>{{"rotate", "--angle", "90"},
                                                     {"flip", "--direction", "horizontal"},
                                                     {"crop", "--rect", "3,5,20,14"},
                                                     {"convert", "--to-format", "nv12", "--dither"},
                                                     {"downscale", "--factor", "2"},
                                                     {"tonemap", "--hdr-type", "pq"}}) {
        Names args = operation;
        args.insert(args.begin() + 1, "noise.y4m");
        const auto with = [&args](const Names& more) {
            Names all = args;
            all.insert(all.end(), more.begin(), more.end());
            return all;
        };
        ok(with({"-j", "2", "-o", "all.y4m"}));
        vexa::io::FrameReader all(path("all.y4m"), {});
        Image frame;
        for (int i = 0; i < 8; ++i) {
            ASSERT_TRUE(all.next(frame));
            ok(with({"--frame", std::to_string(i), "-o", "one.y4m"}));
            EXPECT_EQ(load("one.y4m").data, frame.data) << operation[0] << ", frame " << i;
        }
    }
}

TEST_F(StreamTest, SignalsRemoveTheTemporaryAndExitByNumber) {
    for (const auto& [name, code] :
         std::vector<std::pair<std::string, int>>{{"INT", 130}, {"TERM", 143}}) {
        // The clip never ends: the signal lands while vexa waits for the next frame.
        const Outcome run =
            sh("rm -f in.y4m && mkfifo in.y4m && ($V rotate in.y4m --angle 90 -j 2 -o out.y4m & "
               "exec 3>in.y4m && printf 'YUV4MPEG2 W2 H2 C420\\nFRAME\\n123456FRAME\\n12' >&3 "
               "&& for i in {1..500}; do ls -a | grep -q tmp && break; sleep 0.01; done; kill -" +
               name + " $! && exec 3>&- && wait $!)");
        EXPECT_EQ(run.code, code) << name << ": " << run.err;
        EXPECT_EQ(entries(), Names{"in.y4m"}) << name;
    }
}

TEST_F(StreamTest, BrokenStreamsSayWhereAndLeaveNoPartialFile) {
    std::string cut = clip(4);
    cut.resize(cut.size() - 100);  // frame 3 ends early
    std::string unmarked = clip(4);
    unmarked[unmarked.find("FRAME", 100)] = 'X';  // frame 1's marker
    writeBytes(path("cut.y4m"), cut);
    writeBytes(path("unmarked.y4m"), unmarked);
    writeBytes(path("odd.nv12"), std::string(768 * 2 + 5, 'x'));
    const std::vector<std::pair<Names, Names>> cases{
        {{"cut.y4m"}, {"cut.y4m", "frame 3, byte 2365", "ends inside the frame"}},
        {{"cut.y4m", "--frame", "4"}, {"cut.y4m", "frame 3, byte 2365", "ends inside the frame"}},
        {{"unmarked.y4m"}, {"unmarked.y4m", "frame 1, byte 811", "FRAME marker"}},
        {{"odd.nv12", "--size", "32x16"}, {"odd.nv12", "768 bytes per frame", "1541 bytes"}}};
    for (const auto& [input, parts] : cases) {
        Names args{"rotate", "--angle", "180", "-o", "out.y4m"};
        args.insert(args.begin() + 1, input.begin(), input.end());
        const Outcome run = vexa(args);
        EXPECT_EQ(run.code, 1);
        expectMentions(run.err, parts);
    }
    EXPECT_EQ(entries(), (Names{"cut.y4m", "odd.nv12", "unmarked.y4m"}));
    // Standard output gets the whole frames before the break.
    const Outcome piped = sh("$V rotate - --angle 180 -o - <cut.y4m >out.y4m");
    EXPECT_EQ(piped.code, 1);
    EXPECT_EQ(piped.err.rfind("vexa: error: cannot read 'standard input': frame 3", 0), 0u)
        << piped.err;
    EXPECT_EQ(sh("$V rotate - --angle 180 -o - <odd.nv12")
                  .err.rfind("vexa: error: cannot read 'standard input': ", 0),
              0u);
    const std::string out = slurp(path("out.y4m"));
    EXPECT_EQ(countOf(out, "FRAME\n"), 3u);
    EXPECT_EQ(out.size(), out.find('\n') + 1 + 3 * (6 + 768));
}

}  // namespace
}  // namespace vexa::cli::test
