// vexa_rot, vexa_rsz, vexa_rsz_rot, vexa_csc_rot and vexa_crop on every format.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "TestImage.h"
#include "geometry.h"

using namespace zt;

namespace {

// Bytes per sample unit of plane p (a pixel, or a Cb,Cr pair in NV12/NV21).
int UnitBytes(int fmt, int p) {
    if (p == 0) return Bpp(fmt);
    return fmt == ZOCA_CF_I420 ? 1 : 2;
}

// Where dst sample (dx, dy) of a plane of pw x ph units comes from: 270 and 90 degrees
// clockwise, 180, left-right and top-bottom mirrors.
std::pair<int, int> SourceOf(int code, int dx, int dy, int pw, int ph) {
    const std::pair<int, int> from[] = {{dx, dy},          {pw - 1 - dy, dx},
                                        {dy, ph - 1 - dx}, {pw - 1 - dx, ph - 1 - dy},
                                        {pw - 1 - dx, dy}, {dx, ph - 1 - dy}};
    return from[code];
}

// Every plane turned as a grid of sample units.
void ExpectTurned(TestImage& src, int code, TestImage& dst) {
    for (int p = 0; p < src.planes(); ++p) {
        const int pw = src.rec.width[p];
        const int ph = src.rec.height[p];
        const int ub = UnitBytes(src.fmt(), p);
        for (int dy = 0; dy < dst.rec.height[p]; ++dy) {
            for (int dx = 0; dx < dst.rec.width[p]; ++dx) {
                const auto s = SourceOf(code, dx, dy, pw, ph);
                ASSERT_EQ(0, std::memcmp(dst.Row(p, dy) + dx * ub,
                                         src.Row(p, s.second) + s.first * ub, ub))
                    << "plane " << p << " at " << dx << "," << dy;
            }
        }
    }
}

TEST(Rotate, EveryCodeMovesSamplesAsDefined) {
    for (int fmt : kAllFormats) {
        for (int code = 0; code <= 5; ++code) {
            for (auto size : {std::pair<int, int>{12, 8}, {13, 7}}) {
                SCOPED_TRACE(FormatName(fmt) + " code " + std::to_string(code) + " " +
                             std::to_string(size.first) + "x" + std::to_string(size.second));
                const int w = size.first;
                const int h = size.second;
                TestImage src(fmt, w, h, 0, 3);
                TestImage dst(fmt, zoca::SwapsAxes(code) ? h : w, zoca::SwapsAxes(code) ? w : h, 0,
                              2);
                src.FillNoise(fmt + 13 * code + w);
                ASSERT_EQ(vexa_rot(src.r(), code, dst.r()), ZOCA_OK);
                ExpectTurned(src, code, dst);
                EXPECT_TRUE(dst.PaddingIntact());
            }
        }
    }
}

// ---- resampling, against filters written from their formulas ----

double Lanczos3(double x) {
    const double px = M_PI * std::fabs(x);
    if (px < 1e-12 || px >= 3 * M_PI) return px < 1e-12 ? 1 : 0;
    return 3 * std::sin(px) * std::sin(px / 3) / (px * px);
}

double CatmullRom(double x) {
    x = std::fabs(x);
    if (x < 1) return (1.5 * x - 2.5) * x * x + 1;
    return x < 2 ? ((-0.5 * x + 2.5) * x - 4) * x + 2 : 0;
}

// A plane of one channel as doubles.
struct Plane {
    int w, h;
    std::vector<double> v;
};

// Resamples along x (the plane is transposed on the way out, so two calls do both axes):
// output j sits at (j + 0.5) * span / n - 0.5, a shrinking filter is widened by the
// ratio, and samples past the ends mirror back in.
Plane Resample1(const Plane& in, double span, int n, bool shrink) {
    const double scale = std::max(1.0, span / n), support = (shrink ? 3 : 2) * scale;
    Plane out{in.h, n, std::vector<double>(static_cast<size_t>(n) * in.h)};
    for (int j = 0; j < n; ++j) {
        const double c = (j + 0.5) * span / n - 0.5;
        for (int y = 0; y < in.h; ++y) {
            double sum = 0, wsum = 0;
            for (int k = static_cast<int>(std::floor(c - support)); k <= c + support; ++k) {
                const double w = shrink ? Lanczos3((k - c) / scale) : CatmullRom((k - c) / scale);
                int m = k;
                while (m < 0 || m >= in.w) m = m < 0 ? -m - 1 : 2 * in.w - 1 - m;
                sum += w * in.v[static_cast<size_t>(y) * in.w + m];
                wsum += w;
            }
            out.v[static_cast<size_t>(j) * in.h + y] = sum / wsum;
        }
    }
    return out;
}

// Channel c of plane p (c counts bytes within a sample unit).
Plane Channel(TestImage& img, int p, int c) {
    const int unit = p == 0 ? Bpp(img.fmt()) : (img.fmt() == ZOCA_CF_I420 ? 1 : 2);
    Plane out{img.rec.width[p], img.rec.height[p], {}};
    for (int y = 0; y < out.h; ++y)
        for (int x = 0; x < out.w; ++x) out.v.push_back(img.Row(p, y)[x * unit + c]);
    return out;
}

// Every channel of every plane within `tol` codes of the reference filters. 4:2:0
// chroma keeps its siting: the destination's chroma plane spans 2 * dcw of its luma
// columns, that is 2 * dcw * sw / dw source luma columns.
void ExpectResampled(TestImage& src, TestImage& dst, int tol) {
    const bool shrink = dst.w() < src.w() || dst.h() < src.h();
    for (int p = 0; p < src.planes(); ++p) {
        const int units = p == 0 ? Bpp(src.fmt()) : (src.fmt() == ZOCA_CF_I420 ? 1 : 2);
        const int dw = dst.rec.width[p], dh = dst.rec.height[p];
        const double rw = p == 0 ? src.w() : double(dw) * src.w() / dst.w();
        const double rh = p == 0 ? src.h() : double(dh) * src.h() / dst.h();
        for (int c = 0; c < units; ++c) {
            const Plane want =
                Resample1(Resample1(Channel(src, p, c), rw, dw, shrink), rh, dh, shrink);
            const Plane got = Channel(dst, p, c);
            for (size_t i = 0; i < got.v.size(); ++i) {
                ASSERT_NEAR(got.v[i], std::min(255.0, std::max(0.0, want.v[i])), tol)
                    << "plane " << p << " channel " << c << " at " << i % dw << "," << i / dw;
            }
        }
    }
}

// Every kernel build (plain, AVX2, AVX-512) gives the same bytes, at odd widths and
// partial vectors, and writes nothing past a row; the wide cases reach the vector paths
// (2:1 and 3:2 tap patterns, enlarging through the ring of rows, one-axis passes), and
// the exact 2:1 shrinks their own path, with its edges and one-row interiors.
TEST(Resize, MatchesTheFilterAtEveryRatio) {
    struct Case {
        int fmt, sw, sh, dw, dh, pad;
    } const cases[] = {
        {ZOCA_CF_I420, 37, 23, 12, 23, 3},   {ZOCA_CF_NV12, 61, 45, 40, 30, 1},
        {ZOCA_CF_NV21, 97, 53, 31, 17, 0},   {ZOCA_CF_RGB, 64, 48, 21, 48, 5},
        {ZOCA_CF_BGR, 33, 17, 100, 51, 2},   {ZOCA_CF_RGBA, 4000, 3, 1, 3, 0},
        {ZOCA_CF_BGRA, 1, 5, 4000, 5, 1},    {ZOCA_CF_ARGB, 5, 4000, 5, 1, 2},
        {ZOCA_CF_I420, 1, 40, 1, 13, 2},     {ZOCA_CF_NV12, 41, 1, 17, 1, 0},
        {ZOCA_CF_NV12, 8, 1, 6, 4000, 3},    {ZOCA_CF_RGBA, 19, 11, 57, 44, 0},
        {ZOCA_CF_NV21, 33, 17, 33, 17, 4},   {ZOCA_CF_I420, 122, 64, 90, 40, 6},
        {ZOCA_CF_NV12, 502, 86, 251, 43, 5}, {ZOCA_CF_RGBA, 301, 63, 201, 42, 3},
        {ZOCA_CF_RGBA, 130, 21, 390, 61, 1}, {ZOCA_CF_BGR, 333, 9, 111, 9, 2},
        {ZOCA_CF_ARGB, 77, 90, 77, 31, 3},   {ZOCA_CF_I420, 270, 31, 180, 93, 1},
        {ZOCA_CF_RGBA, 266, 70, 133, 35, 2}, {ZOCA_CF_I420, 390, 26, 195, 13, 1},
        {ZOCA_CF_NV21, 154, 40, 77, 20, 3},  {ZOCA_CF_BGRA, 24, 24, 12, 12, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(FormatName(c.fmt) + " " + std::to_string(c.sw) + "x" + std::to_string(c.sh) +
                     " to " + std::to_string(c.dw) + "x" + std::to_string(c.dh));
        TestImage src(c.fmt, c.sw, c.sh, 0, c.pad), plain(c.fmt, c.dw, c.dh, 0, c.pad);
        // Noise within 48..207: filter overshoots stay inside 0..255 and clamp nowhere.
        src.FillNoise(c.sw * 31 + c.dh);
        for (int p = 0; p < src.planes(); ++p)
            for (int y = 0; y < src.rec.height[p]; ++y)
                for (int x = 0; x < src.RowBytes(p); ++x)
                    src.Row(p, y)[x] = 48 + src.Row(p, y)[x] * 5 / 8;
        ASSERT_EQ(vexa_rsz(src.r(), plain.r()), ZOCA_OK);  // the best build
        // 14-bit weights: a 4000-to-1 filter's tiny weights round coarser.
        ExpectResampled(src, plain, std::max({c.sw, c.sh, c.dw, c.dh}) >= 4000 ? 2 : 1);
        for (zoca::Simd simd : {zoca::Simd::Plain, zoca::Simd::Avx2, zoca::Simd::Avx512}) {
            if (!zoca::Supported(simd)) continue;
            TestImage dst(c.fmt, c.dw, c.dh, 0, c.pad);
            zoca::Img s, d;
            ASSERT_EQ(zoca::CheckRecord(src.r(), true, &s) | zoca::CheckRecord(dst.r(), true, &d),
                      0);
            ASSERT_EQ(zoca::Scale(s, d, simd), ZOCA_OK);
            EXPECT_TRUE(dst.SameContent(plain)) << "build " << static_cast<int>(simd);
            EXPECT_TRUE(dst.PaddingIntact());
        }
    }
}

// A 600x600 zone plate (local frequency x / 600 cycles per pixel along x, likewise y)
// shrunk: where the source frequency is well above the destination's Nyquist limit
// the result is flat grey, not false rings; well below it the plate survives. A step
// edge stays where it was: the centroid of the result's steps, taken back to source
// columns, lies within 0.05 pixel of the edge, in luma and in chroma.
TEST(Resize, AntiAliasedAndCentred) {
    const int n = 600;
    auto plate = [n](double x, double y) {
        x -= n / 2.0 - 0.5, y -= n / 2.0 - 0.5;
        return 128 + 100 * std::cos(M_PI * (x * x + y * y) / n);
    };
    for (int fmt : {ZOCA_CF_NV12, ZOCA_CF_RGBA}) {
        for (auto sz : {std::pair<int, int>{200, 600}, {400, 400}, {247, 331}}) {
            SCOPED_TRACE(FormatName(fmt) + " to " + std::to_string(sz.first));
            TestImage src(fmt, n, n), dst(fmt, sz.first, sz.second);
            for (int y = 0; y < n; ++y)
                for (int x = 0; x < n; ++x) {
                    const int v = static_cast<int>(std::lround(plate(x, y)));
                    IsYuv(fmt) ? void(src.Y(x, y) = uint8_t(v)) : src.SetRgb(x, y, {v, v, v});
                }
            ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
            const double kx = double(n) / sz.first, ky = double(n) / sz.second;
            double se[2] = {0, 0}, count[2] = {0, 0};  // stop band, pass band
            for (int y = 0; y < sz.second; ++y)
                for (int x = 0; x < sz.first; ++x) {
                    const double sx = (x + 0.5) * kx - 0.5, sy = (y + 0.5) * ky - 0.5;
                    // Source frequency over the destination's Nyquist limit.
                    const double f = std::max(std::fabs(sx - n / 2.0 + 0.5) * 2 * kx,
                                              std::fabs(sy - n / 2.0 + 0.5) * 2 * ky) /
                                     n;
                    const int v = IsYuv(fmt) ? dst.Y(x, y) : dst.GetRgb(x, y).g;
                    const double e = f > 1.3 ? v - 128 : v - plate(sx, sy);
                    if (f > 1.3 || f < 0.5) se[f < 0.5] += e * e, ++count[f < 0.5];
                }
            EXPECT_LT(std::sqrt(se[0] / count[0]), 6.0);  // aliased rings: about 70
            EXPECT_LT(std::sqrt(se[1] / count[1]), 4.0);
        }
    }
    const int sw = 512, edge = 250;  // luma edge at 250, chroma edge at chroma 62 = luma 124
    for (int fmt : {ZOCA_CF_I420, ZOCA_CF_NV12, ZOCA_CF_BGR}) {
        for (int dw : {256, 200, 192, 171, 700}) {
            SCOPED_TRACE(FormatName(fmt) + " to " + std::to_string(dw));
            TestImage src(fmt, sw, 4), dst(fmt, dw, 4);
            const Rgb lo{30, 30, 30}, hi{220, 220, 220};
            IsYuv(fmt)
                ? src.FillYuv([](int x, int, uint8_t& v) { v = x < edge ? 30 : 220; },
                              [](int x, int, uint8_t& u, uint8_t& v) { u = v = x < 62 ? 40 : 210; })
                : src.FillRgb([&](int x, int) { return x < edge ? lo : hi; });
            ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
            auto centroid = [&](int p, int unit, int width, double luma_per_sample) {
                double m = 0, sum = 0;
                for (int x = 0; x + 1 < width; ++x) {
                    const double d = dst.Row(p, 1)[(x + 1) * unit] - dst.Row(p, 1)[x * unit];
                    m += d * (x + 1), sum += d;
                }
                return m / sum * luma_per_sample * sw / dw;
            };
            EXPECT_NEAR(centroid(0, Bpp(fmt), dw, 1), edge, 0.05);
            const int cu = fmt == ZOCA_CF_I420 ? 1 : 2;  // (packed: no chroma plane)
            EXPECT_NEAR(IsYuv(fmt) ? centroid(1, cu, (dw + 1) / 2, 2) : 124, 124, 0.05);
        }
    }
}

// Resizing into another format shows the same picture as converting at full size
// and then resizing, in both directions and at odd sizes.
TEST(Resize, ConvertsWhenFormatsDiffer) {
    struct Case {
        int sf, sw, sh, df, dw, dh;
    };
    const Case cases[] = {{ZOCA_CF_NV12, 1919, 1081, ZOCA_CF_RGBA, 1280, 720},
                          {ZOCA_CF_RGBA, 321, 181, ZOCA_CF_NV12, 640, 361},
                          {ZOCA_CF_I420, 200, 100, ZOCA_CF_BGR, 99, 51},
                          {ZOCA_CF_ARGB, 99, 51, ZOCA_CF_NV21, 200, 100}};
    for (const Case& c : cases) {
        SCOPED_TRACE(FormatName(c.sf) + "->" + FormatName(c.df));
        TestImage rgb(ZOCA_CF_RGBA, c.sw, c.sh, 1), src(c.sf, c.sw, c.sh, 1, 3);
        rgb.FillRgb([&](int x, int y) { return SmoothPattern(x, y, c.sw, c.sh); });
        ASSERT_EQ(vexa_csc(rgb.r(), src.r()), ZOCA_OK);
        TestImage dst(c.df, c.dw, c.dh, 1, 2), conv(c.df, c.sw, c.sh, 1), ref(c.df, c.dw, c.dh, 1);
        ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
        EXPECT_TRUE(dst.PaddingIntact());
        // Reference: convert at source size, resize in the destination format.
        ASSERT_EQ(vexa_csc(src.r(), conv.r()), ZOCA_OK);
        ASSERT_EQ(vexa_rsz(conv.r(), ref.r()), ZOCA_OK);
        TestImage a(ZOCA_CF_RGB, c.dw, c.dh, 1), b(ZOCA_CF_RGB, c.dw, c.dh, 1);
        ASSERT_EQ(vexa_csc(dst.r(), a.r()), ZOCA_OK);
        ASSERT_EQ(vexa_csc(ref.r(), b.r()), ZOCA_OK);
        EXPECT_GT(PsnrRgb(a, b), 34.0);
    }
}

// ---- combined operations ----

// The fused calls give the bytes of their two steps: resize (or convert), then turn.
TEST(Combined, FusedCallsMatchTheirSteps) {
    struct Case {
        int sf, df, sw, sh, w, h;  // w x h: the upright size after the first step
        bool resize;
    };
    const Case cases[] = {{ZOCA_CF_NV12, ZOCA_CF_NV12, 90, 60, 45, 31, true},
                          {ZOCA_CF_I420, ZOCA_CF_I420, 90, 60, 45, 31, true},
                          {ZOCA_CF_RGB, ZOCA_CF_RGB, 90, 60, 45, 31, true},
                          {ZOCA_CF_NV12, ZOCA_CF_RGBA, 64, 36, 32, 18, true},
                          {ZOCA_CF_NV12, ZOCA_CF_RGBA, 31, 19, 31, 19, false},
                          {ZOCA_CF_RGBA, ZOCA_CF_NV12, 31, 19, 31, 19, false},
                          {ZOCA_CF_I420, ZOCA_CF_NV21, 31, 19, 31, 19, false},
                          {ZOCA_CF_BGR, ZOCA_CF_ARGB, 31, 19, 31, 19, false},
                          {ZOCA_CF_NV21, ZOCA_CF_NV21, 31, 19, 31, 19, false}};
    for (const Case& c : cases) {
        for (int code = 0; code <= 5; ++code) {
            SCOPED_TRACE(FormatName(c.sf) + "->" + FormatName(c.df) + " code " +
                         std::to_string(code) + (c.resize ? " resized" : ""));
            const bool swap = zoca::SwapsAxes(code);
            TestImage src(c.sf, c.sw, c.sh, 1, 4);
            src.FillNoise(code * 3 + c.sf + c.w);
            const int tw = swap ? c.h : c.w, th = swap ? c.w : c.h;
            TestImage mid(c.df, c.w, c.h, 1), want(c.df, tw, th, 1), got(c.df, tw, th, 1, 2);
            ASSERT_EQ(c.resize ? vexa_rsz(src.r(), mid.r()) : vexa_csc(src.r(), mid.r()), ZOCA_OK);
            ASSERT_EQ(vexa_rot(mid.r(), code, want.r()), ZOCA_OK);
            ASSERT_EQ(c.resize ? vexa_rsz_rot(src.r(), code, got.r())
                               : vexa_csc_rot(src.r(), code, got.r()),
                      ZOCA_OK);
            EXPECT_TRUE(got.SameContent(want));
            EXPECT_TRUE(got.PaddingIntact());
        }
    }
}

// ---- crop ----

// Luma and packed pixels are copied byte for byte; 4:2:0 chroma equals the chroma of
// the cropped full-colour picture: copied at even origins, within one code on smooth
// content at odd ones (where it is resampled by half a sample).
TEST(Crop, KeepsLumaExactAndChromaOnItsLuma) {
    struct Region {
        int x, y, w, h;
    };
    const Region regions[] = {{0, 0, 45, 29}, {4, 6, 20, 10}, {3, 5, 17, 9},
                              {44, 28, 1, 1}, {1, 0, 44, 29}, {2, 1, 9, 8}};
    for (int fmt : kAllFormats) {
        for (const Region& rg : regions) {
            SCOPED_TRACE(FormatName(fmt) + " at " + std::to_string(rg.x) + "," +
                         std::to_string(rg.y) + " width " + std::to_string(rg.w));
            TestImage rgb(ZOCA_CF_RGB, 45, 29), src(fmt, 45, 29, 0, 3), dst(fmt, rg.w, rg.h, 0, 2);
            rgb.FillRgb([](int x, int y) { return SmoothPattern(x, y, 90, 58); });
            ASSERT_EQ(vexa_csc(rgb.r(), src.r()), ZOCA_OK);
            src.rec.startX = rgb.rec.startX = rg.x;
            src.rec.startY = rgb.rec.startY = rg.y;
            ASSERT_EQ(vexa_crop(src.r(), dst.r()), ZOCA_OK);
            for (int y = 0; y < rg.h; ++y) {
                const uint8_t* from = src.Row(0, rg.y + y) + rg.x * Bpp(fmt);
                ASSERT_EQ(0, std::memcmp(dst.Row(0, y), from, rg.w * Bpp(fmt))) << "row " << y;
            }
            EXPECT_TRUE(dst.PaddingIntact());
            if (!IsYuv(fmt)) continue;
            TestImage part(ZOCA_CF_RGB, rg.w, rg.h), want(fmt, rg.w, rg.h);
            ASSERT_EQ(vexa_crop(rgb.r(), part.r()), ZOCA_OK);
            ASSERT_EQ(vexa_csc(part.r(), want.r()), ZOCA_OK);
            for (int y = 0; y < (rg.h + 1) / 2; ++y)
                for (int x = 0; x < (rg.w + 1) / 2; ++x) {
                    if (rg.x % 2 == 0 && rg.y % 2 == 0) {
                        ASSERT_EQ(dst.U(x, y), src.U(rg.x / 2 + x, rg.y / 2 + y));
                        ASSERT_EQ(dst.V(x, y), src.V(rg.x / 2 + x, rg.y / 2 + y));
                    } else if (2 * x + 1 < rg.w && 2 * y + 1 < rg.h) {
                        // (the last sample of an odd side averages a single column or row)
                        ASSERT_NEAR(dst.U(x, y), want.U(x, y), 1) << x << "," << y;
                        ASSERT_NEAR(dst.V(x, y), want.V(x, y), 1) << x << "," << y;
                    }
                }
        }
    }
}

}  // namespace
