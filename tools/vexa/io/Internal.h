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

Image readY4m(std::FILE* f, int frame);
void writeY4m(std::FILE* f, const Image& image);

}  // namespace vexa::io::detail

#endif  // VEXA_IO_INTERNAL_H
