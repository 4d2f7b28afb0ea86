#include "Parameters.h"

#include "mivo/core/types/ColorFormat.h"
#include "mivo/core/types/MediaFormat.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <vector>

namespace vexa {

namespace {

struct Named {
    const char* name;
    int value;
};

constexpr Named kColorFormats[] = {
    {"nv12", mivo::COLOR_FORMAT_NV12},     {"nv21", mivo::COLOR_FORMAT_NV21},
    {"yuv420", mivo::COLOR_FORMAT_YUV420}, {"i420", mivo::COLOR_FORMAT_YUV420},
    {"rgb", mivo::COLOR_FORMAT_RGB},       {"bgr", mivo::COLOR_FORMAT_BGR},
    {"rgba", mivo::COLOR_FORMAT_RGBA},     {"bgra", mivo::COLOR_FORMAT_BGRA},
    {"argb", mivo::COLOR_FORMAT_ARGB},
};

constexpr Named kColorSpaces[] = {
    {"bt601", mivo::COLOR_SPACE_BT601},
    {"bt709", mivo::COLOR_SPACE_BT709},
    {"bt2020", mivo::COLOR_SPACE_BT2020},
    {"p3", mivo::COLOR_SPACE_DISPLAY_P3},
    {"srgb", mivo::COLOR_SPACE_SRGB},
    {"bt2100", mivo::COLOR_SPACE_BT2100},
    {"bt601-full", mivo::COLOR_SPACE_BT601_FULL},
    {"bt709-full", mivo::COLOR_SPACE_BT709_FULL},
    {"bt2020-full", mivo::COLOR_SPACE_BT2020_FULL},
};

constexpr Named kFlipTypes[] = {
    {"h", 1}, {"horizontal", 1}, {"v", 2}, {"vertical", 2}, {"both", 3}, {"hv", 3},
};

constexpr Named kHdrTypes[] = {{"pq", 3}, {"hlg", 4}, {"hdr10plus", 5}};

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::optional<int> parseInt(const std::string& text) {
    if (text.empty()) return std::nullopt;
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || value < -(1L << 30) || value > (1L << 30)) {
        return std::nullopt;
    }
    return static_cast<int>(value);
}

template <size_t N>
int lookup(const Named (&table)[N], const std::string& text, const char* what) {
    const std::string key = lower(text);
    for (const Named& entry : table) {
        if (key == entry.name) return entry.value;
    }
    std::string names;
    for (const Named& entry : table) names += std::string(names.empty() ? "" : ", ") + entry.name;
    throw UsageError("unknown " + std::string(what) + " '" + text + "' (expected one of: " + names +
                     ")");
}

template <size_t N>
std::string namesOf(const Named (&table)[N]) {
    std::string names;
    for (const Named& entry : table) names += std::string(names.empty() ? "" : ", ") + entry.name;
    return names;
}

}  // namespace

std::pair<long long, long long> parseFrameRange(const std::string& text) {
    const size_t colon = text.find(':');
    const auto number = [&](const std::string& part, long long empty) {
        if (part.empty()) return empty;
        if (part.find_first_not_of("0123456789") != std::string::npos || part.size() > 12) {
            throw UsageError("bad frame range '" + text + "': expected A:B, A: or :B");
        }
        return std::stoll(part);
    };
    if (colon == std::string::npos) {
        throw UsageError("bad frame range '" + text + "': expected A:B, A: or :B");
    }
    const long long first = number(text.substr(0, colon), 0);
    const long long end = number(text.substr(colon + 1), -1);
    if (end >= 0 && end <= first) {
        throw UsageError("frame range '" + text + "' is empty (A:B runs from A to B-1)");
    }
    return {first, end};
}

Size parseSize(const std::string& text) {
    const size_t x = lower(text).find('x');
    const auto cols = x == std::string::npos ? std::nullopt : parseInt(text.substr(0, x));
    const auto rows = x == std::string::npos ? std::nullopt : parseInt(text.substr(x + 1));
    if (!cols || !rows) throw UsageError("size '" + text + "' is not WIDTHxHEIGHT");
    if (*cols < 1 || *rows < 1 || *cols > vexa::io::kMaxSide || *rows > vexa::io::kMaxSide) {
        throw UsageError("size '" + text + "' is out of range (1 to " +
                         std::to_string(vexa::io::kMaxSide) + " per side)");
    }
    return {*cols, *rows};
}

int parseColorFormat(const std::string& text) {
    return lookup(kColorFormats, text, "colour format");
}

// A name, or the number of a known value.
template <size_t N>
int lookupNameOrNumber(const Named (&table)[N], const std::string& text, const char* what) {
    if (auto number = parseInt(text)) {
        for (const Named& entry : table) {
            if (entry.value == *number) return *number;
        }
    }
    return lookup(table, text, what);
}

int parseColorSpace(const std::string& text) {
    return lookupNameOrNumber(kColorSpaces, text, "colour space");
}

android::Rect parseRect(const std::string& text) {
    std::vector<int> parts;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t comma = text.find(',', start);
        const auto part = parseInt(
            text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (!part) break;
        parts.push_back(*part);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    if (parts.size() != 4)
        throw UsageError("rectangle '" + text + "' is not LEFT,TOP,WIDTH,HEIGHT");
    if (parts[0] < 0 || parts[1] < 0 || parts[2] < 1 || parts[3] < 1) {
        throw UsageError("rectangle '" + text +
                         "' needs a non-negative corner and a positive size");
    }
    return android::Rect(parts[0], parts[1], parts[0] + parts[2], parts[1] + parts[3]);
}

int parseFlipType(const std::string& text) {
    return lookup(kFlipTypes, text, "flip direction");
}

int parseHdrType(const std::string& text) {
    return lookupNameOrNumber(kHdrTypes, text, "HDR type");
}

int parseAngle(const std::string& text) {
    const auto angle = parseInt(text);
    if (!angle || (*angle != 0 && *angle != 90 && *angle != 180 && *angle != 270)) {
        throw UsageError("angle '" + text + "' must be 0, 90, 180 or 270");
    }
    return *angle;
}

std::string colorFormatNames() {
    return namesOf(kColorFormats);
}
std::string colorSpaceNames() {
    return namesOf(kColorSpaces);
}

}  // namespace vexa
