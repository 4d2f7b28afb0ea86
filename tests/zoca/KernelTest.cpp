// The linear-light kernels below the public functions: the power curve the vector build
// computes, and the AVX-512 build against the plain one on the same rows.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "HdrReference.h"
#include "colour.h"
#include "linear.h"

namespace {

using zoca::Kernel;

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

// The HLG route's EETF (1000 to 100 nits) held as per-octave cubics: close to the
// published curve everywhere, the identity below its knee, and the curve's own values
// at both ends.
TEST(HlgCurve, FollowsTheBt2390Eetf) {
    const zoca::ToneParams p = zoca::ToneParamsOf(ZOCA_HDR_HLG);
    double worst = 0;
    for (int i = 1; i <= 200000; ++i) {
        const double top = i / 200000.0;
        const double want = zt::Eetf(1000 * top, 1000, 100) / (1000 * top);
        worst = std::max(worst, std::fabs(p.curve->RatioAt(static_cast<float>(top)) - want) / want);
    }
    EXPECT_LT(worst, 4e-5);
    EXPECT_EQ(p.curve->RatioAt(0.001f), 1.0f);
    EXPECT_NEAR(p.curve->RatioAt(1.0f), 0.1, 1e-6);  // the 1000-nit peak lands on 100 nits
}

// Rows of random codes (most colours of a wide gamut fall outside a narrow one), plus
// greys and smooth ramps, at a width whose last step is partial.
struct Rows {
    static constexpr int kGuard = 64;
    int w;
    std::vector<uint8_t> mem;

    explicit Rows(int width, uint32_t seed) : w(width), mem(3 * (width + kGuard)) {
        for (auto& v : mem) v = static_cast<uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
        for (int x = 0; x < w && x < 256; ++x) {
            r()[x] = g()[x] = b()[x] = static_cast<uint8_t>(x);  // greys
        }
        for (int x = 256; x < w && x < 512; ++x) {  // a ramp of one hue
            r()[x] = static_cast<uint8_t>(x - 256);
            g()[x] = static_cast<uint8_t>((x - 256) / 2);
            b()[x] = static_cast<uint8_t>((x - 256) / 4);
        }
    }
    uint8_t* r() { return mem.data(); }
    uint8_t* g() { return mem.data() + (w + kGuard); }
    uint8_t* b() { return mem.data() + 2 * (w + kGuard); }
};

// Both builds on copies of the same rows: at most one code apart, and equal but for a
// few values that the plain build's encode table (1/512-octave steps) rounds the other
// way.
template <typename Run>
void ExpectAgreement(int w, Run run) {
    Rows plain(w, 7u + static_cast<uint32_t>(w));
    Rows vec = plain;
    run(Kernel::Plain, plain);
    run(Kernel::Avx512, vec);
    int differ = 0;
    int worst = 0;
    for (size_t i = 0; i < plain.mem.size(); ++i) {
        const int d = std::abs(plain.mem[i] - vec.mem[i]);
        differ += d != 0;
        worst = std::max(worst, d);
    }
    EXPECT_LE(worst, 1);
    EXPECT_LE(differ, static_cast<int>(plain.mem.size() * 3 / 100)) << "of " << plain.mem.size();
}

class VectorBuild : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!zoca::Supported(Kernel::Avx512)) GTEST_SKIP() << "no AVX-512 VBMI on this CPU";
    }
};

TEST_F(VectorBuild, GamutConversionMatchesThePlainBuild) {
    const int spaces[] = {ZOCA_CS_BT709, ZOCA_CS_BT2020, ZOCA_CS_DISPLAY_P3};
    for (int from : spaces) {
        for (int to : spaces) {
            if (from == to) continue;
            SCOPED_TRACE(std::to_string(from) + "->" + std::to_string(to));
            const zoca::GamutParams p = zoca::GamutParamsOf(from, to);
            ExpectAgreement(3840 + 37, [&](Kernel k, Rows& rows) {
                zoca::GamutRow(k, p, rows.r(), rows.g(), rows.b(), rows.w);
            });
        }
    }
}

TEST_F(VectorBuild, ToneMappingMatchesThePlainBuild) {
    for (int mode = ZOCA_HDR_DEFAULT; mode <= ZOCA_HDR_PQ_HIGHLIGHTS; ++mode) {
        SCOPED_TRACE(mode);
        const zoca::ToneParams p = zoca::ToneParamsOf(mode);
        ExpectAgreement(3840 + 37, [&](Kernel k, Rows& rows) {
            zoca::ToneRow(k, p, rows.r(), rows.g(), rows.b(), rows.w);
        });
    }
}

// Widths around the 64-pixel step: the partial step must neither skip pixels nor
// write past the row (the guard bytes after each row stay as they were, which the
// comparison with the plain build checks).
TEST_F(VectorBuild, PartialStepsAtEveryWidth) {
    const zoca::GamutParams gp = zoca::GamutParamsOf(ZOCA_CS_BT2020, ZOCA_CS_BT709);
    const zoca::ToneParams tp = zoca::ToneParamsOf(ZOCA_HDR_HLG);
    for (int w : {1, 2, 63, 64, 65, 127, 129}) {
        SCOPED_TRACE(w);
        ExpectAgreement(w, [&](Kernel k, Rows& rows) {
            zoca::GamutRow(k, gp, rows.r(), rows.g(), rows.b(), rows.w);
        });
        ExpectAgreement(w, [&](Kernel k, Rows& rows) {
            zoca::ToneRow(k, tp, rows.r(), rows.g(), rows.b(), rows.w);
        });
    }
}

}  // namespace
