#include "Parameters.h"

#include "mivo/Def.h"
#include "mivo/core/types/ColorFormat.h"
#include "mivo/core/types/MediaFormat.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
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

Geometry parseGeometry(const std::string& text) {
    const auto bad = [&](const std::string& why) {
        return UsageError("size '" + text + "' " + why);
    };
    Geometry g;
    g.text = text;
    std::string body;
    for (const char c : text) {
        bool* flag = c == '!'   ? &g.exact
                     : c == '^' ? &g.fill
                     : c == '>' ? &g.shrinkOnly
                     : c == '<' ? &g.enlargeOnly
                     : c == '%' ? &g.percent
                                : nullptr;
        if (flag) {
            *flag = true;
        } else {
            body += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    const size_t x = body.find('x');
    const auto number = [&](const std::string& part) {
        if (part.empty()) return 0.0;
        const bool plain = part.find_first_not_of("0123456789") == std::string::npos;
        const bool decimal = g.percent &&
                             part.find_first_not_of("0123456789.") == std::string::npos &&
                             std::count(part.begin(), part.end(), '.') == 1 && part != ".";
        if ((!plain && !decimal) || part.size() > 9) {
            throw bad(
                "is not a size: use WIDTHxHEIGHT (fit inside), WIDTHxHEIGHT! (exact), "
                "WIDTHxHEIGHT^ (fill), WIDTH, xHEIGHT or N%");
        }
        const double value = std::strtod(part.c_str(), nullptr);
        if (value <= 0.0) throw bad("has a side of 0: sides are at least 1 pixel (or above 0%)");
        return value;
    };
    g.width = number(body.substr(0, x));
    if (x != std::string::npos) {
        if (body.find('x', x + 1) != std::string::npos) throw bad("has more than two sides");
        g.height = number(body.substr(x + 1));
    }
    if (g.width == 0.0 && g.height == 0.0) throw bad("gives no side");
    if (g.exact && g.fill) throw bad("cannot be both exact (!) and filling (^)");
    if (g.shrinkOnly && g.enlargeOnly)
        throw bad("cannot both only shrink (>) and only enlarge (<)");
    return g;
}

Size resolve(const Geometry& g, int cols, int rows) {
    // Scaled sides are rounded to the nearest pixel, at least 1; huge ones are left for the
    // size checks to refuse in words.
    const auto side = [](double value) {
        return static_cast<int>(std::clamp(std::floor(value + 0.5), 1.0, 1e9));
    };
    const double w = g.width;
    const double h = g.height;
    Size size;
    if (g.percent) {
        size = {side(cols * (w > 0 ? w : h) / 100.0), side(rows * (h > 0 ? h : w) / 100.0)};
    } else if (w > 0 && h > 0 && g.exact) {
        size = {side(w), side(h)};
    } else if (w > 0 && h > 0) {
        const double scale = g.fill ? std::max(w / cols, h / rows) : std::min(w / cols, h / rows);
        size = {side(scale * cols), side(scale * rows)};
    } else if (w > 0) {
        size = {side(w), side(w / cols * rows)};
    } else {
        size = {side(h / rows * cols), side(h)};
    }
    // '>' acts on pictures larger than the box in some side, '<' on those smaller in both.
    const bool larger = (w > 0 && cols > w) || (h > 0 && rows > h);
    const bool smaller = (w <= 0 || cols < w) && (h <= 0 || rows < h);
    if (g.percent) {
        const bool grows = size.cols > cols || size.rows > rows;
        if ((g.shrinkOnly && grows) || (g.enlargeOnly && !grows)) return {cols, rows};
    } else if ((g.shrinkOnly && !larger) || (g.enlargeOnly && !smaller)) {
        return {cols, rows};
    }
    return size;
}

std::string closestName(const std::string& word, const std::vector<std::string>& names) {
    const std::string key = lower(word);
    std::string best;
    size_t bestDistance = std::string::npos;
    for (const std::string& name : names) {
        const std::string other = lower(name);
        // Levenshtein distance, one row at a time.
        std::vector<size_t> row(other.size() + 1);
        for (size_t j = 0; j < row.size(); ++j) row[j] = j;
        for (size_t i = 1; i <= key.size(); ++i) {
            size_t diagonal = row[0];
            row[0] = i;
            for (size_t j = 1; j <= other.size(); ++j) {
                const size_t above = row[j];
                row[j] = std::min(
                    {row[j] + 1, row[j - 1] + 1, diagonal + (key[i - 1] == other[j - 1] ? 0 : 1)});
                diagonal = above;
            }
        }
        if (row.back() < bestDistance) {
            bestDistance = row.back();
            best = name;
        }
    }
    // Beyond a third of the word, a suggestion is more confusing than helpful.
    return bestDistance <= std::max<size_t>(1, key.size() / 3) ? best : std::string();
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

std::string colorSpaceWords(int colorSpace, bool yuv) {
    if (!yuv) {
        const std::string words = colorSpaceWords(colorSpace, true);
        return words.substr(0, words.find(", "));
    }
    switch (colorSpace) {
        case mivo::COLOR_SPACE_BT601:
            return "BT.601, limited range";
        case mivo::COLOR_SPACE_BT709:
            return "BT.709, limited range";
        case mivo::COLOR_SPACE_BT2020:
            return "BT.2020, limited range";
        case mivo::COLOR_SPACE_DISPLAY_P3:
            return "Display P3";
        case mivo::COLOR_SPACE_SRGB:
            return "sRGB";
        case mivo::COLOR_SPACE_BT2100:
            return "BT.2100";
        case mivo::COLOR_SPACE_BT601_FULL:
            return "BT.601, full range";
        case mivo::COLOR_SPACE_BT709_FULL:
            return "BT.709, full range";
        case mivo::COLOR_SPACE_BT2020_FULL:
            return "BT.2020, full range";
    }
    return "colour space " + std::to_string(colorSpace);
}

std::string colorSpaceName(int colorSpace) {
    for (const Named& entry : kColorSpaces) {
        if (entry.value == colorSpace) return entry.name;
    }
    return std::to_string(colorSpace);
}

std::string colorFormatWords(int colorFormat, int bits) {
    const char* words = "";
    switch (colorFormat) {
        case mivo::COLOR_FORMAT_NV12:
            words = "YUV 4:2:0, Y plane and interleaved CbCr";
            break;
        case mivo::COLOR_FORMAT_NV21:
            words = "YUV 4:2:0, Y plane and interleaved CrCb";
            break;
        case mivo::COLOR_FORMAT_YUV420:
            words = "YUV 4:2:0, three planes";
            break;
        case mivo::COLOR_FORMAT_RGB:
        case mivo::COLOR_FORMAT_BGR:
            words = "RGB";
            break;
        default:
            words = "RGB with alpha";
            break;
    }
    // Deeper samples are read as 8 bits.
    const std::string depth =
        bits > 8 ? std::to_string(bits) + "-bit read as 8-bit" : std::string("8-bit");
    return std::string(vexa::io::colorFormatName(colorFormat)) + " (" + depth + " " + words + ")";
}

std::string frameRateWords(const std::string& rate) {
    const size_t colon = rate.find(':');
    const double num = std::strtod(rate.c_str(), nullptr);
    const double den =
        colon == std::string::npos ? 1.0 : std::strtod(rate.c_str() + colon + 1, nullptr);
    if (num <= 0 || den <= 0) return rate + " fps";
    const double fps = num / den;
    std::string words = mivo::format("%.2f", fps);
    words.erase(words.find_last_not_of('0') + 1);
    if (words.back() == '.') words.pop_back();
    return words + " fps";
}

std::string colorFormatNames() {
    return namesOf(kColorFormats);
}
std::string colorSpaceNames() {
    return namesOf(kColorSpaces);
}

}  // namespace vexa
