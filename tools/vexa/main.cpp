// vexa: runs the image operations of the mivo plugin on picture files.
#include "Batch.h"
#include "Parameters.h"
#include "Worker.h"

#include "mivo/Def.h"
#include "mivo/core/types/ColorFormat.h"
#include "mivo/ext/plugin/VexaPlugin.h"

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <iostream>
#include <sstream>
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
    std::string hdrType;
};

struct Command {
    Operation operation;
    CLI::App* app;
};

unsigned defaultJobs() {
    return std::max(1u, std::thread::hardware_concurrency());
}

// A whole number from `low` to `high`, refused in words rather than as a range of doubles.
CLI::Validator wholeNumber(long long low, long long high) {
    const std::string range = high == LLONG_MAX
                                  ? std::to_string(low) + " or more"
                                  : std::to_string(low) + " to " + std::to_string(high);
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            const bool digits = !text.empty() && text.size() < 12 &&
                                text.find_first_not_of("0123456789") == std::string::npos;
            if (digits && std::stoll(text) >= low && std::stoll(text) <= high) return "";
            return "'" + text + "' is not allowed: give a whole number " +
                   (high == LLONG_MAX ? "" : "from ") + range;
        },
        range);
}

const std::string kGeometry =
    "WxH fits inside the box keeping the aspect ratio, WxH! is exactly that, W (or Wx) and xH "
    "give one side, N% scales (W%xH% each side), WxH^ fills the box, WxH> only shrinks, WxH< "
    "only enlarges; sides round to the nearest pixel";

const char* const kRules =
    "Output: the type follows -o's extension. Without -o it is <input>.<command>.<ext> here, "
    "where ext is the input's, or the type --to-format asks for (nv12, nv21, yuv420 as .yuv, "
    "bgra; rgb and rgba as .png).\n"
    "Odd sizes: 4:2:0 pictures (nv12, nv21, yuv420, Y4M) have even sides. When the output file "
    "holds RGB (PNG, JPEG, .rgb, .rgba, .bgra), a 4:2:0 input that would come out with an odd "
    "side is worked on in RGB; when the result is 4:2:0, an odd side loses its last row or "
    "column, and vexa says so once.";

void addGlobalOptions(CLI::App& app, Arguments& a) {
    app.add_option("-j,--jobs", a.jobs,
                   "Worker threads: frames of a clip, or files of several inputs (default: one "
                   "per core, here " +
                       std::to_string(defaultJobs()) + ")")
        ->check(wholeNumber(1, 256));
    app.add_flag("-v,--verbose", a.verbose,
                 "Name each file as it is done, print the buffers and the records handed to the "
                 "library, and a summary");
}

void addCommonOptions(CLI::App& app, Arguments& a) {
    app.add_option("inputs", a.inputs,
                   "Input files or folders (.png .jpg .y4m .yuv .nv12 .nv21 .rgb .rgba .bgra); "
                   "'-' reads standard input: Y4M, or raw with --size and --format")
        ->required();
    app.add_option("-o,--output", a.output,
                   "Output file, or output folder for several inputs (default: "
                   "<stem>.<command>.<ext> here); '-' writes standard output (Y4M, or raw "
                   "with --ext); a PNG or JPEG name with a frame number (out-%04d.png) takes "
                   "every frame of a clip");
    app.add_option("--ext", a.extension,
                   "Output file type for folder or standard output (png, jpg, y4m, nv12, ...; "
                   "default: the input's, or what --to-format asks for)");
    app.add_option("--size", a.rawSize, "Size of raw input files, WIDTHxHEIGHT");
    app.add_option("--format", a.rawFormat,
                   "Colour format of raw input files (default: the one the extension names)");
    auto* frame = app.add_option("--frame", a.frame,
                                 "Only frame N of a clip (frames count from 0; default: every "
                                 "frame)")
                      ->check(wholeNumber(0, LLONG_MAX));
    auto* frames = app.add_option("--frames", a.frames,
                                  "Frames A to B-1 of a clip (A:B, A: or :B; frames count from 0)");
    frame->excludes(frames);
    frames->excludes(frame);
    app.add_option("--color-space", a.inputSpace,
                   "Colour space of the input: " + vexa::colorSpaceNames() +
                       " (default: srgb for RGB files, bt709 for YUV, bt2020 for tonemap)");
    app.add_option("--work-format", a.workFormat,
                   "Colour format the operation runs in, the input converted first (default: "
                   "the input's; yuv420 for downscale, nv12 for flip --own, RGB for odd sizes "
                   "into RGB files)");
    app.add_option("--quality", a.quality,
                   "JPEG quality of the output (default: " +
                       std::to_string(vexa::io::WriteOptions{}.jpegQuality) + ")")
        ->check(wholeNumber(1, 100));
    app.add_option("--subsampling", a.subsampling,
                   "JPEG chroma subsampling of the output: 420, 422 or 444 (default: 444 at "
                   "quality 90 and above, else 420)")
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                if (text == "420" || text == "422" || text == "444") return "";
                return "'" + text + "' is not allowed: give 420, 422 or 444";
            },
            "420, 422 or 444"));
    app.add_option("--png-compression", a.pngCompression,
                   "PNG compression of the output: 0 (none) to 9 (smallest, slowest) (default: "
                   "1, fast run-length matching)")
        ->check(wholeNumber(0, 9));
    app.add_flag("--no-auto-orient", a.noAutoOrient,
                 "Keep JPEG and PNG inputs as stored instead of turning them upright by their "
                 "EXIF orientation");
    addGlobalOptions(app, a);
    app.footer(kRules);
}

void addOperationOptions(Operation operation, CLI::App& app, Arguments& a) {
    const auto sizeOption = [&](bool required) {
        auto* option =
            app.add_option("--to", a.size, "Target size, as in ImageMagick: " + kGeometry);
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
            auto* to = app.add_option(
                "--to", a.size,
                "Target size, made exactly or refused with the sizes it can make: WxH, W, xH, "
                "or N% (50%, 33.3%, 25%, ...)");
            auto* factor =
                app.add_option("--factor", a.factor, "Divide both sides by this whole number")
                    ->check(wholeNumber(1, vexa::kLibraryMaxSide));
            to->excludes(factor);
            factor->excludes(to);
            break;
        }
        case Operation::Csc:
            formatOption();
            app.add_flag("--dither", a.dither,
                         "Dither the conversion, no banding in gradients (default: off)");
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
            app.add_option(
                "--hdr-type", a.hdrType,
                "HDR type of the input: pq, hlg, hdr10plus (default: the picture's PQ or HLG "
                "tag, else pq)");
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
    if (!a.size.empty()) p.size = vexa::parseGeometry(a.size);
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
    if (!a.hdrType.empty()) {
        p.hdrType = vexa::parseHdrType(a.hdrType);
        p.hdrTypeGiven = true;
    }
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
    // Sides the geometry gives bound the result (the other side follows the aspect ratio);
    // a percentage needs the stored size, so it decodes at full size.
    if (p.size && !p.size->percent &&
        (operation == Operation::Rsz || operation == Operation::RszCsc)) {
        const auto atLeast = [](double side) {
            return side > 0 ? static_cast<int>(std::min(4.0 * side, 1e9)) : 1;
        };
        p.raw.minWidth = atLeast(p.size->width);
        p.raw.minHeight = atLeast(p.size->height);
    }
    p.verbose = a.verbose;
    return p;
}

int runOperation(Operation operation, const Arguments& a) {
    const vexa::Parameters parameters = toParameters(operation, a);
    const std::vector<vexa::Job> jobs =
        vexa::planJobs(a.inputs, a.output, mivo::ext::operationName(operation), a.extension,
                       parameters.colorFormat);
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

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            out += mivo::format("\\u%04x", c);
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string fileType(const std::string& path, const vexa::io::RawOptions& raw) {
    if (path == "-") return raw.width > 0 ? "raw" : "Y4M";  // as standard input is read
    std::string extension = std::filesystem::path(path).extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (extension == ".png") return "PNG";
    if (extension == ".jpg" || extension == ".jpeg") return "JPEG";
    if (extension == ".y4m") return "Y4M";
    return "raw " + extension.substr(std::min<size_t>(1, extension.size()));
}

// One file as a line of words, or as a JSON object; the buffer and record with --verbose.
void describeFile(const std::string& path, const vexa::Parameters& parameters, bool json,
                  bool verbose, std::ostream& out) {
    vexa::io::FrameReader reader(path, parameters.raw);
    vexa::io::Image image;
    if (!reader.next(image)) throw vexa::io::IoError("cannot read '" + path + "': no frames");
    const std::string type = fileType(path, parameters.raw);
    long long frames = reader.frameCountHint();
    if (path == "-") {
        // A pipe tells its length only by being read to the end.
        for (frames = 1; reader.skip();) ++frames;
    } else if (frames < 0) {
        frames = 1;  // PNG and JPEG
    }
    std::error_code ec;
    const uintmax_t size = std::filesystem::file_size(path, ec);
    const std::string bytes = ec ? "null" : std::to_string(size);
    // --color-space overrides the file's tag; an untagged file is taken as the command takes it.
    const bool assumed = !parameters.inputColorSpace && image.colorSpace == 0;
    const int space = parameters.inputColorSpace.value_or(
        image.colorSpace != 0 ? image.colorSpace : vexa::defaultColorSpace(image.colorFormat));
    const int bits = std::max({8, reader.sourceBits(), image.sourceBits});
    const std::string& rate = reader.tags().rate;
    const char* transfer = image.hdrType == 3 ? "pq" : image.hdrType == 4 ? "hlg" : nullptr;
    if (json) {
        out << "{\"file\": " << jsonString(path) << ", \"type\": " << jsonString(type)
            << ", \"width\": " << image.width << ", \"height\": " << image.height
            << ", \"colorFormat\": " << jsonString(vexa::io::colorFormatName(image.colorFormat))
            << ", \"bits\": " << bits
            << ", \"colorSpace\": " << jsonString(vexa::colorSpaceName(space))
            << ", \"colorSpaceAssumed\": " << (assumed ? "true" : "false")
            << ", \"colorTag\": " << (image.colorTag.empty() ? "null" : jsonString(image.colorTag))
            << ", \"transfer\": " << (transfer ? jsonString(transfer) : "null")
            << ", \"orientation\": " << image.orientation << ", \"frames\": " << frames
            << ", \"frameRate\": " << (rate.empty() ? "null" : jsonString(rate))
            << ", \"bytes\": " << bytes << ", \"frameBytes\": " << image.data.size() << "}";
        return;
    }
    std::string spaceWords = vexa::colorSpaceWords(space, vexa::io::isYuv420(image.colorFormat));
    if (transfer) spaceWords += image.hdrType == 3 ? " PQ" : " HLG";
    if (!parameters.inputColorSpace) {
        spaceWords +=
            assumed ? " (assumed: " + (image.colorTag.empty() ? "untagged" : image.colorTag) + ")"
                    : " (" + image.colorTag + " tag)";
    }
    if (image.orientation != 1) {
        spaceWords += ", EXIF orientation " + std::to_string(image.orientation) +
                      (parameters.raw.autoOrient ? " (turned upright)" : " (kept as stored)");
    }
    std::string frameWords = std::to_string(frames) + (frames == 1 ? " frame" : " frames");
    if (!rate.empty()) frameWords += " at " + vexa::frameRateWords(rate);
    out << (path == "-" ? "standard input" : path) << ": " << type << ", " << image.width << "x"
        << image.height << ", " << vexa::colorFormatWords(image.colorFormat, bits) << ", "
        << spaceWords << ", " << frameWords << ", "
        << (ec ? "from a pipe" : vexa::bytesInWords(static_cast<double>(size))) << "\n";
    if (verbose) {
        const auto buffer = vexa::toBuffer(image, space);
        out << "buffer: " << buffer->toString() << "\n"
            << "record: " << vexa::describeRecord(buffer->getTypedData<_ZOCA_IMGB>(nullptr))
            << "\n";
    }
}

int runInfo(const std::vector<std::string>& paths, bool json, const Arguments& a) {
    const vexa::Parameters parameters = toParameters(Operation::Rsz, a);
    // Constructing a plugin registers the record view of buffers.
    mivo::ext::VexaPlugin registration(nullptr, std::vector<Operation>{});
    bool sawFolder = false;
    const std::vector<std::string> files = vexa::expandInputs(paths, sawFolder);
    int failed = 0;
    if (json) std::cout << "[";
    bool first = true;
    for (const std::string& file : files) {
        std::ostringstream text;
        try {
            describeFile(file, parameters, json, a.verbose, text);
        } catch (const std::exception& e) {
            const std::string message = e.what();
            std::cerr << "vexa: error: "
                      << (message.rfind("cannot read '", 0) == 0 ? "" : file + ": ") << message
                      << "\n";
            ++failed;
            continue;
        }
        if (json) std::cout << (first ? "\n  " : ",\n  ");
        std::cout << text.str() << std::flush;
        first = false;
    }
    if (json) std::cout << (first ? "]\n" : "\n]\n");
    return failed == 0 ? 0 : 1;
}

}  // namespace

// The first word that is not an option, skipping the values of options taken before it.
const char* commandWord(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "-j" || word == "--jobs") {
            ++i;
        } else if (word.empty() || word[0] != '-') {
            return argv[i];
        }
    }
    return nullptr;
}

// The first option word after the command that the command does not know, named with the
// nearest it does; "" when all are known. Values of options are passed over.
std::string unknownOption(const CLI::App& command, int argc, char** argv, const char* word) {
    std::vector<std::string> names;
    std::vector<std::string> taking;  // names of options that take a value
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
        if (option->get_type_size_max() > 0) {
            for (auto it = names.end() - static_cast<std::ptrdiff_t>(option->get_lnames().size() +
                                                                     option->get_snames().size());
                 it != names.end(); ++it) {
                taking.push_back(*it);
            }
        }
    }
    const auto known = [&](const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    int i = 1;
    while (argv[i] != word) ++i;
    for (++i; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--") break;
        if (arg.size() < 2 || arg[0] != '-' || std::isdigit(static_cast<unsigned char>(arg[1]))) {
            continue;
        }
        const std::string name = arg.substr(0, arg.find('='));
        // Short options may carry their value: -j2.
        const std::string shortName = arg.compare(0, 2, "--") == 0 ? name : arg.substr(0, 2);
        if (known(name) || known(shortName)) {
            const bool joined = name != arg || (shortName != arg && !known(name));
            if (!joined && std::find(taking.begin(), taking.end(), name) != taking.end()) ++i;
            continue;
        }
        // One letter is too little to guess from.
        const std::string nearest = name.size() > 2 ? vexa::closestName(name, names) : "";
        return "'" + name + "' is not an option of " + word +
               (nearest.empty() ? "" : "; did you mean '" + nearest + "'?");
    }
    return "";
}

int main(int argc, char** argv) {
    vexa::io::removeTemporariesOnSignals();
    CLI::App app{
        "vexa: the mivo image-processing plugin on picture files.\n"
        "Every operation runs through the plugin and the image library; files are "
        "written whole or not at all."};
    app.name("vexa");
    app.set_version_flag("--version", "vexa 0.1.0");
    app.footer("Sizes (--to), as in ImageMagick: " + kGeometry + ".\n" + kRules);

    Arguments arguments;
    arguments.jobs = defaultJobs();
    addGlobalOptions(app, arguments);
    std::vector<Command> commands;
    std::vector<std::string> names;
    for (Operation operation : mivo::ext::allOperations()) {
        CLI::App* sub =
            app.add_subcommand(mivo::ext::operationName(operation), describeOperation(operation));
        names.push_back(mivo::ext::operationName(operation));
        if (const char* alias = mivo::ext::operationAlias(operation)) {
            sub->alias(alias);
            names.push_back(alias);
        }
        addCommonOptions(*sub, arguments);
        addOperationOptions(operation, *sub, arguments);
        commands.push_back({operation, sub});
    }
    std::vector<std::string> infoPaths;
    bool json = false;
    CLI::App* info = app.add_subcommand(
        "info", "Describe picture files: type, size, colour format and space, frames, bytes");
    names.push_back("info");
    info->footer("");
    info->add_option("files", infoPaths, "Picture files or folders")->required();
    info->add_option("--size", arguments.rawSize, "Size of raw files, WIDTHxHEIGHT");
    info->add_option("--format", arguments.rawFormat,
                     "Colour format of raw files (default: the one the extension names)");
    info->add_option("--color-space", arguments.inputSpace,
                     "Colour space of the files (default: srgb for RGB, bt709 for YUV)");
    info->add_flag("--no-auto-orient", arguments.noAutoOrient, "Ignore the EXIF orientation");
    info->add_flag("--json", json, "One JSON array of objects, for scripts");
    info->add_flag("-v,--verbose", arguments.verbose,
                   "Also the buffer and the record the library would be handed");

    const bool wantsHelp = std::any_of(argv + 1, argv + argc, [](const char* word) {
        return std::string(word) == "-h" || std::string(word) == "--help" ||
               std::string(word) == "--version";
    });
    if (!wantsHelp) {
        const char* word = commandWord(argc, argv);
        if (word == nullptr) {
            std::cerr << "vexa: error: no command given\n"
                      << "Run 'vexa --help' for the commands.\n";
            return 2;
        }
        // As git and go users type it: "vexa help" or "vexa help resize".
        if (std::string(word) == "help") {
            const int at = static_cast<int>(std::find(argv, argv + argc, word) - argv);
            const char* topic = commandWord(argc - at, argv + at);
            const bool known = topic && std::find(names.begin(), names.end(), topic) != names.end();
            std::cout << (known ? app.get_subcommand(topic)->help("vexa") : app.help());
            return 0;
        }
        if (std::find(names.begin(), names.end(), word) == names.end()) {
            const std::string suggestion = vexa::closestName(word, names);
            std::cerr << "vexa: error: '" << word << "' is not a vexa command"
                      << (suggestion.empty() ? "" : "; did you mean '" + suggestion + "'?")
                      << "\nRun 'vexa --help' for the commands.\n";
            return 2;
        }
        const std::string unknown = unknownOption(*app.get_subcommand(word), argc, argv, word);
        if (!unknown.empty()) {
            std::cerr << "vexa: error: " << unknown << "\nRun 'vexa " << word
                      << " --help' for its options.\n";
            return 2;
        }
    }
    app.require_subcommand(1);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        const std::string what = e.what();
        std::cerr << "vexa: error: "
                  << (what == "inputs is required" || what == "files is required"
                          ? "no input given: name files, folders or - (standard input)"
                          : what)
                  << "\nRun 'vexa --help' or 'vexa <command> --help' for usage.\n";
        return 2;
    }

    try {
        if (info->parsed()) return runInfo(infoPaths, json, arguments);
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
