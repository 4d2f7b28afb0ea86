// Shared by the vexa_io tests: a scratch folder per test and picture makers.
#ifndef VEXA_IO_TEST_TESTSUPPORT_H
#define VEXA_IO_TEST_TESTSUPPORT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "ScratchDir.h"
#include "vexa/io/ImageFile.h"

namespace vexa::io::test {

namespace fs = std::filesystem;

class IoTest : public mivo::test::ScratchDirTest {
  protected:
    IoTest() : ScratchDirTest("vexa_io_test") {}

    void SetUp() override {
        ScratchDirTest::SetUp();
        dir_ = scratch();
    }

    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    // File names in the scratch folder, sorted; shows leftovers such as temporaries.
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(dir_)) names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path dir_;
};

inline std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

// Noise, so that a swapped plane, row or byte changes the content.
inline Image noiseImage(int colorFormat, int width, int height, uint32_t seed = 1) {
    Image image{width, height, colorFormat, {}};
    image.data.resize(imageByteSize(colorFormat, width, height));
    uint32_t state = seed * 2654435761u + 12345u;
    for (uint8_t& b : image.data) {
        state = state * 1664525u + 1013904223u;
        b = static_cast<uint8_t>(state >> 24);
    }
    return image;
}

// The message of the IoError f throws; fails the test if it throws none.
template <typename F>
std::string errorOf(F&& f) {
    try {
        f();
    } catch (const IoError& e) {
        return e.what();
    }
    ADD_FAILURE() << "expected an IoError";
    return {};
}

inline void expectMentions(const std::string& message, std::initializer_list<std::string> parts) {
    for (const std::string& part : parts) {
        EXPECT_NE(message.find(part), std::string::npos) << "'" << part << "' not in: " << message;
    }
}

}  // namespace vexa::io::test

#endif  // VEXA_IO_TEST_TESTSUPPORT_H
