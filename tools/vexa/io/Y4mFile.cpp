// YUV4MPEG2: one text header line, then frames, each a "FRAME" line followed by the planes.
// Only 8-bit progressive 4:2:0 is read, which is exactly the yuv420 layout.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vexa/io/Internal.h"

namespace vexa::io::detail {

namespace {

// Real headers are a few dozen bytes; the cap keeps a binary file from being read whole.
constexpr size_t kMaxLine = 4096;

// Reads up to and excluding '\n'; false if the file ends first.
bool readLine(std::FILE* f, std::string& line) {
    line.clear();
    for (;;) {
        const int c = std::fgetc(f);
        if (c == EOF) return false;
        if (c == '\n') return true;
        if (line.size() >= kMaxLine) fail("Y4M header line is too long");
        line.push_back(static_cast<char>(c));
    }
}

long long parseNumber(const std::string& token) {
    const std::string digits = token.substr(1);
    char* end = nullptr;
    const long long value = std::strtoll(digits.c_str(), &end, 10);
    if (digits.empty() || *end != '\0') fail("bad Y4M header field '" + token + "'");
    return value;
}

bool isSupportedChroma(const std::string& tag) {
    return tag == "420" || tag == "420jpeg" || tag == "420mpeg2" || tag == "420paldv";
}

}  // namespace

Image readY4m(std::FILE* f, int frame) {
    std::string line;
    if (!readLine(f, line)) fail("not a Y4M file (no header line)");
    static const std::string kMagic = "YUV4MPEG2";
    if (line.compare(0, kMagic.size(), kMagic) != 0 ||
        (line.size() > kMagic.size() && line[kMagic.size()] != ' ')) {
        fail("not a Y4M file (no YUV4MPEG2 signature)");
    }

    long long width = 0;
    long long height = 0;
    bool haveWidth = false;
    bool haveHeight = false;
    std::string chroma;
    size_t pos = kMagic.size();
    while (pos < line.size()) {
        const size_t end = std::min(line.find(' ', pos), line.size());
        const std::string token = line.substr(pos, end - pos);
        pos = end + 1;
        if (token.empty()) continue;
        switch (token[0]) {
            case 'W':
                width = parseNumber(token);
                haveWidth = true;
                break;
            case 'H':
                height = parseNumber(token);
                haveHeight = true;
                break;
            case 'C':
                chroma = token.substr(1);
                break;
            case 'I':
                if (token == "Ip" || token == "I?") break;
                if (token == "It" || token == "Ib" || token == "Im") {
                    fail("interlaced Y4M (" + token + ") is not supported, only progressive");
                }
                fail("bad Y4M header field '" + token + "'");
            default:
                break;  // frame rate, aspect, comments: a still does not need them
        }
    }
    if (!haveWidth || !haveHeight) fail("Y4M header lacks the width (W) or height (H)");
    if (!chroma.empty() && !isSupportedChroma(chroma)) {
        fail("unsupported Y4M chroma 'C" + chroma +
             "': only 8-bit 4:2:0 (C420, C420jpeg, C420mpeg2, C420paldv) is read");
    }
    checkDimensions(width, height, kYuv420);
    checkPayload(f, imageByteSize(kYuv420, static_cast<int>(width), static_cast<int>(height)), 1);

    Image image;
    image.width = static_cast<int>(width);
    image.height = static_cast<int>(height);
    image.colorFormat = kYuv420;
    image.data.resize(imageByteSize(kYuv420, image.width, image.height));
    // Frames before the wanted one are read into the same buffer: a pipe cannot seek, and
    // reading them also proves they are complete.
    for (int index = 0;; ++index) {
        if (!readLine(f, line)) {
            if (!line.empty())
                fail("Y4M file is truncated in the header of frame " + std::to_string(index));
            fail("frame " + std::to_string(frame) + " requested, but the file holds " +
                 std::to_string(index) + " frame(s)");
        }
        if (line.compare(0, 5, "FRAME") != 0 || (line.size() > 5 && line[5] != ' ')) {
            fail("bad Y4M frame marker before frame " + std::to_string(index));
        }
        if (std::fread(image.data.data(), 1, image.data.size(), f) != image.data.size()) {
            if (std::ferror(f)) fail(std::string("read failed: ") + std::strerror(errno));
            fail("Y4M file is truncated in frame " + std::to_string(index));
        }
        if (index == frame) return image;
    }
}

void writeY4m(std::FILE* f, const Image& image) {
    const std::string header = "YUV4MPEG2 W" + std::to_string(image.width) + " H" +
                               std::to_string(image.height) + " F30:1 Ip A1:1 C420jpeg\n";
    writeExact(f, header.data(), header.size());
    static const char kFrame[] = "FRAME\n";
    writeExact(f, kFrame, sizeof kFrame - 1);
    writeExact(f, image.data.data(), image.data.size());
}

}  // namespace vexa::io::detail
