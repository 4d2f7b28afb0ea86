// Reading and writing the picture files the vexa command works on: PNG, JPEG, Y4M and raw
// planes. Pictures are held in the framework's own layouts so callers can copy them straight
// into and out of its buffers.
#ifndef VEXA_IO_IMAGEFILE_H
#define VEXA_IO_IMAGEFILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
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

// The framework's colour space codes files can be tagged with.
enum ColorSpaceCode : int {
    kSpaceBt601 = 1,
    kSpaceBt709 = 2,
    kSpaceBt2020 = 3,
    kSpaceBt601_625 = 4,
    kSpaceDisplayP3 = 5,
    kSpaceSrgb = 18,
    kSpaceBt2100 = 19,
    kSpaceBt601Full = 33,
    kSpaceBt709Full = 34,
    kSpaceBt2020Full = 35,
};

// Larger pictures are rejected as corrupt or mistyped rather than allocated.
constexpr int kMaxSide = 65536;
constexpr size_t kMaxImageBytes = size_t{1} << 31;

// An Image's layout over bytes held elsewhere.
struct ImageView {
    int width = 0;
    int height = 0;
    int colorFormat = 0;
    const uint8_t* data = nullptr;
};

// A picture with its planes back to back and no row padding:
//  - nv12/nv21: luma width*height, then one interleaved chroma plane of
//    ((width+1)&~1) bytes per row and (height+1)/2 rows;
//  - yuv420: luma, then Cb, then Cr, each chroma plane (width+1)/2 by (height+1)/2;
//  - packed formats: width*bytesPerPixel per row, bytes in the order the name says.
struct Image {
    Image() = default;
    Image(int width, int height, int colorFormat, std::vector<uint8_t> data)
        : width(width), height(height), colorFormat(colorFormat), data(std::move(data)) {}

    int width = 0;
    int height = 0;
    int colorFormat = 0;
    std::vector<uint8_t> data;
    // The framework colour space code the file is tagged with, 0 when it carries no tag this
    // layer recognises (untagged RGB is taken as sRGB). Written as the file's colour tags.
    int colorSpace = 0;
    // Which tag colorSpace came from: "cICP", "ICC", "sRGB", "gAMA/cHRM"; empty when untagged.
    // A tag that was present but not understood says so ("ICC, not recognised").
    std::string colorTag;
    // The transfer of a BT.2100 picture, as --hdr-type codes: 3 PQ, 4 HLG; 0 otherwise.
    int hdrType = 0;
    // The EXIF orientation the file was stored with (1: as stored is upright).
    int orientation = 1;
    // Bits per sample in the file; deeper samples were reduced to 8 by ordered dithering.
    int sourceBits = 8;
    // The picture was decoded at 1/shrink of its stored size (RawOptions::minWidth).
    int shrink = 1;

    ImageView view() const { return {width, height, colorFormat, data.data()}; }
};

// Raw files carry no header, so the caller says what is in them.
struct RawOptions {
    int width = 0;
    int height = 0;
    int colorFormat = 0;     // 0: the format the extension implies
    int frame = 0;           // which frame readImage picks from a multi-frame raw or Y4M file
    bool autoOrient = true;  // turn pictures upright by their EXIF orientation
    // A JPEG may be decoded at 1/2, 1/4 or 1/8 of its size (by its DCT, far faster) as long as
    // the upright picture stays at least this large; 0: always at full size.
    int minWidth = 0;
    int minHeight = 0;
};

struct WriteOptions {
    int jpegQuality = 92;  // 1..100
    // 444, 422 or 420; 0: full chroma (444) at quality 90 and above, 420 below.
    int jpegSubsampling = 0;
    // 0 stores, 1 (and -1, the default) is zlib's run-length matching over rows filtered by
    // the average of left and up, 2..9 zlib's levels with adaptive filters.
    int pngCompression = -1;
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
// Raw files need raw.width and raw.height. PNG and JPEG come with their colour tags and,
// unless raw.autoOrient is off, turned upright by their EXIF orientation; 16-bit PNG samples
// are reduced to 8 bits by ordered dithering (sourceBits says 16). Throws IoError.
Image readImage(const std::string& path, const RawOptions& raw = {});

// Writes by extension; the image must already be in a format the file type holds
// (png: rgb or rgba; jpeg: rgb; y4m and .yuv: yuv420; other raw: as named). PNG and JPEG
// carry image.colorSpace as colour tags (untagged is written as sRGB).
// The file appears complete or not at all: an existing file is only replaced on success.
// Throws IoError.
void writeImage(const std::string& path, const Image& image, const WriteOptions& options = {});

// "1920x1080 nv12, 3110400 bytes"
std::string describe(const Image& image);

// What a stream says about its frames beyond their size, passed on to what is written.
struct StreamTags {
    std::string rate;        // Y4M "F" value, "30000:1001"
    std::string aspect;      // Y4M "A" value, "1:1"
    std::string interlace;   // Y4M "I" value, "p", "t", "b" or "m"
    std::string colorRange;  // "FULL" or "LIMITED"
};

// Removes every temporary output file on SIGINT and SIGTERM, then exits with 128 + signal.
void removeTemporariesOnSignals();

// The frames of a Y4M or raw file, or of standard input ("-": Y4M, or raw when raw.width
// and raw.colorFormat are given), one at a time, so a clip of any length takes the memory
// of one frame. PNG and JPEG files read as one frame. Deeper Y4M samples (C420p10, p12,
// p16) come out as 8 bits through ordered dithering; sourceBits() tells the caller.
class FrameReader {
  public:
    FrameReader(const std::string& path, const RawOptions& raw);
    // A Y4M stream the caller owns and closes; `name` is used in messages.
    FrameReader(std::FILE* y4m, const std::string& name);
    ~FrameReader();
    // The next frame; false at the end of the stream. Throws IoError naming the file, the
    // frame and the byte offset where the stream breaks.
    bool next(Image& frame);
    // Passes over the next frame without keeping it; false at the end.
    bool skip();

    const StreamTags& tags() const;
    int sourceBits() const;
    // Frames in the whole file, when its size tells; -1 for pipes and PNG or JPEG.
    long long frameCountHint() const;
    // True for a PNG or JPEG file: one picture, not a stream of frames.
    bool isPicture() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// True when `path` holds a printf-style frame number ("out-%04d.png").
bool isFramePattern(const std::string& path);

// Frames to a Y4M or raw file, to standard output ("-"), or to numbered PNG or JPEG files
// when `path` is a frame pattern. `type` names the file type by its extension (the path
// itself, except for standard output). A file is written whole on finish() or not at all;
// standard output gets every frame as it comes. A plain PNG or JPEG name takes exactly one
// frame. Throws IoError.
class FrameWriter {
  public:
    FrameWriter(const std::string& path, const std::string& type, const StreamTags& tags,
                const WriteOptions& options);
    ~FrameWriter();
    // Takes the frame by value: a single picture is kept until finish(), so callers move it in.
    void write(Image frame, long long index);
    void write(const ImageView& frame, long long index);
    void finish();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vexa::io

#endif  // VEXA_IO_IMAGEFILE_H
