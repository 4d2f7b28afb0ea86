// vexa_csc and vexa_csc_dither: matrix changes, exact rearrangements and the effect of
// dithering (each matrix, format and width: KernelTest.cpp).
#include <gtest/gtest.h>

#include "TestImage.h"

using namespace zt;

namespace {

using CscFn = int (*)(const _ZOCA_IMGB*, _ZOCA_IMGB*);

// Six colours, each filling a 2-pixel-wide column so every 2x2 chroma block is flat.
const Rgb kColours[] = {{128, 128, 128}, {200, 40, 30}, {224, 172, 140},
                        {30, 60, 210},   {20, 25, 18},  {240, 235, 120}};
constexpr int kColourCount = 6;

void FillColourColumnsYuv(TestImage& img, int cs) {
    img.FillYuv(
        [&](int x, int, uint8_t& y) {
            y = static_cast<uint8_t>(
                std::lround(RgbToYuvRef(kColours[x / 2 % kColourCount], cs).y));
        },
        [&](int cx, int, uint8_t& u, uint8_t& v) {
            const Yuv q = RgbToYuvRef(kColours[cx % kColourCount], cs);
            u = static_cast<uint8_t>(std::lround(q.u));
            v = static_cast<uint8_t>(std::lround(q.v));
        });
}

// Between two YUV records with different matrices the picture is re-encoded; the
// colour it shows stays the same.
TEST(ConvertColours, YuvToYuvChangesMatrix) {
    for (auto pair : {std::pair<int, int>{0, 10}, {1, 21}, {10, 0}, {20, 11}, {10, 11}, {21, 20}}) {
        SCOPED_TRACE(std::to_string(pair.first) + "->" + std::to_string(pair.second));
        TestImage src(ZOCA_CF_NV12, 2 * kColourCount, 4, pair.first);
        TestImage dst(ZOCA_CF_I420, 2 * kColourCount, 4, pair.second, 5);
        FillColourColumnsYuv(src, pair.first);
        ASSERT_EQ(vexa_csc(src.r(), dst.r()), ZOCA_OK);
        for (int c = 0; c < kColourCount; ++c) {
            const RgbF shown = YuvToRgbRef(src.Y(2 * c, 0), src.U(c, 0), src.V(c, 0), pair.first);
            const Yuv want = RgbToYuvRef(
                {int(std::lround(shown.r)), int(std::lround(shown.g)), int(std::lround(shown.b))},
                pair.second);
            EXPECT_NEAR(dst.Y(2 * c, 1), want.y, 3.0) << c;
            EXPECT_NEAR(dst.U(c, 1), want.u, 3.0) << c;
            EXPECT_NEAR(dst.V(c, 1), want.v, 3.0) << c;
        }
        EXPECT_TRUE(dst.PaddingIntact());
    }
}

// Codes with one matrix and range (BT.709 limited and Display P3) only rearrange.
TEST(ConvertExact, YuvRearrangementsKeepEverySample) {
    for (int sf : kYuvFormats) {
        for (int df : kYuvFormats) {
            SCOPED_TRACE(FormatName(sf) + "->" + FormatName(df));
            TestImage src(sf, 37, 23, 10, 3);
            TestImage mid(df, 37, 23, 30, 6);
            TestImage back(sf, 37, 23, 10, 1);
            src.FillNoise(7);
            ASSERT_EQ(vexa_csc(src.r(), mid.r()), ZOCA_OK);
            ASSERT_EQ(vexa_csc_dither(mid.r(), back.r()), ZOCA_OK);
            EXPECT_TRUE(back.SameContent(src));
            for (int y = 0; y < 23; ++y)
                for (int x = 0; x < 37; ++x) ASSERT_EQ(mid.Y(x, y), src.Y(x, y));
            for (int y = 0; y < 12; ++y) {
                for (int x = 0; x < 19; ++x) {
                    ASSERT_EQ(mid.U(x, y), src.U(x, y));
                    ASSERT_EQ(mid.V(x, y), src.V(x, y));
                }
            }
            EXPECT_TRUE(mid.PaddingIntact());
            EXPECT_TRUE(back.PaddingIntact());
        }
    }
}

TEST(ConvertExact, PackedPairsMoveBytesOnly) {
    for (CscFn fn : {vexa_csc, vexa_csc_dither}) {
        for (int sf : kPackedFormats) {
            for (int df : kPackedFormats) {
                SCOPED_TRACE(FormatName(sf) + "->" + FormatName(df));
                TestImage src(sf, 21, 9, 0, 2);
                TestImage dst(df, 21, 9, 11, 5);
                src.FillNoise(sf * 31 + df);
                ASSERT_EQ(fn(src.r(), dst.r()), ZOCA_OK);
                for (int y = 0; y < 9; ++y) {
                    for (int x = 0; x < 21; ++x) {
                        const Rgb a = src.GetRgb(x, y);
                        const Rgb b = dst.GetRgb(x, y);
                        ASSERT_EQ(a.r, b.r);
                        ASSERT_EQ(a.g, b.g);
                        ASSERT_EQ(a.b, b.b);
                        if (dst.Alpha(x, y) >= 0) {
                            ASSERT_EQ(dst.Alpha(x, y),
                                      src.Alpha(x, y) >= 0 ? src.Alpha(x, y) : 255);
                        }
                    }
                }
                EXPECT_TRUE(dst.PaddingIntact());
            }
        }
    }
}

// ---- dithering ----

// Mean absolute error of 4x4 block means against the exact (unrounded) values, and
// the largest per-pixel error.
struct BlockError {
    double worst_block, mean_block;
    double worst_pixel;
};

template <typename Get, typename Exact>
BlockError MeasureBlocks(int w, int h, Get get, Exact exact) {
    BlockError e{0, 0, 0};
    int blocks = 0;
    for (int by = 0; by + 4 <= h; by += 4) {
        for (int bx = 0; bx + 4 <= w; bx += 4) {
            double sum_got = 0;
            double sum_exact = 0;
            for (int y = by; y < by + 4; ++y) {
                for (int x = bx; x < bx + 4; ++x) {
                    sum_got += get(x, y);
                    sum_exact += exact(x, y);
                    e.worst_pixel = std::max(e.worst_pixel, std::abs(get(x, y) - exact(x, y)));
                }
            }
            const double d = std::abs(sum_got - sum_exact) / 16.0;
            e.worst_block = std::max(e.worst_block, d);
            e.mean_block += d;
            ++blocks;
        }
    }
    e.mean_block /= blocks;
    return e;
}

// A grey ramp into limited-range YUV: 256 input levels land on 220 output levels, so
// plain rounding leaves uneven steps (bands); dithering keeps every 4x4 area at the
// exact level.
TEST(ConvertDither, RgbToLimitedYuvRemovesBanding) {
    const int w = 1024;
    const int h = 16;
    TestImage src(ZOCA_CF_RGBA, w, h, 0);
    src.FillRgb([](int x, int) { return Rgb{x / 4, x / 4, x / 4}; });
    auto exact = [](int x, int) { return 16 + 219.0 * (x / 4) / 255.0; };
    for (int cs : {0, 10}) {
        SCOPED_TRACE(cs);
        TestImage plain(ZOCA_CF_NV12, w, h, cs);
        TestImage dith(ZOCA_CF_NV12, w, h, cs);
        ASSERT_EQ(vexa_csc(src.r(), plain.r()), ZOCA_OK);
        ASSERT_EQ(vexa_csc_dither(src.r(), dith.r()), ZOCA_OK);
        const BlockError p = MeasureBlocks(
            w, h, [&](int x, int y) { return double(plain.Y(x, y)); }, exact);
        const BlockError d = MeasureBlocks(
            w, h, [&](int x, int y) { return double(dith.Y(x, y)); }, exact);
        EXPECT_GT(p.worst_block, 0.35);
        EXPECT_GT(p.mean_block, 0.2);
        EXPECT_LT(d.worst_block, 0.1);
        EXPECT_LT(d.mean_block, 0.05);
        EXPECT_LE(d.worst_pixel, 1.0);  // dithering only chooses between the two neighbours
        // Grey stays grey: chroma is neutral with or without dithering.
        for (int x = 0; x < w / 2; ++x) {
            ASSERT_NEAR(dith.U(x, 3), 128, 1);
            ASSERT_NEAR(dith.V(x, 3), 128, 1);
        }
    }
}

// Limited-range luma expanded to full-range RGB: 220 levels spread over 256, so plain
// rounding skips output codes and the gradient shows steps of two sizes; dithered 4x4
// means stay within 0.1 of the exact level, so they step evenly.
TEST(ConvertDither, LimitedYuvToRgbRemovesBanding) {
    const int w = 220 * 4;
    const int h = 16;
    TestImage src(ZOCA_CF_I420, w, h, 0);
    src.FillYuv([](int x, int, uint8_t& y) { y = static_cast<uint8_t>(16 + x / 4); },
                [](int, int, uint8_t& u, uint8_t& v) { u = v = 128; });
    auto exact = [](int x, int) { return 255.0 * (x / 4) / 219.0; };
    for (int df : {ZOCA_CF_RGBA, ZOCA_CF_BGR}) {
        SCOPED_TRACE(FormatName(df));
        TestImage plain(df, w, h, 0);
        TestImage dith(df, w, h, 0);
        ASSERT_EQ(vexa_csc(src.r(), plain.r()), ZOCA_OK);
        ASSERT_EQ(vexa_csc_dither(src.r(), dith.r()), ZOCA_OK);
        const BlockError p = MeasureBlocks(
            w, h, [&](int x, int y) { return double(plain.GetRgb(x, y).g); }, exact);
        const BlockError d = MeasureBlocks(
            w, h, [&](int x, int y) { return double(dith.GetRgb(x, y).g); }, exact);
        EXPECT_GT(p.worst_block, 0.35);
        EXPECT_LT(d.worst_block, 0.1);
        EXPECT_LE(d.worst_pixel, 1.0);
    }
}

}  // namespace
