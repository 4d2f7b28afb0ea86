// vexa_cgc (gamut conversion) and vexa_hdr_to_sdr (tone mapping) against values
// computed here from the published curves and matrices.
#include <gtest/gtest.h>

#include "HdrReference.h"
#include "TestImage.h"

using namespace zt;

namespace {

double Gamma24(double v) {
    return std::pow(v, 2.4);
}
double Gamma24Inv(double l) {
    return std::pow(std::min(std::max(l, 0.0), 1.0), 1 / 2.4);
}
double SrgbDecode(double v) {
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

// BT.2087: linear BT.709 RGB -> linear BT.2020 RGB.
const double k709To2020[9] = {0.6274, 0.3293, 0.0433, 0.0691, 0.9195,
                              0.0114, 0.0164, 0.0880, 0.8956};

TEST(Gamut, GreysKeepTheirCodeWhenTheTransferIsShared) {
    const std::pair<int, int> pairs[] = {{10, 20}, {20, 10}, {0, 21}, {11, 1}};
    for (auto pr : pairs) {
        SCOPED_TRACE(std::to_string(pr.first) + "->" + std::to_string(pr.second));
        TestImage src(ZOCA_CF_RGBA, 18, 3, pr.first, 2);
        TestImage dst(ZOCA_CF_BGR, 18, 3, pr.second, 1);
        src.FillRgb([](int x, int) { return Rgb{15 * x, 15 * x, 15 * x}; });
        ASSERT_EQ(vexa_cgc(src.r(), dst.r()), ZOCA_OK);
        for (int x = 0; x < 18; ++x) {
            const Rgb c = dst.GetRgb(x, 1);
            EXPECT_NEAR(c.r, 15 * x, 1);
            EXPECT_NEAR(c.g, 15 * x, 1);
            EXPECT_NEAR(c.b, 15 * x, 1);
        }
        EXPECT_TRUE(dst.PaddingIntact());
    }
}

// Linear RGB into linear BT.2020 RGB: BT.2087 for BT.709, and the matrix Display P3's
// primaries give (sRGB curve on its side).
const double kP3To2020[9] = {0.7538, 0.1986,  0.0476, 0.0457, 0.9418,
                             0.0125, -0.0012, 0.0176, 0.9836};

TEST(Gamut, IntoBt2020FollowsThePublishedMatrices) {
    struct Case {
        int space;
        double (*decode)(double);
        const double* matrix;
    };
    const Case cases[] = {{ZOCA_CS_BT709, Gamma24, k709To2020},
                          {ZOCA_CS_DISPLAY_P3, SrgbDecode, kP3To2020}};
    const Rgb colours[] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {200, 120, 40}, {30, 90, 160}};
    for (const Case& k : cases) {
        SCOPED_TRACE(k.space);
        TestImage src(ZOCA_CF_RGB, 5, 2, k.space);
        TestImage dst(ZOCA_CF_ARGB, 5, 2, ZOCA_CS_BT2020, 3);
        src.FillRgb([&](int x, int) { return colours[x]; });
        ASSERT_EQ(vexa_cgc(src.r(), dst.r()), ZOCA_OK);
        // P3 red lies a hair outside BT.2020 (blue -0.0012): left to the gamut tests.
        for (int i = k.space == ZOCA_CS_DISPLAY_P3 ? 1 : 0; i < 5; ++i) {
            const double lin[3] = {k.decode(colours[i].r / 255.0), k.decode(colours[i].g / 255.0),
                                   k.decode(colours[i].b / 255.0)};
            double want[3];
            for (int r = 0; r < 3; ++r) {
                want[r] = 255 * Gamma24Inv(k.matrix[3 * r] * lin[0] + k.matrix[3 * r + 1] * lin[1] +
                                           k.matrix[3 * r + 2] * lin[2]);
            }
            const Rgb got = dst.GetRgb(i, 1);
            EXPECT_NEAR(got.r, want[0], 1.5) << i;
            EXPECT_NEAR(got.g, want[1], 1.5) << i;
            EXPECT_NEAR(got.b, want[2], 1.5) << i;
            EXPECT_EQ(dst.Alpha(i, 1), 255);
        }
    }
}

TEST(Gamut, RoundTripThroughAWiderGamutKeepsThePicture) {
    for (int wide : {ZOCA_CS_BT2020, ZOCA_CS_DISPLAY_P3}) {
        SCOPED_TRACE(wide);
        TestImage src(ZOCA_CF_RGBA, 97, 33, ZOCA_CS_BT709);
        TestImage mid(ZOCA_CF_RGBA, 97, 33, wide);
        TestImage back(ZOCA_CF_RGBA, 97, 33, ZOCA_CS_BT709);
        src.FillRgb([](int x, int y) { return SmoothPattern(x, y, 97, 33); });
        ASSERT_EQ(vexa_cgc(src.r(), mid.r()), ZOCA_OK);
        ASSERT_EQ(vexa_cgc(mid.r(), back.r()), ZOCA_OK);
        EXPECT_GT(PsnrRgb(src, back), 40.0);
    }
}

// BT.2020 green lies far outside BT.709. It keeps its luminance and moves straight
// toward grey of that luminance until it fits, rather than being clipped per channel.
TEST(Gamut, OutOfGamutColoursDesaturateTowardTheirLuminance) {
    TestImage src(ZOCA_CF_RGBA, 2, 2, ZOCA_CS_BT2020);
    TestImage dst(ZOCA_CF_RGBA, 2, 2, ZOCA_CS_BT709);
    src.FillRgb([](int, int) { return Rgb{0, 255, 0}; });
    ASSERT_EQ(vexa_cgc(src.r(), dst.r()), ZOCA_OK);
    const Rgb c = dst.GetRgb(1, 1);
    const double r = Gamma24(c.r / 255.0), g = Gamma24(c.g / 255.0), b = Gamma24(c.b / 255.0);
    const double lum = 0.2126 * r + 0.7152 * g + 0.0722 * b;
    EXPECT_NEAR(lum, 0.6780, 0.02);  // the luminance of BT.2020 green
    // It stops on the gamut's edge: here red runs out first (at 0).
    EXPECT_EQ(c.r, 0);
    EXPECT_GT(c.g, 240);
    EXPECT_GT(c.b, 100);  // clipping per channel would leave (0, 255, 0)
    // Exact BT.709 coordinates of the source, and the point on its line to grey.
    const double src709[3] = {-0.5876, 1.1329, -0.1006};
    const double t = (g - lum) / (src709[1] - lum);
    EXPECT_NEAR(lum + t * (src709[0] - lum), r, 0.02);
    EXPECT_NEAR(lum + t * (src709[2] - lum), b, 0.02);
}

// Display P3 is coded with the sRGB curve, BT.709 here with the BT.1886 display curve.
TEST(Gamut, DisplayP3DecodesWithTheSrgbCurve) {
    TestImage src(ZOCA_CF_BGRA, 4, 2, ZOCA_CS_DISPLAY_P3);
    TestImage dst(ZOCA_CF_BGRA, 4, 2, ZOCA_CS_BT709);
    src.FillRgb([](int x, int) { return Rgb{40 + 60 * x, 40 + 60 * x, 40 + 60 * x}; });
    ASSERT_EQ(vexa_cgc(src.r(), dst.r()), ZOCA_OK);
    for (int x = 0; x < 4; ++x) {
        const double want = 255 * Gamma24Inv(SrgbDecode((40 + 60 * x) / 255.0));
        EXPECT_NEAR(dst.GetRgb(x, 0).g, want, 1.0) << x;
    }
}

// YUV records decode and encode with their own matrix around the gamut change.
TEST(Gamut, YuvRecordsUseTheirOwnMatrix) {
    const Rgb colour{180, 90, 60};
    const Yuv in = RgbToYuvRef(colour, ZOCA_CS_BT709);
    TestImage src(ZOCA_CF_NV12, 7, 5, ZOCA_CS_BT709, 3);
    src.FillYuv([&](int, int, uint8_t& y) { y = static_cast<uint8_t>(std::lround(in.y)); },
                [&](int, int, uint8_t& u, uint8_t& v) {
                    u = static_cast<uint8_t>(std::lround(in.u));
                    v = static_cast<uint8_t>(std::lround(in.v));
                });
    TestImage dst(ZOCA_CF_I420, 7, 5, ZOCA_CS_BT2020_FULL, 2);
    ASSERT_EQ(vexa_cgc(src.r(), dst.r()), ZOCA_OK);
    const RgbF shown = YuvToRgbRef(src.Y(0, 0), src.U(0, 0), src.V(0, 0), ZOCA_CS_BT709);
    const double lin[3] = {Gamma24(shown.r / 255), Gamma24(shown.g / 255), Gamma24(shown.b / 255)};
    Rgb wide;
    int* out[3] = {&wide.r, &wide.g, &wide.b};
    for (int r = 0; r < 3; ++r) {
        *out[r] = static_cast<int>(std::lround(255 * Gamma24Inv(k709To2020[3 * r] * lin[0] +
                                                                k709To2020[3 * r + 1] * lin[1] +
                                                                k709To2020[3 * r + 2] * lin[2])));
    }
    const Yuv want = RgbToYuvRef(wide, ZOCA_CS_BT2020_FULL);
    EXPECT_NEAR(dst.Y(6, 4), want.y, 2.5);
    EXPECT_NEAR(dst.U(3, 2), want.u, 2.5);
    EXPECT_NEAR(dst.V(3, 2), want.v, 2.5);
    EXPECT_TRUE(dst.PaddingIntact());
}

// ---- tone mapping ----

// SDR code (BT.1886 display, 0..255) for a grey HDR code in each mode.
double ExpectedGrey(int mode, int code) {
    const double e = code / 255.0;
    switch (mode) {
        case ZOCA_HDR_HLG: {
            const double display = 1000 * std::pow(HlgToScene(e), 1.2);  // OOTF, Ys = E for grey
            return 255 * Gamma24Inv(Eetf(display, 1000, 100) / 100);
        }
        case ZOCA_HDR_PQ:
            return 255 * Gamma24Inv(Eetf(PqToNits(e), 1000, 203) / 203);
        case ZOCA_HDR_PQ_HIGHLIGHTS:
            return 255 * Gamma24Inv(Eetf(PqToNits(e), 4000, 100) / 100);
        default:
            return 255 * Gamma24Inv(Eetf(PqToNits(e), 1000, 100) / 100);
    }
}

TEST(ToneMap, GreyRampsFollowThePublishedCurves) {
    for (int mode = ZOCA_HDR_DEFAULT; mode <= ZOCA_HDR_PQ_HIGHLIGHTS; ++mode) {
        SCOPED_TRACE(mode);
        TestImage src(ZOCA_CF_RGBA, 256, 2, ZOCA_CS_BT2020_FULL, 1);
        TestImage dst(ZOCA_CF_RGBA, 256, 2, ZOCA_CS_BT709, 3);
        src.FillRgb([](int x, int) { return Rgb{x, x, x}; });
        ASSERT_EQ(vexa_hdr_to_sdr(src.r(), dst.r(), mode), ZOCA_OK);
        int prev = 0;
        for (int x = 0; x < 256; ++x) {
            const Rgb c = dst.GetRgb(x, 1);
            ASSERT_NEAR(c.g, ExpectedGrey(mode, x), 1.0) << "code " << x;
            ASSERT_EQ(c.r, c.g) << x;
            ASSERT_EQ(c.b, c.g) << x;
            ASSERT_GE(c.g, prev) << x;
            prev = c.g;
        }
        EXPECT_TRUE(dst.PaddingIntact());
    }
}

// The four modes are four different renderings of the same signal.
TEST(ToneMap, ModesDiffer) {
    const int code = 120;  // about 70 nits in PQ, a bright HLG highlight
    int seen[5] = {0, 0, 0, 0, 0};
    for (int mode = ZOCA_HDR_DEFAULT; mode <= ZOCA_HDR_PQ_HIGHLIGHTS; ++mode) {
        TestImage src(ZOCA_CF_RGB, 2, 2, ZOCA_CS_BT2020);
        TestImage dst(ZOCA_CF_RGB, 2, 2, ZOCA_CS_BT709);
        src.FillRgb([&](int, int) { return Rgb{code, code, code}; });
        ASSERT_EQ(vexa_hdr_to_sdr(src.r(), dst.r(), mode), ZOCA_OK);
        seen[mode] = dst.GetRgb(0, 0).g;
    }
    for (int a = 1; a <= 4; ++a)
        for (int b = a + 1; b <= 4; ++b) EXPECT_GE(std::abs(seen[a] - seen[b]), 3) << a << " " << b;
}

// Colours keep their hue: the curve scales all three components by one gain.
TEST(ToneMap, SaturatedColoursKeepTheirHue) {
    TestImage src(ZOCA_CF_BGRA, 3, 2, ZOCA_CS_BT2020_FULL);
    TestImage dst(ZOCA_CF_BGRA, 3, 2, ZOCA_CS_BT709);
    const Rgb colours[] = {{230, 0, 0}, {0, 230, 0}, {120, 160, 230}};
    src.FillRgb([&](int x, int) { return colours[x]; });
    ASSERT_EQ(vexa_hdr_to_sdr(src.r(), dst.r(), ZOCA_HDR_DEFAULT), ZOCA_OK);
    auto lin = [&](int x) {
        const Rgb c = dst.GetRgb(x, 0);
        return RgbF{Gamma24(c.r / 255.0), Gamma24(c.g / 255.0), Gamma24(c.b / 255.0)};
    };
    const RgbF red = lin(0);
    const RgbF green = lin(1);
    const RgbF sky = lin(2);
    EXPECT_GT(red.r, 4 * red.g);
    EXPECT_GT(red.r, 4 * red.b);
    EXPECT_GT(green.g, 2 * green.r);
    EXPECT_GT(green.g, 2 * green.b);
    EXPECT_GT(sky.b, sky.g);
    EXPECT_GT(sky.g, sky.r);
}

// YUV in and out: the source record's matrix decodes, the destination's encodes.
TEST(ToneMap, YuvRecordsAtOddSize) {
    const int w = 33;
    const int h = 17;
    TestImage src(ZOCA_CF_NV12, w, h, ZOCA_CS_BT2020, 5);
    src.FillYuv([](int x, int, uint8_t& y) { y = static_cast<uint8_t>(16 + 6 * x); },
                [](int, int, uint8_t& u, uint8_t& v) { u = v = 128; });
    TestImage dst(ZOCA_CF_NV21, w, h, ZOCA_CS_BT709, 3);
    ASSERT_EQ(vexa_hdr_to_sdr(src.r(), dst.r(), ZOCA_HDR_HLG), ZOCA_OK);
    for (int x = 0; x < w; ++x) {
        const double grey = (6.0 * x) / 219.0 * 255.0;  // limited luma expanded to 0..255
        const double sdr = ExpectedGrey(ZOCA_HDR_HLG, static_cast<int>(std::lround(grey)));
        const double want_y = 16 + 219 * sdr / 255;
        EXPECT_NEAR(dst.Y(x, h - 1), want_y, 2.0) << x;
    }
    EXPECT_NEAR(dst.U(5, 4), 128, 1);
    EXPECT_NEAR(dst.V(5, 4), 128, 1);
    EXPECT_TRUE(dst.PaddingIntact());
}

}  // namespace
