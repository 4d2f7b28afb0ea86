#include "convert.h"

#include <libyuv.h>

#include <algorithm>
#include <cmath>

namespace zoca {
namespace {

// Rows per strip of a two-step conversion: even, so 4:2:0 chroma rows stay paired,
// and small enough that the strip stays in cache between the steps.
constexpr int kStripRows = 16;

enum class MatrixId { BT601, BT709, BT2020 };

struct Matrix {
    MatrixId id;
    bool full;
    double kr, kb;
    const libyuv::YuvConstants* yuv;  // libyuv's tables with U before V
    const libyuv::YuvConstants* yvu;  // the same with U and V exchanged (R and B swap)
};

Matrix MatrixOf(int cs) {
    switch (cs) {
        case ZOCA_CS_BT601_FULL:
            return {MatrixId::BT601, true, 0.299, 0.114, &libyuv::kYuvJPEGConstants,
                    &libyuv::kYvuJPEGConstants};
        case ZOCA_CS_BT709:
        case ZOCA_CS_DISPLAY_P3:
            return {MatrixId::BT709, false, 0.2126, 0.0722, &libyuv::kYuvH709Constants,
                    &libyuv::kYvuH709Constants};
        case ZOCA_CS_BT709_FULL:
            return {MatrixId::BT709, true, 0.2126, 0.0722, &libyuv::kYuvF709Constants,
                    &libyuv::kYvuF709Constants};
        case ZOCA_CS_BT2020:
            return {MatrixId::BT2020, false, 0.2627, 0.0593, &libyuv::kYuv2020Constants,
                    &libyuv::kYvu2020Constants};
        case ZOCA_CS_BT2020_FULL:
            return {MatrixId::BT2020, true, 0.2627, 0.0593, &libyuv::kYuvV2020Constants,
                    &libyuv::kYvuV2020Constants};
        case ZOCA_CS_BT601:
        default:
            return {MatrixId::BT601, false, 0.299, 0.114, &libyuv::kYuvI601Constants,
                    &libyuv::kYvuI601Constants};
    }
}

bool SameMatrix(int a, int b) {
    const Matrix ma = MatrixOf(a);
    const Matrix mb = MatrixOf(b);
    return ma.id == mb.id && ma.full == mb.full;
}

// 4x4 Bayer thresholds 0..15: neighbouring pixels round at well spread points, so a
// 4x4 area averages to the unrounded value.
constexpr int kBayer[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};

// Rounding offsets for one row at `frac` fraction bits: a plain half, or the Bayer
// threshold of that row spread over one output step.
void RoundingRow(bool dither, int row, int frac, int32_t bias[4]) {
    for (int i = 0; i < 4; ++i) {
        bias[i] = dither ? (2 * kBayer[row & 3][i] + 1) << (frac - 5) : 1 << (frac - 1);
    }
}

inline uint8_t Clamp255(int32_t v) { return static_cast<uint8_t>(std::min(std::max(v, 0), 255)); }

// ---- YUV -> packed RGB, fixed point with 16 fraction bits ----

struct DecCoef {
    int32_t y, yoff, rv, gu, gv, bu;
};

DecCoef MakeDecCoef(const Matrix& m) {
    const double yr = m.full ? 255.0 : 219.0;
    const double cr = m.full ? 255.0 : 224.0;
    const double kg = 1.0 - m.kr - m.kb;
    const double one = 65536.0;
    DecCoef k;
    k.y = static_cast<int32_t>(std::lround(255.0 / yr * one));
    k.yoff = m.full ? 0 : 16;
    k.rv = static_cast<int32_t>(std::lround(255.0 * 2 * (1 - m.kr) / cr * one));
    k.bu = static_cast<int32_t>(std::lround(255.0 * 2 * (1 - m.kb) / cr * one));
    k.gu = static_cast<int32_t>(std::lround(255.0 * 2 * m.kb * (1 - m.kb) / kg / cr * one));
    k.gv = static_cast<int32_t>(std::lround(255.0 * 2 * m.kr * (1 - m.kr) / kg / cr * one));
    return k;
}

template <int BPP, int RO, int GO, int BO, int AO>
void DecodeRow(const uint8_t* y, const uint8_t* u, const uint8_t* v, int cstep, uint8_t* out,
               int w, const DecCoef& k, const int32_t bias[4]) {
    for (int x = 0; x < w; ++x) {
        const int c = (x >> 1) * cstep;
        const int32_t yy = (y[x] - k.yoff) * k.y + bias[x & 3];
        const int32_t uu = u[c] - 128;
        const int32_t vv = v[c] - 128;
        uint8_t* px = out + x * BPP;
        px[RO] = Clamp255((yy + k.rv * vv) >> 16);
        px[GO] = Clamp255((yy - k.gu * uu - k.gv * vv) >> 16);
        px[BO] = Clamp255((yy + k.bu * uu) >> 16);
        if constexpr (AO >= 0) px[AO] = 255;
    }
}

struct YuvPlanes {
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
    int sy, su, sv, cstep;
};

YuvPlanes PlanesOf(const Img& img) {
    switch (LayoutOf(img.fmt)) {
        case Layout::I420:
            return {img.p[0], img.p[1], img.p[2], img.s[0], img.s[1], img.s[2], 1};
        case Layout::NV12:
            return {img.p[0], img.p[1], img.p[1] + 1, img.s[0], img.s[1], img.s[1], 2};
        default:
            return {img.p[0], img.p[1] + 1, img.p[1], img.s[0], img.s[1], img.s[1], 2};
    }
}

template <int BPP, int RO, int GO, int BO, int AO>
void DecodeOwnT(const Img& src, const Img& dst, bool dither) {
    const DecCoef k = MakeDecCoef(MatrixOf(src.cs));
    const YuvPlanes yp = PlanesOf(src);
    int32_t bias[4];
    for (int r = 0; r < src.h; ++r) {
        RoundingRow(dither, r, 16, bias);
        const int cr = r >> 1;
        DecodeRow<BPP, RO, GO, BO, AO>(yp.y + static_cast<ptrdiff_t>(r) * yp.sy,
                                       yp.u + static_cast<ptrdiff_t>(cr) * yp.su,
                                       yp.v + static_cast<ptrdiff_t>(cr) * yp.sv, yp.cstep,
                                       dst.p[0] + static_cast<ptrdiff_t>(r) * dst.s[0], src.w, k,
                                       bias);
    }
}

void DecodeOwn(const Img& src, const Img& dst, bool dither) {
    switch (dst.fmt) {
        case ZOCA_CF_RGB:
            return DecodeOwnT<3, 0, 1, 2, -1>(src, dst, dither);
        case ZOCA_CF_BGR:
            return DecodeOwnT<3, 2, 1, 0, -1>(src, dst, dither);
        case ZOCA_CF_RGBA:
            return DecodeOwnT<4, 0, 1, 2, 3>(src, dst, dither);
        case ZOCA_CF_BGRA:
            return DecodeOwnT<4, 2, 1, 0, 3>(src, dst, dither);
        default:
            return DecodeOwnT<4, 1, 2, 3, 0>(src, dst, dither);
    }
}

// libyuv's SIMD paths where it has one for the pair. libyuv names packed formats by a
// little-endian word, so its "ARGB" is B,G,R,A in memory; swapping U/V and passing the
// mirrored table exchanges R and B.
bool DecodeLibyuv(const Img& src, const Img& dst) {
    const Matrix m = MatrixOf(src.cs);
    // libyuv's limited-range BT.709 and BT.2020 tables hold the Cb->B gain (above 2)
    // in a signed byte and clamp it: saturated blues come out up to 16 levels dark.
    if (!m.full && m.id != MatrixId::BT601) return false;
    const int w = src.w;
    const int h = src.h;
    uint8_t* d = dst.p[0];
    const int ds = dst.s[0];
    const uint8_t* y = src.p[0];
    const int sy = src.s[0];
    switch (LayoutOf(src.fmt)) {
        case Layout::I420: {
            const uint8_t* u = src.p[1];
            const uint8_t* v = src.p[2];
            const int su = src.s[1];
            const int sv = src.s[2];
            switch (dst.fmt) {
                case ZOCA_CF_BGRA:
                    return libyuv::I420ToARGBMatrix(y, sy, u, su, v, sv, d, ds, m.yuv, w, h) == 0;
                case ZOCA_CF_RGBA:
                    return libyuv::I420ToARGBMatrix(y, sy, v, sv, u, su, d, ds, m.yvu, w, h) == 0;
                case ZOCA_CF_BGR:
                    return libyuv::I420ToRGB24Matrix(y, sy, u, su, v, sv, d, ds, m.yuv, w, h) == 0;
                case ZOCA_CF_RGB:
                    return libyuv::I420ToRGB24Matrix(y, sy, v, sv, u, su, d, ds, m.yvu, w, h) == 0;
                case ZOCA_CF_ARGB:  // libyuv "RGBA" is A,B,G,R; the swap makes it A,R,G,B
                    return libyuv::I420ToRGBAMatrix(y, sy, v, sv, u, su, d, ds, m.yvu, w, h) == 0;
                default:
                    return false;
            }
        }
        case Layout::NV12:
        case Layout::NV21: {
            const bool nv12 = LayoutOf(src.fmt) == Layout::NV12;
            const uint8_t* c = src.p[1];
            const int sc = src.s[1];
            switch (dst.fmt) {
                case ZOCA_CF_BGRA:
                    return (nv12 ? libyuv::NV12ToARGBMatrix(y, sy, c, sc, d, ds, m.yuv, w, h)
                                 : libyuv::NV21ToARGBMatrix(y, sy, c, sc, d, ds, m.yuv, w, h)) == 0;
                case ZOCA_CF_RGBA:
                    return (nv12 ? libyuv::NV21ToARGBMatrix(y, sy, c, sc, d, ds, m.yvu, w, h)
                                 : libyuv::NV12ToARGBMatrix(y, sy, c, sc, d, ds, m.yvu, w, h)) == 0;
                case ZOCA_CF_BGR:
                    return (nv12 ? libyuv::NV12ToRGB24Matrix(y, sy, c, sc, d, ds, m.yuv, w, h)
                                 : libyuv::NV21ToRGB24Matrix(y, sy, c, sc, d, ds, m.yuv, w, h)) ==
                           0;
                case ZOCA_CF_RGB:
                    return (nv12 ? libyuv::NV21ToRGB24Matrix(y, sy, c, sc, d, ds, m.yvu, w, h)
                                 : libyuv::NV12ToRGB24Matrix(y, sy, c, sc, d, ds, m.yvu, w, h)) ==
                           0;
                default:
                    return false;
            }
        }
        default:
            return false;
    }
}

// ---- packed RGB -> YUV 4:2:0 ----

struct EncCoef {
    int32_t yr, yg, yb, yoff;
    int32_t ur, ug, ub, vr, vg, vb;
};

// Luma at 16 fraction bits per pixel; chroma at 16 bits applied to the sum of a 2x2
// block, so its results carry 18 fraction bits.
EncCoef MakeEncCoef(const Matrix& m) {
    const double yr = m.full ? 255.0 : 219.0;
    const double cr = m.full ? 255.0 : 224.0;
    const double kg = 1.0 - m.kr - m.kb;
    const double one = 65536.0;
    auto q = [](double v) { return static_cast<int32_t>(std::lround(v)); };
    EncCoef k;
    k.yr = q(m.kr * yr / 255.0 * one);
    k.yg = q(kg * yr / 255.0 * one);
    k.yb = q(m.kb * yr / 255.0 * one);
    k.yoff = m.full ? 0 : 16;
    const double su = cr / 255.0 / (2 * (1 - m.kb)) * one;
    const double sv = cr / 255.0 / (2 * (1 - m.kr)) * one;
    k.ur = q(-m.kr * su);
    k.ug = q(-kg * su);
    k.ub = q((1 - m.kb) * su);
    k.vr = q((1 - m.kr) * sv);
    k.vg = q(-kg * sv);
    k.vb = q(-m.kb * sv);
    return k;
}

template <int BPP, int RO, int GO, int BO>
void EncodeLumaRow(const uint8_t* s, uint8_t* y, int w, const EncCoef& k, const int32_t bias[4]) {
    const int32_t off = k.yoff << 16;
    for (int x = 0; x < w; ++x) {
        const uint8_t* px = s + x * BPP;
        const int32_t v = off + k.yr * px[RO] + k.yg * px[GO] + k.yb * px[BO] + bias[x & 3];
        y[x] = Clamp255(v >> 16);
    }
}

// s0 and s1 are the two source rows of one chroma row (the same row at an odd bottom
// edge); an odd right edge repeats its last pixel.
template <int BPP, int RO, int GO, int BO>
void EncodeChromaRow(const uint8_t* s0, const uint8_t* s1, uint8_t* u, uint8_t* v, int cstep,
                     int w, const EncCoef& k, const int32_t bias[4]) {
    const int cw = (w + 1) / 2;
    const int32_t off = 128 << 18;
    for (int cx = 0; cx < cw; ++cx) {
        const int x0 = 2 * cx * BPP;
        const int x1 = std::min(2 * cx + 1, w - 1) * BPP;
        const int32_t r = s0[x0 + RO] + s0[x1 + RO] + s1[x0 + RO] + s1[x1 + RO];
        const int32_t g = s0[x0 + GO] + s0[x1 + GO] + s1[x0 + GO] + s1[x1 + GO];
        const int32_t b = s0[x0 + BO] + s0[x1 + BO] + s1[x0 + BO] + s1[x1 + BO];
        const int32_t d = bias[cx & 3];
        u[cx * cstep] = Clamp255((off + k.ur * r + k.ug * g + k.ub * b + d) >> 18);
        v[cx * cstep] = Clamp255((off + k.vr * r + k.vg * g + k.vb * b + d) >> 18);
    }
}

template <int BPP, int RO, int GO, int BO>
void EncodeOwnT(const Img& src, const Img& dst, bool dither) {
    const EncCoef k = MakeEncCoef(MatrixOf(dst.cs));
    const YuvPlanes yp = PlanesOf(dst);
    int32_t bias[4];
    for (int r = 0; r < src.h; ++r) {
        RoundingRow(dither, r, 16, bias);
        EncodeLumaRow<BPP, RO, GO, BO>(src.p[0] + static_cast<ptrdiff_t>(r) * src.s[0],
                                       yp.y + static_cast<ptrdiff_t>(r) * yp.sy, src.w, k, bias);
    }
    for (int cr = 0; cr < (src.h + 1) / 2; ++cr) {
        RoundingRow(dither, cr, 18, bias);
        const int r0 = 2 * cr;
        const int r1 = std::min(r0 + 1, src.h - 1);
        EncodeChromaRow<BPP, RO, GO, BO>(src.p[0] + static_cast<ptrdiff_t>(r0) * src.s[0],
                                         src.p[0] + static_cast<ptrdiff_t>(r1) * src.s[0],
                                         yp.u + static_cast<ptrdiff_t>(cr) * yp.su,
                                         yp.v + static_cast<ptrdiff_t>(cr) * yp.sv, yp.cstep,
                                         src.w, k, bias);
    }
}

void EncodeOwn(const Img& src, const Img& dst, bool dither) {
    switch (src.fmt) {
        case ZOCA_CF_RGB:
            return EncodeOwnT<3, 0, 1, 2>(src, dst, dither);
        case ZOCA_CF_BGR:
            return EncodeOwnT<3, 2, 1, 0>(src, dst, dither);
        case ZOCA_CF_RGBA:
            return EncodeOwnT<4, 0, 1, 2>(src, dst, dither);
        case ZOCA_CF_BGRA:
            return EncodeOwnT<4, 2, 1, 0>(src, dst, dither);
        default:
            return EncodeOwnT<4, 1, 2, 3>(src, dst, dither);
    }
}

// libyuv has RGB -> YUV only for the BT.601 matrix (limited, and full for I420).
bool EncodeLibyuv(const Img& src, const Img& dst) {
    const Matrix m = MatrixOf(dst.cs);
    if (m.id != MatrixId::BT601) return false;
    const uint8_t* s = src.p[0];
    const int ss = src.s[0];
    const int w = src.w;
    const int h = src.h;
    uint8_t* y = dst.p[0];
    const int sy = dst.s[0];
    if (LayoutOf(dst.fmt) == Layout::I420) {
        uint8_t* u = dst.p[1];
        uint8_t* v = dst.p[2];
        const int su = dst.s[1];
        const int sv = dst.s[2];
        if (m.full) {
            switch (src.fmt) {
                case ZOCA_CF_BGRA:
                    return libyuv::ARGBToJ420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
                case ZOCA_CF_RGBA:
                    return libyuv::ABGRToJ420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
                case ZOCA_CF_BGR:
                    return libyuv::RGB24ToJ420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
                case ZOCA_CF_RGB:
                    return libyuv::RAWToJ420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
                default:
                    return false;
            }
        }
        switch (src.fmt) {
            case ZOCA_CF_BGRA:
                return libyuv::ARGBToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            case ZOCA_CF_RGBA:
                return libyuv::ABGRToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            case ZOCA_CF_ARGB:
                return libyuv::BGRAToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            case ZOCA_CF_BGR:
                return libyuv::RGB24ToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            case ZOCA_CF_RGB:
                return libyuv::RAWToI420(s, ss, y, sy, u, su, v, sv, w, h) == 0;
            default:
                return false;
        }
    }
    if (m.full) return false;
    uint8_t* c = dst.p[1];
    const int sc = dst.s[1];
    const bool nv12 = LayoutOf(dst.fmt) == Layout::NV12;
    switch (src.fmt) {
        case ZOCA_CF_BGRA:
            return (nv12 ? libyuv::ARGBToNV12(s, ss, y, sy, c, sc, w, h)
                         : libyuv::ARGBToNV21(s, ss, y, sy, c, sc, w, h)) == 0;
        case ZOCA_CF_RGBA:
            return (nv12 ? libyuv::ABGRToNV12(s, ss, y, sy, c, sc, w, h)
                         : libyuv::ABGRToNV21(s, ss, y, sy, c, sc, w, h)) == 0;
        default:
            return false;
    }
}

// ---- plain copies and rearrangements ----

void CopyImage(const Img& src, const Img& dst) {
    for (int p = 0; p < PlaneCount(src.fmt); ++p) {
        libyuv::CopyPlane(src.p[p], src.s[p], dst.p[p], dst.s[p], RowBytes(src.fmt, p, src.w),
                          PlaneRows(src.fmt, p, src.h));
    }
}

// YUV to YUV with the same matrix and range: only the chroma arrangement changes.
void Repack(const Img& src, const Img& dst) {
    const int w = src.w;
    const int h = src.h;
    const int cw = (w + 1) / 2;
    const int ch = (h + 1) / 2;
    const Layout sl = LayoutOf(src.fmt);
    const Layout dl = LayoutOf(dst.fmt);
    if (sl == dl) return CopyImage(src, dst);
    if (sl == Layout::I420) {
        if (dl == Layout::NV12) {
            libyuv::I420ToNV12(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2],
                               dst.p[0], dst.s[0], dst.p[1], dst.s[1], w, h);
        } else {
            libyuv::I420ToNV21(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2],
                               dst.p[0], dst.s[0], dst.p[1], dst.s[1], w, h);
        }
        return;
    }
    if (dl == Layout::I420) {
        if (sl == Layout::NV12) {
            libyuv::NV12ToI420(src.p[0], src.s[0], src.p[1], src.s[1], dst.p[0], dst.s[0],
                               dst.p[1], dst.s[1], dst.p[2], dst.s[2], w, h);
        } else {
            libyuv::NV21ToI420(src.p[0], src.s[0], src.p[1], src.s[1], dst.p[0], dst.s[0],
                               dst.p[1], dst.s[1], dst.p[2], dst.s[2], w, h);
        }
        return;
    }
    libyuv::CopyPlane(src.p[0], src.s[0], dst.p[0], dst.s[0], w, h);
    libyuv::SwapUVPlane(src.p[1], src.s[1], dst.p[1], dst.s[1], cw, ch);
}

// Packed to packed without an intermediate; false when the pair needs one.
bool ShufflePacked(const Img& src, const Img& dst) {
    const PackedOrder so = OrderOf(src.fmt);
    const PackedOrder dord = OrderOf(dst.fmt);
    const uint8_t* s = src.p[0];
    const int ss = src.s[0];
    uint8_t* d = dst.p[0];
    const int ds = dst.s[0];
    if (src.fmt == dst.fmt) {
        CopyImage(src, dst);
        return true;
    }
    if (so.bpp == 4 && dord.bpp == 4) {
        uint8_t mask[16];
        for (int px = 0; px < 4; ++px) {
            mask[px * 4 + dord.r] = static_cast<uint8_t>(px * 4 + so.r);
            mask[px * 4 + dord.g] = static_cast<uint8_t>(px * 4 + so.g);
            mask[px * 4 + dord.b] = static_cast<uint8_t>(px * 4 + so.b);
            mask[px * 4 + dord.a] = static_cast<uint8_t>(px * 4 + so.a);
        }
        return libyuv::ARGBShuffle(s, ss, d, ds, mask, src.w, src.h) == 0;
    }
    if (so.bpp == 3 && dord.bpp == 3) {
        return libyuv::RAWToRGB24(s, ss, d, ds, src.w, src.h) == 0;
    }
    if (dst.fmt == ZOCA_CF_BGRA) {
        return (src.fmt == ZOCA_CF_RGB ? libyuv::RAWToARGB(s, ss, d, ds, src.w, src.h)
                                       : libyuv::RGB24ToARGB(s, ss, d, ds, src.w, src.h)) == 0;
    }
    if (src.fmt == ZOCA_CF_BGRA) {
        return (dst.fmt == ZOCA_CF_RGB ? libyuv::ARGBToRAW(s, ss, d, ds, src.w, src.h)
                                       : libyuv::ARGBToRGB24(s, ss, d, ds, src.w, src.h)) == 0;
    }
    return false;
}

}  // namespace

Img SubRows(const Img& img, int r0, int rows) {
    Img out = img;
    out.h = rows;
    for (int p = 0; p < PlaneCount(img.fmt); ++p) {
        const int pr = p == 0 ? r0 : r0 / 2;
        out.p[p] = img.p[p] + static_cast<ptrdiff_t>(pr) * img.s[p];
    }
    return out;
}

int Convert(const Img& src, const Img& dst, bool dither) {
    const bool src_yuv = IsYuv(src.fmt);
    const bool dst_yuv = IsYuv(dst.fmt);
    if (src_yuv && dst_yuv) {
        if (SameMatrix(src.cs, dst.cs)) {
            Repack(src, dst);
            return ZOCA_OK;
        }
        return ConvertThrough(src, dst, nullptr, dither);
    }
    if (src_yuv) {
        if (!dither && DecodeLibyuv(src, dst)) return ZOCA_OK;
        DecodeOwn(src, dst, dither);
        return ZOCA_OK;
    }
    if (dst_yuv) {
        if (!dither && EncodeLibyuv(src, dst)) return ZOCA_OK;
        EncodeOwn(src, dst, dither);
        return ZOCA_OK;
    }
    if (ShufflePacked(src, dst)) return ZOCA_OK;
    return ConvertThrough(src, dst, nullptr, dither);
}

int ConvertThrough(const Img& src, const Img& dst, const PixelStage* stage, bool dither) {
    // A B,G,R,A destination is its own strip buffer.
    const bool direct = dst.fmt == ZOCA_CF_BGRA;
    OwnedImg strip;
    if (!direct) {
        strip = MakeImage(ZOCA_CF_BGRA, src.w, std::min(kStripRows, src.h), dst.cs);
        if (!strip.mem) return ZOCA_ERR_DESTINATION;
    }
    for (int r0 = 0; r0 < src.h; r0 += kStripRows) {
        const int rows = std::min(kStripRows, src.h - r0);
        const Img out = SubRows(dst, r0, rows);
        const Img hub = direct ? out : SubRows(strip.img, 0, rows);
        Convert(SubRows(src, r0, rows), hub, dither);
        if (stage != nullptr) stage->Run(hub.p[0], hub.s[0], hub.w, rows);
        if (!direct) Convert(hub, out, dither);
    }
    return ZOCA_OK;
}

}  // namespace zoca
