#include "mivo/ext/plugin/VexaPlugin.h"

#include "mivo/Def.h"
#include "mivo/core/buffer/BufferExtension.h"
#include "mivo/core/types/ColorFormat.h"
#include "mivo/ext/plugin/ImgbView.h"
#include "mivo/ext/plugin/Mirror.h"
#include "mivo/ext/plugin/PerceptualDownscale.h"

#include <zoca/zoca.h>

#include <android/log.h>

#include <array>
#include <functional>
#include <stdexcept>
#include <utility>

namespace mivo::ext {
namespace detail {

using core::ImgpOption;
using core::MediaBuffer;
using core::PlaceHolder;
using core::detail::CpuMediaBuffer;

namespace {

// Every operation asks for descriptors without buffer options.
_ZOCA_IMGB describe(const MediaBuffer& buffer) {
    return buffer.getTypedData<_ZOCA_IMGB>(std::shared_ptr<core::detail::BufferOption>());
}

// Puts a new owned buffer into the output slot, in the input's format as `edit` changes it.
template <typename Edit>
void putNewOutput(const MediaBuffer& in, MediaBuffer& out, Edit&& edit) {
    PlaceHolder<MediaBuffer>& holder = out;
    std::unique_ptr<MutableMediaFormat> format = in.getFormat()->mutableCopy();
    edit(*format);
    std::shared_ptr<MediaFormat> frozen = format->freeze();
    holder.put(CpuMediaBuffer::allocateFor(frozen));
}

// The shared step of every operation: an empty output slot receives a new buffer; a buffer
// that already holds memory is used as it stands. Returns the output's descriptor.
template <typename Edit>
_ZOCA_IMGB prepareOutput(const MediaBuffer& in, MediaBuffer& out, Edit&& edit) {
    if (out.isMutable() && out.isEmpty()) putNewOutput(in, out, std::forward<Edit>(edit));
    return describe(out);
}

constexpr int clearLowBit(int n) {
    return n & ~1;
}

int rotationCode(int degrees) {
    if (degrees == 90) return ZOCA_ROT_90;
    if (degrees == 270) return ZOCA_ROT_270;
    if (degrees == 180) return ZOCA_ROT_180;
    return ZOCA_ROT_NONE;
}

bool swapsSides(int degrees) {
    return degrees == 90 || degrees == 270;
}

void swapSides(MutableMediaFormat& format) {
    const int cols = format.getCols();
    const int rows = format.getRows();
    format.setCols(rows);
    format.setRows(cols);
}

bool isTwoPlaneYuv(int imgbColorFormat) {
    return clearLowBit(imgbColorFormat) == ZOCA_CF_NV12;
}

int hdrMode(int hdrType) {
    static constexpr std::array<int, 3> kModes = {ZOCA_HDR_PQ, ZOCA_HDR_HLG,
                                                  ZOCA_HDR_PQ_HIGHLIGHTS};
    const unsigned index = static_cast<unsigned>(hdrType) - 3u;
    return index < kModes.size() ? kModes[index] : ZOCA_HDR_DEFAULT;
}

}  // namespace

VexaPluginBase::VexaPluginBase(std::shared_ptr<ImgpOption> option) : Plugin(std::move(option)) {
    registerImgbView();
}

VexaPluginBase::~VexaPluginBase() = default;

int32_t VexaPluginBase::operator()(const std::shared_ptr<MediaBuffer>& in,
                                   std::shared_ptr<MediaBuffer>& out) {
    int32_t result = 0;
    for (const Processor& processor : processors_) {
        if (!processor) throw std::bad_function_call();
        result = processor(in, out, option_);
        if (result != ZOCA_ERR_DESTINATION || !out->isMutable()) continue;
        const std::shared_ptr<MediaFormat> wanted = out->getFormat();
        if (!wanted->containsExtra(extra::kPreferredColor)) continue;
        const int cf = std::get<int>(*wanted->getExtra(extra::kPreferredColor));
        MIVO_ASSERT("ext/plugin/VexaPlugin", 770, cf != COLOR_FORMAT_NONE);
        // The input's size and everything else, in the preferred colour format.
        putNewOutput(*in, *out, [cf](MutableMediaFormat& f) { f.setColorFormat(cf); });
        result = processor(in, out, option_);
    }
    return result;
}

int32_t VexaPluginBase::rsz(const MediaBuffer& in, MediaBuffer& out,
                            const std::shared_ptr<ImgpOption>& /*option*/) {
    _ZOCA_IMGB src = describe(in);
    _ZOCA_IMGB dst = prepareOutput(in, out, [&out](MutableMediaFormat& f) {
        const std::shared_ptr<MediaFormat> wanted = out.getFormat();
        int cols = wanted->getCols();
        int rows = wanted->getRows();
        if (isMultiPlaneColorFormat(f.getColorFormat())) {
            cols = clearLowBit(cols);
            rows = clearLowBit(rows);
        }
        f.setCols(cols);
        f.setRows(rows);
    });
    return vexa_rsz(&src, &dst);
}

int32_t VexaPluginBase::rszPd(const MediaBuffer& in, MediaBuffer& out,
                              const std::shared_ptr<ImgpOption>& /*option*/) {
    const _ZOCA_IMGB src = describe(in);
    const _ZOCA_IMGB dst = prepareOutput(
        in, out, [&out](MutableMediaFormat& f) { f.setShape(out.getFormat()->getShape()); });
    perceptualDownscale(src, dst);
    return 0;
}

int32_t VexaPluginBase::csc(const MediaBuffer& in, MediaBuffer& out,
                            const std::shared_ptr<ImgpOption>& option) {
    _ZOCA_IMGB src = describe(in);
    const bool dithering = getExtraAs<bool>(*out.getFormat(), extra::kDithering).value_or(false);
    _ZOCA_IMGB dst = prepareOutput(in, out, [&](MutableMediaFormat& f) {
        const std::shared_ptr<MediaFormat> wanted = out.getFormat();
        int cf = wanted->getColorFormat();
        const core::ImgpOptionValue* preferred =
            option ? option->find(core::IMGP_OPTION_PREFERRED_COLOR) : nullptr;
        if (preferred) {
            cf = core::readInt32<0, 8>(*preferred);
        } else if (auto extraColor = getExtraAs<int>(*wanted, extra::kPreferredColor)) {
            cf = *extraColor;
        }
        f.setColorFormat(cf);
        const int cols = f.getCols();
        const int rows = f.getRows();
        if (isMultiPlaneColorFormat(cf) && ((cols | rows) & 1)) {
            __android_log_print(ANDROID_LOG_WARN, MIVO_LOG_TAG,
                                "[%d, %d] image to %s is not supported! --> force to [%d, %d]",
                                cols, rows, getColorFormatName(cf), clearLowBit(cols),
                                clearLowBit(rows));
            f.setCols(clearLowBit(cols));
            f.setRows(clearLowBit(rows));
            // Only the size read from the source shrinks; its planes stay where they are.
            src.width[0] = clearLowBit(cols);
            src.height[0] = clearLowBit(rows);
        }
    });
    const int s = src.colorFormat;
    const int d = dst.colorFormat;
    if ((isTwoPlaneYuv(s) && d == ZOCA_CF_RGBA) || (s == ZOCA_CF_RGBA && isTwoPlaneYuv(d))) {
        src.colorSpace = ZOCA_CS_BT601_FULL;
        dst.colorSpace = ZOCA_CS_BT601_FULL;
    }
    if (s == d) return vexa_rsz(&src, &dst);
    if (dithering) return vexa_csc_dither(&src, &dst);
    return vexa_csc(&src, &dst);
}

int32_t VexaPluginBase::rot(const MediaBuffer& in, MediaBuffer& out,
                            const std::shared_ptr<ImgpOption>& /*option*/) {
    const _ZOCA_IMGB src = describe(in);
    const int degrees = out.getFormat()->getRotation();
    _ZOCA_IMGB dst = prepareOutput(in, out, [degrees](MutableMediaFormat& f) {
        if (swapsSides(degrees)) swapSides(f);
    });
    return vexa_rot(&src, rotationCode(degrees), &dst);
}

int32_t VexaPluginBase::rszCsc(const MediaBuffer& in, MediaBuffer& out,
                               const std::shared_ptr<ImgpOption>& /*option*/) {
    const _ZOCA_IMGB src = describe(in);
    _ZOCA_IMGB dst = prepareOutput(in, out, [&out](MutableMediaFormat& f) {
        const std::shared_ptr<MediaFormat> wanted = out.getFormat();
        f.setShape(wanted->getShape());
        f.setColorFormat(wanted->getColorFormat());
    });
    return vexa_rsz(&src, &dst);
}

int32_t VexaPluginBase::rszRot(const MediaBuffer& in, MediaBuffer& out,
                               const std::shared_ptr<ImgpOption>& /*option*/) {
    const _ZOCA_IMGB src = describe(in);
    const int degrees = out.getFormat()->getRotation();
    _ZOCA_IMGB dst = prepareOutput(in, out, [&out, degrees](MutableMediaFormat& f) {
        f.setShape(out.getFormat()->getShape());
        if (swapsSides(degrees)) swapSides(f);
    });
    return vexa_rsz_rot(&src, rotationCode(degrees), &dst);
}

int32_t VexaPluginBase::cscRot(const MediaBuffer& in, MediaBuffer& out,
                               const std::shared_ptr<ImgpOption>& /*option*/) {
    const _ZOCA_IMGB src = describe(in);
    const int degrees = out.getFormat()->getRotation();
    _ZOCA_IMGB dst = prepareOutput(in, out, [&out, degrees](MutableMediaFormat& f) {
        f.setColorFormat(out.getFormat()->getColorFormat());
        if (swapsSides(degrees)) swapSides(f);
    });
    return vexa_csc_rot(&src, rotationCode(degrees), &dst);
}

int32_t VexaPluginBase::crop(const MediaBuffer& in, MediaBuffer& out,
                             const std::shared_ptr<ImgpOption>& /*option*/) {
    _ZOCA_IMGB src = describe(in);
    const std::optional<FormatExtraValue> cropInfo = out.getFormat()->getExtra(extra::kCropRect);
    MIVO_ASSERT_NOTE("ext/plugin/VexaPlugin", 991, "", cropInfo.has_value());
    const android::Rect rect = std::get<android::Rect>(*cropInfo);
    _ZOCA_IMGB dst = prepareOutput(in, out, [&rect](MutableMediaFormat& f) {
        int cols = rect.right - rect.left;
        int rows = rect.bottom - rect.top;
        if (isMultiPlaneColorFormat(f.getColorFormat())) {
            cols = clearLowBit(cols);
            rows = clearLowBit(rows);
        }
        f.setCols(cols);
        f.setRows(rows);
    });
    // The origin goes unrounded, even where the size was made even.
    src.startX = rect.left;
    src.startY = rect.top;
    return vexa_crop(&src, &dst);
}

int32_t VexaPluginBase::cgc(const MediaBuffer& in, MediaBuffer& out,
                            const std::shared_ptr<ImgpOption>& /*option*/) {
    const _ZOCA_IMGB src = describe(in);
    _ZOCA_IMGB dst = prepareOutput(in, out, [&out](MutableMediaFormat& f) {
        f.setColorSpace(out.getFormat()->getColorSpace());
    });
    return vexa_cgc(&src, &dst);
}

int32_t VexaPluginBase::hdrToSdr(const MediaBuffer& in, MediaBuffer& out,
                                 const std::shared_ptr<ImgpOption>& /*option*/) {
    const _ZOCA_IMGB src = describe(in);
    const int hdrType = getExtraAs<int>(*in.getFormat(), extra::kHdrType).value_or(0);
    _ZOCA_IMGB dst =
        prepareOutput(in, out, [](MutableMediaFormat& f) { f.setExtra(extra::kHdrType, 1); });
    return vexa_hdr_to_sdr(&src, &dst, hdrMode(hdrType));
}

int32_t VexaPluginBase::flip(const std::shared_ptr<MediaBuffer>& in,
                             std::shared_ptr<MediaBuffer>& out,
                             const std::shared_ptr<ImgpOption>& option) {
    const _ZOCA_IMGB src = describe(*in);
    int flipType = 0;
    const core::ImgpOptionValue* fromOption =
        option ? option->find(core::IMGP_OPTION_FLIP_TYPE) : nullptr;
    if (fromOption) flipType = core::readInt32<0, 6>(*fromOption);
    if (flipType == 0) flipType = getExtraAs<int>(*out->getFormat(), extra::kFlipType).value_or(0);
    const bool ownPath = option && option->contains(core::IMGP_OPTION_OWN_FLIP);
    _ZOCA_IMGB dst = prepareOutput(*in, *out, [](MutableMediaFormat&) {});
    if (!ownPath) {
        // Both directions at once is not a library mirror: it becomes a plain copy.
        const int code = flipType == FLIP_HORIZONTAL ? ZOCA_ROT_MIRROR_H
                         : flipType == FLIP_VERTICAL ? ZOCA_ROT_MIRROR_V
                                                     : ZOCA_ROT_NONE;
        return vexa_rot(&src, code, &dst);
    }
    mirrorTwoPlane(src, dst, flipType);
    return 0;
}

}  // namespace detail

namespace {

struct OperationName {
    Operation operation;
    const char* name;
    const char* alias;
};

constexpr OperationName kOperationNames[] = {
    {Operation::Rsz, "rsz", "resize"},      {Operation::RszPd, "rszPd", "downscale"},
    {Operation::Csc, "csc", "convert"},     {Operation::Rot, "rot", "rotate"},
    {Operation::RszCsc, "rszCsc", nullptr}, {Operation::RszRot, "rszRot", nullptr},
    {Operation::CscRot, "cscRot", nullptr}, {Operation::Crop, "crop", nullptr},
    {Operation::Cgc, "cgc", "gamut"},       {Operation::HdrToSdr, "hdrToSdr", "tonemap"},
    {Operation::Flip, "flip", nullptr},
};

using BufferOperation = int32_t (*)(const core::MediaBuffer&, core::MediaBuffer&,
                                    const std::shared_ptr<core::ImgpOption>&);

// Wraps an operation on buffer references as a processor.
core::Plugin::Processor wrap(BufferOperation operation) {
    return [operation](const std::shared_ptr<core::MediaBuffer>& in,
                       std::shared_ptr<core::MediaBuffer>& out,
                       const std::shared_ptr<core::ImgpOption>& option) {
        return operation(*in, *out, option);
    };
}

}  // namespace

const char* operationName(Operation operation) {
    for (const auto& entry : kOperationNames) {
        if (entry.operation == operation) return entry.name;
    }
    throw std::invalid_argument("unknown operation");
}

const char* operationAlias(Operation operation) {
    for (const auto& entry : kOperationNames) {
        if (entry.operation == operation) return entry.alias;
    }
    return nullptr;
}

std::optional<Operation> parseOperation(std::string_view name) {
    for (const auto& entry : kOperationNames) {
        if (name == entry.name || (entry.alias && name == entry.alias)) return entry.operation;
    }
    return std::nullopt;
}

const std::vector<Operation>& allOperations() {
    static const std::vector<Operation> operations = [] {
        std::vector<Operation> all;
        for (const auto& entry : kOperationNames) all.push_back(entry.operation);
        return all;
    }();
    return operations;
}

core::Plugin::Processor VexaPlugin::processorFor(Operation operation) {
    using Base = detail::VexaPluginBase;
    switch (operation) {
        case Operation::Rsz:
            return wrap(&Base::rsz);
        case Operation::RszPd:
            return wrap(&Base::rszPd);
        case Operation::Csc:
            return wrap(&Base::csc);
        case Operation::Rot:
            return wrap(&Base::rot);
        case Operation::RszCsc:
            return wrap(&Base::rszCsc);
        case Operation::RszRot:
            return wrap(&Base::rszRot);
        case Operation::CscRot:
            return wrap(&Base::cscRot);
        case Operation::Crop:
            return wrap(&Base::crop);
        case Operation::Cgc:
            return wrap(&Base::cgc);
        case Operation::HdrToSdr:
            return wrap(&Base::hdrToSdr);
        case Operation::Flip:
            return &Base::flip;
    }
    throw std::invalid_argument("unknown operation");
}

VexaPlugin::VexaPlugin(std::shared_ptr<ImgpOption> option,
                       std::initializer_list<Operation> operations)
    : VexaPlugin(std::move(option), std::vector<Operation>(operations)) {}

VexaPlugin::VexaPlugin(std::shared_ptr<ImgpOption> option, const std::vector<Operation>& operations)
    : VexaPluginBase(std::move(option)) {
    for (Operation operation : operations) processors_.push_back(processorFor(operation));
}

}  // namespace mivo::ext
