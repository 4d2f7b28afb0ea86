// libzocabase: the image descriptor record and the nine vexa_* image functions.
//
// The record is shared with the mivo plugin, which builds one for each buffer it hands
// over. The functions read every picture only through its record: plane sizes, strides,
// scan-lines and addresses are the whole description of its memory.
#ifndef ZOCA_ZOCA_H
#define ZOCA_ZOCA_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

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
// Packed codes name their bytes in memory order.
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

// Colour space codes.
enum {
    ZOCA_CS_BT601 = 0,         // BT.601 matrix, limited range
    ZOCA_CS_BT601_FULL = 1,    // BT.601 matrix, full range (JPEG)
    ZOCA_CS_BT709 = 10,        // BT.709 primaries, matrix and transfer, limited range
    ZOCA_CS_BT709_FULL = 11,   // BT.709, full range
    ZOCA_CS_BT2020 = 20,       // BT.2020 primaries and non-constant-luminance matrix, limited
    ZOCA_CS_BT2020_FULL = 21,  // BT.2020, full range
    ZOCA_CS_DISPLAY_P3 = 30,   // Display P3 primaries (D65), sRGB transfer, BT.709 matrix, limited
};

// Rotation and mirror codes of vexa_rot, vexa_rsz_rot and vexa_csc_rot.
enum {
    ZOCA_ROT_NONE = 0,
    ZOCA_ROT_270 = 1,
    ZOCA_ROT_90 = 2,
    ZOCA_ROT_180 = 3,
    ZOCA_ROT_MIRROR_H = 4,  // left and right exchanged
    ZOCA_ROT_MIRROR_V = 5,  // top and bottom exchanged
};

// Tone-mapping modes of vexa_hdr_to_sdr.
enum {
    ZOCA_HDR_DEFAULT = 1,
    ZOCA_HDR_HLG = 2,
    ZOCA_HDR_PQ = 3,
    ZOCA_HDR_PQ_HIGHLIGHTS = 4,
};

// Result codes.
enum {
    ZOCA_OK = 0,
    ZOCA_ERR_INVALID = -1,      // a record is malformed (sizes, strides, addresses)
    ZOCA_ERR_UNSUPPORTED = -2,  // format pair, rotation code or mode not supported
    ZOCA_ERR_DESTINATION = -3,  // the destination cannot be written as it stands
};

int vexa_rsz(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
int vexa_csc(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
int vexa_csc_dither(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
int vexa_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst);
int vexa_rsz_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst);
int vexa_csc_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst);
int vexa_crop(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
int vexa_cgc(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst);
int vexa_hdr_to_sdr(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst, int mode);

#ifdef __cplusplus
}
#endif

#endif  // ZOCA_ZOCA_H
