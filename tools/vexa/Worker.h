// Runs one operation of the plugin on picture files: reads the input, brings it into the
// colour format the operation runs in, runs the operation, converts the result into what
// the output file holds and writes it. Every conversion goes through the plugin itself.
#ifndef VEXA_WORKER_H
#define VEXA_WORKER_H

#include "BufferPool.h"
#include "Parameters.h"

#include "mivo/core/buffer/MediaBuffer.h"
#include "mivo/ext/plugin/VexaPlugin.h"

#include <zoca/zoca.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>

namespace vexa {

// One picture file's failure; the message names the file and the cause.
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The colour space of an untagged file: sRGB for RGB, and for YUV the BT.709 that the plugin
// encodes sRGB pictures in, so that what the command writes reads back the same.
int defaultColorSpace(int colorFormat);

// Picture files as framework buffers and back. The buffer borrows the image's memory: keep
// the image alive while the buffer is used.
std::shared_ptr<mivo::core::MediaBuffer> toBuffer(const vexa::io::Image& image, int colorSpace,
                                                  std::optional<int> hdrType = std::nullopt);
vexa::io::Image toImage(const mivo::core::MediaBuffer& buffer);
// The buffer's bytes when its planes already lie as an Image holds them; null otherwise.
const uint8_t* packedBytes(const mivo::core::MediaBuffer& buffer);

// A record as text, one line per plane in use.
std::string describeRecord(const _ZOCA_IMGB& record);

// PNG holds rgb and rgba alike; raw .rgba files hold rgba only.
bool isPng(const std::string& path);

// The largest side the image library takes.
constexpr int kLibraryMaxSide = 32768;

// "3.4 GB", "412 MB", "980 bytes": powers of 1024, as most tools print them.
std::string bytesInWords(double bytes);

// Prints "vexa: note: <text>" on standard error the first time a run meets `key`, so a
// batch or a clip says it once.
void noteOnce(const std::string& key, const std::string& text);

// Owns its plugins: one Worker serves one thread.
class Worker {
  public:
    explicit Worker(const Parameters& parameters);

    // One picture through the operation, in the colour format of the file type that
    // `outputType` names by its extension. Everything the plugin would refuse, or change
    // without a word, is decided here first. Throws FileError (or UsageError for an
    // impossible request). The image is taken by value so that its memory is freed as soon
    // as it has been used.
    vexa::io::Image apply(vexa::io::Image image, const std::string& outputType,
                          std::ostream* verbose = nullptr);

    // apply() on a buffer (of inputFormat() for the frames of a clip), leaving the result in
    // a buffer; `input` is let go as soon as it has been used.
    std::shared_ptr<mivo::core::MediaBuffer> process(std::shared_ptr<mivo::core::MediaBuffer> input,
                                                     const std::string& outputType,
                                                     std::ostream* verbose = nullptr);

    // `buffer` in colour format `colorFormat`, converted by the plugin where it differs.
    std::shared_ptr<mivo::core::MediaBuffer> convert(
        const std::shared_ptr<mivo::core::MediaBuffer>& buffer, int colorFormat);

    // The format a picture of `image`'s size and layout enters the operation with.
    std::shared_ptr<mivo::MediaFormat> inputFormat(const vexa::io::ImageView& image) const;

    // Puts the outputs of later frames of a stream into memory from `pool` that earlier ones
    // gave back.
    void reuseBuffers(const std::shared_ptr<BufferPool>& pool);

  private:
    // What one picture goes through, decided from its size and the output type.
    struct Plan {
        int workFormat = 0;
        Size target;         // rsz, rszRot, rszCsc: the size before turning
        int factor = 0;      // rszPd
        android::Rect rect;  // crop
        Size trim;           // the input is first cut to this
    };
    Plan planFor(int cols, int rows, int inputFormat, const std::string& outputType) const;
    // Checks the request against the input before anything runs, so that the plugin never
    // meets a request it would refuse by ending the process. Throws UsageError.
    void check(const mivo::core::MediaBuffer& input, const Plan& plan) const;
    std::shared_ptr<mivo::MediaFormat> wishFor(const mivo::core::MediaBuffer& input,
                                               const Plan& plan) const;
    int workFormatFor(int inputFormat) const;
    int downscaleFactor(int cols, int rows) const;
    // The top-left cols x rows of `buffer`, cut by the plugin.
    std::shared_ptr<mivo::core::MediaBuffer> trim(
        const std::shared_ptr<mivo::core::MediaBuffer>& buffer, int cols, int rows,
        std::ostream* verbose);

    Parameters parameters_;
    ReusingPlugin operation_;
    ReusingPlugin converter_;
    ReusingPlugin cropper_;
};

}  // namespace vexa

#endif  // VEXA_WORKER_H
