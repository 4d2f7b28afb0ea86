// Fixed-point YUV <-> RGB shared by the plain and the AVX-512 builds, which give the same
// bytes. Decoding works in 16-bit lanes (Q14 gains with rounding high multiplies,
// results in 1/64 code); encoding in 32-bit sums of byte products (Q14 weights, which
// the vector build splits into two signed bytes for VNNI dot products). Both stay within
// 0.03 code of the exact matrices before the final rounding, so every result is within
// one code of a double-precision conversion, dithered or not.
#ifndef ZOCA_SRC_YUV_H
#define ZOCA_SRC_YUV_H

#include <algorithm>
#include <cstdint>

#include "image.h"

namespace zoca {

struct YuvMatrix {
    double kr, kb;
    bool full;
};
YuvMatrix YuvMatrixOf(int cs);

// 4x4 Bayer thresholds 0..15: neighbouring pixels round at well spread points, so a
// 4x4 area averages to the unrounded value.
constexpr int kBayer[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};

// Rounding offsets of one output step: a plain half, or the Bayer threshold of the pixel
// spread over the step (`bits` fraction bits).
inline int32_t RoundBias(bool dither, int row, int x, int bits) {
    return dither ? (2 * kBayer[row & 3][x & 3] + 1) << (bits - 5) : 1 << (bits - 1);
}

// Decoding gains, Q14. The Cb -> B gain passes 2 for limited BT.2020, so it is held
// as 1 + bu1.
struct DecCoef {
    int32_t ky, yoff, rv, gu, gv, bu1;
};
DecCoef MakeDecCoef(int cs);

// The x86 rounding high multiply (pmulhrsw) on 16-bit operands.
inline int32_t MulHrs(int32_t a, int32_t b) {
    return (a * b + (1 << 14)) >> 15;
}
inline uint8_t Clamp8(int32_t v) {
    return static_cast<uint8_t>(std::min(std::max(v, 0), 255));
}

// Chroma terms of one Cb, Cr pair, in 1/64 code.
struct ChromaTerms {
    int32_t r, g, b;
};
inline ChromaTerms DecodeChroma(const DecCoef& k, int u, int v) {
    const int32_t cu = (u - 128) * 128;
    const int32_t cv = (v - 128) * 128;
    return {MulHrs(cv, k.rv), MulHrs(cu, k.gu) + MulHrs(cv, k.gv), (cu >> 1) + MulHrs(cu, k.bu1)};
}
// Luma term with its rounding offset (6 fraction bits), in 1/64 code.
inline int32_t DecodeLuma(const DecCoef& k, int y, int32_t bias) {
    return MulHrs((y - k.yoff) * 128, k.ky) + bias;
}
inline void DecodePixel(int32_t yt, const ChromaTerms& c, uint8_t* r, uint8_t* g, uint8_t* b) {
    *r = Clamp8((yt + c.r) >> 6);
    *g = Clamp8((yt - c.g) >> 6);
    *b = Clamp8((yt + c.b) >> 6);
}

// Encoding weights, Q14, in R, G, B order. Luma is one pixel's sum; chroma takes the
// sum of a 2x2 block, so its result carries 16 fraction bits. Every weight lies in
// (-2^14, 2^14), the range the vector build's byte split holds.
struct EncCoef {
    int32_t y[3], u[3], v[3];
    int32_t yoff;
};
EncCoef MakeEncCoef(int cs);

inline uint8_t EncodeLuma(const EncCoef& k, int r, int g, int b, int32_t bias) {
    return Clamp8(((k.yoff << 14) + k.y[0] * r + k.y[1] * g + k.y[2] * b + bias) >> 14);
}
// sr, sg, sb: sums over the 2x2 block.
inline void EncodeChroma(const EncCoef& k, int sr, int sg, int sb, int32_t bias, uint8_t* u,
                         uint8_t* v) {
    *u = Clamp8(((128 << 16) + k.u[0] * sr + k.u[1] * sg + k.u[2] * sb + bias) >> 16);
    *v = Clamp8(((128 << 16) + k.v[0] * sr + k.v[1] * sg + k.v[2] * sb + bias) >> 16);
}

// Bits of each output step, for RoundBias.
constexpr int kDecodeBits = 6;
constexpr int kLumaBits = 14;
constexpr int kChromaBits = 16;

namespace avx512 {
// One row of YUV into packed 4-byte pixels (o.bpp == 4) or planar R, G, B rows
// (o.bpp == 0, out[0..2]). c0, c1: Cb and Cr rows (I420) or the interleaved row with
// c1 unused (NV12, NV21).
void DecodeRow(const DecCoef& k, Layout l, const uint8_t* y, const uint8_t* c0, const uint8_t* c1,
               PackedOrder o, uint8_t* const out[3], int w, int row, bool dither);
// Rows row and row + 1, which share their chroma row, into planar R, G, B (out[0..2]
// and out[3..5]); the chroma terms are computed once for both.
void DecodeRowPair(const DecCoef& k, Layout l, const uint8_t* y0, const uint8_t* y1,
                   const uint8_t* c0, const uint8_t* c1, uint8_t* const out[6], int w, int row,
                   bool dither);
// Two rows of packed 4-byte pixels (o.bpp == 4, in[0] and in[1]) or planar R, G, B
// (o.bpp == 0, in[0..2] and in[3..5]) into two luma rows and one chroma row; at an odd
// bottom edge both input rows are the same. y1 may be null (then only y0 is written).
void EncodeRows(const EncCoef& k, PackedOrder o, const uint8_t* const in[6], Layout l, uint8_t* y0,
                uint8_t* y1, uint8_t* c0, uint8_t* c1, int w, int row, bool dither);
}  // namespace avx512

}  // namespace zoca

#endif  // ZOCA_SRC_YUV_H
