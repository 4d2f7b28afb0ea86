#include "vexa/io/ImageFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>

#include "vexa/io/Internal.h"

namespace vexa::io {

namespace detail {

void fail(const std::string& cause) {
    throw IoError(cause);
}

void checkDimensions(long long width, long long height, int colorFormat) {
    if (width <= 0 || height <= 0) {
        fail("invalid size " + std::to_string(width) + "x" + std::to_string(height));
    }
    if (width > kMaxSide || height > kMaxSide) {
        fail("size " + std::to_string(width) + "x" + std::to_string(height) +
             " exceeds the limit of " + std::to_string(kMaxSide) + " per side");
    }
    const size_t bytes =
        imageByteSize(colorFormat, static_cast<int>(width), static_cast<int>(height));
    if (bytes == 0) fail("unsupported colour format code " + std::to_string(colorFormat));
    if (bytes > kMaxImageBytes) {
        fail("size " + std::to_string(width) + "x" + std::to_string(height) + " " +
             colorFormatName(colorFormat) + " needs " + std::to_string(bytes) +
             " bytes, over the limit of " + std::to_string(kMaxImageBytes));
    }
}

void allocatePicture(std::vector<uint8_t>& data, size_t bytes, long long width, long long height) {
    try {
        data.resize(bytes);
    } catch (const std::bad_alloc&) {
        char mib[32];
        std::snprintf(mib, sizeof(mib), "%.1f MiB", static_cast<double>(bytes) / (1 << 20));
        fail("not enough memory for a " + std::to_string(width) + "x" + std::to_string(height) +
             " picture (" + mib + ")");
    }
}

void checkPayload(std::FILE* f, size_t decodedBytes, size_t maxRatio) {
    // A decoder may already hold this much of the file in its own buffer.
    constexpr long long kBuffered = 1 << 16;
    const long position = std::ftell(f);
    if (position < 0 || std::fseek(f, 0, SEEK_END) != 0) return;
    const long end = std::ftell(f);
    std::fseek(f, position, SEEK_SET);
    if (end < 0) return;
    const long long available = static_cast<long long>(end - position) + kBuffered;
    if (static_cast<long long>(decodedBytes / maxRatio) > available) {
        fail("file is too short for the " + std::to_string(decodedBytes) +
             "-byte picture its header declares (truncated or damaged)");
    }
}

void readExact(std::FILE* f, void* dst, size_t n) {
    if (std::fread(dst, 1, n, f) == n) return;
    if (std::ferror(f)) fail(std::string("read failed: ") + std::strerror(errno));
    fail("file is truncated");
}

void writeExact(std::FILE* f, const void* src, size_t n) {
    if (std::fwrite(src, 1, n, f) != n) fail(std::string("write failed: ") + std::strerror(errno));
}

}  // namespace detail

using detail::fail;
using detail::FilePtr;
using detail::FileType;
using detail::Kind;

namespace {

constexpr FileType kFileTypes[] = {
    {".png", Kind::Png, kRgba},   {".jpg", Kind::Jpeg, kRgb},   {".jpeg", Kind::Jpeg, kRgb},
    {".y4m", Kind::Y4m, kYuv420}, {".yuv", Kind::Raw, kYuv420}, {".nv12", Kind::Raw, kNv12},
    {".nv21", Kind::Raw, kNv21},  {".rgb", Kind::Raw, kRgb},    {".rgba", Kind::Raw, kRgba},
    {".bgra", Kind::Raw, kBgra},
};

constexpr const char* kSupportedList = ".png .jpg .jpeg .y4m .yuv .nv12 .nv21 .rgb .rgba .bgra";

std::string lowerExtension(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext;
}

const FileType* findType(const std::string& path) {
    const std::string ext = lowerExtension(path);
    for (const FileType& type : kFileTypes) {
        if (ext == type.extension) return &type;
    }
    return nullptr;
}

}  // namespace

namespace detail {

const FileType& requireType(const std::string& path) {
    const FileType* type = findType(path);
    if (type == nullptr) {
        const std::string ext = lowerExtension(path);
        fail((ext.empty() ? std::string("no file extension") : "unknown file type '" + ext + "'") +
             " (supported: " + kSupportedList + ")");
    }
    return *type;
}

FilePtr openForRead(const std::string& path) {
    FilePtr f(std::fopen(path.c_str(), "rb"));
    if (!f) {
        const int err = errno;
        if (err == ENOENT) fail("file does not exist");
        fail(std::strerror(err));
    }
    struct stat st {};
    if (::fstat(::fileno(f.get()), &st) == 0 && S_ISDIR(st.st_mode)) fail("is a directory");
    return f;
}

}  // namespace detail

namespace {

using detail::openForRead;
using detail::requireType;

void checkWritable(const FileType& type, const Image& image, const WriteOptions& options) {
    detail::checkDimensions(image.width, image.height, image.colorFormat);
    const size_t needed = imageByteSize(image.colorFormat, image.width, image.height);
    if (image.data.size() != needed) {
        fail("image data has " + std::to_string(image.data.size()) + " bytes, but " +
             std::to_string(image.width) + "x" + std::to_string(image.height) + " " +
             colorFormatName(image.colorFormat) + " needs " + std::to_string(needed));
    }
    const int format = image.colorFormat;
    const std::string have = colorFormatName(format);
    switch (type.kind) {
        case Kind::Png:
            if (format != kRgb && format != kRgba) {
                fail("PNG output needs an rgb or rgba image, not " + have + "; convert it first");
            }
            if (options.pngCompression < -1 || options.pngCompression > 9) {
                fail("PNG compression " + std::to_string(options.pngCompression) +
                     " is not in 0..9");
            }
            break;
        case Kind::Jpeg:
            if (format != kRgb)
                fail("JPEG output needs an rgb image, not " + have + "; convert it first");
            if (options.jpegQuality < 1 || options.jpegQuality > 100) {
                fail("JPEG quality " + std::to_string(options.jpegQuality) + " is not in 1..100");
            }
            if (options.jpegSubsampling != 0 && options.jpegSubsampling != 420 &&
                options.jpegSubsampling != 422 && options.jpegSubsampling != 444) {
                fail("JPEG subsampling " + std::to_string(options.jpegSubsampling) +
                     " is not 420, 422 or 444");
            }
            break;
        case Kind::Y4m:
        case Kind::Raw:
            if (format != type.colorFormat) {
                fail(std::string(type.extension) + " output needs a " +
                     colorFormatName(type.colorFormat) + " image, not " + have +
                     "; convert it first");
            }
            break;
    }
}

}  // namespace

size_t imageByteSize(int colorFormat, int width, int height) {
    if (width <= 0 || height <= 0) return 0;
    const size_t w = static_cast<size_t>(width);
    const size_t h = static_cast<size_t>(height);
    const size_t chromaW = (w + 1) / 2;
    const size_t chromaH = (h + 1) / 2;
    switch (colorFormat) {
        case kNv12:
        case kNv21:
        case kYuv420:
            // An interleaved row of (w+1)&~1 bytes equals two planar rows of (w+1)/2.
            return w * h + 2 * chromaW * chromaH;
        case kRgb:
        case kBgr:
            return w * h * 3;
        case kRgba:
        case kArgb:
        case kBgra:
            return w * h * 4;
        default:
            return 0;
    }
}

const char* colorFormatName(int colorFormat) {
    switch (colorFormat) {
        case kNv12:
            return "nv12";
        case kNv21:
            return "nv21";
        case kYuv420:
            return "yuv420";
        case kRgb:
            return "rgb";
        case kRgba:
            return "rgba";
        case kArgb:
            return "argb";
        case kBgr:
            return "bgr";
        case kBgra:
            return "bgra";
        default:
            return "unknown";
    }
}

bool isYuv420(int colorFormat) {
    return colorFormat == kNv12 || colorFormat == kNv21 || colorFormat == kYuv420;
}

int preferredColorFormatForExtension(const std::string& path) {
    const FileType* type = findType(path);
    return type ? type->colorFormat : 0;
}

bool isSupportedInput(const std::string& path) {
    return findType(path) != nullptr;
}

bool isSupportedOutput(const std::string& path) {
    return findType(path) != nullptr;
}

Image readImage(const std::string& path, const RawOptions& raw) {
    try {
        const FileType& type = requireType(path);
        if (type.kind == Kind::Png || type.kind == Kind::Jpeg) {
            FilePtr f = openForRead(path);
            return type.kind == Kind::Png
                       ? detail::readPng(f.get(), raw.autoOrient)
                       : detail::readJpeg(f.get(), raw.autoOrient, raw.minWidth, raw.minHeight);
        }
    } catch (const IoError& e) {
        throw IoError("cannot read '" + path + "': " + e.what());
    } catch (const std::bad_alloc&) {
        throw IoError("cannot read '" + path + "': out of memory");
    }
    // Streams of frames: the frame is picked by reading up to it.
    if (raw.frame < 0) {
        throw IoError("cannot read '" + path + "': frame " + std::to_string(raw.frame) +
                      " requested");
    }
    FrameReader reader(path, raw);
    Image image;
    for (int index = 0; index <= raw.frame; ++index) {
        if (!reader.next(image)) {
            throw IoError("cannot read '" + path + "': frame " + std::to_string(raw.frame) +
                          " requested, but the file holds " + std::to_string(index) + " frame(s)");
        }
    }
    return image;
}

void writeImage(const std::string& path, const Image& image, const WriteOptions& options) {
    try {
        const FileType& type = requireType(path);
        checkWritable(type, image, options);
        detail::TempFile out(path);
        std::FILE* f = out.get();
        switch (type.kind) {
            case Kind::Png:
                detail::writePng(f, image, options.pngCompression);
                break;
            case Kind::Jpeg:
                detail::writeJpeg(f, image, options.jpegQuality, options.jpegSubsampling);
                break;
            case Kind::Y4m:
                detail::writeY4mHeader(f, image.width, image.height, {});
                detail::writeExact(f, "FRAME\n", 6);
                detail::writeExact(f, image.data.data(), image.data.size());
                break;
            case Kind::Raw:
                detail::writeExact(f, image.data.data(), image.data.size());
                break;
        }
        out.commit();
    } catch (const IoError& e) {
        throw IoError("cannot write '" + path + "': " + e.what());
    } catch (const std::bad_alloc&) {
        throw IoError("cannot write '" + path + "': out of memory");
    }
}

std::string describe(const Image& image) {
    std::string name = colorFormatName(image.colorFormat);
    if (name == "unknown") name = "format " + std::to_string(image.colorFormat);
    return std::to_string(image.width) + "x" + std::to_string(image.height) + " " + name + ", " +
           std::to_string(image.data.size()) + " bytes";
}

}  // namespace vexa::io
