// The picture file parsers on arbitrary bytes: they must answer with IoError or a picture
// whose buffer matches its size, never crash or read out of bounds. The first byte picks
// the parser.
#include "FuzzDriver.h"

#include "vexa/io/ImageFile.h"
#include "vexa/io/Internal.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using vexa::io::Image;

Image parse(uint8_t parser, std::FILE* f) {
    switch (parser % 3) {
        case 0:
            return vexa::io::detail::readPng(f, true);
        case 1:
            return vexa::io::detail::readJpeg(f, true);
        default: {
            // Every frame is read, so a damaged later frame is reached too.
            vexa::io::FrameReader reader(f, "fuzz.y4m");
            Image image;
            Image frame;
            while (reader.next(frame)) image = frame;
            if (image.data.empty()) throw vexa::io::IoError("no frames");
            return image;
        }
    }
}

std::vector<uint8_t> fileOf(const Image& image, const std::string& extension, uint8_t parser) {
    const auto path = std::filesystem::temp_directory_path() /
                      ("image_read_fuzz_seed_" + std::to_string(::getpid()) + extension);
    vexa::io::writeImage(path.string(), image);
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes{parser};
    bytes.insert(bytes.end(), std::istreambuf_iterator<char>(in), {});
    std::filesystem::remove(path);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    std::FILE* f = fmemopen(const_cast<uint8_t*>(data + 1), size - 1, "rb");
    if (!f) return 0;
    try {
        const Image image = parse(data[0], f);
        if (image.data.size() !=
            vexa::io::imageByteSize(image.colorFormat, image.width, image.height)) {
            std::abort();
        }
    } catch (const vexa::io::IoError&) {
    }
    std::fclose(f);
    return 0;
}

std::vector<std::vector<uint8_t>> fuzzSeeds() {
    // Tagged pictures, so that the colour tags and ICC profiles are parsed too.
    auto picture = [](int colorFormat, int w, int h, int colorSpace = 0) {
        Image image{w, h, colorFormat,
                    std::vector<uint8_t>(vexa::io::imageByteSize(colorFormat, w, h))};
        image.colorSpace = colorSpace;
        for (size_t i = 0; i < image.data.size(); ++i) image.data[i] = static_cast<uint8_t>(i * 7);
        return image;
    };
    return {fileOf(picture(vexa::io::kRgb, 13, 7), ".png", 0),
            fileOf(picture(vexa::io::kRgba, 5, 9, vexa::io::kSpaceBt709), ".png", 3),
            fileOf(picture(vexa::io::kRgb, 17, 11, vexa::io::kSpaceBt2020), ".jpg", 1),
            fileOf(picture(vexa::io::kYuv420, 9, 5), ".y4m", 2)};
}
