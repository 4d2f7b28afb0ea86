// The image-processing plugin: VexaPluginBase runs a list of processors and offers the
// image operations they are built from; VexaPlugin is a ready-made plugin whose processors
// are the operations a caller names.
#ifndef MIVO_EXT_PLUGIN_VEXAPLUGIN_H
#define MIVO_EXT_PLUGIN_VEXAPLUGIN_H

#include "mivo/Def.h"
#include "mivo/core/buffer/MediaBuffer.h"
#include "mivo/core/plugin/ImgpOption.h"
#include "mivo/core/plugin/Plugin.h"

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mivo::ext {
namespace detail {

class MIVO_EXPORT VexaPluginBase : public core::Plugin {
  public:
    using MediaBuffer = core::MediaBuffer;
    using ImgpOption = core::ImgpOption;

    // The first construction in the process registers the _ZOCA_IMGB view of buffers.
    explicit VexaPluginBase(std::shared_ptr<ImgpOption> option);
    ~VexaPluginBase() override;

    // Runs every processor in order; the last one's result is returned. A processor that
    // answers -3 gets one more run into a new output in the output's "preferred-color".
    int32_t operator()(const std::shared_ptr<MediaBuffer>& in,
                       std::shared_ptr<MediaBuffer>& out) override;

    // Scales to the output's size (even sizes for the 4:2:0 formats).
    static int32_t rsz(const MediaBuffer& in, MediaBuffer& out,
                       const std::shared_ptr<ImgpOption>& option);
    // Detail-preserving integer-factor downscaling, computed here.
    static int32_t rszPd(const MediaBuffer& in, MediaBuffer& out,
                         const std::shared_ptr<ImgpOption>& option);
    // Converts to the colour format of option 12, "preferred-color" or the output's.
    static int32_t csc(const MediaBuffer& in, MediaBuffer& out,
                       const std::shared_ptr<ImgpOption>& option);
    // Rotates by the output format's rotation.
    static int32_t rot(const MediaBuffer& in, MediaBuffer& out,
                       const std::shared_ptr<ImgpOption>& option);
    // Scales to the output's size and converts to its colour format in one pass.
    static int32_t rszCsc(const MediaBuffer& in, MediaBuffer& out,
                          const std::shared_ptr<ImgpOption>& option);
    // Scales to the output's size, then rotates by its rotation.
    static int32_t rszRot(const MediaBuffer& in, MediaBuffer& out,
                          const std::shared_ptr<ImgpOption>& option);
    // Converts to the output's colour format and rotates by its rotation.
    static int32_t cscRot(const MediaBuffer& in, MediaBuffer& out,
                          const std::shared_ptr<ImgpOption>& option);
    // Cuts the output format's "crop-rect" out of the input.
    static int32_t crop(const MediaBuffer& in, MediaBuffer& out,
                        const std::shared_ptr<ImgpOption>& option);
    // Converts to the output format's colour space (gamut).
    static int32_t cgc(const MediaBuffer& in, MediaBuffer& out,
                       const std::shared_ptr<ImgpOption>& option);
    // Tone-maps the input's "hdr-type" content to SDR.
    static int32_t hdrToSdr(const MediaBuffer& in, MediaBuffer& out,
                            const std::shared_ptr<ImgpOption>& option);
    // Mirrors by option 8 or the output's "flip-type"; option 1 mirrors here, not in the
    // library.
    static int32_t flip(const std::shared_ptr<MediaBuffer>& in, std::shared_ptr<MediaBuffer>& out,
                        const std::shared_ptr<ImgpOption>& option);
};

}  // namespace detail

// The operations a VexaPlugin can run.
enum class Operation {
    Rsz,
    RszPd,
    Csc,
    Rot,
    RszCsc,
    RszRot,
    CscRot,
    Crop,
    Cgc,
    HdrToSdr,
    Flip,
};

// The operation's own name ("rsz", "rszPd", ...).
MIVO_EXPORT const char* operationName(Operation operation);
// The operation's plain-word alias ("resize", ...), or null when it has none.
MIVO_EXPORT const char* operationAlias(Operation operation);
// An operation by its own name or its plain-word alias ("resize", "downscale", "convert",
// "rotate", "gamut", "tonemap").
MIVO_EXPORT std::optional<Operation> parseOperation(std::string_view name);
// Every operation, in declaration order.
MIVO_EXPORT const std::vector<Operation>& allOperations();

// A plugin whose processors are the named operations, run in the order given.
class MIVO_EXPORT VexaPlugin final : public detail::VexaPluginBase {
  public:
    VexaPlugin(std::shared_ptr<ImgpOption> option, std::initializer_list<Operation> operations);
    VexaPlugin(std::shared_ptr<ImgpOption> option, const std::vector<Operation>& operations);

    static Processor processorFor(Operation operation);
};

}  // namespace mivo::ext

#endif  // MIVO_EXT_PLUGIN_VEXAPLUGIN_H
