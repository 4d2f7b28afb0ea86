// Shared by the vexa command tests: a scratch folder per test, the built binary run in it,
// and picture makers and comparisons.
#ifndef VEXA_CLI_TEST_CLISUPPORT_H
#define VEXA_CLI_TEST_CLISUPPORT_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "../io/TestSupport.h"
#include "ScratchDir.h"
#include "vexa/io/ImageFile.h"

namespace vexa::cli::test {

namespace fs = std::filesystem;
using vexa::io::Image;

struct Outcome {
    int code = -1;  // exit status, or 128 + signal
    std::string out;
    std::string err;

    // Where an assertion fails, the whole exchange helps more than the exit code alone.
    std::string dump() const {
        return "exit " + std::to_string(code) + "\nstdout:\n" + out + "\nstderr:\n" + err;
    }
};

inline std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeBytes(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string quote(const std::string& word) {
    std::string quoted = "'";
    for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

class CliTest : public mivo::test::ScratchDirTest {
  protected:
    CliTest() : ScratchDirTest("vexa_cli_test") {}

    void SetUp() override {
        ScratchDirTest::SetUp();
        root_ = scratch();
        fs::create_directories(root_ / "work");
    }

    // Files the command sees live in work/; its output streams are kept beside it.
    std::string path(const std::string& name) const { return (root_ / "work" / name).string(); }

    Outcome vexa(const std::vector<std::string>& args, const std::string& in = "/dev/null") const {
        std::string command =
            "cd " + quote((root_ / "work").string()) + " && exec " + quote(VEXA_BINARY);
        for (const std::string& arg : args) command += " " + quote(arg);
        command += " <" + quote(in) + " >" + quote((root_ / "stdout").string()) + " 2>" +
                   quote((root_ / "stderr").string());
        const int status = std::system(command.c_str());
        Outcome run;
        if (WIFEXITED(status)) run.code = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) run.code = 128 + WTERMSIG(status);
        run.out = slurp(root_ / "stdout");
        run.err = slurp(root_ / "stderr");
        return run;
    }

    // Names in work/ (or a folder in it), sorted: shows outputs and leftover temporaries.
    std::vector<std::string> entries(const std::string& folder = "") const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(root_ / "work" / folder)) {
            names.push_back(e.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    void save(const std::string& name, const Image& image) const {
        vexa::io::writeImage(path(name), image);
    }
    Image load(const std::string& name, int width = 0, int height = 0) const {
        return vexa::io::readImage(path(name), {width, height});
    }

    // Runs a command that must succeed.
    Outcome ok(const std::vector<std::string>& args) const {
        Outcome run = vexa(args);
        EXPECT_EQ(run.code, 0) << run.dump();
        return run;
    }

    fs::path root_;
};

using vexa::io::test::noiseImage;

inline Image solidRgb(int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    Image image{width, height, vexa::io::kRgb, {}};
    for (int i = 0; i < width * height; ++i) image.data.insert(image.data.end(), {r, g, b});
    return image;
}

// The packed picture whose pixel (x, y) is source pixel from(x, y).
template <typename F>
Image remap(const Image& source, int width, int height, F from) {
    const size_t bytes = source.data.size() / (size_t(source.width) * source.height);
    Image image{width, height, source.colorFormat, {}};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto [sx, sy] = from(x, y);
            const auto at = source.data.begin() + (size_t(sy) * source.width + sx) * bytes;
            image.data.insert(image.data.end(), at, at + std::ptrdiff_t(bytes));
        }
    }
    return image;
}

inline int maxDifference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    if (a.size() != b.size()) return 256;
    int worst = 0;
    for (size_t i = 0; i < a.size(); ++i) worst = std::max(worst, std::abs(a[i] - b[i]));
    return worst;
}

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

inline void expectMentions(const std::string& text, const std::vector<std::string>& parts) {
    for (const std::string& part : parts) {
        EXPECT_TRUE(contains(text, part)) << "'" << part << "' not in:\n" << text;
    }
}

inline size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

}  // namespace vexa::cli::test

#endif  // VEXA_CLI_TEST_CLISUPPORT_H
