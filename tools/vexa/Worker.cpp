#include "Worker.h"

#include "mivo/core/buffer/BufferExtension.h"
#include "mivo/core/buffer/OutputSlot.h"
#include "mivo/core/types/ColorFormat.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <iostream>
#include <mutex>
#include <set>
#include <utility>

namespace vexa {

using mivo::core::MediaBuffer;
using mivo::ext::Operation;

// Pictures carry the framework's codes from the file layer, which keeps its own copy of them
// so that it builds without the framework; the copies must not drift.
constexpr bool sameCodes(std::initializer_list<std::pair<int, int>> pairs) {
    for (const auto& [a, b] : pairs) {
        if (a != b) return false;
    }
    return true;
}
static_assert(sameCodes({{io::kNv12, mivo::COLOR_FORMAT_NV12},
                         {io::kNv21, mivo::COLOR_FORMAT_NV21},
                         {io::kYuv420, mivo::COLOR_FORMAT_YUV420},
                         {io::kRgb, mivo::COLOR_FORMAT_RGB},
                         {io::kRgba, mivo::COLOR_FORMAT_RGBA},
                         {io::kArgb, mivo::COLOR_FORMAT_ARGB},
                         {io::kBgr, mivo::COLOR_FORMAT_BGR},
                         {io::kBgra, mivo::COLOR_FORMAT_BGRA},
                         {io::kSpaceBt601, mivo::COLOR_SPACE_BT601},
                         {io::kSpaceBt709, mivo::COLOR_SPACE_BT709},
                         {io::kSpaceBt2020, mivo::COLOR_SPACE_BT2020},
                         {io::kSpaceBt601_625, mivo::COLOR_SPACE_BT601_625},
                         {io::kSpaceDisplayP3, mivo::COLOR_SPACE_DISPLAY_P3},
                         {io::kSpaceSrgb, mivo::COLOR_SPACE_SRGB},
                         {io::kSpaceBt2100, mivo::COLOR_SPACE_BT2100},
                         {io::kSpaceBt601Full, mivo::COLOR_SPACE_BT601_FULL},
                         {io::kSpaceBt709Full, mivo::COLOR_SPACE_BT709_FULL},
                         {io::kSpaceBt2020Full, mivo::COLOR_SPACE_BT2020_FULL}}));

namespace {

const char* libraryError(int code) {
    switch (code) {
        case ZOCA_ERR_INVALID:
            return "the image library found a record invalid";
        case ZOCA_ERR_UNSUPPORTED:
            return "the image library does not support this format or mode";
        case ZOCA_ERR_DESTINATION:
            return "the image library cannot write the output as it stands";
        default:
            return "the image library failed";
    }
}

std::shared_ptr<mivo::core::ImgpOption> optionFor(const Parameters& p) {
    auto option = std::make_shared<mivo::core::ImgpOption>();
    if (p.operation == Operation::Csc && p.colorFormat) {
        option->set(mivo::core::IMGP_OPTION_PREFERRED_COLOR,
                    static_cast<mivo::ColorFormat>(*p.colorFormat));
    }
    if (p.operation == Operation::Flip) {
        if (p.flipThroughOption) option->set(mivo::core::IMGP_OPTION_FLIP_TYPE, p.flipType);
        if (p.ownFlip) option->set(mivo::core::IMGP_OPTION_OWN_FLIP, true);
    }
    return option;
}

_ZOCA_IMGB recordOf(const MediaBuffer& buffer) {
    return buffer.getTypedData<_ZOCA_IMGB>(nullptr);
}

std::string upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// `make()`, naming the picture it was allocating when memory runs out.
template <typename Make>
auto allocating(int cols, int rows, int colorFormat, Make&& make) -> decltype(make()) {
    try {
        return make();
    } catch (const std::bad_alloc&) {
        const double bytes = static_cast<double>(vexa::io::imageByteSize(colorFormat, cols, rows));
        // The framework counts a buffer's bytes in an int.
        const std::string cap = bytes > INT_MAX ? "; a buffer holds at most 2 GB" : "";
        throw FileError(mivo::format("not enough memory for a %dx%d %s picture (%s%s)", cols, rows,
                                     upper(vexa::io::colorFormatName(colorFormat)).c_str(),
                                     bytesInWords(bytes).c_str(), cap.c_str()));
    }
}

// Runs `plugin` from `input` into a new output slot that wishes for `wish`.
std::shared_ptr<MediaBuffer> runInto(ReusingPlugin& plugin,
                                     const std::shared_ptr<MediaBuffer>& input,
                                     std::shared_ptr<mivo::MediaFormat> wish,
                                     const std::string& what) {
    auto slot = mivo::core::OutputSlot::create(wish);
    std::shared_ptr<MediaBuffer> out = slot;
    const int result = allocating(wish->getCols(), wish->getRows(), wish->getColorFormat(),
                                  [&] { return plugin(input, out); });
    if (result != 0) {
        throw FileError(what + ": " + libraryError(result));
    }
    return slot->get();
}

// The formats a file type can hold as they are.
bool fileHolds(const std::string& path, int colorFormat) {
    const int preferred = vexa::io::preferredColorFormatForExtension(path);
    if (isPng(path)) {  // rgb as well as rgba
        return colorFormat == vexa::io::kRgba || colorFormat == vexa::io::kRgb;
    }
    return colorFormat == preferred;
}

// The plugin hands the library's mirror a plain copy for both directions at once; mirrored
// both ways is a half turn, so that is what runs.
Parameters withHalfTurnForBothMirrors(Parameters p) {
    if (p.operation == Operation::Flip && p.flipType == 3 && !p.ownFlip) {
        p.operation = Operation::Rot;
        p.angle = 180;
    }
    return p;
}

bool isYuv(int colorFormat) {
    return vexa::io::isYuv420(colorFormat);
}

bool isTwoPlaneYuv(int colorFormat) {
    return colorFormat == mivo::COLOR_FORMAT_NV12 || colorFormat == mivo::COLOR_FORMAT_NV21;
}

bool hasAlpha(int colorFormat) {
    return colorFormat == mivo::COLOR_FORMAT_RGBA || colorFormat == mivo::COLOR_FORMAT_BGRA ||
           colorFormat == mivo::COLOR_FORMAT_ARGB;
}

// The format a result is written in: the input's where the file holds it (an RGB PNG stays
// RGB), else the file's own, without an alpha channel the result never had.
int fileFormatFor(const std::string& path, int resultFormat, int inputFormat) {
    if (fileHolds(path, inputFormat)) return inputFormat;
    const int preferred = vexa::io::preferredColorFormatForExtension(path);
    if (isPng(path) && !hasAlpha(resultFormat)) return vexa::io::kRgb;
    return preferred;
}

// The packed format an RGB file holds a picture without alpha in.
int rgbFormatFor(const std::string& path) {
    const int preferred = vexa::io::preferredColorFormatForExtension(path);
    return isPng(path) ? vexa::io::kRgb : preferred;
}

bool turnsSides(const Parameters& p) {
    return (p.operation == Operation::Rot || p.operation == Operation::RszRot ||
            p.operation == Operation::CscRot) &&
           (p.angle == 90 || p.angle == 270);
}

// What the downscaler makes of a cols x rows picture with factor k: the sides cut to a
// multiple of 2k, then divided by k.
Size downscaled(int cols, int rows, int k) {
    return {cols / (2 * k) * 2, rows / (2 * k) * 2};
}

// Says once per run and `what` that a 4:2:0 picture loses its odd row or column; refuses one
// too small to keep.
void noteEven(const char* what, int colorFormat, Size size, Size even, bool turned) {
    if (even.cols < 2 || even.rows < 2) {
        throw UsageError(mivo::format("%dx%d is too small for a 4:2:0 picture (at least 2x2)",
                                      size.cols, size.rows));
    }
    if (turned) {
        std::swap(size.cols, size.rows);
        std::swap(even.cols, even.rows);
    }
    noteOnce(what, mivo::format("%s needs an even width and height: %dx%d becomes %dx%d",
                                vexa::io::colorFormatName(colorFormat), size.cols, size.rows,
                                even.cols, even.rows));
}

void checkLibrarySize(int cols, int rows) {
    if (cols > kLibraryMaxSide || rows > kLibraryMaxSide) {
        throw UsageError(mivo::format("%dx%d is %s than the image library supports (%d)", cols,
                                      rows, cols > kLibraryMaxSide ? "wider" : "taller",
                                      kLibraryMaxSide));
    }
}

}  // namespace

bool isPng(const std::string& path) {
    std::string extension = path.substr(std::min(path.size(), path.rfind('.')));
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension == ".png";
}

std::string bytesInWords(double bytes) {
    const char* units[] = {"kB", "MB", "GB", "TB"};
    if (bytes < 1024) return mivo::format("%.0f bytes", bytes);
    int unit = -1;
    while (bytes >= 1024 && unit < 3) {
        bytes /= 1024;
        ++unit;
    }
    return mivo::format(bytes < 10 ? "%.1f %s" : "%.0f %s", bytes, units[unit]);
}

void noteOnce(const std::string& key, const std::string& text) {
    static std::mutex lock;
    static std::set<std::string> said;
    std::lock_guard<std::mutex> guard(lock);
    if (said.insert(key).second) std::cerr << "vexa: note: " << text << "\n" << std::flush;
}

int defaultColorSpace(int colorFormat) {
    return colorFormat >= vexa::io::kRgb ? mivo::COLOR_SPACE_SRGB : mivo::COLOR_SPACE_BT709;
}

std::shared_ptr<MediaBuffer> toBuffer(const vexa::io::Image& image, int colorSpace,
                                      std::optional<int> hdrType) {
    auto format = mivo::makeImageFormat(image.colorFormat, image.width, image.height, colorSpace);
    if (hdrType) format->setExtra(mivo::extra::kHdrType, *hdrType);
    // Both sides lay the planes out back to back without row padding, so the buffer borrows
    // the picture's memory: a copy would double the peak memory of every job.
    return mivo::core::detail::CpuMediaBuffer::wrap(format->freeze(),
                                                    const_cast<uint8_t*>(image.data.data()));
}

namespace {

int planesOf(const _ZOCA_IMGB& record) {
    return record.colorFormat == ZOCA_CF_I420 ? 3 : (record.colorFormat > 199 ? 1 : 2);
}

// The bytes of one row of plane `p` without padding.
size_t rowBytesOf(const _ZOCA_IMGB& record, int p) {
    size_t rowBytes = static_cast<size_t>(record.width[p]);
    if (record.colorFormat > 199) rowBytes *= record.stride[0] / std::max(record.width[0], 1);
    if (p == 1 && planesOf(record) == 2) rowBytes *= 2;  // interleaved chroma pairs
    return rowBytes;
}

}  // namespace

vexa::io::Image toImage(const MediaBuffer& buffer) {
    vexa::io::Image image;
    image.width = buffer.getCols();
    image.height = buffer.getRows();
    image.colorFormat = buffer.getFormat()->getColorFormat();
    image.colorSpace = buffer.getFormat()->getColorSpace();
    allocating(image.width, image.height, image.colorFormat, [&] {
        image.data.resize(vexa::io::imageByteSize(image.colorFormat, image.width, image.height));
    });
    // Copy plane by plane through the record, so any row padding is dropped.
    const _ZOCA_IMGB record = recordOf(buffer);
    uint8_t* out = image.data.data();
    for (int p = 0; p < planesOf(record); ++p) {
        const size_t rowBytes = rowBytesOf(record, p);
        const auto* in = reinterpret_cast<const uint8_t*>(record.addr[p]);
        for (int y = 0; y < record.height[p]; ++y) {
            std::memcpy(out, in + static_cast<size_t>(y) * record.stride[p], rowBytes);
            out += rowBytes;
        }
    }
    return image;
}

const uint8_t* packedBytes(const MediaBuffer& buffer) {
    const _ZOCA_IMGB record = recordOf(buffer);
    const auto* base = static_cast<const uint8_t*>(buffer.getDirectData());
    size_t offset = 0;
    for (int p = 0; p < planesOf(record); ++p) {
        const size_t rowBytes = rowBytesOf(record, p);
        if (reinterpret_cast<const uint8_t*>(record.addr[p]) != base + offset ||
            (record.height[p] > 1 && static_cast<size_t>(record.stride[p]) != rowBytes)) {
            return nullptr;
        }
        offset += rowBytes * static_cast<size_t>(record.height[p]);
    }
    return base;
}

std::string describeRecord(const _ZOCA_IMGB& r) {
    std::string text = mivo::format("colorFormat=%d colorSpace=%d start=(%d, %d)", r.colorFormat,
                                    r.colorSpace, r.startX, r.startY);
    for (int p = 0; p < 4 && r.width[p] != 0; ++p) {
        text += mivo::format("\n\tplane %d: %dx%d stride=%d scanlines=%d addr=%p", p, r.width[p],
                             r.height[p], r.stride[p], r.scanlines[p],
                             reinterpret_cast<void*>(r.addr[p]));
    }
    return text;
}

Worker::Worker(const Parameters& parameters)
    : parameters_(withHalfTurnForBothMirrors(parameters)),
      operation_(optionFor(parameters_), {parameters_.operation}),
      converter_(nullptr, {Operation::Csc}),
      cropper_(nullptr, {Operation::Crop}) {}

int Worker::downscaleFactor(int cols, int rows) const {
    const Parameters& p = parameters_;
    if (p.factor > 0 || !p.size) return std::max(p.factor, 1);
    const Geometry& g = *p.size;
    if (g.percent) {
        const double k = 100.0 / (g.width > 0 ? g.width : g.height);
        const long whole = std::lround(k);
        if ((g.width > 0 && g.height > 0 && g.width != g.height) || whole < 1 ||
            std::fabs(k - whole) > 0.01 * k) {
            throw UsageError("downscale divides both sides by a whole number: '" + g.text +
                             "' is not one of 50%, 33.3%, 25%, 20%, ...");
        }
        return static_cast<int>(whole);
    }
    const int wantCols = static_cast<int>(g.width);
    const int wantRows = static_cast<int>(g.height);
    if (wantCols > cols || wantRows > rows) {
        throw UsageError(
            mivo::format("perceptual downscaling only shrinks: %s is larger than the %dx%d input",
                         g.text.c_str(), cols, rows));
    }
    std::vector<std::pair<int, Size>> made;
    for (int k = 1;; ++k) {
        const Size size = downscaled(cols, rows, k);
        if (size.cols < 2 || size.rows < 2) break;
        if ((!wantCols || size.cols == wantCols) && (!wantRows || size.rows == wantRows)) return k;
        made.push_back({k, size});
    }
    // Name the few sizes nearest the one asked for.
    const auto distance = [&](const std::pair<int, Size>& m) {
        return std::abs(wantCols ? m.second.cols - wantCols : m.second.rows - wantRows);
    };
    std::stable_sort(made.begin(), made.end(),
                     [&](const auto& a, const auto& b) { return distance(a) < distance(b); });
    made.resize(std::min<size_t>(made.size(), 4));
    std::sort(made.begin(), made.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string sizes;
    for (const auto& [k, size] : made) {
        sizes += mivo::format("%s%dx%d (--factor %d)", sizes.empty() ? "" : ", ", size.cols,
                              size.rows, k);
    }
    throw UsageError(mivo::format(
        "downscale cannot make %s from %dx%d: it divides both sides by a whole number N, after "
        "cutting them to a multiple of 2N%s%s; resize makes any size",
        g.text.c_str(), cols, rows, sizes.empty() ? "" : ", and can make ", sizes.c_str()));
}

int Worker::workFormatFor(int inputFormat) const {
    if (parameters_.workFormat) return *parameters_.workFormat;
    // The plugin's own mirror handles the two-plane layouts only.
    if (parameters_.operation == Operation::Flip && parameters_.ownFlip &&
        !isTwoPlaneYuv(inputFormat)) {
        return mivo::COLOR_FORMAT_NV12;
    }
    // The downscaler reads samples one byte each, plane by plane: packed pixels go planar.
    if (parameters_.operation == Operation::RszPd && !mivo::isMultiPlaneColorFormat(inputFormat)) {
        return mivo::COLOR_FORMAT_YUV420;
    }
    return inputFormat;
}

Worker::Plan Worker::planFor(int cols, int rows, int inputFormat,
                             const std::string& outputType) const {
    const Parameters& p = parameters_;
    const Operation op = p.operation;
    Plan plan;
    plan.workFormat = workFormatFor(inputFormat);
    plan.trim = {cols, rows};
    const bool sized = op == Operation::Rsz || op == Operation::RszRot || op == Operation::RszCsc;
    if (sized) {
        if (!p.size) {
            throw UsageError(std::string(mivo::ext::operationName(op)) +
                             " needs a target size (--to WIDTHxHEIGHT)");
        }
        plan.target = resolve(*p.size, cols, rows);
        checkLibrarySize(plan.target.cols, plan.target.rows);
    }
    if (op == Operation::Crop && p.rect) plan.rect = *p.rect;
    if (op == Operation::RszPd) {
        plan.factor = downscaleFactor(cols, rows);
        const int alignment = 2 * plan.factor;
        plan.trim = {cols / alignment * alignment, rows / alignment * alignment};
        return plan;  // its sides always come out even
    }
    // The plugin's own mirror writes whole words and row pairs.
    if (op == Operation::Flip && p.ownFlip) plan.trim = {cols / 4 * 4, rows / 4 * 4};
    // The plugin's conversions into 4:2:0 (here into the work format, later into the output
    // file's) drop an odd row or column, and between two 4:2:0 layouts fail: cut first.
    if (isYuv(plan.workFormat) && plan.workFormat != inputFormat &&
        ((plan.trim.cols | plan.trim.rows) & 1)) {
        const Size even{plan.trim.cols & ~1, plan.trim.rows & ~1};
        noteEven("input", plan.workFormat, plan.trim, even, false);
        plan.trim = even;
    }

    // The plugin's resize and crop of 4:2:0 pictures drop an odd row or column too. An RGB
    // file is better served by working in RGB; a 4:2:0 result is made even here, and said
    // so, rather than by the plugin.
    const Size result = sized                   ? plan.target
                        : op == Operation::Crop ? Size{plan.rect.getWidth(), plan.rect.getHeight()}
                                                : plan.trim;
    if (((result.cols | result.rows) & 1) == 0) return plan;
    const int fileFormat = vexa::io::preferredColorFormatForExtension(outputType);
    const bool resizesOrCuts = sized || op == Operation::Crop;
    if (!p.workFormat && isYuv(plan.workFormat) && !isYuv(fileFormat) &&
        (op == Operation::Rsz || op == Operation::RszRot || op == Operation::Crop)) {
        plan.workFormat = rgbFormatFor(outputType);
        return plan;
    }
    const bool converts =
        op == Operation::Csc || op == Operation::RszCsc || op == Operation::CscRot;
    const int resultFormat = converts && p.colorFormat ? *p.colorFormat : plan.workFormat;
    const bool resultEvened =
        isYuv(resultFormat) && (resizesOrCuts || op == Operation::Csc || !isYuv(plan.workFormat));
    if (!resultEvened && !(isYuv(fileFormat) && fileFormat != resultFormat)) return plan;
    const Size even{result.cols & ~1, result.rows & ~1};
    noteEven("result", resultEvened ? resultFormat : fileFormat, result, even, turnsSides(p));
    if (sized) {
        plan.target = even;
    } else if (op == Operation::Crop) {
        plan.rect.right = plan.rect.left + even.cols;
        plan.rect.bottom = plan.rect.top + even.rows;
    } else {
        plan.trim = {plan.trim.cols & ~1, plan.trim.rows & ~1};
    }
    return plan;
}

std::shared_ptr<MediaBuffer> Worker::trim(const std::shared_ptr<MediaBuffer>& buffer, int cols,
                                          int rows, std::ostream* verbose) {
    if (cols == buffer->getCols() && rows == buffer->getRows()) return buffer;
    if (cols < 2 || rows < 2) {
        throw UsageError(mivo::format("the %dx%d picture is too small for %s", buffer->getCols(),
                                      buffer->getRows(),
                                      mivo::ext::operationName(parameters_.operation)));
    }
    if (verbose) {
        *verbose << "trimming " << buffer->getCols() << "x" << buffer->getRows() << " to " << cols
                 << "x" << rows << " for " << mivo::ext::operationName(parameters_.operation)
                 << "\n";
    }
    std::unique_ptr<mivo::MutableMediaFormat> wish = buffer->getFormat()->mutableCopy();
    wish->setExtra(mivo::extra::kCropRect, android::Rect(0, 0, cols, rows));
    return runInto(cropper_, buffer, wish->freeze(), "trimming");
}

void Worker::check(const MediaBuffer& input, const Plan& plan) const {
    const Parameters& p = parameters_;
    const int cols = input.getCols();
    const int rows = input.getRows();
    const int format = input.getFormat()->getColorFormat();
    const bool subsampled = mivo::isMultiPlaneColorFormat(format);
    checkLibrarySize(cols, rows);
    switch (p.operation) {
        case Operation::Rsz:
        case Operation::RszRot:
        case Operation::RszCsc:
            if ((subsampled || (p.colorFormat && mivo::isMultiPlaneColorFormat(*p.colorFormat))) &&
                (plan.target.cols < 2 || plan.target.rows < 2)) {
                throw UsageError("a 4:2:0 picture cannot be smaller than 2x2");
            }
            if (p.operation == Operation::RszCsc && !p.colorFormat) {
                throw UsageError("rszCsc needs a target format (--to-format)");
            }
            break;
        case Operation::RszPd:
            // The downscaler reads one byte per sample: packed pixels would come out as noise.
            if (!subsampled) {
                throw UsageError(
                    mivo::format("perceptual downscaling needs a 4:2:0 work format, not %s",
                                 mivo::getColorFormatName(format)));
            }
            if (cols / (2 * plan.factor) < 1 || rows / (2 * plan.factor) < 1) {
                throw UsageError(mivo::format("a %dx%d picture is too small for a factor of %d",
                                              cols, rows, plan.factor));
            }
            break;
        case Operation::Csc:
        case Operation::CscRot:
            if (!p.colorFormat) throw UsageError("conversion needs a target format (--to-format)");
            break;
        case Operation::Crop: {
            if (!p.rect) throw UsageError("crop needs a rectangle (--rect LEFT,TOP,WIDTH,HEIGHT)");
            const android::Rect& r = plan.rect;
            if (r.right > cols || r.bottom > rows) {
                throw UsageError(
                    mivo::format("rectangle %d,%d %dx%d lies outside the %dx%d picture", r.left,
                                 r.top, r.getWidth(), r.getHeight(), cols, rows));
            }
            if (subsampled && (r.getWidth() < 2 || r.getHeight() < 2)) {
                throw UsageError("a 4:2:0 crop must be at least 2x2");
            }
            break;
        }
        case Operation::Cgc:
            if (!p.targetColorSpace) throw UsageError("gamut conversion needs --to-space");
            break;
        case Operation::Flip:
            if (p.flipType < 1 || p.flipType > 3) throw UsageError("flip needs --direction");
            if (p.ownFlip && !isTwoPlaneYuv(format)) {
                throw UsageError(mivo::format("the plugin's own mirror needs nv12 or nv21, not %s",
                                              mivo::getColorFormatName(format)));
            }
            break;
        case Operation::Rot:
        case Operation::HdrToSdr:
            break;
    }
}

std::shared_ptr<mivo::MediaFormat> Worker::wishFor(const MediaBuffer& input,
                                                   const Plan& plan) const {
    const Parameters& p = parameters_;
    std::unique_ptr<mivo::MutableMediaFormat> wish = input.getFormat()->mutableCopy();
    if (p.operation == Operation::RszPd) {
        wish->setCols(input.getCols() / plan.factor).setRows(input.getRows() / plan.factor);
    } else if (p.operation == Operation::Rsz || p.operation == Operation::RszRot ||
               p.operation == Operation::RszCsc) {
        wish->setCols(plan.target.cols).setRows(plan.target.rows);
    }
    if (p.colorFormat) wish->setColorFormat(*p.colorFormat);
    wish->setRotation(p.angle);
    if (p.operation == Operation::Crop) wish->setExtra(mivo::extra::kCropRect, plan.rect);
    if (p.targetColorSpace) wish->setColorSpace(*p.targetColorSpace);
    if (p.dither) wish->setExtra(mivo::extra::kDithering, true);
    if (p.operation == Operation::Flip && !p.flipThroughOption) {
        wish->setExtra(mivo::extra::kFlipType, p.flipType);
    }
    return wish->freeze();
}

std::shared_ptr<MediaBuffer> Worker::convert(const std::shared_ptr<MediaBuffer>& buffer,
                                             int colorFormat) {
    const int from = buffer->getFormat()->getColorFormat();
    if (from == colorFormat) return buffer;
    // Between RGBA and nv12/nv21 the plugin uses full-range BT.601 whatever the buffers say;
    // through RGB the files' own colour space holds (and odd sides stay, as they would not
    // through I420).
    if ((from == mivo::COLOR_FORMAT_RGBA && isTwoPlaneYuv(colorFormat)) ||
        (isTwoPlaneYuv(from) && colorFormat == mivo::COLOR_FORMAT_RGBA)) {
        return convert(convert(buffer, mivo::COLOR_FORMAT_RGB), colorFormat);
    }
    std::unique_ptr<mivo::MutableMediaFormat> wish = buffer->getFormat()->mutableCopy();
    wish->setColorFormat(colorFormat);
    return runInto(converter_, buffer, wish->freeze(),
                   std::string("converting to ") + mivo::getColorFormatName(colorFormat));
}

vexa::io::Image Worker::apply(vexa::io::Image image, const std::string& outputType,
                              std::ostream* verbose) {
    const bool hdr = parameters_.operation == Operation::HdrToSdr;
    const int tagged =
        image.colorSpace != 0 ? image.colorSpace : parameters_.inputColorSpace.value_or(0);
    const int colorSpace =
        parameters_.inputColorSpace.value_or(image.colorSpace != 0 ? image.colorSpace
                                             : hdr                 ? mivo::COLOR_SPACE_BT2020
                                                   : defaultColorSpace(image.colorFormat));
    const int hdrType =
        parameters_.hdrTypeGiven || image.hdrType == 0 ? parameters_.hdrType : image.hdrType;
    std::shared_ptr<MediaBuffer> result =
        process(toBuffer(image, colorSpace, hdr ? std::optional<int>(hdrType) : std::nullopt),
                outputType, verbose);
    // The input is no longer needed: freed before the result is copied out.
    std::vector<uint8_t>().swap(image.data);
    vexa::io::Image out = toImage(*result);
    // Tone mapping gives SDR BT.709; an untagged input stays untagged (sRGB) unless the
    // operation chose the colours.
    if (hdr) {
        out.colorSpace = mivo::COLOR_SPACE_BT709;
    } else if (tagged == 0 && !parameters_.targetColorSpace) {
        out.colorSpace = 0;
    } else if (out.colorSpace == colorSpace) {
        out.hdrType = image.hdrType;  // PQ or HLG stays what it was
    }
    return out;
}

std::shared_ptr<MediaBuffer> Worker::process(std::shared_ptr<MediaBuffer> input,
                                             const std::string& outputType, std::ostream* verbose) {
    const int inputFormat = input->getFormat()->getColorFormat();
    checkLibrarySize(input->getCols(), input->getRows());
    const Plan plan = planFor(input->getCols(), input->getRows(), inputFormat, outputType);
    // Cut before converting, so that a conversion into 4:2:0 meets even sides only.
    std::shared_ptr<MediaBuffer> in = trim(input, plan.trim.cols, plan.trim.rows, verbose);
    input.reset();
    in = convert(in, plan.workFormat);
    check(*in, plan);
    const std::shared_ptr<mivo::MediaFormat> wish = wishFor(*in, plan);
    auto slot = mivo::core::OutputSlot::create(wish);
    std::shared_ptr<MediaBuffer> out = slot;
    const int result = allocating(wish->getCols(), wish->getRows(), wish->getColorFormat(),
                                  [&] { return operation_(in, out); });
    if (verbose) {
        *verbose << "input buffer: " << in->toString() << "\n"
                 << "input record: " << describeRecord(recordOf(*in)) << "\n";
        if (slot->get()) {
            *verbose << "output buffer: " << slot->toString() << "\n"
                     << "output record: " << describeRecord(recordOf(*slot)) << "\n";
        }
        *verbose << mivo::ext::operationName(parameters_.operation) << " returned " << result
                 << "\n";
    }
    if (result != 0) {
        throw FileError(std::string(mivo::ext::operationName(parameters_.operation)) + ": " +
                        libraryError(result));
    }
    in.reset();  // the input's memory is not needed for the conversion into the file's format
    std::shared_ptr<MediaBuffer> done = slot->get();
    const int resultFormat = done->getFormat()->getColorFormat();
    if (!fileHolds(outputType, resultFormat)) {
        done = convert(done, fileFormatFor(outputType, resultFormat, inputFormat));
    }
    return done;
}

// Kept apart from apply() so that frames of a clip reach the operation where they were read
// and leave it in the buffers it wrote.
std::shared_ptr<mivo::MediaFormat> Worker::inputFormat(const vexa::io::ImageView& image) const {
    const bool hdr = parameters_.operation == Operation::HdrToSdr;
    const int colorSpace = parameters_.inputColorSpace.value_or(
        hdr ? mivo::COLOR_SPACE_BT2020 : defaultColorSpace(image.colorFormat));
    auto format = mivo::makeImageFormat(image.colorFormat, image.width, image.height, colorSpace);
    if (hdr) format->setExtra(mivo::extra::kHdrType, parameters_.hdrType);
    return format->freeze();
}

void Worker::reuseBuffers(const std::shared_ptr<BufferPool>& pool) {
    for (ReusingPlugin* plugin : {&operation_, &converter_, &cropper_}) plugin->reuse(pool);
}

}  // namespace vexa
