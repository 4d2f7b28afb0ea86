#include "Worker.h"

#include "mivo/core/buffer/BufferExtension.h"
#include "mivo/core/buffer/OutputSlot.h"
#include "mivo/core/types/ColorFormat.h"

#include <cstring>

namespace vexa {

using mivo::core::MediaBuffer;
using mivo::ext::Operation;

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

// Runs `plugin` from `input` into a new output slot that wishes for `wish`.
std::shared_ptr<MediaBuffer> runInto(ReusingPlugin& plugin,
                                     const std::shared_ptr<MediaBuffer>& input,
                                     std::shared_ptr<mivo::MediaFormat> wish,
                                     const std::string& what) {
    auto slot = mivo::core::OutputSlot::create(std::move(wish));
    std::shared_ptr<MediaBuffer> out = slot;
    const int result = plugin(input, out);
    if (result != 0) {
        throw FileError(
            mivo::format("%s: %s (code %d)", what.c_str(), libraryError(result), result));
    }
    return slot->get();
}

// The formats a file type can hold as they are.
bool fileHolds(const std::string& path, int colorFormat) {
    const int preferred = vexa::io::preferredColorFormatForExtension(path);
    if (preferred == vexa::io::kRgba) {  // PNG keeps rgb as well
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
    if (preferred == vexa::io::kRgba && !hasAlpha(resultFormat)) return vexa::io::kRgb;
    return preferred;
}

}  // namespace

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
    image.data.resize(vexa::io::imageByteSize(image.colorFormat, image.width, image.height));
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

int Worker::downscaleFactor(const MediaBuffer& input) const {
    if (parameters_.factor > 0) return parameters_.factor;
    return std::max(1,
                    input.getCols() / std::max(1, parameters_.size ? parameters_.size->cols : 1));
}

int Worker::alignmentFor(const MediaBuffer& input) const {
    // The downscaler writes rows of exactly input/k samples and the own mirror writes whole
    // words and row pairs only: sides that are multiples of these leave nothing unwritten.
    if (parameters_.operation == Operation::RszPd) return 2 * downscaleFactor(input);
    if (parameters_.operation == Operation::Flip && parameters_.ownFlip) return 4;
    return 1;
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

void Worker::check(const MediaBuffer& input) const {
    const Parameters& p = parameters_;
    const int cols = input.getCols();
    const int rows = input.getRows();
    const int format = input.getFormat()->getColorFormat();
    const bool subsampled = mivo::isMultiPlaneColorFormat(format);
    auto requireSize = [&](const char* what) {
        if (!p.size)
            throw UsageError(std::string(what) + " needs a target size (--to WIDTHxHEIGHT)");
    };
    switch (p.operation) {
        case Operation::Rsz:
        case Operation::RszRot:
            requireSize(mivo::ext::operationName(p.operation));
            if (subsampled && (p.size->cols < 2 || p.size->rows < 2)) {
                throw UsageError("a 4:2:0 picture cannot be smaller than 2x2");
            }
            // The plugin's resize would quietly drop the odd row or column.
            if (p.operation == Operation::Rsz && subsampled &&
                ((p.size->cols | p.size->rows) & 1)) {
                throw UsageError("a 4:2:0 picture can only be resized to an even width and height");
            }
            break;
        case Operation::RszPd:
            // The downscaler reads one byte per sample: packed pixels would come out as noise.
            if (!subsampled) {
                throw UsageError(
                    mivo::format("perceptual downscaling needs a 4:2:0 work format, not %s",
                                 mivo::getColorFormatName(format)));
            }
            if (p.size && (p.size->cols > cols || p.size->rows > rows)) {
                throw UsageError(
                    "perceptual downscaling only shrinks: the target is larger than the input");
            }
            if (cols / (2 * downscaleFactor(input)) < 1 ||
                rows / (2 * downscaleFactor(input)) < 1) {
                throw UsageError(mivo::format("a %dx%d picture is too small for a factor of %d",
                                              cols, rows, downscaleFactor(input)));
            }
            break;
        case Operation::Csc:
        case Operation::CscRot:
            if (!p.colorFormat) throw UsageError("conversion needs a target format (--to-format)");
            break;
        case Operation::RszCsc:
            requireSize("rszCsc");
            if (!p.colorFormat) throw UsageError("rszCsc needs a target format (--to-format)");
            if (mivo::isMultiPlaneColorFormat(*p.colorFormat) &&
                ((p.size->cols | p.size->rows) & 1)) {
                throw UsageError("a 4:2:0 target needs an even width and height");
            }
            break;
        case Operation::Crop: {
            if (!p.rect) throw UsageError("crop needs a rectangle (--rect LEFT,TOP,WIDTH,HEIGHT)");
            const android::Rect& r = *p.rect;
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

std::shared_ptr<mivo::MediaFormat> Worker::wishFor(const MediaBuffer& input) const {
    const Parameters& p = parameters_;
    std::unique_ptr<mivo::MutableMediaFormat> wish = input.getFormat()->mutableCopy();
    if (p.operation == Operation::RszPd) {
        const int k = downscaleFactor(input);
        wish->setCols(input.getCols() / k).setRows(input.getRows() / k);
    } else if (p.size) {
        wish->setCols(p.size->cols).setRows(p.size->rows);
    }
    if (p.colorFormat) wish->setColorFormat(*p.colorFormat);
    wish->setRotation(p.angle);
    if (p.rect) wish->setExtra(mivo::extra::kCropRect, *p.rect);
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
    // through I420 the files' own colour space holds.
    if ((from == mivo::COLOR_FORMAT_RGBA && isTwoPlaneYuv(colorFormat)) ||
        (isTwoPlaneYuv(from) && colorFormat == mivo::COLOR_FORMAT_RGBA)) {
        return convert(convert(buffer, mivo::COLOR_FORMAT_YUV420), colorFormat);
    }
    std::unique_ptr<mivo::MutableMediaFormat> wish = buffer->getFormat()->mutableCopy();
    wish->setColorFormat(colorFormat);
    return runInto(converter_, buffer, wish->freeze(),
                   std::string("converting to ") + mivo::getColorFormatName(colorFormat));
}

std::shared_ptr<MediaBuffer> Worker::run(const std::shared_ptr<MediaBuffer>& input,
                                         std::ostream* verbose) {
    std::shared_ptr<MediaBuffer> in =
        convert(input, workFormatFor(input->getFormat()->getColorFormat()));
    check(*in);
    const int alignment = alignmentFor(*in);
    in = trim(in, in->getCols() / alignment * alignment, in->getRows() / alignment * alignment,
              verbose);
    auto slot = mivo::core::OutputSlot::create(wishFor(*in));
    std::shared_ptr<MediaBuffer> out = slot;
    const int result = operation_(in, out);
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
        throw FileError(mivo::format("%s: %s (code %d)",
                                     mivo::ext::operationName(parameters_.operation),
                                     libraryError(result), result));
    }
    return slot->get();
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
    std::shared_ptr<MediaBuffer> result = run(
        toBuffer(image, colorSpace, hdr ? std::optional<int>(parameters_.hdrType) : std::nullopt),
        verbose);
    const int inputFormat = image.colorFormat;
    // The input is no longer needed: freed before the result is copied out.
    std::vector<uint8_t>().swap(image.data);
    const int resultFormat = result->getFormat()->getColorFormat();
    if (!fileHolds(outputType, resultFormat)) {
        result = convert(result, fileFormatFor(outputType, resultFormat, inputFormat));
    }
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

std::shared_ptr<MediaBuffer> Worker::process(const std::shared_ptr<MediaBuffer>& input,
                                             const std::string& outputType, std::ostream* verbose) {
    const int inputFormat = input->getFormat()->getColorFormat();
    std::shared_ptr<MediaBuffer> result = run(input, verbose);
    const int resultFormat = result->getFormat()->getColorFormat();
    if (!fileHolds(outputType, resultFormat)) {
        result = convert(result, fileFormatFor(outputType, resultFormat, inputFormat));
    }
    return result;
}

void Worker::reuseBuffers(const std::shared_ptr<BufferPool>& pool) {
    for (ReusingPlugin* plugin : {&operation_, &converter_, &cropper_}) plugin->reuse(pool);
}

}  // namespace vexa
