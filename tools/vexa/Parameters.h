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

struct Parameters {
    mivo::ext::Operation operation = mivo::ext::Operation::Rsz;
    std::optional<Size> size;           // target size (before rotation)
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

// Names accepted by the parsers, for help texts.
std::string colorFormatNames();
std::string colorSpaceNames();

}  // namespace vexa

#endif  // VEXA_PARAMETERS_H
