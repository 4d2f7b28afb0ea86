// vexa_rot, vexa_rsz, vexa_rsz_rot, vexa_csc_rot and vexa_crop on every format.
#include <gtest/gtest.h>

#include <set>

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

TEST(Rotate, ComposedTurnsGiveTheOriginalBack) {
    const std::pair<int, int> pairs[] = {{ZOCA_ROT_90, ZOCA_ROT_270},
                                         {ZOCA_ROT_270, ZOCA_ROT_90},
                                         {ZOCA_ROT_180, ZOCA_ROT_180},
                                         {ZOCA_ROT_MIRROR_H, ZOCA_ROT_MIRROR_H},
                                         {ZOCA_ROT_MIRROR_V, ZOCA_ROT_MIRROR_V}};
    for (int fmt : kAllFormats) {
        for (auto pr : pairs) {
            SCOPED_TRACE(FormatName(fmt) + " " + std::to_string(pr.first) + "+" +
                         std::to_string(pr.second));
            const int w = 67;
            const int h = 41;
            const bool swap = Swaps(pr.first);
            TestImage src(fmt, w, h, 0, 5);
            TestImage mid(fmt, swap ? h : w, swap ? w : h, 0, 3);
            TestImage back(fmt, w, h, 0, 1);
            src.FillNoise(fmt * 7 + pr.first);
            ASSERT_EQ(vexa_rot(src.r(), pr.first, mid.r()), ZOCA_OK);
            ASSERT_EQ(vexa_rot(mid.r(), pr.second, back.r()), ZOCA_OK);
            EXPECT_TRUE(back.SameContent(src));
            EXPECT_TRUE(mid.PaddingIntact());
            EXPECT_TRUE(back.PaddingIntact());
        }
    }
    // Two quarter turns make a half turn.
    for (int fmt : kAllFormats) {
        SCOPED_TRACE(FormatName(fmt));
        TestImage src(fmt, 20, 14);
        TestImage q(fmt, 14, 20);
        TestImage twice(fmt, 20, 14);
        TestImage half(fmt, 20, 14);
        src.FillNoise(99);
        ASSERT_EQ(vexa_rot(src.r(), ZOCA_ROT_90, q.r()), ZOCA_OK);
        ASSERT_EQ(vexa_rot(q.r(), ZOCA_ROT_90, twice.r()), ZOCA_OK);
        ASSERT_EQ(vexa_rot(src.r(), ZOCA_ROT_180, half.r()), ZOCA_OK);
        EXPECT_TRUE(twice.SameContent(half));
    }
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

// A one-pixel checkerboard shrunk by 3: averaging gives mid grey everywhere, where
// point sampling or a 2-tap filter would keep black and white pixels.
TEST(Resize, ShrinkingAveragesEverySourcePixel) {
    for (int fmt : kAllFormats) {
        SCOPED_TRACE(FormatName(fmt));
        TestImage src(fmt, 36, 24, 0, 2);
        TestImage dst(fmt, 12, 8);
        if (IsYuv(fmt)) {
            src.FillYuv([](int x, int y, uint8_t& v) { v = (x + y) % 2 ? 235 : 16; },
                        [](int x, int y, uint8_t& u, uint8_t& v) {
                            u = (x + y) % 2 ? 200 : 56;
                            v = (x + y) % 2 ? 56 : 200;
                        });
        } else {
            src.FillRgb([](int x, int y) {
                const int v = (x + y) % 2 ? 255 : 0;
                return Rgb{v, v, v};
            });
        }
        ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
        if (IsYuv(fmt)) {  // the chroma plane shrinks by 3 as well
            for (int y = 0; y < 4; ++y) {
                for (int x = 0; x < 6; ++x) {
                    ASSERT_NEAR(dst.U(x, y), 128, 20) << x << "," << y;
                    ASSERT_NEAR(dst.V(x, y), 128, 20) << x << "," << y;
                }
            }
        }
        for (int y = 0; y < 8; ++y) {
            for (int x = 0; x < 12; ++x) {
                const int v = IsYuv(fmt) ? dst.Y(x, y) : dst.GetRgb(x, y).g;
                const int mid = IsYuv(fmt) ? 125 : 127;
                ASSERT_NEAR(v, mid, 20) << x << "," << y;
            }
        }
        EXPECT_TRUE(src.PaddingIntact());
    }
}

// Enlarging interpolates: a 16-step ramp grows into a smooth ramp with in-between levels.
TEST(Resize, EnlargingInterpolates) {
    for (int fmt : kAllFormats) {
        SCOPED_TRACE(FormatName(fmt));
        TestImage src(fmt, 16, 4);
        TestImage dst(fmt, 64, 16, 0, 3);
        if (IsYuv(fmt)) {
            src.FillYuv([](int x, int, uint8_t& v) { v = static_cast<uint8_t>(16 + 14 * x); },
                        [](int, int, uint8_t& u, uint8_t& v) { u = v = 128; });
        } else {
            src.FillRgb([](int x, int) { return Rgb{16 * x, 16 * x, 16 * x}; });
        }
        ASSERT_EQ(vexa_rsz(src.r(), dst.r()), ZOCA_OK);
        std::set<int> levels;
        int prev = -1;
        for (int x = 0; x < 64; ++x) {
            const int v = IsYuv(fmt) ? dst.Y(x, 7) : dst.GetRgb(x, 7).g;
            EXPECT_GE(v, prev);
            prev = v;
            levels.insert(v);
        }
        EXPECT_GT(levels.size(), 40u);
        EXPECT_TRUE(dst.PaddingIntact());
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

TEST(Crop, CopiesTheRegionByteForByte) {
    struct Region {
        int x, y, w, h;
    };
    const Region regions[] = {
        {0, 0, 45, 29}, {4, 6, 20, 10}, {3, 5, 17, 9}, {44, 28, 1, 1}, {1, 0, 44, 29}};
    for (int fmt : kAllFormats) {
        for (const Region& rg : regions) {
            SCOPED_TRACE(FormatName(fmt) + " at " + std::to_string(rg.x) + "," +
                         std::to_string(rg.y) + " size " + std::to_string(rg.w) + "x" +
                         std::to_string(rg.h));
            TestImage src(fmt, 45, 29, 0, 3);
            src.FillNoise(fmt + rg.x);
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
            // 4:2:0 chroma comes from (x / 2, y / 2): the sample that covers the
            // region's first pixel, whether the origin is even or odd.
            for (int p = 1; p < src.planes(); ++p) {
                const int cub = UnitBytes(fmt, p);
                for (int y = 0; y < dst.rec.height[p]; ++y) {
                    ASSERT_EQ(0,
                              std::memcmp(dst.Row(p, y), src.Row(p, rg.y / 2 + y) + rg.x / 2 * cub,
                                          dst.rec.width[p] * cub))
                        << "plane " << p << " row " << y;
                }
            }
            EXPECT_TRUE(dst.PaddingIntact());
        }
    }
}

}  // namespace
