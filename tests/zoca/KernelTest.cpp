// The kernels below the public functions: YUV <-> RGB against the exact matrices and the
// AVX-512 build against the plain one, the power curve the vector build computes, and
// the linear-light rows of both builds.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "HdrReference.h"
#include "TestImage.h"
#include "colour.h"
#include "convert.h"
#include "linear.h"

namespace {

using zoca::Kernel;

// ---- YUV <-> RGB ----

using zt::TestImage;

std::vector<Kernel> Kernels() {
    return {Kernel::Plain, zoca::Supported(Kernel::Avx512) ? Kernel::Avx512 : Kernel::Plain};
}

void Csc(TestImage& src, TestImage& dst, bool dither, Kernel k) {
    zoca::Img s, d;
    ASSERT_EQ(zoca::CheckRecord(src.r(), true, &s) | zoca::CheckRecord(dst.r(), true, &d), 0);
    ASSERT_EQ(zoca::Convert(s, d, dither, k), ZOCA_OK);
}

// Largest distance of any decoded channel from the exact matrix (clamped to 0..255);
// below 1 means every code is one of the two around the exact value, dithered or not.
double DecodeError(TestImage& yuv, TestImage& rgb, int cs) {
    double worst = 0;
    for (int y = 0; y < yuv.h(); ++y) {
        for (int x = 0; x < yuv.w(); ++x) {
            const zt::RgbF want =
                zt::YuvToRgbRef(yuv.Y(x, y), yuv.U(x / 2, y / 2), yuv.V(x / 2, y / 2), cs);
            const zt::Rgb got = rgb.GetRgb(x, y);
            worst = std::max({worst, std::abs(got.r - want.r), std::abs(got.g - want.g),
                              std::abs(got.b - want.b)});
            if (rgb.Alpha(x, y) >= 0 && rgb.Alpha(x, y) != 255) return 99;
        }
    }
    return worst;
}

// The same for encoding; chroma against the mean of its 2x2 block (the pixels inside
// the picture: an odd last column or row stands for both of its block).
double EncodeError(TestImage& rgb, TestImage& yuv, int cs) {
    double worst = 0;
    for (int cy = 0; 2 * cy < rgb.h(); ++cy) {
        for (int cx = 0; 2 * cx < rgb.w(); ++cx) {
            double u = 0, v = 0, n = 0;
            for (int y = 2 * cy; y < std::min(2 * cy + 2, rgb.h()); ++y) {
                for (int x = 2 * cx; x < std::min(2 * cx + 2, rgb.w()); ++x, ++n) {
                    const zt::Yuv want = zt::RgbToYuvRef(rgb.GetRgb(x, y), cs);
                    worst = std::max(worst, std::abs(yuv.Y(x, y) - want.y));
                    u += want.u;
                    v += want.v;
                }
            }
            worst =
                std::max({worst, std::abs(yuv.U(cx, cy) - u / n), std::abs(yuv.V(cx, cy) - v / n)});
        }
    }
    return worst;
}

// Every Cb, Cr pair (with luma running through all codes) and a dense grid of R, G
// with B varying, for every matrix and range, both builds, with and without dithering.
TEST(YuvRgb, WithinOneCodeOfTheExactMatrices) {
    TestImage yuv(ZOCA_CF_I420, 512, 512);
    yuv.FillYuv([](int x, int y, uint8_t& v) { v = static_cast<uint8_t>(7 * x + 13 * y); },
                [](int cx, int cy, uint8_t& u, uint8_t& v) { u = cx, v = cy; });
    TestImage rgb(ZOCA_CF_RGBA, 512, 512);
    rgb.FillRgb([](int x, int y) {
        return zt::Rgb{x & 255, y & 255, (5 * x + 3 * y + (x * y >> 4)) & 255};
    });
    for (int cs : zt::kColorSpaces) {
        for (Kernel k : Kernels()) {
            for (bool dither : {false, true}) {
                SCOPED_TRACE(std::to_string(cs) + (k == Kernel::Plain ? " plain" : " avx512") +
                             (dither ? " dither" : ""));
                yuv.rec.colorSpace = cs;
                TestImage out(ZOCA_CF_RGBA, 512, 512);
                Csc(yuv, out, dither, k);
                EXPECT_LT(DecodeError(yuv, out, cs), 1.0);
                TestImage enc(ZOCA_CF_I420, 512, 512, cs);
                Csc(rgb, enc, dither, k);
                EXPECT_LT(EncodeError(rgb, enc, cs), 1.0);
            }
        }
    }
}

// Every layout and packed format at widths around the vector steps (16 and 32 pixels),
// odd heights, guard bytes after each row: the vector build gives the plain build's
// bytes, both within a code of the exact matrices, and nothing past a row is touched.
TEST(YuvRgb, EveryLayoutAtEveryWidth) {
    for (int w : {1, 2, 3, 15, 16, 17, 31, 33, 47, 63, 65, 97}) {
        for (int h : {1, 3, 4}) {
            for (int yf : zt::kYuvFormats) {
                for (int pf : zt::kPackedFormats) {
                    for (int cs : {ZOCA_CS_BT601, ZOCA_CS_BT2020, ZOCA_CS_BT709_FULL}) {
                        for (bool dither : {false, true}) {
                            SCOPED_TRACE(zt::FormatName(yf) + zt::FormatName(pf) + " " +
                                         std::to_string(w * 10 + h) + " " +
                                         std::to_string(cs * 2 + dither));
                            TestImage yuv(yf, w, h, cs, 5);
                            TestImage rgb(pf, w, h, cs, 3);
                            yuv.FillNoise(w * 131 + h);
                            rgb.FillNoise(w * 71 + h);
                            TestImage dec[2] = {{pf, w, h, cs, 3}, {pf, w, h, cs, 3}};
                            TestImage enc[2] = {{yf, w, h, cs, 5}, {yf, w, h, cs, 5}};
                            TestImage rematrix[2] = {{yf, w, h, ZOCA_CS_BT709, 1},
                                                     {yf, w, h, ZOCA_CS_BT709, 1}};
                            const auto ks = Kernels();  // plain twice without AVX-512
                            for (size_t i = 0; i < 2; ++i) {
                                Csc(yuv, dec[i], dither, ks[i]);
                                Csc(rgb, enc[i], dither, ks[i]);
                                Csc(yuv, rematrix[i], dither, ks[i]);
                                ASSERT_LT(DecodeError(yuv, dec[i], cs), 1.0);
                                ASSERT_LT(EncodeError(rgb, enc[i], cs), 1.0);
                                ASSERT_TRUE(dec[i].PaddingIntact() && enc[i].PaddingIntact() &&
                                            rematrix[i].PaddingIntact());
                            }
                            ASSERT_TRUE(dec[1].SameContent(dec[0]) && enc[1].SameContent(enc[0]) &&
                                        rematrix[1].SameContent(rematrix[0]));
                        }
                    }
                }
            }
        }
    }
}

// ---- linear light ----

TEST(PowerCurve, FollowsThePowerOverEveryOctave) {
    for (double g : {1 / 2.4, 0.2}) {
        SCOPED_TRACE(g);
        const zoca::PowerCurve pc = zoca::PowerCurve::Of(g);
        double worst = 0;
        for (int e = -31; e < 0; ++e) {
            for (int s = 0; s < 64; ++s) {
                const double x = std::ldexp(1.0 + s / 64.0, e);
                const double want = std::pow(x, g);
                worst = std::max(worst, std::fabs(pc.At(static_cast<float>(x)) - want) / want);
            }
        }
        EXPECT_LT(worst, 1.2e-4);
        EXPECT_NEAR(pc.At(1.0f), 1.0f, 1.2e-4);
        EXPECT_EQ(pc.At(0.0f), 0.0f);
        EXPECT_EQ(pc.At(0x1p-32f), 0.0f);  // below the darkest octave
    }
}

// The HLG route's EETF (1000 to 100 nits) as each build holds it, the plain build's lines
// and the vector build's cubics: close to the published curve everywhere, the identity
// below its knee, and the curve's own value at the peak.
TEST(HlgCurve, FollowsTheBt2390Eetf) {
    const zoca::ToneParams p = zoca::ToneParamsOf(ZOCA_HDR_HLG);
    auto check = [](const auto& table, double tolerance) {
        double worst = 0;
        for (int i = 1; i <= 200000; ++i) {
            const double top = i / 200000.0;
            const double want = zt::Eetf(1000 * top, 1000, 100) / (1000 * top);
            worst =
                std::max(worst, std::fabs(table.RatioAt(static_cast<float>(top)) - want) / want);
        }
        EXPECT_LT(worst, tolerance);
        EXPECT_EQ(table.RatioAt(0.001f), 1.0f);
        EXPECT_NEAR(table.RatioAt(1.0f), 0.1, 1e-6);  // the 1000-nit peak lands on 100 nits
    };
    check(*p.line, 6e-5);
    check(*p.ratio, 1.4e-4);
}

// Rows of random codes (most colours of a wide gamut fall outside a narrow one), plus
// greys and a smooth ramp, with guard bytes after each row.
struct Rows {
    static constexpr int kGuard = 64;
    int w;
    std::vector<uint8_t> mem;

    explicit Rows(int width, uint32_t seed) : w(width), mem(3 * (width + kGuard)) {
        for (auto& v : mem) v = static_cast<uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
        for (int x = 0; x < w && x < 512; ++x) {  // greys, then a ramp of one hue
            const int v = x & 255, ramp = x >> 8;
            r()[x] = static_cast<uint8_t>(v);
            g()[x] = static_cast<uint8_t>(v >> ramp);
            b()[x] = static_cast<uint8_t>(v >> (2 * ramp));
        }
    }
    uint8_t* r() { return mem.data(); }
    uint8_t* g() { return mem.data() + (w + kGuard); }
    uint8_t* b() { return mem.data() + 2 * (w + kGuard); }
};

// One linear-light job, on planar rows or on packed 4-byte rows.
struct Work {
    std::string name;
    bool tone = false;
    zoca::GamutParams gp{};
    zoca::ToneParams tp{};

    void Planar(Kernel k, Rows& rows) const {
        if (tone) return zoca::ToneRow(k, tp, rows.r(), rows.g(), rows.b(), rows.w);
        zoca::GamutRow(k, gp, rows.r(), rows.g(), rows.b(), rows.w);
    }
    void Packed(Kernel k, const uint8_t* in, zoca::PackedOrder so, uint8_t* out,
                zoca::PackedOrder dor, int w) const {
        if (tone) return zoca::TonePackedRow(k, tp, in, so, out, dor, w);
        zoca::GamutPackedRow(k, gp, in, so, out, dor, w);
    }
};

std::vector<Work> Works() {
    std::vector<Work> all;
    const int spaces[] = {ZOCA_CS_BT709, ZOCA_CS_BT2020, ZOCA_CS_DISPLAY_P3};
    for (int from : spaces) {
        for (int to : spaces) {
            if (from != to)
                all.push_back({std::to_string(from) + "->" + std::to_string(to),
                               false,
                               zoca::GamutParamsOf(from, to),
                               {}});
        }
    }
    for (int mode = ZOCA_HDR_DEFAULT; mode <= ZOCA_HDR_PQ_HIGHLIGHTS; ++mode)
        all.push_back({"mode " + std::to_string(mode), true, {}, zoca::ToneParamsOf(mode)});
    return all;
}

// The plain build's packed rows and the vector build's planar and packed rows (byte
// orders changed, alpha passed through) against the plain planar rows on the same codes
// at widths around the 64-pixel step and the plain build's 256-pixel pass: the plain
// build's packed rows equal, the vector build's at most one code apart and equal but for
// a few values next to a rounding boundary (the builds order their float operations
// differently), nothing past a row touched.
TEST(LinearRows, PackedAndVectorRowsMatchThePlainPlanarRows) {
    const zoca::PackedOrder orders[2][2] = {{{4, 0, 1, 2, 3}, {4, 0, 1, 2, 3}},
                                            {{4, 2, 1, 0, 3}, {4, 1, 2, 3, 0}}};
    const Kernel k = Kernels().back();
    for (const Work& work : Works()) {
        for (int w : {1, 2, 17, 63, 64, 65, 129, 257, 3840 + 37}) {
            SCOPED_TRACE(work.name + ", width " + std::to_string(w));
            const zoca::PackedOrder so = orders[w & 1][0], dor = orders[w & 1][1];
            Rows plain(w, 7u + static_cast<uint32_t>(w));
            Rows vec = plain;
            std::vector<uint8_t> in(4 * w), out(4 * w + 64, 0x5a);
            for (int x = 0; x < w; ++x) {
                in[4 * x + so.r] = plain.r()[x];
                in[4 * x + so.g] = plain.g()[x];
                in[4 * x + so.b] = plain.b()[x];
                in[4 * x + so.a] = static_cast<uint8_t>(x * 37);
            }
            std::vector<uint8_t> packed = out;
            work.Planar(Kernel::Plain, plain);
            work.Planar(k, vec);
            work.Packed(k, in.data(), so, out.data(), dor, w);
            work.Packed(Kernel::Plain, in.data(), so, packed.data(), dor, w);
            int worst = 0, differ[2] = {0, 0};
            auto compare = [&](int got, int want, int path) {
                worst = std::max(worst, std::abs(got - want));
                differ[path] += got != want;
            };
            for (size_t i = 0; i < plain.mem.size(); ++i) compare(vec.mem[i], plain.mem[i], 0);
            for (int x = 0; x < w; ++x) {
                const uint8_t* want[3] = {&plain.r()[x], &plain.g()[x], &plain.b()[x]};
                for (int c = 0; c < 3; ++c) {
                    const int at = 4 * x + (c == 0 ? dor.r : c == 1 ? dor.g : dor.b);
                    compare(out[at], *want[c], 1);
                    ASSERT_EQ(packed[at], *want[c]) << x;
                }
                ASSERT_EQ(out[4 * x + dor.a], static_cast<uint8_t>(x * 37)) << x;
                ASSERT_EQ(packed[4 * x + dor.a], static_cast<uint8_t>(x * 37)) << x;
            }
            EXPECT_LE(worst, 1);
            EXPECT_LE(std::max(differ[0], differ[1]), 9 * w / 100 + 1);
            for (size_t i = 4 * w; i < out.size(); ++i)
                ASSERT_TRUE(out[i] == 0x5a && packed[i] == 0x5a) << i;
        }
    }
}

}  // namespace
