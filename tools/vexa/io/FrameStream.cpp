// Streams of frames: Y4M (one text header line, then a "FRAME" line before each picture) and
// raw files of frames back to back, from files or pipes, and the temporary files that make
// every output all-or-nothing.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <vector>

#include "vexa/io/Internal.h"

namespace vexa::io {

using detail::fail;

namespace {

// Temporaries a signal must remove. A slot is claimed (1) while its name is copied in, then
// live (2); the handler only reads live slots and calls nothing but unlink and _exit.
constexpr int kSlots = 256;
std::atomic<int> slotState[kSlots];
char slotPath[kSlots][PATH_MAX];

int claimSlot(const std::string& path) {
    if (path.size() >= PATH_MAX) return -1;
    for (int i = 0; i < kSlots; ++i) {
        int free = 0;
        if (slotState[i].compare_exchange_strong(free, 1)) {
            std::memcpy(slotPath[i], path.c_str(), path.size() + 1);
            slotState[i].store(2);
            return i;
        }
    }
    return -1;  // more writers than slots: only the signal clean-up misses this one
}

void releaseSlot(int slot) {
    if (slot >= 0) slotState[slot].store(0);
}

extern "C" void removeTemporariesAndExit(int signal) {
    for (int i = 0; i < kSlots; ++i) {
        if (slotState[i].load() == 2) ::unlink(slotPath[i]);
    }
    ::_exit(128 + signal);
}

}  // namespace

void removeTemporariesOnSignals() {
    struct sigaction action {};
    action.sa_handler = removeTemporariesAndExit;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

namespace detail {

// The temporary sits beside the target so that the final rename stays within one file system
// and is atomic; it is hidden and tagged with pid and a counter so concurrent writers of the
// same name never share one.
TempFile::TempFile(const std::string& target) : target_(target) {
    namespace fs = std::filesystem;
    static std::atomic<unsigned> counter{0};
    const fs::path path(target);
    const fs::path folder = path.parent_path();
    const std::string folderName = folder.empty() ? "." : folder.string();
    // A temporary left by a crashed run of a process with the same pid takes the next number.
    int fd = -1;
    for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
        const std::string name = "." + path.filename().string() + ".tmp-" +
                                 std::to_string(::getpid()) + "-" + std::to_string(counter++);
        path_ = (folder / name).string();
        slot_ = claimSlot(path_);
        fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) {
            const int err = errno;
            releaseSlot(slot_);
            slot_ = -1;
            errno = err;
            if (err != EEXIST) break;
        }
    }
    if (fd < 0) {
        const int err = errno;
        if (err == ENOENT || err == ENOTDIR) fail("folder '" + folderName + "' does not exist");
        fail("cannot create a file in folder '" + folderName + "': " + std::strerror(err));
    }
    file_ = ::fdopen(fd, "wb");
    if (file_ == nullptr) {
        const int err = errno;
        ::close(fd);
        ::unlink(path_.c_str());
        releaseSlot(slot_);
        fail(std::strerror(err));
    }
}

TempFile::~TempFile() {
    if (file_ != nullptr) std::fclose(file_);
    if (!path_.empty()) ::unlink(path_.c_str());
    releaseSlot(slot_);
}

void TempFile::commit() {
    if (std::fflush(file_) != 0) fail(std::string("write failed: ") + std::strerror(errno));
    // A file replaced by the rename must not come back empty after a crash of the system, so
    // the new one reaches the disk first. A new name has nothing to lose and skips the wait
    // for the disk, a good part of the run for a long clip.
    struct stat st {};
    if (::stat(target_.c_str(), &st) == 0 && ::fsync(::fileno(file_)) != 0) {
        fail(std::string("sync failed: ") + std::strerror(errno));
    }
    std::FILE* f = file_;
    file_ = nullptr;
    if (std::fclose(f) != 0) fail(std::string("write failed: ") + std::strerror(errno));
    if (std::rename(path_.c_str(), target_.c_str()) != 0) {
        fail(std::string("cannot replace the file: ") + std::strerror(errno));
    }
    path_.clear();
    releaseSlot(slot_);
    slot_ = -1;
}

// The image library places 4:2:0 chroma at the centre of each 2x2 block of luma.
void writeY4mHeader(std::FILE* f, int width, int height, const StreamTags& tags) {
    std::string header = "YUV4MPEG2 W" + std::to_string(width) + " H" + std::to_string(height) +
                         " F" + (tags.rate.empty() ? "30:1" : tags.rate) + " I" +
                         (tags.interlace.empty() ? "p" : tags.interlace) + " A" +
                         (tags.aspect.empty() ? "1:1" : tags.aspect) + " C420jpeg";
    if (!tags.colorRange.empty()) header += " XCOLORRANGE=" + tags.colorRange;
    header += "\n";
    writeExact(f, header.data(), header.size());
}

}  // namespace detail

namespace {

// Real headers are a few dozen bytes; the cap keeps a binary file from being read whole.
constexpr size_t kMaxLine = 4096;

void ditherPlane(const uint16_t* in, uint8_t* out, int width, int height, int bits) {
    const uint32_t max = (1u << bits) - 1;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            out[size_t(y) * width + x] = detail::ditherSample(in[size_t(y) * width + x], max, x, y);
        }
    }
}

// Standard input is read but never closed.
class FilePtrOrStdin {
  public:
    FilePtrOrStdin() = default;
    FilePtrOrStdin(std::FILE* f, bool owned) : file_(f), owned_(owned) {}
    FilePtrOrStdin(FilePtrOrStdin&& other) noexcept { *this = std::move(other); }
    FilePtrOrStdin& operator=(FilePtrOrStdin&& other) noexcept {
        std::swap(file_, other.file_);
        std::swap(owned_, other.owned_);
        return *this;
    }
    ~FilePtrOrStdin() {
        if (owned_ && file_ != nullptr) std::fclose(file_);
    }
    std::FILE* get() const { return file_; }

  private:
    std::FILE* file_ = nullptr;
    bool owned_ = false;
};

}  // namespace

struct FrameReader::State {
    std::string path;
    FilePtrOrStdin file;
    bool y4m = false;
    bool still = false;  // PNG or JPEG: one frame, read on opening
    bool stillRead = false;
    Image stillImage;
    int width = 0;
    int height = 0;
    int colorFormat = 0;
    int bits = 8;
    StreamTags tags;
    size_t frameBytes = 0;  // as stored
    unsigned long long offset = 0;
    long long index = 0;
    long long countHint = -1;
    std::vector<uint8_t> deep;
    Image skipped;
    RawOptions raw;

    [[noreturn]] void error(const std::string& cause, bool withFrame = true) const {
        std::string where = withFrame ? "frame " + std::to_string(index) + ", " : std::string();
        throw IoError("cannot read '" + path + "': " + where + "byte " + std::to_string(offset) +
                      ": " + cause);
    }

    std::FILE* f() const { return file.get(); }

    // Reads up to and excluding '\n'; false if the stream ends first.
    bool readLine(std::string& line) {
        line.clear();
        for (;;) {
            const int c = std::fgetc(f());
            if (c == EOF) return false;
            ++offset;
            if (c == '\n') return true;
            if (line.size() >= kMaxLine) error("Y4M header line is too long", false);
            line.push_back(static_cast<char>(c));
        }
    }

    // Reads n bytes; returns how many came before the end of the stream.
    size_t readUpTo(void* dst, size_t n) {
        const size_t got = std::fread(dst, 1, n, f());
        if (got < n && std::ferror(f())) error(std::string("read failed: ") + std::strerror(errno));
        return got;
    }

    void parseY4mHeader() {
        std::string line;
        const bool whole = readLine(line);
        static const std::string kMagic = "YUV4MPEG2";
        if (line.compare(0, kMagic.size(), kMagic) != 0 ||
            (line.size() > kMagic.size() && line[kMagic.size()] != ' ')) {
            offset = 0;
            error("not a Y4M file (no YUV4MPEG2 signature)", false);
        }
        if (!whole) error("Y4M header is cut off", false);
        long long w = 0;
        long long h = 0;
        bool haveW = false;
        bool haveH = false;
        std::string chroma = "420jpeg";
        size_t pos = kMagic.size();
        while (pos < line.size()) {
            const size_t end = std::min(line.find(' ', pos), line.size());
            const std::string token = line.substr(pos, end - pos);
            const std::string value = token.empty() ? "" : token.substr(1);
            pos = end + 1;
            if (token.empty()) continue;
            const auto number = [&]() {
                char* stop = nullptr;
                const long long v = std::strtoll(value.c_str(), &stop, 10);
                if (value.empty() || *stop != '\0')
                    error("bad Y4M header field '" + token + "'", false);
                return v;
            };
            switch (token[0]) {
                case 'W':
                    w = number();
                    haveW = true;
                    break;
                case 'H':
                    h = number();
                    haveH = true;
                    break;
                case 'C':
                    chroma = value;
                    break;
                case 'I':
                    if (value != "p" && value != "t" && value != "b" && value != "m" &&
                        value != "?")
                        error("bad Y4M interlacing tag '" + token + "'", false);
                    if (value != "?") tags.interlace = value;
                    break;
                case 'F':
                    tags.rate = value;
                    break;
                case 'A':
                    if (value != "0:0") tags.aspect = value;
                    break;
                case 'X':
                    if (value == "COLORRANGE=FULL" || value == "COLORRANGE=LIMITED") {
                        tags.colorRange = value.substr(11);
                    } else if (value.compare(0, 11, "COLORRANGE=") == 0) {
                        error("unknown Y4M colour range '" + token + "'", false);
                    }
                    break;  // other extensions carry nothing a picture needs
                default:
                    error("unknown Y4M header field '" + token + "'", false);
            }
        }
        if (!haveW || !haveH) error("Y4M header lacks the width (W) or height (H)", false);
        // Every 4:2:0 siting reads the same: the library's own is the centre of the block.
        if (chroma == "420" || chroma == "420jpeg" || chroma == "420mpeg2" ||
            chroma == "420paldv") {
            bits = 8;
        } else if (chroma == "420p10" || chroma == "420p12" || chroma == "420p16") {
            bits = std::stoi(chroma.substr(4));
        } else {
            error("unsupported Y4M colour tag 'C" + chroma +
                      "' (read: C420, C420jpeg, C420mpeg2, C420paldv, C420p10, C420p12, C420p16)",
                  false);
        }
        try {
            detail::checkDimensions(w, h, kYuv420);
        } catch (const IoError& e) {
            error(e.what(), false);
        }
        width = static_cast<int>(w);
        height = static_cast<int>(h);
        colorFormat = kYuv420;
        frameBytes = imageByteSize(kYuv420, width, height) * (bits > 8 ? 2 : 1);
        struct stat st {};
        if (::fstat(::fileno(f()), &st) == 0 && S_ISREG(st.st_mode)) {
            const unsigned long long rest =
                st.st_size - std::min<unsigned long long>(st.st_size, offset);
            countHint = static_cast<long long>(rest / (frameBytes + 6));
            if (rest > 0 && rest < frameBytes) {
                error("the file is too short for one " + std::to_string(width) + "x" +
                          std::to_string(height) + " frame (truncated or a wrong header)",
                      false);
            }
        }
    }

    void openRaw(int format) {
        if (raw.width == 0 || raw.height == 0 || format == 0) {
            error("a raw stream needs its width and height (--size) and colour format (--format)",
                  false);
        }
        try {
            detail::checkDimensions(raw.width, raw.height, format);
        } catch (const IoError& e) {
            error(e.what(), false);
        }
        width = raw.width;
        height = raw.height;
        colorFormat = format;
        frameBytes = imageByteSize(format, width, height);
        struct stat st {};
        if (::fstat(::fileno(f()), &st) == 0 && S_ISREG(st.st_mode)) {
            const auto fileBytes = static_cast<unsigned long long>(st.st_size);
            if (fileBytes == 0 || fileBytes % frameBytes != 0) {
                error("size mismatch: " + std::to_string(width) + "x" + std::to_string(height) +
                          " " + colorFormatName(format) + " needs " + std::to_string(frameBytes) +
                          " bytes per frame (or a whole multiple), but the file has " +
                          std::to_string(fileBytes) + " bytes",
                      false);
            }
            countHint = static_cast<long long>(fileBytes / frameBytes);
        }
    }

    // Reads the frame marker; false at a clean end.
    bool frameStart() {
        if (!y4m) {
            const int c = std::fgetc(f());
            if (c == EOF) return false;
            std::ungetc(c, f());
            return true;
        }
        std::string line;
        const unsigned long long at = offset;
        if (!readLine(line) && line.empty()) return false;
        if (line.compare(0, 5, "FRAME") != 0 || (line.size() > 5 && line[5] != ' ')) {
            offset = at;
            error("no FRAME marker where the frame should start");
        }
        return true;
    }

    void readBody(uint8_t* out) {
        const unsigned long long start = offset;
        if (bits == 8) {
            const size_t got = readUpTo(out, frameBytes);
            offset += got;
            if (got < frameBytes) {
                offset = start;
                error("the stream ends inside the frame (" + std::to_string(got) + " of " +
                      std::to_string(frameBytes) + " bytes)");
            }
            return;
        }
        deep.resize(frameBytes);
        const size_t got = readUpTo(deep.data(), frameBytes);
        offset += got;
        if (got < frameBytes) {
            offset = start;
            error("the stream ends inside the frame (" + std::to_string(got) + " of " +
                  std::to_string(frameBytes) + " bytes)");
        }
        // Samples are little-endian, as Y4M's deep formats store them.
        std::vector<uint16_t> samples(frameBytes / 2);
        for (size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<uint16_t>(deep[2 * i] | (deep[2 * i + 1] << 8));
        }
        const int cw = (width + 1) / 2;
        const int ch = (height + 1) / 2;
        const size_t luma = size_t(width) * height;
        const size_t chroma = size_t(cw) * ch;
        ditherPlane(samples.data(), out, width, height, bits);
        ditherPlane(samples.data() + luma, out + luma, cw, ch, bits);
        ditherPlane(samples.data() + luma + chroma, out + luma + chroma, cw, ch, bits);
    }
};

FrameReader::FrameReader(const std::string& path, const RawOptions& raw)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.path = path;
    s.raw = raw;
    try {
        if (path == "-") {
            s.file = FilePtrOrStdin(stdin, false);
            s.y4m = raw.width == 0;
            if (!s.y4m) {
                s.path = "standard input";
                s.openRaw(raw.colorFormat);
                return;
            }
            s.path = "standard input";
            s.parseY4mHeader();
            return;
        }
        const detail::FileType& type = detail::requireType(path);
        if (type.kind == detail::Kind::Png || type.kind == detail::Kind::Jpeg) {
            s.still = true;
        } else {
            s.file = FilePtrOrStdin(detail::openForRead(path).release(), true);
        }
    } catch (const IoError& e) {
        // Stream messages name standard input themselves.
        if (std::string(e.what()).rfind("cannot read '", 0) == 0) throw;
        throw IoError("cannot read '" + path + "': " + e.what());
    }
    if (s.still) {
        s.stillImage = readImage(path, raw);  // names the file in its own messages
        s.bits = s.stillImage.sourceBits;
        return;
    }
    const detail::FileType& type = detail::requireType(path);
    s.y4m = type.kind == detail::Kind::Y4m;
    if (s.y4m) {
        s.parseY4mHeader();
    } else {
        s.openRaw(raw.colorFormat != 0 ? raw.colorFormat : type.colorFormat);
    }
}

FrameReader::FrameReader(std::FILE* y4m, const std::string& name)
    : state_(std::make_unique<State>()) {
    state_->path = name;
    state_->file = FilePtrOrStdin(y4m, false);
    state_->y4m = true;
    state_->parseY4mHeader();
}

FrameReader::~FrameReader() = default;

bool FrameReader::next(Image& frame) {
    State& s = *state_;
    if (s.still) {
        if (s.stillRead) return false;
        s.stillRead = true;
        frame = std::move(s.stillImage);
        ++s.index;
        return true;
    }
    if (!s.frameStart()) return false;
    frame.width = s.width;
    frame.height = s.height;
    frame.colorFormat = s.colorFormat;
    detail::allocatePicture(frame.data, imageByteSize(s.colorFormat, s.width, s.height), s.width,
                            s.height);
    s.readBody(frame.data.data());
    ++s.index;
    return true;
}

bool FrameReader::skip() {
    State& s = *state_;
    // Files seek past whole frames; pipes and pictures read them into one scratch frame.
    if (s.still || s.countHint < 0) return next(s.skipped);
    if (s.y4m ? !s.frameStart() : s.index >= s.countHint) return false;
    struct stat st {};
    const off_t at = ::ftello(s.f());
    if (at < 0 || ::fstat(::fileno(s.f()), &st) != 0) {
        s.error(std::string("cannot find the frame: ") + std::strerror(errno));
    }
    const off_t left = std::max<off_t>(st.st_size - at, 0);
    if (left < static_cast<off_t>(s.frameBytes)) {
        s.error("the stream ends inside the frame (" + std::to_string(left) + " of " +
                std::to_string(s.frameBytes) + " bytes)");
    }
    if (::fseeko(s.f(), static_cast<off_t>(s.frameBytes), SEEK_CUR) != 0) {
        s.error(std::string("seek failed: ") + std::strerror(errno));
    }
    s.offset += s.frameBytes;
    ++s.index;
    return true;
}

const StreamTags& FrameReader::tags() const {
    return state_->tags;
}

int FrameReader::sourceBits() const {
    return state_->bits;
}

bool FrameReader::isPicture() const {
    return state_->still;
}

long long FrameReader::frameCountHint() const {
    return state_->still ? 1 : state_->countHint;
}

bool isFramePattern(const std::string& path) {
    const std::string name = std::filesystem::path(path).filename().string();
    for (size_t at = name.find('%'); at != std::string::npos; at = name.find('%', at + 1)) {
        size_t end = at + 1;
        while (end < name.size() && std::isdigit(static_cast<unsigned char>(name[end]))) ++end;
        if (end < name.size() && name[end] == 'd') return true;
    }
    return false;
}

namespace {

// "out-%04d.png" with index 7 gives "out-0007.png".
std::string framePath(const std::string& pattern, long long index) {
    const size_t folderEnd = pattern.find_last_of('/');
    const size_t from = folderEnd == std::string::npos ? 0 : folderEnd + 1;
    for (size_t at = pattern.find('%', from); at != std::string::npos;
         at = pattern.find('%', at + 1)) {
        size_t end = at + 1;
        while (end < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[end])))
            ++end;
        if (end < pattern.size() && pattern[end] == 'd') {
            const int width = end > at + 1 ? std::stoi(pattern.substr(at + 1, end - at - 1)) : 0;
            std::string number = std::to_string(index);
            if (int(number.size()) < width) number.insert(0, width - number.size(), '0');
            return pattern.substr(0, at) + number + framePath(pattern.substr(end + 1), index);
        }
    }
    return pattern;
}

}  // namespace

struct FrameWriter::State {
    std::string path;
    const detail::FileType* type = nullptr;
    StreamTags tags;
    WriteOptions options;
    bool toStdout = false;
    bool pattern = false;
    std::unique_ptr<detail::TempFile> temp;
    std::FILE* out = nullptr;
    bool headerDone = false;
    std::optional<Image> single;  // a plain PNG or JPEG name: written on finish
    long long frames = 0;
};

FrameWriter::FrameWriter(const std::string& path, const std::string& type, const StreamTags& tags,
                         const WriteOptions& options)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.path = path;
    s.tags = tags;
    s.options = options;
    s.toStdout = path == "-";
    try {
        s.type = &detail::requireType(type);
        const bool image = s.type->kind == detail::Kind::Png || s.type->kind == detail::Kind::Jpeg;
        s.pattern = image && isFramePattern(path);
        if (s.toStdout && image)
            fail("PNG and JPEG cannot go to standard output; write Y4M or raw");
        if (s.toStdout) {
            s.out = stdout;
        } else if (!image) {
            s.temp = std::make_unique<detail::TempFile>(path);
            s.out = s.temp->get();
        }
    } catch (const IoError& e) {
        throw IoError("cannot write '" + (s.toStdout ? std::string("standard output") : path) +
                      "': " + e.what());
    }
}

FrameWriter::~FrameWriter() = default;

void FrameWriter::write(Image frame, long long index) {
    State& s = *state_;
    if (s.pattern) {
        writeImage(framePath(s.path, index), frame, s.options);
        ++s.frames;
        return;
    }
    if (s.out == nullptr) {
        if (s.single) {
            throw IoError("cannot write '" + s.path +
                          "': the input has several frames and a picture file holds one; name "
                          "the output with a frame number (out-%04d" +
                          s.type->extension + ") or pick a frame with --frame N");
        }
        s.single = std::move(frame);
        ++s.frames;
        return;
    }
    write(frame.view(), index);
}

void FrameWriter::write(const ImageView& frame, long long index) {
    State& s = *state_;
    const std::string name = s.toStdout ? "standard output" : s.path;
    const size_t bytes = imageByteSize(frame.colorFormat, frame.width, frame.height);
    if (s.pattern || s.out == nullptr) {
        // Pictures are written whole, from a copy the writer owns.
        Image image{frame.width, frame.height, frame.colorFormat, {}};
        image.data.assign(frame.data, frame.data + bytes);
        write(std::move(image), index);
        return;
    }
    try {
        if (frame.colorFormat != s.type->colorFormat) {
            fail(std::string(s.type->extension) + " output needs " +
                 colorFormatName(s.type->colorFormat) + " frames, not " +
                 colorFormatName(frame.colorFormat));
        }
        if (s.type->kind == detail::Kind::Y4m) {
            if (!s.headerDone) detail::writeY4mHeader(s.out, frame.width, frame.height, s.tags);
            detail::writeExact(s.out, "FRAME\n", 6);
        }
        s.headerDone = true;
        detail::writeExact(s.out, frame.data, bytes);
        if (s.toStdout && std::fflush(s.out) != 0) {
            fail(std::string("write failed: ") + std::strerror(errno));
        }
    } catch (const IoError& e) {
        throw IoError("cannot write '" + name + "': " + e.what());
    }
    ++s.frames;
}

void FrameWriter::finish() {
    State& s = *state_;
    if (s.single) writeImage(s.path, *s.single, s.options);
    if (!s.temp) return;
    try {
        s.temp->commit();
    } catch (const IoError& e) {
        throw IoError("cannot write '" + s.path + "': " + e.what());
    }
}

}  // namespace vexa::io
