// Shared by the codec files. Functions here throw IoError carrying only the cause; the
// public entry points add the file name, so every message names it exactly once.
#ifndef VEXA_IO_INTERNAL_H
#define VEXA_IO_INTERNAL_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "vexa/io/ImageFile.h"

namespace vexa::io::detail {

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

[[noreturn]] void fail(const std::string& cause);

// Throws unless the size is positive, within kMaxSide and kMaxImageBytes for the format.
void checkDimensions(long long width, long long height, int colorFormat);

// Throws when the rest of a seekable file could not hold `decodedBytes` of picture even
// at `maxRatio` times compression, so that a damaged header never makes us allocate
// gigabytes for a small file. Pipes are not checked.
void checkPayload(std::FILE* f, size_t decodedBytes, size_t maxRatio);

// Sizes `data` to hold a width x height picture of `bytes`, or throws saying how much it
// could not get.
void allocatePicture(std::vector<uint8_t>& data, size_t bytes, long long width, long long height);

// Reads exactly n bytes or throws "truncated".
void readExact(std::FILE* f, void* dst, size_t n);
void writeExact(std::FILE* f, const void* src, size_t n);

Image readPng(std::FILE* f, bool autoOrient);
void writePng(std::FILE* f, const Image& image, int compression);

// Decodes at 1/2, 1/4 or 1/8 scale when the upright picture stays at least minWidth by
// minHeight (both given).
Image readJpeg(std::FILE* f, bool autoOrient, int minWidth = 0, int minHeight = 0);
void writeJpeg(std::FILE* f, const Image& image, int quality, int subsampling);

// 4x4 Bayer thresholds: reducing a smooth deep gradient this way leaves no bands.
constexpr uint8_t kBayer[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};

// A sample of 0..max as 8 bits, dithered by its pixel's place (x, y).
inline uint8_t ditherSample(uint32_t v, uint32_t max, int x, int y) {
    v = v < max ? v : max;
    // v * 255 / max in sixteenths, plus the threshold, floored.
    const uint32_t scaled = (v * 255u * 16u + max / 2) / max + kBayer[y & 3][x & 3];
    return static_cast<uint8_t>(scaled / 16 < 255 ? scaled / 16 : 255);
}

// Colour tags. A file's colours as the coding-independent code points that PNG's cICP chunk
// carries: primaries, transfer, matrix (0 for RGB), full range.
struct Cicp {
    uint8_t primaries = 0, transfer = 0, matrix = 0, fullRange = 1;
};
// The code points of a framework colour space (0 counts as sRGB); hdrType picks PQ or HLG.
Cicp cicpFor(int colorSpace, int hdrType);
// The framework colour space of code points, 0 when vexa has none for them; sets hdrType.
int colorSpaceOfCicp(const Cicp& cicp, int& hdrType);
// CIE xy chromaticities (white, red, green, blue) of a framework colour space, and the
// encoding gamma as PNG's gAMA stores it (100000 / exponent); gamma 0 for PQ and HLG.
struct Chromaticities {
    double white[2], red[2], green[2], blue[2];
    int gamma;
};
Chromaticities chromaticitiesFor(int colorSpace, int hdrType);
// The colour space of gAMA and cHRM values (either may be missing), 0 when not recognised.
int colorSpaceOfChromaticities(const Chromaticities* chromaticities, int gamma);
// An ICC profile of a colour space other than sRGB, built with Little CMS.
std::vector<uint8_t> iccProfileFor(int colorSpace, int hdrType);
// The colour space an ICC profile describes, recognised by its primaries and tone curve;
// 0 when it is none vexa handles.
int colorSpaceOfIcc(const uint8_t* data, size_t size, int& hdrType);

// The orientation (1..8) an EXIF block ("Exif\0\0" and a TIFF header) records; 1 when it
// records none or is damaged.
int exifOrientation(const uint8_t* data, size_t size);
// Turns a packed picture upright from EXIF orientation `orientation`.
void orient(Image& image, int orientation);

enum class Kind { Png, Jpeg, Y4m, Raw };

struct FileType {
    const char* extension;
    Kind kind;
    int colorFormat;
};

// By extension, case-insensitive; throws for an unknown type.
const FileType& requireType(const std::string& path);
FilePtr openForRead(const std::string& path);

// The header line of a Y4M stream of width x height 8-bit 4:2:0 frames; `tags` carries the
// frame rate, aspect, interlacing and colour range of the input ("F25:1", "XCOLORRANGE=FULL").
void writeY4mHeader(std::FILE* f, int width, int height, const StreamTags& tags);

// A file written beside its target under a hidden temporary name and renamed over it by
// commit(), so the target appears whole or not at all. Until then the temporary is removed
// by the destructor, and by SIGINT or SIGTERM once removeTemporariesOnSignals() ran.
class TempFile {
  public:
    explicit TempFile(const std::string& target);
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    std::FILE* get() const { return file_; }
    void commit();

  private:
    std::string target_;
    std::string path_;
    std::FILE* file_ = nullptr;
    int slot_ = -1;
};

}  // namespace vexa::io::detail

#endif  // VEXA_IO_INTERNAL_H
