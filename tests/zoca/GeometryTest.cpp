// vexa_rot, vexa_rsz, vexa_rsz_rot, vexa_csc_rot and vexa_crop on every format.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "TestImage.h"

using namespace zt;

namespace {

bool Swaps(int code) {
    return code == ZOCA_ROT_90 || code == ZOCA_ROT_270;
}

// Bytes per sample unit of plane p (a pixel, or a Cb,Cr pair in NV12/NV21).
int UnitBytes(int fmt, int p) {
    if (p == 0) return Bpp(fmt);
    return fmt == ZOCA_CF_I420 ? 1 : 2;
}

// Where dst sample (dx, dy) of a plane of pw x ph units comes from.
std::pair<int, int> SourceOf(int code, int dx, int dy, int pw, int ph) {
    switch (code) {
        case ZOCA_ROT_270:  // 270 degrees clockwise
            return {pw - 1 - dy, dx};
        case ZOCA_ROT_90:  // 90 degrees clockwise
            return {dy, ph - 1 - dx};
        case ZOCA_ROT_180:
            return {pw - 1 - dx, ph - 1 - dy};
        case ZOCA_ROT_MIRROR_H:
            return {pw - 1 - dx, dy};
        case ZOCA_ROT_MIRROR_V:
            return {dx, ph - 1 - dy};
        default:
            return {dx, dy};
    }
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
                TestImage dst(fmt, Swaps(code) ? h : w, Swaps(code) ? w : h, 0, 2);
                src.FillNoise(fmt + 13 * code + w);
                ASSERT_EQ(vexa_rot(src.r(), code, dst.r()), ZOCA_OK);
                ExpectTurned(src, code, dst);
                EXPECT_TRUE(dst.PaddingIntact());
            }
        }
    }
}

// Clockwise, stated plainly: after a quarter turn right the top-left corner is at the
// top-right; after three quarters it is at the bottom-left.
TEST(Rotate, QuarterTurnsAreClockwise) {
    TestImage src(ZOCA_CF_RGBA, 4, 2);
    src.FillRgb([](int, int) { return Rgb{0, 0, 0}; });
    src.SetRgb(0, 0, {255, 0, 0});
    TestImage right(ZOCA_CF_RGBA, 2, 4);
    TestImage left(ZOCA_CF_RGBA, 2, 4);
    ASSERT_EQ(vexa_rot(src.r(), ZOCA_ROT_90, right.r()), ZOCA_OK);
    ASSERT_EQ(vexa_rot(src.r(), ZOCA_ROT_270, left.r()), ZOCA_OK);
    EXPECT_EQ(right.GetRgb(1, 0).r, 255);
    EXPECT_EQ(left.GetRgb(0, 3).r, 255);
}

// ---- scaling ----

TEST(Resize, SameSizeAndFormatIsACopy) {
    for (int fmt : kAllFormats) {
        SCOPED_TRACE(FormatName(fmt));
        TestImage src(fmt, 33, 17, 0, 4);
        TestImage dst(fmt, 33, 17, 20, 1);  // a different code does not matter here
        src.FillNoise(fmt);
        ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
        EXPECT_TRUE(dst.SameContent(src));
        EXPECT_TRUE(dst.PaddingIntact());
    }
}

// ---- resampling, against filters written from their formulas ----

double Lanczos3(double x) {
    x = std::fabs(x);
    if (x < 1e-12) return 1;
    if (x >= 3) return 0;
    const double px = M_PI * x;
    return 3 * std::sin(px) * std::sin(px / 3) / (px * px);
}

double CatmullRom(double x) {
    x = std::fabs(x);
    if (x < 1) return (1.5 * x - 2.5) * x * x + 1;
    return x < 2 ? ((-0.5 * x + 2.5) * x - 4) * x + 2 : 0;
}

// One axis: n outputs from the source span [left, left + span). Output j sits at
// left + (j + 0.5) * span / n - 0.5; a shrinking filter is widened by the ratio;
// samples past the ends mirror back in.
std::vector<double> Resample1(const std::vector<double>& in, double left, double span, int n,
                              bool shrink) {
    const double scale = std::max(1.0, span / n);
    const double support = (shrink ? 3 : 2) * scale;
    const int len = static_cast<int>(in.size());
    std::vector<double> out(n);
    for (int j = 0; j < n; ++j) {
        const double c = left + (j + 0.5) * span / n - 0.5;
        double sum = 0, wsum = 0;
        for (int k = static_cast<int>(std::floor(c - support)); k <= c + support; ++k) {
            const double w = shrink ? Lanczos3((k - c) / scale) : CatmullRom((k - c) / scale);
            int m = k;
            while (m < 0 || m >= len) m = m < 0 ? -m - 1 : 2 * len - 1 - m;
            sum += w * in[m];
            wsum += w;
        }
        out[j] = sum / wsum;
    }
    return out;
}

// A plane of samples as doubles, resampled in x then y.
struct Plane {
    int w, h;
    std::vector<double> v;
    double& at(int x, int y) { return v[static_cast<size_t>(y) * w + x]; }
};

Plane Resample2(Plane in, double rw, double rh, int dw, int dh, bool shrink) {
    Plane mid{dw, in.h, std::vector<double>(static_cast<size_t>(dw) * in.h)};
    for (int y = 0; y < in.h; ++y) {
        const std::vector<double> row(in.v.begin() + y * in.w, in.v.begin() + (y + 1) * in.w);
        const auto r = Resample1(row, 0, rw, dw, shrink);
        std::copy(r.begin(), r.end(), mid.v.begin() + y * dw);
    }
    Plane out{dw, dh, std::vector<double>(static_cast<size_t>(dw) * dh)};
    for (int x = 0; x < dw; ++x) {
        std::vector<double> col(in.h);
        for (int y = 0; y < in.h; ++y) col[y] = mid.at(x, y);
        const auto c = Resample1(col, 0, rh, dh, shrink);
        for (int y = 0; y < dh; ++y) out.at(x, y) = c[y];
    }
    return out;
}

// Channel c of plane p as doubles (c counts bytes within a sample unit).
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
        const double rw = p == 0 ? src.w() : double(dst.rec.width[p]) * src.w() / dst.w();
        const double rh = p == 0 ? src.h() : double(dst.rec.height[p]) * src.h() / dst.h();
        for (int c = 0; c < units; ++c) {
            const Plane want =
                Resample2(Channel(src, p, c), rw, rh, dst.rec.width[p], dst.rec.height[p], shrink);
            const Plane got = Channel(dst, p, c);
            for (size_t i = 0; i < got.v.size(); ++i) {
                const double w = std::min(255.0, std::max(0.0, want.v[i]));
                ASSERT_NEAR(got.v[i], w, tol)
                    << "plane " << p << " channel " << c << " at " << i % got.w << "," << i / got.w;
            }
        }
    }
}

TEST(Resize, MatchesTheFilterAtEveryRatio) {
    struct Case {
        int fmt, sw, sh, dw, dh, pad;
    };
    const Case cases[] = {
        {ZOCA_CF_I420, 37, 23, 12, 23, 3}, {ZOCA_CF_NV12, 61, 45, 40, 30, 1},
        {ZOCA_CF_NV21, 97, 53, 31, 17, 0}, {ZOCA_CF_RGB, 64, 48, 21, 48, 5},
        {ZOCA_CF_BGR, 33, 17, 100, 51, 2}, {ZOCA_CF_RGBA, 4000, 3, 1, 3, 0},
        {ZOCA_CF_BGRA, 1, 5, 4000, 5, 1},  {ZOCA_CF_ARGB, 5, 4000, 5, 1, 2},
        {ZOCA_CF_I420, 1, 40, 1, 13, 2},   {ZOCA_CF_NV12, 41, 1, 17, 1, 0},
        {ZOCA_CF_NV12, 8, 1, 6, 4000, 3},  {ZOCA_CF_RGBA, 19, 11, 57, 44, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(FormatName(c.fmt) + " " + std::to_string(c.sw) + "x" + std::to_string(c.sh) +
                     " to " + std::to_string(c.dw) + "x" + std::to_string(c.dh));
        TestImage src(c.fmt, c.sw, c.sh, 0, c.pad);
        TestImage dst(c.fmt, c.dw, c.dh, 0, c.pad);
        // Noise within 48..207: filter overshoots stay inside 0..255 and clamp nowhere.
        src.FillNoise(c.sw * 31 + c.dh);
        for (int p = 0; p < src.planes(); ++p)
            for (int y = 0; y < src.rec.height[p]; ++y)
                for (int x = 0; x < src.RowBytes(p); ++x)
                    src.Row(p, y)[x] = 48 + src.Row(p, y)[x] * 5 / 8;
        ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
        // zimg holds weights in 14 bits: a 4000-to-1 filter's tiny weights round coarser.
        ExpectResampled(src, dst, std::max({c.sw, c.sh, c.dw, c.dh}) >= 4000 ? 2 : 1);
        EXPECT_TRUE(dst.PaddingIntact());
    }
}

// A 600x600 zone plate (local frequency x / 600 cycles per pixel along x, likewise y)
// shrunk in x: where the source frequency is well above the destination's Nyquist
// limit the result is flat grey, not false rings; well below it the plate survives.
TEST(Resize, ZonePlateLosesItsRingsAboveNyquist) {
    const int n = 600;
    auto plate = [n](double x, double y) {
        x -= n / 2.0 - 0.5;
        y -= n / 2.0 - 0.5;
        return 128 + 100 * std::cos(M_PI * (x * x + y * y) / n);
    };
    for (int fmt : {ZOCA_CF_NV12, ZOCA_CF_RGBA}) {
        for (auto size : {std::pair<int, int>{200, 600}, {400, 400}, {247, 331}}) {
            SCOPED_TRACE(FormatName(fmt) + " to " + std::to_string(size.first) + "x" +
                         std::to_string(size.second));
            TestImage src(fmt, n, n);
            TestImage dst(fmt, size.first, size.second);
            for (int y = 0; y < n; ++y)
                for (int x = 0; x < n; ++x) {
                    const int v = static_cast<int>(std::lround(plate(x, y)));
                    if (IsYuv(fmt))
                        src.Y(x, y) = static_cast<uint8_t>(v);
                    else
                        src.SetRgb(x, y, {v, v, v});
                }
            ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
            const double kx = double(n) / size.first, ky = double(n) / size.second;
            double stop = 0, pass = 0;
            int ns = 0, np = 0;
            for (int y = 0; y < size.second; ++y)
                for (int x = 0; x < size.first; ++x) {
                    const double sx = (x + 0.5) * kx - 0.5, sy = (y + 0.5) * ky - 0.5;
                    // Source frequency over the destination's Nyquist limit, per axis.
                    const double fx = std::fabs(sx - n / 2.0 + 0.5) / n * 2 * kx;
                    const double fy = std::fabs(sy - n / 2.0 + 0.5) / n * 2 * ky;
                    const int v = IsYuv(fmt) ? dst.Y(x, y) : dst.GetRgb(x, y).g;
                    if (std::max(fx, fy) > 1.3) {
                        stop += (v - 128) * (v - 128), ++ns;
                    } else if (std::max(fx, fy) < 0.5) {
                        pass += (v - plate(sx, sy)) * (v - plate(sx, sy)), ++np;
                    }
                }
            ASSERT_GT(ns, 1000);
            EXPECT_LT(std::sqrt(stop / ns), 6.0);  // aliased rings: about 70
            EXPECT_LT(std::sqrt(pass / np), 4.0);
        }
    }
}

// A step edge stays where it was: the centroid of the result's differences, taken back
// to source columns, lies within 0.05 pixel of the edge, in luma and in chroma.
TEST(Resize, StepEdgesStayInPlace) {
    const int sw = 512, edge = 250;  // luma edge between columns 249 and 250
    for (int fmt : {ZOCA_CF_I420, ZOCA_CF_NV12, ZOCA_CF_BGR}) {
        for (int dw : {256, 200, 192, 171, 700}) {
            SCOPED_TRACE(FormatName(fmt) + " to " + std::to_string(dw));
            TestImage src(fmt, sw, 4);
            TestImage dst(fmt, dw, 4);
            if (IsYuv(fmt)) {
                // Chroma edge between chroma columns 61 and 62, that is at luma column 124.
                src.FillYuv([](int x, int, uint8_t& v) { v = x < edge ? 30 : 220; },
                            [](int x, int, uint8_t& u, uint8_t& v) { u = v = x < 62 ? 40 : 210; });
            } else {
                src.FillRgb([](int x, int) {
                    return x < edge ? Rgb{30, 30, 30} : Rgb{220, 220, 220};
                });
            }
            ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
            // Centroid of the steps of row 1 of plane p, channel c, in source luma columns.
            auto centroid = [&](int p, int unit, int width, double luma_per_sample) {
                double m = 0, sum = 0;
                for (int x = 0; x + 1 < width; ++x) {
                    const double d = dst.Row(p, 1)[(x + 1) * unit] - dst.Row(p, 1)[x * unit];
                    m += d * (x + 1);
                    sum += d;
                }
                return m / sum * luma_per_sample * sw / dw;
            };
            EXPECT_NEAR(centroid(0, Bpp(fmt), dw, 1), edge, 0.05);
            if (IsYuv(fmt)) {
                EXPECT_NEAR(centroid(1, fmt == ZOCA_CF_I420 ? 1 : 2, (dw + 1) / 2, 2), 124, 0.05);
            }
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
        TestImage src(c.sf, c.sw, c.sh, 1, 3);
        if (IsYuv(c.sf)) {
            TestImage rgb(ZOCA_CF_RGBA, c.sw, c.sh, 1);
            rgb.FillRgb([&](int x, int y) { return SmoothPattern(x, y, c.sw, c.sh); });
            ASSERT_EQ(vexa_csc(rgb.r(), src.r()), ZOCA_OK);
        } else {
            src.FillRgb([&](int x, int y) { return SmoothPattern(x, y, c.sw, c.sh); });
        }
        TestImage dst(c.df, c.dw, c.dh, 1, 2);
        ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
        EXPECT_TRUE(dst.PaddingIntact());

        // Reference: convert at source size, resize in the destination format.
        TestImage conv(c.df, c.sw, c.sh, 1);
        TestImage ref(c.df, c.dw, c.dh, 1);
        ASSERT_EQ(vexa_csc(src.r(), conv.r()), ZOCA_OK);
        ASSERT_EQ(vexa_rsz(conv.r(), ref.r()), ZOCA_OK);
        TestImage a(ZOCA_CF_RGB, c.dw, c.dh, 1);
        TestImage b(ZOCA_CF_RGB, c.dw, c.dh, 1);
        ASSERT_EQ(vexa_csc(dst.r(), a.r()), ZOCA_OK);
        ASSERT_EQ(vexa_csc(ref.r(), b.r()), ZOCA_OK);
        EXPECT_GT(PsnrRgb(a, b), 34.0);
    }
}

// ---- combined operations ----

TEST(Combined, ResizeRotateMatchesResizeThenRotate) {
    for (int code = 0; code <= 5; ++code) {
        for (int fmt : {ZOCA_CF_NV12, ZOCA_CF_I420, ZOCA_CF_RGB, ZOCA_CF_RGBA}) {
            SCOPED_TRACE(FormatName(fmt) + " code " + std::to_string(code));
            const bool swap = Swaps(code);
            TestImage src(fmt, 90, 60, 0, 2);
            src.FillNoise(code + fmt);
            TestImage scaled(fmt, 45, 31);
            TestImage want(fmt, swap ? 31 : 45, swap ? 45 : 31);
            TestImage got(fmt, swap ? 31 : 45, swap ? 45 : 31, 0, 3);
            ASSERT_EQ(vexa_rsz(src.r(), scaled.r()), ZOCA_OK);
            ASSERT_EQ(vexa_rot(scaled.r(), code, want.r()), ZOCA_OK);
            ASSERT_EQ(vexa_rsz_rot(src.r(), code, got.r()), ZOCA_OK);
            EXPECT_TRUE(got.SameContent(want));
            EXPECT_TRUE(got.PaddingIntact());
        }
    }
    // With a format change: NV12 in, turned RGBA out.
    TestImage src(ZOCA_CF_NV12, 64, 36, 1);
    src.FillNoise(5);
    TestImage got(ZOCA_CF_RGBA, 18, 32, 1);
    ASSERT_EQ(vexa_rsz_rot(src.r(), ZOCA_ROT_270, got.r()), ZOCA_OK);
    TestImage scaled(ZOCA_CF_RGBA, 32, 18, 1);
    TestImage want(ZOCA_CF_RGBA, 18, 32, 1);
    ASSERT_EQ(vexa_rsz(src.r(), scaled.r()), ZOCA_OK);
    ASSERT_EQ(vexa_rot(scaled.r(), ZOCA_ROT_270, want.r()), ZOCA_OK);
    EXPECT_LE(got.MaxDiff(want), 2);
}

TEST(Combined, ConvertRotateMatchesConvertThenRotate) {
    const std::pair<int, int> pairs[] = {{ZOCA_CF_NV12, ZOCA_CF_RGBA},
                                         {ZOCA_CF_RGBA, ZOCA_CF_NV12},
                                         {ZOCA_CF_I420, ZOCA_CF_NV21},
                                         {ZOCA_CF_BGR, ZOCA_CF_ARGB},
                                         {ZOCA_CF_NV21, ZOCA_CF_NV21}};
    for (auto pr : pairs) {
        for (int code = 0; code <= 5; ++code) {
            SCOPED_TRACE(FormatName(pr.first) + "->" + FormatName(pr.second) + " code " +
                         std::to_string(code));
            const bool swap = Swaps(code);
            TestImage src(pr.first, 31, 19, 1, 4);
            src.FillNoise(code * 3 + pr.first);
            TestImage conv(pr.second, 31, 19, 1);
            TestImage want(pr.second, swap ? 19 : 31, swap ? 31 : 19, 1);
            TestImage got(pr.second, swap ? 19 : 31, swap ? 31 : 19, 1, 2);
            ASSERT_EQ(vexa_csc(src.r(), conv.r()), ZOCA_OK);
            ASSERT_EQ(vexa_rot(conv.r(), code, want.r()), ZOCA_OK);
            ASSERT_EQ(vexa_csc_rot(src.r(), code, got.r()), ZOCA_OK);
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
                         std::to_string(rg.y) + " size " + std::to_string(rg.w) + "x" +
                         std::to_string(rg.h));
            TestImage rgb(ZOCA_CF_RGB, 45, 29);
            rgb.FillRgb([](int x, int y) { return SmoothPattern(x, y, 90, 58); });
            TestImage src(fmt, 45, 29, 0, 3);
            ASSERT_EQ(vexa_csc(rgb.r(), src.r()), ZOCA_OK);
            src.rec.startX = rg.x;
            src.rec.startY = rg.y;
            TestImage dst(fmt, rg.w, rg.h, 0, 2);
            ASSERT_EQ(vexa_crop(src.r(), dst.r()), ZOCA_OK);
            const int ub = Bpp(fmt);
            for (int y = 0; y < rg.h; ++y) {
                ASSERT_EQ(0,
                          std::memcmp(dst.Row(0, y), src.Row(0, rg.y + y) + rg.x * ub, rg.w * ub))
                    << "row " << y;
            }
            EXPECT_TRUE(dst.PaddingIntact());
            if (!IsYuv(fmt)) continue;
            rgb.rec.startX = rg.x;
            rgb.rec.startY = rg.y;
            TestImage part(ZOCA_CF_RGB, rg.w, rg.h);
            TestImage want(fmt, rg.w, rg.h);
            ASSERT_EQ(vexa_crop(rgb.r(), part.r()), ZOCA_OK);
            ASSERT_EQ(vexa_csc(part.r(), want.r()), ZOCA_OK);
            const bool even = rg.x % 2 == 0 && rg.y % 2 == 0;
            for (int y = 0; y < (rg.h + 1) / 2; ++y)
                for (int x = 0; x < (rg.w + 1) / 2; ++x) {
                    // The last chroma sample of an odd side averages one luma column or row.
                    if (2 * x + 1 == rg.w || 2 * y + 1 == rg.h || even) continue;
                    ASSERT_NEAR(dst.U(x, y), want.U(x, y), 1) << x << "," << y;
                    ASSERT_NEAR(dst.V(x, y), want.V(x, y), 1) << x << "," << y;
                }
            if (!even) continue;
            for (int p = 1; p < src.planes(); ++p) {
                const int cub = fmt == ZOCA_CF_I420 ? 1 : 2;
                for (int y = 0; y < dst.rec.height[p]; ++y) {
                    ASSERT_EQ(0,
                              std::memcmp(dst.Row(p, y), src.Row(p, rg.y / 2 + y) + rg.x / 2 * cub,
                                          dst.rec.width[p] * cub))
                        << "plane " << p << " row " << y;
                }
            }
        }
    }
}

}  // namespace
