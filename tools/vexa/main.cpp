// vexa: runs the image operations of the mivo plugin on picture files.
#include "Batch.h"
#include "Parameters.h"
#include "Worker.h"

#include "mivo/Def.h"
#include "mivo/core/types/ColorFormat.h"
#include "mivo/ext/plugin/VexaPlugin.h"

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <iostream>
#include <thread>
#include <tuple>

namespace {

using mivo::ext::Operation;

// The words of one operation's command line, parsed once the line is read.
struct Arguments {
    std::vector<std::string> inputs;
    std::string output;
    std::string extension;
    std::string rawSize;
    std::string rawFormat;
    int frame = -1;
    std::string frames;
    std::string inputSpace;
    std::string workFormat;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
    bool verbose = false;
    int quality = 92;
    int subsampling = 0;
    int pngCompression = -1;
    bool noAutoOrient = false;
    std::string size;
    int factor = 0;
    std::string toFormat;
    std::string angle;
    std::string rect;
    std::string toSpace;
    std::string direction;
    bool ownFlip = false;
    bool flipOption = false;
    bool dither = false;
    std::string hdrType = "pq";
};

struct Command {
    Operation operation;
    CLI::App* app;
};

void addCommonOptions(CLI::App& app, Arguments& a) {
    app.add_option("inputs", a.inputs,
                   "Input files or folders (.png .jpg .y4m .yuv .nv12 .nv21 .rgb .rgba .bgra); "
                   "'-' reads standard input: Y4M, or raw with --size and --format")
        ->required();
    app.add_option("-o,--output", a.output,
                   "Output file, or output folder for several inputs (default: "
                   "<stem>.<operation>.<ext> here); '-' writes standard output (Y4M, or raw "
                   "with --ext); a PNG or JPEG name with a frame number (out-%04d.png) takes "
                   "every frame of a clip");
    app.add_option("--ext", a.extension,
                   "Output file type for folder or standard output (png, jpg, y4m, nv12, ...)");
    app.add_option("--size", a.rawSize, "Size of raw input files, WIDTHxHEIGHT");
    app.add_option("--format", a.rawFormat, "Colour format of raw input files");
    auto* frame = app.add_option("--frame", a.frame,
                                 "Only frame N of a clip (frames count from 0; default: every "
                                 "frame)")
                      ->check(CLI::NonNegativeNumber);
    auto* frames = app.add_option("--frames", a.frames,
                                  "Frames A to B-1 of a clip (A:B, A: or :B; frames count from 0)");
    frame->excludes(frames);
    frames->excludes(frame);
    app.add_option("--color-space", a.inputSpace,
                   "Colour space of the input: " + vexa::colorSpaceNames());
    app.add_option("--work-format", a.workFormat,
                   "Colour format the operation runs in (the input is converted first)");
    app.add_option("-j,--jobs", a.jobs,
                   "Worker threads: frames of a clip, or files of several inputs")
        ->check(CLI::Range(1u, 256u));
    app.add_option("--quality", a.quality, "JPEG quality of the output")->check(CLI::Range(1, 100));
    app.add_option("--subsampling", a.subsampling,
                   "JPEG chroma subsampling of the output: 420, 422 or 444 (default: 444 at "
                   "quality 90 and above, else 420)")
        ->check(CLI::IsMember({420, 422, 444}));
    app.add_option("--png-compression", a.pngCompression,
                   "PNG compression of the output: 0 (none) to 9 (smallest, slowest); default "
                   "1, fast run-length matching")
        ->check(CLI::Range(0, 9));
    app.add_flag("--no-auto-orient", a.noAutoOrient,
                 "Keep JPEG and PNG inputs as stored instead of turning them upright by their "
                 "EXIF orientation");
    app.add_flag("-v,--verbose", a.verbose,
                 "Print the buffers and the records handed to the library, and a summary");
}

void addOperationOptions(Operation operation, CLI::App& app, Arguments& a) {
    const auto sizeOption = [&](bool required) {
        auto* option = app.add_option("--to", a.size, "Target size, WIDTHxHEIGHT");
        if (required) option->required();
    };
    const auto formatOption = [&]() {
        app.add_option("--to-format", a.toFormat,
                       "Target colour format: " + vexa::colorFormatNames())
            ->required();
    };
    const auto angleOption = [&]() {
        app.add_option("--angle", a.angle, "Rotation in degrees: 0, 90, 180 or 270")->required();
    };
    switch (operation) {
        case Operation::Rsz:
            sizeOption(true);
            break;
        case Operation::RszPd: {
            auto* to = app.add_option("--to", a.size, "Target size, WIDTHxHEIGHT");
            auto* factor = app.add_option("--factor", a.factor, "Integer downscale factor")
                               ->check(CLI::PositiveNumber);
            to->excludes(factor);
            factor->excludes(to);
            break;
        }
        case Operation::Csc:
            formatOption();
            app.add_flag("--dither", a.dither, "Dither the conversion (no banding in gradients)");
            break;
        case Operation::Rot:
            angleOption();
            break;
        case Operation::RszRot:
            sizeOption(true);
            angleOption();
            break;
        case Operation::RszCsc:
            sizeOption(true);
            formatOption();
            break;
        case Operation::CscRot:
            formatOption();
            angleOption();
            break;
        case Operation::Crop:
            app.add_option("--rect", a.rect, "Rectangle to keep, LEFT,TOP,WIDTH,HEIGHT")
                ->required();
            break;
        case Operation::Cgc:
            app.add_option("--to-space", a.toSpace,
                           "Target colour space: " + vexa::colorSpaceNames())
                ->required();
            break;
        case Operation::HdrToSdr:
            app.add_option("--hdr-type", a.hdrType, "HDR type of the input: pq, hlg, hdr10plus")
                ->capture_default_str();
            break;
        case Operation::Flip:
            app.add_option("--direction", a.direction, "Mirror: horizontal (h), vertical (v), both")
                ->required();
            app.add_flag(
                "--own", a.ownFlip,
                "Mirror in the plugin itself (two-plane YUV; others are converted to nv12)");
            app.add_flag("--by-option", a.flipOption,
                         "Pass the direction as a request option instead of an output extra");
            break;
    }
}

const char* describeOperation(Operation operation) {
    switch (operation) {
        case Operation::Rsz:
            return "Resize to a target size";
        case Operation::RszPd:
            return "Perceptual (detail-preserving) integer downscale";
        case Operation::Csc:
            return "Convert to another colour format";
        case Operation::Rot:
            return "Rotate by 90, 180 or 270 degrees";
        case Operation::RszCsc:
            return "Resize and convert in one pass";
        case Operation::RszRot:
            return "Resize, then rotate, in one pass";
        case Operation::CscRot:
            return "Convert and rotate in one pass";
        case Operation::Crop:
            return "Cut a rectangle out";
        case Operation::Cgc:
            return "Convert to another colour gamut";
        case Operation::HdrToSdr:
            return "Tone-map HDR (PQ or HLG) to SDR BT.709";
        case Operation::Flip:
            return "Mirror horizontally, vertically or both";
    }
    return "";
}

vexa::Parameters toParameters(Operation operation, const Arguments& a) {
    vexa::Parameters p;
    p.operation = operation;
    if (!a.size.empty()) p.size = vexa::parseSize(a.size);
    p.factor = a.factor;
    if (operation == Operation::RszPd && !p.size && p.factor == 0) {
        throw vexa::UsageError("downscale needs --factor N or --to WIDTHxHEIGHT");
    }
    if (!a.toFormat.empty()) p.colorFormat = vexa::parseColorFormat(a.toFormat);
    if (!a.angle.empty()) p.angle = vexa::parseAngle(a.angle);
    if (!a.rect.empty()) p.rect = vexa::parseRect(a.rect);
    if (!a.direction.empty()) p.flipType = vexa::parseFlipType(a.direction);
    p.ownFlip = a.ownFlip;
    p.flipThroughOption = a.flipOption;
    p.dither = a.dither;
    if (!a.toSpace.empty()) p.targetColorSpace = vexa::parseColorSpace(a.toSpace);
    if (!a.inputSpace.empty()) p.inputColorSpace = vexa::parseColorSpace(a.inputSpace);
    p.hdrType = vexa::parseHdrType(a.hdrType);
    if (!a.workFormat.empty()) p.workFormat = vexa::parseColorFormat(a.workFormat);
    if (!a.rawSize.empty()) {
        const vexa::Size raw = vexa::parseSize(a.rawSize);
        p.raw.width = raw.cols;
        p.raw.height = raw.rows;
    }
    if (!a.rawFormat.empty()) p.raw.colorFormat = vexa::parseColorFormat(a.rawFormat);
    if (a.frame >= 0) {
        p.raw.frame = a.frame;
        p.firstFrame = a.frame;
        p.endFrame = a.frame + 1LL;
        p.frameChosen = true;
    }
    if (!a.frames.empty()) {
        std::tie(p.firstFrame, p.endFrame) = vexa::parseFrameRange(a.frames);
        p.frameChosen = true;
    }
    p.write.jpegQuality = a.quality;
    p.write.jpegSubsampling = a.subsampling;
    p.write.pngCompression = a.pngCompression;
    p.raw.autoOrient = !a.noAutoOrient;
    // A JPEG decoded smaller by its DCT, as vipsthumbnail does, but leaving a factor of four or
    // more to the resampler: measured on a photo and a zone plate, the result then stays within
    // 57 and 45 dB PSNR of a full-size decode (with two, the zone plate aliases visibly).
    if (p.size && (operation == Operation::Rsz || operation == Operation::RszCsc)) {
        p.raw.minWidth = 4 * p.size->cols;
        p.raw.minHeight = 4 * p.size->rows;
    }
    p.verbose = a.verbose;
    return p;
}

int runOperation(Operation operation, const Arguments& a) {
    const vexa::Parameters parameters = toParameters(operation, a);
    const std::vector<vexa::Job> jobs =
        vexa::planJobs(a.inputs, a.output, mivo::ext::operationName(operation), a.extension);
    // With the pictures on standard output, everything else goes to standard error.
    const bool picturesOnStdout = jobs.size() == 1 && jobs.front().output == "-";
    std::ostream& messages = picturesOnStdout ? std::cerr : std::cout;
    std::ostream* verbose = a.verbose ? &messages : nullptr;
    const bool terminal = !a.verbose && isatty(STDERR_FILENO);
    if (jobs.size() == 1) {
        vexa::StreamSummary summary;
        try {
            summary =
                vexa::runStream(jobs.front(), parameters, a.jobs, std::cerr, terminal, verbose);
        } catch (const std::exception& e) {
            // As in a batch: the request was sound, this input could not take it.
            std::cerr << "vexa: error: " << e.what() << "\n";
            return 1;
        }
        if (!picturesOnStdout) std::cout << jobs.front().output << "\n";
        if (a.verbose) {
            std::cerr << mivo::format("vexa: %lld frame(s) in %.2f s, %.1f fps", summary.frames,
                                      summary.seconds,
                                      summary.seconds > 0 ? summary.frames / summary.seconds : 0.0)
                      << "\n";
        }
        return 0;
    }
    const vexa::Summary summary =
        vexa::runJobs(jobs, parameters, a.jobs, std::cerr, terminal, verbose);
    std::cout << mivo::format("%zu files, %zu failed, %.2f s", summary.files, summary.failed,
                              summary.seconds)
              << "\n";
    return summary.failed == 0 ? 0 : 1;
}

int runInfo(const std::string& path, const Arguments& a) {
    const vexa::Parameters parameters = toParameters(Operation::Rsz, a);
    // Constructing a plugin registers the record view of buffers.
    mivo::ext::VexaPlugin registration(nullptr, std::vector<Operation>{});
    const vexa::io::Image image = vexa::io::readImage(path, parameters.raw);
    const int space = parameters.inputColorSpace.value_or(
        image.colorSpace != 0 ? image.colorSpace : vexa::defaultColorSpace(image.colorFormat));
    const auto buffer = vexa::toBuffer(image, space);
    std::cout << path << ": " << vexa::io::describe(image) << "\n"
              << buffer->toString() << "\n"
              << "record: " << vexa::describeRecord(buffer->getTypedData<_ZOCA_IMGB>(nullptr))
              << "\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    vexa::io::removeTemporariesOnSignals();
    CLI::App app{
        "vexa: the mivo image-processing plugin on picture files.\n"
        "Every operation runs through the plugin and the image library; files are "
        "written whole or not at all."};
    app.require_subcommand(1);
    app.set_version_flag("--version", "vexa 0.1.0");

    Arguments arguments;
    std::vector<Command> commands;
    for (Operation operation : mivo::ext::allOperations()) {
        CLI::App* sub =
            app.add_subcommand(mivo::ext::operationName(operation), describeOperation(operation));
        if (const char* alias = mivo::ext::operationAlias(operation)) sub->alias(alias);
        addCommonOptions(*sub, arguments);
        addOperationOptions(operation, *sub, arguments);
        commands.push_back({operation, sub});
    }
    std::string infoPath;
    CLI::App* info = app.add_subcommand("info", "Describe a picture file as a buffer and a record");
    info->add_option("file", infoPath, "Picture file")->required();
    info->add_option("--size", arguments.rawSize, "Size of a raw file, WIDTHxHEIGHT");
    info->add_option("--format", arguments.rawFormat, "Colour format of a raw file");
    info->add_option("--color-space", arguments.inputSpace, "Colour space of the file");
    info->add_flag("--no-auto-orient", arguments.noAutoOrient, "Ignore the EXIF orientation");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::cerr << "vexa: error: " << e.what()
                  << "\nRun 'vexa --help' or 'vexa <command> --help' for usage.\n";
        return 2;
    }

    try {
        if (info->parsed()) return runInfo(infoPath, arguments);
        for (const Command& command : commands) {
            if (command.app->parsed()) return runOperation(command.operation, arguments);
        }
    } catch (const vexa::UsageError& e) {
        std::cerr << "vexa: error: " << e.what() << "\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "vexa: error: " << e.what() << "\n";
        return 1;
    }
    return 2;
}
