// libzocabase: the image descriptor record and the nine vexa_* image functions.
//
// The record is shared with the mivo plugin, which builds one for each buffer it hands
// over. The functions read every picture only through its record: plane sizes, strides,
// scan-lines and addresses are the whole description of its memory.
//
// Record rules (checked on every record before any pixel is read or written):
//  - width[0], height[0]: the picture, 1..32768 each.
//  - I420: width = {w, (w+1)/2, (w+1)/2}, height = {h, (h+1)/2, (h+1)/2}.
//    NV12/NV21: width = {w, (w+1)/2} (plane 1 counts Cb,Cr pairs), height likewise.
//    Packed: width[0] = w, one plane. Fields of planes a format does not use are ignored.
//  - stride[p] at least one row: w bytes for Y, (w+1)/2 for I420 chroma, 2*((w+1)/2)
//    for NV12/NV21 chroma, w * bytes-per-pixel for packed; stride * rows < 2^31.
//  - scanlines[p] >= height[p]; addr[p] != 0 for every plane the format uses.
//  - The planes of one record do not overlap each other.
// Only the bytes of the described rows are touched: never the padding between the end
// of a row and the stride, never rows past height[p].
//
// Every function is reentrant and keeps no mutable state between calls (its tables are
// built once, thread-safely, and only read afterwards), except the resampling filters
// of the last few sizes, kept under a lock and only read while they run. Source and
// destination must not share memory: there is no in-place operation.
#ifndef ZOCA_ZOCA_H
#define ZOCA_ZOCA_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
// Public API: visible even from code built with hidden symbols (so that templates
// instantiated on the record are shared across libraries).
#pragma GCC visibility push(default)

// One picture, up to four planes (plane 3 is never used by the formats below).
// On a 32-bit build this is exactly 196 bytes; on 64-bit builds addr is pointer-sized
// and the other fields keep their order.
typedef struct _ZOCA_IMGB {
    int32_t width[4];      // samples per row of each plane (plane 0 = picture width)
    int32_t height[4];     // rows of each plane
    int32_t stride[4];     // bytes between the starts of two rows of each plane
    int32_t scanlines[4];  // rows allotted to each plane in memory
    uintptr_t addr[4];     // first byte of each plane
    uint8_t reserved0[32];
    int32_t colorFormat;  // ZOCA_CF_* below
    int32_t startX;       // source region origin (crop), pixels
    int32_t startY;       // source region origin (crop), rows
    int32_t colorSpace;   // ZOCA_CS_* below
    uint8_t reserved1[68];
} _ZOCA_IMGB;

#if UINTPTR_MAX == 0xffffffffu
#ifdef __cplusplus
#define ZOCA_STATIC_ASSERT static_assert
#else
#define ZOCA_STATIC_ASSERT _Static_assert
#endif
ZOCA_STATIC_ASSERT(sizeof(_ZOCA_IMGB) == 196, "_ZOCA_IMGB must be 196 bytes");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, height) == 16, "height at 16");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, stride) == 32, "stride at 32");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, scanlines) == 48, "scanlines at 48");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, addr) == 64, "addr at 64");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, reserved0) == 80, "reserved0 at 80");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, colorFormat) == 112, "colorFormat at 112");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, startX) == 116, "startX at 116");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, startY) == 120, "startY at 120");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, colorSpace) == 124, "colorSpace at 124");
ZOCA_STATIC_ASSERT(__builtin_offsetof(_ZOCA_IMGB, reserved1) == 128, "reserved1 at 128");
#undef ZOCA_STATIC_ASSERT
#endif

// Colour format codes. Codes above 199 are a single packed plane, 199 and below are YUV.
// Packed codes name their bytes in memory order. YUV is 8-bit 4:2:0 with chroma sited
// at the centre of each 2x2 block (JPEG / MPEG-1 siting, Y4M "C420jpeg"); an odd width
// or height gives the last chroma column or row a single luma column or row. Every path
// of the library uses this siting: it is the one for which the fast conversions (chroma
// repeated over its 2x2 block on decode, the 2x2 average on encode) are unbiased, so
// conversion, scaling and cropping all agree on where each chroma sample lies.
enum {
    ZOCA_CF_I420 = 1,    // 8-bit 4:2:0, three planes: Y, Cb, Cr
    ZOCA_CF_NV12 = 6,    // 8-bit 4:2:0, Y then interleaved Cb,Cr
    ZOCA_CF_NV21 = 7,    // 8-bit 4:2:0, Y then interleaved Cr,Cb
    ZOCA_CF_RGB = 400,   // R,G,B
    ZOCA_CF_BGR = 401,   // B,G,R
    ZOCA_CF_RGBA = 500,  // R,G,B,A
    ZOCA_CF_BGRA = 501,  // B,G,R,A
    ZOCA_CF_ARGB = 502,  // A,R,G,B
};

// Colour space codes: matrix and range of YUV samples, primaries and transfer of the
// colours. Packed RGB is always full range (0..255); on a packed record only the
// primaries and transfer matter (vexa_cgc, vexa_hdr_to_sdr).
//
//   code  matrix (YUV)    range     primaries          transfer used in linear light
//   0     BT.601          limited   BT.709 (see below) BT.1886 (gamma 2.4)
//   1     BT.601          full      BT.709             BT.1886
//   10    BT.709          limited   BT.709             BT.1886
//   11    BT.709          full      BT.709             BT.1886
//   20    BT.2020 NCL     limited   BT.2020            BT.1886
//   21    BT.2020 NCL     full      BT.2020            BT.1886
//   30    BT.709          limited   Display P3 (D65)   sRGB (IEC 61966-2-1)
//
// Limited range: Y 16..235, Cb/Cr 16..240 around 128. Full range: Y 0..255, Cb/Cr
// 0..255 around 128 (JPEG style). BT.601 exists with two sets of primaries (525 and 625
// lines); both are within display tolerance of BT.709, so BT.601 codes use BT.709
// primaries. Pictures coded with the BT.709/BT.2020 camera curve are shown through the
// BT.1886 display curve (pure 2.4 power, black at 0); linear light here means display
// light, so that curve is the one decoded and encoded.
//
// Which record's code governs:
//  - YUV <-> RGB: the YUV side's record (matrix and range); the RGB side's code is
//    not used by vexa_csc.
//  - YUV <-> YUV: each side's own; equal matrix and range means a sample-exact
//    rearrangement, otherwise the picture is re-encoded through RGB.
//  - RGB <-> RGB: codes unused; bytes are only moved.
enum {
    ZOCA_CS_BT601 = 0,         // BT.601 matrix, limited range
    ZOCA_CS_BT601_FULL = 1,    // BT.601 matrix, full range (JPEG)
    ZOCA_CS_BT709 = 10,        // BT.709 primaries, matrix and transfer, limited range
    ZOCA_CS_BT709_FULL = 11,   // BT.709, full range
    ZOCA_CS_BT2020 = 20,       // BT.2020 primaries and non-constant-luminance matrix, limited
    ZOCA_CS_BT2020_FULL = 21,  // BT.2020, full range
    ZOCA_CS_DISPLAY_P3 = 30,   // Display P3 primaries (D65), sRGB transfer, BT.709 matrix, limited
};

// Rotation and mirror codes of vexa_rot, vexa_rsz_rot and vexa_csc_rot. Angles are
// clockwise as the picture is viewed: after ZOCA_ROT_90 the top-left pixel is at the
// top-right, after ZOCA_ROT_270 (= 90 counter-clockwise) at the bottom-left. The two
// quarter turns need a destination whose width and height are the source's swapped.
enum {
    ZOCA_ROT_NONE = 0,
    ZOCA_ROT_270 = 1,  // 270 degrees clockwise
    ZOCA_ROT_90 = 2,   // 90 degrees clockwise
    ZOCA_ROT_180 = 3,
    ZOCA_ROT_MIRROR_H = 4,  // left and right exchanged
    ZOCA_ROT_MIRROR_V = 5,  // top and bottom exchanged
};

// Tone-mapping modes of vexa_hdr_to_sdr. The source is 8-bit HDR with BT.2020
// primaries whatever its record says (its code only picks the YUV matrix and range);
// the result is SDR with BT.709 primaries for a BT.1886 display (gamma 2.4).
// The PQ modes decode with the SMPTE ST 2084 EOTF and compress with the BT.2390 EETF
// (mastering black and target black at 0 nits): identity below the knee, a Hermite
// spline from the knee to the target peak, in the PQ domain. The curve runs on the
// largest of R, G, B and all three are scaled by the same gain (hue and saturation
// kept). Then BT.2020 -> BT.709 in linear light with the gamut rule of vexa_cgc.
enum {
    // PQ, mastering peak 1000 nits (typical HDR10), SDR peak 100 nits = code 255.
    ZOCA_HDR_DEFAULT = 1,
    // HLG: BT.2100 inverse OETF, then the OOTF of a 1000-nit display (system gamma 1.2,
    // on scene luminance), then the BT.2390 EETF from 1000 to 100 nits as above (held
    // as one cubic per eighth of an octave of display light, within 4e-5 of the curve).
    ZOCA_HDR_HLG = 2,
    // PQ, mastering peak 1000 nits, SDR peak at 203 nits (BT.2408 HDR reference white
    // becomes SDR white): brighter mid-tones, highlights above ~100 nits compressed.
    ZOCA_HDR_PQ = 3,
    // PQ, mastering peak 4000 nits, SDR peak 100 nits: highlights up to 4000 nits keep
    // their gradation instead of clipping.
    ZOCA_HDR_PQ_HIGHLIGHTS = 4,
};

// Result codes. Checks run in this order and the first failure is returned; nothing
// is written unless the result is ZOCA_OK.
//  1. Source record, then destination record, each on its own:
//     unknown colorFormat or colorSpace                                   -> -2
//     a record rule above broken, a null record pointer, or a source
//     plane address of 0; vexa_crop: startX or startY negative            -> -1
//  2. The operation: rotation code outside 0..5, mode outside 1..4, or
//     different formats for vexa_rot / vexa_crop                           -> -2
//  3. The destination as it stands: a plane address of 0 (no memory yet), a size
//     other than the one the operation produces (equal size for csc, cgc and
//     hdr_to_sdr; swapped axes for quarter turns; for crop, a region that would reach
//     outside the source), or memory shared with the source                -> -3
//     (also returned if working memory cannot be had)
enum {
    ZOCA_OK = 0,
    ZOCA_ERR_INVALID = -1,      // a record is malformed (sizes, strides, addresses)
    ZOCA_ERR_UNSUPPORTED = -2,  // format pair, rotation code or mode not supported
    ZOCA_ERR_DESTINATION = -3,  // the destination cannot be written as it stands
};

// Scales src to dst's size with a separable filter, each axis on its own:
//  - Sample centres map to sample centres: destination column j is taken at source
//    column (j + 0.5) * src_w / dst_w - 0.5, rows likewise, so nothing shifts at any ratio.
//  - When either axis shrinks: Lanczos, 3 lobes, widened along each shrinking axis by
//    the ratio, so every ratio is anti-aliased. Otherwise: Catmull-Rom bicubic.
//  - Samples past an edge mirror the picture back in.
//  - 4:2:0 chroma is resampled at its own siting (above): the destination chroma plane,
//    which spans 2 * ((dst_w + 1) / 2) of its luma columns, maps onto that many times
//    src_w / dst_w source luma columns (rows likewise).
//  - Every channel of a packed pixel, alpha included, is filtered alike (no premultiply).
//  - Fixed point: weights rounded to 14 bits and summing to exactly 1 (flat stays
//    flat), the first axis kept to 1/64 of a code, the result rounded to the nearest
//    code and clamped to 0..255: within a code of the exact filter (two at shrinks of
//    thousands to one, whose weights are tiny). Every kernel build
//    (plain, AVX2, AVX-512; ZOCA_KERNEL=plain forces the plain one) gives the same
//    bytes. Working memory is a few rows per channel (-3 if it cannot be had).
// Different formats: also converts as vexa_csc does (at the smaller of the two sizes).
// Same format: only the size changes, whatever the colour space codes; same format and
// size is a plain copy.
int vexa_rsz(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
// Converts between any two of the eight formats at equal size (codes: see above).
// Every YUV <-> RGB sample is within one code of the exact matrix computed in double
// precision (4:2:0 chroma from the mean of its 2x2 block). The vector build and the
// plain one share their fixed-point arithmetic, so both give the same bytes; undithered
// BT.709 full-range decoding is libyuv's, which meets the same bound.
int vexa_csc(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
// As vexa_csc, with every rounding to 8 bits ordered-dithered (4x4 Bayer), so that
// gradients keep their average level in every 4x4 area instead of showing bands.
// Rearrangements that round nothing (RGB <-> RGB, YUV <-> YUV of one matrix and range)
// give the same bytes as vexa_csc.
int vexa_csc_dither(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
// Rotates or mirrors within one format.
int vexa_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst);
// Scales (as vexa_rsz, formats may differ) then rotates; dst has the rotated shape, so
// for quarter turns the scaled size is dst's height x width.
int vexa_rsz_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst);
// Converts (as vexa_csc) and rotates; dst is src's size, swapped for quarter turns.
int vexa_csc_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst);
// Copies the region of dst's size whose top-left is src's (startX, startY); both
// records share a format and the region must lie inside the source. Luma and packed
// pixels are copied. 4:2:0 chroma stays on its luma: at an even origin it is copied
// from chroma sample (startX / 2, startY / 2); along an axis whose origin is odd it is
// resampled (Catmull-Rom) at the half-sample position the cropped picture's chroma
// sits at, so the result matches cropping the full-colour picture.
int vexa_crop(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
// Converts colours from src's primaries and transfer to dst's (codes above) in linear
// light: decode the transfer, 3x3 primaries matrix (D65), encode. Equal size; any two of
// the eight formats (YUV sides decode and encode with their own matrix and range).
// Colours outside the destination gamut keep their luminance (clipped to 0..1) and
// move straight toward the grey of that luminance just far enough to fit: hue and
// brightness kept, saturation given up; no per-channel clipping.
int vexa_cgc(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
// Tone-maps HDR src into SDR dst of equal size; mode is a ZOCA_HDR_* value. Any of the
// eight formats on either side; dst's code picks only its YUV matrix and range.
int vexa_hdr_to_sdr(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst, int mode);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif  // ZOCA_ZOCA_H
