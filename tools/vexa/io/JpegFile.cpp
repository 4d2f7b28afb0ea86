// libjpeg's default error handling calls exit(); ours longjmps back instead. As with PNG, the
// functions holding the setjmp keep no objects with destructors in their own frames.
#include <cstdio>

#include <jerror.h>
#include <jpeglib.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "vexa/io/Internal.h"

namespace vexa::io::detail {

namespace {

struct ErrorManager {
    jpeg_error_mgr pub;  // first, so libjpeg's pointer to it is a pointer to the whole
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void onError(j_common_ptr cinfo) {
    auto* errors = reinterpret_cast<ErrorManager*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, errors->message);
    std::longjmp(errors->jump, 1);
}

// libjpeg patches over damaged or missing data with a warning and carries on. Processing
// invented pixels without notice is worse than refusing, so warnings about the data fail too;
// only those about metadata we ignore anyway pass.
void onMessage(j_common_ptr cinfo, int level) {
    if (level >= 0) return;  // trace output
    switch (cinfo->err->msg_code) {
        case JWRN_JFIF_MAJOR:
        case JWRN_ADOBE_XFORM:
        case JWRN_BOGUS_ICC:
        case JWRN_EXTRANEOUS_DATA:
            return;
        default:
            onError(cinfo);
    }
}

void printNothing(j_common_ptr) {}

void installErrorManager(jpeg_common_struct* cinfo, ErrorManager& errors) {
    cinfo->err = jpeg_std_error(&errors.pub);
    errors.pub.error_exit = onError;
    errors.pub.emit_message = onMessage;
    errors.pub.output_message = printNothing;
}

struct Reader {
    jpeg_decompress_struct cinfo{};
    ErrorManager errors{};
    // Safe on a struct that was never created: libjpeg only frees what it allocated.
    ~Reader() { jpeg_destroy_decompress(&cinfo); }
};

struct Writer {
    jpeg_compress_struct cinfo{};
    ErrorManager errors{};
    ~Writer() { jpeg_destroy_compress(&cinfo); }
};

// The colour space of an ICC profile (APP2) and the orientation of an EXIF block (APP1).
void readMetadata(jpeg_decompress_struct& cinfo, Image& out) {
    JOCTET* profile = nullptr;
    unsigned int length = 0;
    if (jpeg_read_icc_profile(&cinfo, &profile, &length)) {
        out.colorSpace = colorSpaceOfIcc(profile, length, out.hdrType);
        out.colorTag = out.colorSpace != 0 ? "ICC" : "ICC, not recognised";
        std::free(profile);
    }
    for (jpeg_saved_marker_ptr m = cinfo.marker_list; m != nullptr; m = m->next) {
        if (m->marker == JPEG_APP0 + 1 && m->data_length >= 6 &&
            std::memcmp(m->data, "Exif\0\0", 6) == 0) {
            out.orientation = exifOrientation(m->data, m->data_length);
            break;
        }
    }
}

// The largest of 8, 4 and 2 that leaves a picture of at least minWidth x minHeight; 1 when
// none does or no minimum is given.
int shrinkFor(const jpeg_decompress_struct& cinfo, bool sidesSwap, int minWidth, int minHeight) {
    if (minWidth <= 0 || minHeight <= 0) return 1;
    const long long w = sidesSwap ? cinfo.image_height : cinfo.image_width;
    const long long h = sidesSwap ? cinfo.image_width : cinfo.image_height;
    for (int s = 8; s > 1; s /= 2) {
        if ((w + s - 1) / s >= minWidth && (h + s - 1) / s >= minHeight) return s;
    }
    return 1;
}

bool decode(Reader& r, std::FILE* f, Image& out, bool autoOrient, int minWidth, int minHeight) {
    installErrorManager(reinterpret_cast<jpeg_common_struct*>(&r.cinfo), r.errors);
    if (setjmp(r.errors.jump)) return false;
    jpeg_create_decompress(&r.cinfo);
    jpeg_stdio_src(&r.cinfo, f);
    jpeg_save_markers(&r.cinfo, JPEG_APP0 + 1, 0xFFFF);
    jpeg_save_markers(&r.cinfo, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&r.cinfo, TRUE);
    checkDimensions(r.cinfo.image_width, r.cinfo.image_height, kRgb);
    // A flat picture's 8x8 blocks cost a few bits each: far below 1/4096 of its pixels.
    checkPayload(f,
                 imageByteSize(kRgb, static_cast<int>(r.cinfo.image_width),
                               static_cast<int>(r.cinfo.image_height)),
                 4096);
    readMetadata(r.cinfo, out);
    r.cinfo.out_color_space = JCS_RGB;  // gray and YCbCr both come out as rgb
    out.shrink = shrinkFor(r.cinfo, autoOrient && out.orientation >= 5, minWidth, minHeight);
    r.cinfo.scale_num = 1;
    r.cinfo.scale_denom = static_cast<unsigned>(out.shrink);
    jpeg_start_decompress(&r.cinfo);
    if (r.cinfo.output_components != 3) fail("unexpected JPEG output layout");

    const size_t rowBytes = static_cast<size_t>(r.cinfo.output_width) * 3;
    out.width = static_cast<int>(r.cinfo.output_width);
    out.height = static_cast<int>(r.cinfo.output_height);
    out.colorFormat = kRgb;
    allocatePicture(out.data, rowBytes * r.cinfo.output_height, out.width, out.height);
    // A whole row group per call: the decoder writes straight into the picture.
    while (r.cinfo.output_scanline < r.cinfo.output_height) {
        JSAMPROW rows[16];
        const JDIMENSION first = r.cinfo.output_scanline;
        const JDIMENSION count = std::min<JDIMENSION>(16, r.cinfo.output_height - first);
        for (JDIMENSION i = 0; i < count; ++i) rows[i] = out.data.data() + (first + i) * rowBytes;
        jpeg_read_scanlines(&r.cinfo, rows, count);
    }
    jpeg_finish_decompress(&r.cinfo);
    return true;
}

// Luma sampling factors: full chroma (444), half across (422), half both ways (420).
void setSubsampling(jpeg_compress_struct& cinfo, int subsampling, int quality) {
    if (subsampling == 0) subsampling = quality >= 90 ? 444 : 420;
    cinfo.comp_info[0].h_samp_factor = subsampling == 444 ? 1 : 2;
    cinfo.comp_info[0].v_samp_factor = subsampling == 420 ? 2 : 1;
    for (int c = 1; c < 3; ++c) {
        cinfo.comp_info[c].h_samp_factor = 1;
        cinfo.comp_info[c].v_samp_factor = 1;
    }
}

void setUp(jpeg_compress_struct& cinfo, int width, int height, int quality, int subsampling) {
    cinfo.image_width = static_cast<JDIMENSION>(width);
    cinfo.image_height = static_cast<JDIMENSION>(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    setSubsampling(cinfo, subsampling, quality);
}

// Writes rows first .. first + count - 1 of the picture.
void writeRows(jpeg_compress_struct& cinfo, const Image& image, int first) {
    const size_t rowBytes = static_cast<size_t>(image.width) * 3;
    while (cinfo.next_scanline < cinfo.image_height) {
        // libjpeg's API takes a non-const row but only reads it.
        JSAMPROW row = const_cast<JSAMPROW>(
            image.data.data() + (first + static_cast<size_t>(cinfo.next_scanline)) * rowBytes);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
}

bool encode(Writer& w, std::FILE* f, const Image& image, int quality, int subsampling,
            const std::vector<uint8_t>& profile) {
    installErrorManager(reinterpret_cast<jpeg_common_struct*>(&w.cinfo), w.errors);
    if (setjmp(w.errors.jump)) return false;
    jpeg_create_compress(&w.cinfo);
    jpeg_stdio_dest(&w.cinfo, f);
    setUp(w.cinfo, image.width, image.height, quality, subsampling);
    jpeg_start_compress(&w.cinfo, TRUE);
    if (!profile.empty()) {
        jpeg_write_icc_profile(&w.cinfo, profile.data(), static_cast<unsigned>(profile.size()));
    }
    writeRows(w.cinfo, image, 0);
    jpeg_finish_compress(&w.cinfo);
    return true;
}

// A band of rows encoded as a JPEG of its own, into memory.
struct Band {
    jpeg_compress_struct cinfo{};
    ErrorManager errors{};
    jpeg_destination_mgr destination{};
    std::vector<uint8_t> bytes;
    ~Band() { jpeg_destroy_compress(&cinfo); }
};

Band& bandOf(j_compress_ptr cinfo) {
    return *reinterpret_cast<Band*>(reinterpret_cast<char*>(cinfo) - offsetof(Band, cinfo));
}

void startBand(j_compress_ptr cinfo) {
    Band& band = bandOf(cinfo);
    band.bytes.resize(size_t{1} << 20);
    band.destination.next_output_byte = band.bytes.data();
    band.destination.free_in_buffer = band.bytes.size();
}

boolean growBand(j_compress_ptr cinfo) {
    Band& band = bandOf(cinfo);
    const size_t used = band.bytes.size();
    try {
        band.bytes.resize(2 * used);
    } catch (const std::bad_alloc&) {
        ERREXIT1(cinfo, JERR_OUT_OF_MEMORY, 0);
    }
    band.destination.next_output_byte = band.bytes.data() + used;
    band.destination.free_in_buffer = band.bytes.size() - used;
    return TRUE;
}

void endBand(j_compress_ptr cinfo) {
    Band& band = bandOf(cinfo);
    band.bytes.resize(band.bytes.size() - band.destination.free_in_buffer);
}

bool encodeBand(Band& b, const Image& image, int first, int rows, int quality, int subsampling,
                const std::vector<uint8_t>& profile) {
    installErrorManager(reinterpret_cast<jpeg_common_struct*>(&b.cinfo), b.errors);
    if (setjmp(b.errors.jump)) return false;
    jpeg_create_compress(&b.cinfo);
    b.destination.init_destination = startBand;
    b.destination.empty_output_buffer = growBand;
    b.destination.term_destination = endBand;
    b.cinfo.dest = &b.destination;
    setUp(b.cinfo, image.width, rows, quality, subsampling);
    jpeg_start_compress(&b.cinfo, TRUE);
    if (!profile.empty()) {
        jpeg_write_icc_profile(&b.cinfo, profile.data(), static_cast<unsigned>(profile.size()));
    }
    writeRows(b.cinfo, image, first);
    jpeg_finish_compress(&b.cinfo);
    return true;
}

// Where a segment starts in a JPEG written by libjpeg: its marker's second byte is `marker`.
size_t findSegment(const std::vector<uint8_t>& jpeg, uint8_t marker) {
    size_t at = 2;
    while (at + 4 <= jpeg.size() && jpeg[at] == 0xFF && jpeg[at + 1] != marker) {
        at += 2 + (size_t{jpeg[at + 2]} << 8 | jpeg[at + 3]);
    }
    if (at + 4 > jpeg.size() || jpeg[at] != 0xFF) fail("JPEG encoding failed: unexpected layout");
    return at;
}

// Large pictures are encoded in bands on every core, then joined into one picture whose
// restart interval is one band: a decoder resets its DC prediction at each restart marker
// exactly as each band's encoder started afresh, so the result decodes to the same pixels as
// one encoder's. Returns false for pictures too small to gain.
bool encodeInBands(std::FILE* f, const Image& image, int quality, int subsampling,
                   const std::vector<uint8_t>& profile) {
    const int threads = static_cast<int>(std::min(8u, std::thread::hardware_concurrency()));
    if (threads < 2 || size_t(image.width) * image.height < (size_t{1} << 20)) return false;
    if (subsampling == 0) subsampling = quality >= 90 ? 444 : 420;
    const int mcuWidth = subsampling == 444 ? 8 : 16;
    const int mcuHeight = subsampling == 420 ? 16 : 8;
    const int mcusPerRow = (image.width + mcuWidth - 1) / mcuWidth;
    const int mcuRows = (image.height + mcuHeight - 1) / mcuHeight;
    // The restart interval counts MCUs in 16 bits.
    int bandMcuRows = (mcuRows + threads - 1) / threads;
    if (bandMcuRows * mcusPerRow > 65535) bandMcuRows = 65535 / mcusPerRow;
    if (bandMcuRows < 1) return false;
    const int bandRows = bandMcuRows * mcuHeight;
    const int count = (image.height + bandRows - 1) / bandRows;
    if (count < 2) return false;

    std::vector<std::unique_ptr<Band>> bands;
    for (int i = 0; i < count; ++i) bands.push_back(std::make_unique<Band>());
    std::atomic<int> next{0};
    std::vector<int> ok(count, 0);
    const auto work = [&] {
        for (int i = next++; i < count; i = next++) {
            const int first = i * bandRows;
            // The first band carries the headers of the whole, the profile among them.
            ok[i] = encodeBand(*bands[i], image, first, std::min(bandRows, image.height - first),
                               quality, subsampling, i == 0 ? profile : std::vector<uint8_t>());
        }
    };
    std::vector<std::thread> pool;
    for (int t = 1; t < std::min(threads, count); ++t) pool.emplace_back(work);
    work();
    for (std::thread& thread : pool) thread.join();
    for (int i = 0; i < count; ++i) {
        if (!ok[i]) fail(std::string("JPEG encoding failed: ") + bands[i]->errors.message);
    }

    // The first band's headers, made the whole picture's: its height, a restart interval.
    std::vector<uint8_t>& head = bands[0]->bytes;
    const size_t frame = findSegment(head, 0xC0);
    head[frame + 5] = static_cast<uint8_t>(image.height >> 8);
    head[frame + 6] = static_cast<uint8_t>(image.height);
    const unsigned interval = static_cast<unsigned>(bandMcuRows * mcusPerRow);
    const uint8_t restart[] = {0xFF, 0xDD, 0, 4, uint8_t(interval >> 8), uint8_t(interval)};
    const size_t scan = findSegment(head, 0xDA);
    writeExact(f, head.data(), scan);
    writeExact(f, restart, sizeof restart);
    writeExact(f, head.data() + scan, head.size() - 2 - scan);
    for (int i = 1; i < count; ++i) {
        const std::vector<uint8_t>& band = bands[i]->bytes;
        const size_t sos = findSegment(band, 0xDA);
        const size_t data = sos + 2 + (size_t{band[sos + 2]} << 8 | band[sos + 3]);
        const uint8_t marker[] = {0xFF, uint8_t(0xD0 + (i - 1) % 8)};
        writeExact(f, marker, 2);
        writeExact(f, band.data() + data, band.size() - 2 - data);
    }
    const uint8_t end[] = {0xFF, 0xD9};
    writeExact(f, end, 2);
    return true;
}

}  // namespace

Image readJpeg(std::FILE* f, bool autoOrient, int minWidth, int minHeight) {
    Reader r;
    Image image;
    if (!decode(r, f, image, autoOrient, minWidth, minHeight))
        fail(std::string("invalid JPEG: ") + r.errors.message);
    if (autoOrient) orient(image, image.orientation);
    return image;
}

void writeJpeg(std::FILE* f, const Image& image, int quality, int subsampling) {
    // sRGB is what a JPEG without a profile is taken to be.
    const std::vector<uint8_t> profile = image.colorSpace == 0 || image.colorSpace == kSpaceSrgb
                                             ? std::vector<uint8_t>()
                                             : iccProfileFor(image.colorSpace, image.hdrType);
    if (encodeInBands(f, image, quality, subsampling, profile)) return;
    Writer w;
    if (encode(w, f, image, quality, subsampling, profile)) return;
    // libjpeg's own text for this guesses at a full disk; the system knows the real cause.
    if (w.errors.pub.msg_code == JERR_FILE_WRITE) {
        fail(std::string("write failed: ") + std::strerror(errno));
    }
    fail(std::string("JPEG encoding failed: ") + w.errors.message);
}

}  // namespace vexa::io::detail
