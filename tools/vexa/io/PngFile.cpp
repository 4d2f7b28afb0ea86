// libpng reports errors by longjmp. Each setjmp sits in a function whose own frame holds no
// object with a destructor, and libpng's error callbacks hold none either, so the jump never
// skips a destructor; everything that needs cleaning up lives in the caller's frame.
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "vexa/io/Internal.h"

namespace vexa::io::detail {

namespace {

struct PngErrors {
    char cause[160] = {};    // set by our I/O callbacks before they raise an error
    char message[256] = {};  // the message libpng failed with
};

void onError(png_structp png, png_const_charp message) {
    auto* errors = static_cast<PngErrors*>(png_get_error_ptr(png));
    std::snprintf(errors->message, sizeof errors->message, "%s", message);
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}  // the command decides what to print

void readFromFile(png_structp png, png_bytep dst, size_t n) {
    auto* f = static_cast<std::FILE*>(png_get_io_ptr(png));
    if (std::fread(dst, 1, n, f) == n) return;
    auto* errors = static_cast<PngErrors*>(png_get_error_ptr(png));
    if (std::ferror(f)) {
        std::snprintf(errors->cause, sizeof errors->cause, "read failed: %s", std::strerror(errno));
    } else {
        std::snprintf(errors->cause, sizeof errors->cause, "file is truncated");
    }
    png_error(png, errors->cause);
}

void writeToFile(png_structp png, png_bytep src, size_t n) {
    auto* f = static_cast<std::FILE*>(png_get_io_ptr(png));
    if (std::fwrite(src, 1, n, f) == n) return;
    auto* errors = static_cast<PngErrors*>(png_get_error_ptr(png));
    std::snprintf(errors->cause, sizeof errors->cause, "write failed: %s", std::strerror(errno));
    png_error(png, errors->cause);
}

void flushFile(png_structp png) {
    std::fflush(static_cast<std::FILE*>(png_get_io_ptr(png)));
}

struct Reader {
    png_structp png = nullptr;
    png_infop info = nullptr;
    PngErrors errors;
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

struct Writer {
    png_structp png = nullptr;
    png_infop info = nullptr;
    PngErrors errors;
    ~Writer() { png_destroy_write_struct(&png, &info); }
};

// Returns false when libpng failed; the reason is in r.errors.message.
bool decode(Reader& r, std::FILE* f, Image& out) {
    if (setjmp(png_jmpbuf(r.png))) return false;
    png_set_read_fn(r.png, f, readFromFile);
    png_set_sig_bytes(r.png, 8);
    png_read_info(r.png, r.info);

    const png_uint_32 width = png_get_image_width(r.png, r.info);
    const png_uint_32 height = png_get_image_height(r.png, r.info);
    const int colorType = png_get_color_type(r.png, r.info);
    const int bitDepth = png_get_bit_depth(r.png, r.info);
    const bool alpha =
        (colorType & PNG_COLOR_MASK_ALPHA) || png_get_valid(r.png, r.info, PNG_INFO_tRNS);
    const int format = alpha ? kRgba : kRgb;
    checkDimensions(width, height, format);
    // Deflate packs at most about 1032:1.
    checkPayload(f, imageByteSize(format, static_cast<int>(width), static_cast<int>(height)), 1100);

    if (bitDepth == 16) png_set_strip_16(r.png);
    if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(r.png);
    if (colorType == PNG_COLOR_TYPE_GRAY && bitDepth < 8) png_set_expand_gray_1_2_4_to_8(r.png);
    if (png_get_valid(r.png, r.info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(r.png);
    if (!(colorType & PNG_COLOR_MASK_COLOR)) png_set_gray_to_rgb(r.png);
    const int passes = png_set_interlace_handling(r.png);
    png_read_update_info(r.png, r.info);

    const size_t rowBytes = static_cast<size_t>(width) * (alpha ? 4 : 3);
    if (png_get_rowbytes(r.png, r.info) != rowBytes) fail("unexpected PNG pixel layout");
    out.width = static_cast<int>(width);
    out.height = static_cast<int>(height);
    out.colorFormat = format;
    out.data.resize(rowBytes * height);
    for (int pass = 0; pass < passes; ++pass) {
        for (png_uint_32 y = 0; y < height; ++y) {
            png_read_row(r.png, out.data.data() + y * rowBytes, nullptr);
        }
    }
    // Reading to the end catches files cut off after the pixel data.
    png_read_end(r.png, nullptr);
    return true;
}

bool encode(Writer& w, std::FILE* f, const Image& image) {
    if (setjmp(png_jmpbuf(w.png))) return false;
    png_set_write_fn(w.png, f, writeToFile, flushFile);
    const bool alpha = image.colorFormat == kRgba;
    png_set_IHDR(w.png, w.info, static_cast<png_uint_32>(image.width),
                 static_cast<png_uint_32>(image.height), 8,
                 alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(w.png, w.info);
    const size_t rowBytes = static_cast<size_t>(image.width) * (alpha ? 4 : 3);
    for (int y = 0; y < image.height; ++y) {
        // libpng's API takes a non-const row but does not write to it.
        png_write_row(w.png, const_cast<png_bytep>(image.data.data() + y * rowBytes));
    }
    png_write_end(w.png, nullptr);
    return true;
}

}  // namespace

Image readPng(std::FILE* f) {
    png_byte signature[8];
    if (std::fread(signature, 1, sizeof signature, f) != sizeof signature ||
        png_sig_cmp(signature, 0, sizeof signature) != 0) {
        fail("not a PNG file");
    }
    Reader r;
    r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r.errors, onError, onWarning);
    if (r.png != nullptr) r.info = png_create_info_struct(r.png);
    if (r.png == nullptr || r.info == nullptr) fail("out of memory");
    Image image;
    if (!decode(r, f, image)) fail(std::string("invalid PNG: ") + r.errors.message);
    return image;
}

void writePng(std::FILE* f, const Image& image) {
    Writer w;
    w.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &w.errors, onError, onWarning);
    if (w.png != nullptr) w.info = png_create_info_struct(w.png);
    if (w.png == nullptr || w.info == nullptr) fail("out of memory");
    if (!encode(w, f, image)) fail(std::string("PNG encoding failed: ") + w.errors.message);
}

}  // namespace vexa::io::detail
