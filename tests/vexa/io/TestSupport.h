// Shared by the vexa_io tests: a scratch folder per test and picture makers.
#ifndef VEXA_IO_TEST_TESTSUPPORT_H
#define VEXA_IO_TEST_TESTSUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
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

inline std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
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

// Checks that f throws an IoError whose message holds every one of `parts`.
template <typename F>
void expectIoError(F&& f, const std::vector<std::string>& parts) {
    try {
        f();
        ADD_FAILURE() << "expected an IoError";
    } catch (const IoError& e) {
        const std::string message = e.what();
        for (const std::string& part : parts) {
            EXPECT_NE(message.find(part), std::string::npos)
                << "'" << part << "' not in: " << message;
        }
    }
}

class IoTest : public mivo::test::ScratchDirTest {
  protected:
    IoTest() : ScratchDirTest("vexa_io_test") {}

    std::string path(const std::string& name) const { return (scratch() / name).string(); }

    // File names in the scratch folder, sorted; shows leftovers such as temporaries.
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& e : fs::directory_iterator(scratch()))
            names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    // Reading or writing `name` fails with a message naming the file and every one of `parts`.
    void expectReadFails(const std::string& name, const std::vector<std::string>& parts,
                         const RawOptions& raw = {}) const {
        std::vector<std::string> all{path(name)};
        all.insert(all.end(), parts.begin(), parts.end());
        expectIoError([&] { readImage(path(name), raw); }, all);
    }
    void expectWriteFails(const std::string& name, const Image& image,
                          std::initializer_list<std::string> parts,
                          const WriteOptions& options = {}) const {
        std::vector<std::string> all{path(name)};
        all.insert(all.end(), parts);
        expectIoError([&] { writeImage(path(name), image, options); }, all);
    }
};

}  // namespace vexa::io::test

#endif  // VEXA_IO_TEST_TESTSUPPORT_H
