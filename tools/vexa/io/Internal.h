// Shared by the codec files. Functions here throw IoError carrying only the cause; the
// public entry points add the file name, so every message names it exactly once.
#ifndef VEXA_IO_INTERNAL_H
#define VEXA_IO_INTERNAL_H

#include <cstdio>
#include <memory>
#include <string>

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

// Reads exactly n bytes or throws "truncated".
void readExact(std::FILE* f, void* dst, size_t n);
void writeExact(std::FILE* f, const void* src, size_t n);

Image readPng(std::FILE* f);
void writePng(std::FILE* f, const Image& image);

Image readJpeg(std::FILE* f);
void writeJpeg(std::FILE* f, const Image& image, int quality);

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
