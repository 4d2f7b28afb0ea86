// Reading and writing the picture files the vexa command works on: PNG, JPEG, Y4M and raw
// planes. Pictures are held in the framework's own layouts so callers can copy them straight
// into and out of its buffers.
#ifndef VEXA_IO_IMAGEFILE_H
#define VEXA_IO_IMAGEFILE_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace vexa::io {

// The framework's colour format codes this layer handles (all 8 bits per sample).
enum ColorFormatCode : int {
    kNv12 = 3,
    kNv21 = 4,
    kYuv420 = 5,  // I420: Y, then Cb, then Cr
    kRgb = 8,
    kRgba = 9,
    kArgb = 10,
    kBgr = 11,
    kBgra = 12,
};

// Larger pictures are rejected as corrupt or mistyped rather than allocated.
constexpr int kMaxSide = 65536;
constexpr size_t kMaxImageBytes = size_t{1} << 31;

// A picture with its planes back to back and no row padding:
//  - nv12/nv21: luma width*height, then one interleaved chroma plane of
//    ((width+1)&~1) bytes per row and (height+1)/2 rows;
//  - yuv420: luma, then Cb, then Cr, each chroma plane (width+1)/2 by (height+1)/2;
//  - packed formats: width*bytesPerPixel per row, bytes in the order the name says.
struct Image {
    int width = 0;
    int height = 0;
    int colorFormat = 0;
    std::vector<uint8_t> data;
};

// Raw files carry no header, so the caller says what is in them.
struct RawOptions {
    int width = 0;
    int height = 0;
    int colorFormat = 0;  // 0: the format the extension implies
    int frame = 0;        // which frame of a multi-frame raw or Y4M file
};

struct WriteOptions {
    int jpegQuality = 92;  // 1..100
};

// Every failure of this layer; the message names the file and the cause.
class IoError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Bytes of a picture in the layout above; 0 for an unknown format or a non-positive size.
size_t imageByteSize(int colorFormat, int width, int height);

// "nv12", "rgba", ...; "unknown" for codes this layer does not handle.
const char* colorFormatName(int colorFormat);

bool isYuv420(int colorFormat);  // nv12, nv21 or yuv420

// The colour format a file of this type stores (by extension, case-insensitive), 0 if the
// type is unknown. PNG maps to rgba so that alpha survives; rgb is written too.
int preferredColorFormatForExtension(const std::string& path);

bool isSupportedInput(const std::string& path);
bool isSupportedOutput(const std::string& path);

// Reads by extension: .png -> rgb or rgba (by alpha), .jpg/.jpeg -> rgb, .y4m -> yuv420,
// raw .yuv .nv12 .nv21 .rgb .rgba .bgra -> as named, or raw.colorFormat when set.
// Raw files need raw.width and raw.height. Throws IoError.
Image readImage(const std::string& path, const RawOptions& raw = {});

// Writes by extension; the image must already be in a format the file type holds
// (png: rgb or rgba; jpeg: rgb; y4m and .yuv: yuv420; other raw: as named).
// The file appears complete or not at all: an existing file is only replaced on success.
// Throws IoError.
void writeImage(const std::string& path, const Image& image, const WriteOptions& options = {});

// "1920x1080 nv12, 3110400 bytes"
std::string describe(const Image& image);

}  // namespace vexa::io

#endif  // VEXA_IO_IMAGEFILE_H
