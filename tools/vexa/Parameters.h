// What a vexa run was asked to do, and the parsers for the words users type.
#ifndef VEXA_PARAMETERS_H
#define VEXA_PARAMETERS_H

#include "mivo/ext/plugin/VexaPlugin.h"
#include "vexa/io/ImageFile.h"

#include <ui/Rect.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vexa {

// A request the command refuses, with the reason in words.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Size {
    int cols = 0;
    int rows = 0;
};

// A target size as ImageMagick writes it: WxH fits inside the box keeping the aspect ratio,
// WxH! is exact, W, Wx and xH give one side, N% (or W%xH%) scales, WxH^ fills the box,
// WxH> only shrinks and WxH< only enlarges.
struct Geometry {
    std::string text;     // as typed, for messages
    double width = 0.0;   // 0: not given
    double height = 0.0;  // 0: not given
    bool percent = false;
    bool exact = false;        // '!'
    bool fill = false;         // '^'
    bool shrinkOnly = false;   // '>'
    bool enlargeOnly = false;  // '<'
};

Geometry parseGeometry(const std::string& text);
// The size `geometry` makes of a cols x rows picture, rounded to the nearest pixel and at
// least 1 per side, as ImageMagick does.
Size resolve(const Geometry& geometry, int cols, int rows);

struct Parameters {
    mivo::ext::Operation operation = mivo::ext::Operation::Rsz;
    std::optional<Geometry> size;       // target size (before rotation)
    int factor = 0;                     // downscale factor
    std::optional<int> colorFormat;     // target colour format
    int angle = 0;                      // degrees
    std::optional<android::Rect> rect;  // crop rectangle
    int flipType = 0;                   // 1 horizontal, 2 vertical, 3 both
    bool flipThroughOption = false;     // flip type as request option, not output extra
    bool ownFlip = false;               // the plugin mirrors the pixels itself
    bool dither = false;
    std::optional<int> targetColorSpace;
    std::optional<int> inputColorSpace;
    int hdrType = 3;
    bool hdrTypeGiven = false;      // else a picture's own PQ/HLG tag wins over the default
    std::optional<int> workFormat;  // colour format the operation runs in
    vexa::io::RawOptions raw;
    long long firstFrame = 0;  // frames firstFrame .. endFrame-1 of a stream are processed
    long long endFrame = -1;   // -1: to the end
    bool frameChosen = false;  // --frame or --frames was given
    vexa::io::WriteOptions write;
    bool verbose = false;
};

Size parseSize(const std::string& text);
// "A:B" (frames A to B-1), "A:" (A to the end) or ":B"; frames count from 0.
std::pair<long long, long long> parseFrameRange(const std::string& text);
int parseColorFormat(const std::string& text);  // the eight formats the library handles
int parseColorSpace(const std::string& text);
android::Rect parseRect(const std::string& text);  // "left,top,width,height"
int parseFlipType(const std::string& text);
int parseHdrType(const std::string& text);
int parseAngle(const std::string& text);

// The name in `names` nearest to `word` by edit distance, or "" when none is close.
std::string closestName(const std::string& word, const std::vector<std::string>& names);

// Values in words for people: "BT.709, limited range", "YUV 4:2:0 in two planes (nv12)",
// "25 fps"; and the parsers' name of a colour space.
std::string colorSpaceWords(int colorSpace, bool yuv = true);  // range only for YUV
std::string colorFormatWords(int colorFormat, int bits);
std::string frameRateWords(const std::string& rate);
std::string colorSpaceName(int colorSpace);

// Names accepted by the parsers, for help texts.
std::string colorFormatNames();
std::string colorSpaceNames();

}  // namespace vexa

#endif  // VEXA_PARAMETERS_H
