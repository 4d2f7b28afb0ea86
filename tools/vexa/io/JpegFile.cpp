// libjpeg's default error handling calls exit(); ours longjmps back instead. As with PNG, the
// functions holding the setjmp keep no objects with destructors in their own frames.
#include <cstdio>

#include <jerror.h>
#include <jpeglib.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdlib>
#include <cstring>
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
    out.data.resize(rowBytes * r.cinfo.output_height);
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

bool encode(Writer& w, std::FILE* f, const Image& image, int quality, int subsampling,
            const std::vector<uint8_t>& profile) {
    installErrorManager(reinterpret_cast<jpeg_common_struct*>(&w.cinfo), w.errors);
    if (setjmp(w.errors.jump)) return false;
    jpeg_create_compress(&w.cinfo);
    jpeg_stdio_dest(&w.cinfo, f);
    w.cinfo.image_width = static_cast<JDIMENSION>(image.width);
    w.cinfo.image_height = static_cast<JDIMENSION>(image.height);
    w.cinfo.input_components = 3;
    w.cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&w.cinfo);
    jpeg_set_quality(&w.cinfo, quality, TRUE);
    setSubsampling(w.cinfo, subsampling, quality);
    jpeg_start_compress(&w.cinfo, TRUE);
    if (!profile.empty()) {
        jpeg_write_icc_profile(&w.cinfo, profile.data(), static_cast<unsigned>(profile.size()));
    }
    const size_t rowBytes = static_cast<size_t>(image.width) * 3;
    while (w.cinfo.next_scanline < w.cinfo.image_height) {
        // libjpeg's API takes a non-const row but only reads it.
        JSAMPROW row = const_cast<JSAMPROW>(image.data.data() +
                                            static_cast<size_t>(w.cinfo.next_scanline) * rowBytes);
        jpeg_write_scanlines(&w.cinfo, &row, 1);
    }
    jpeg_finish_compress(&w.cinfo);
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
    Writer w;
    if (encode(w, f, image, quality, subsampling, profile)) return;
    // libjpeg's own text for this guesses at a full disk; the system knows the real cause.
    if (w.errors.pub.msg_code == JERR_FILE_WRITE) {
        fail(std::string("write failed: ") + std::strerror(errno));
    }
    fail(std::string("JPEG encoding failed: ") + w.errors.message);
}

}  // namespace vexa::io::detail
