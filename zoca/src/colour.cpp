#include "colour.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "convert.h"
#include "linear.h"

namespace zoca {
namespace {

enum class Primaries { BT709, BT2020, P3 };
enum class Transfer { BT1886, SRGB };

Primaries PrimariesOf(int cs) {
    switch (cs) {
        case ZOCA_CS_BT2020:
        case ZOCA_CS_BT2020_FULL:
            return Primaries::BT2020;
        case ZOCA_CS_DISPLAY_P3:
            return Primaries::P3;
        default:  // BT.601 pictures are taken to have BT.709 primaries
            return Primaries::BT709;
    }
}

Transfer TransferOf(int cs) {
    return cs == ZOCA_CS_DISPLAY_P3 ? Transfer::SRGB : Transfer::BT1886;
}

// ---- 3x3 matrices from CIE xy chromaticities, D65 white ----

struct Mat3 {
    double m[9];
};

Mat3 Mul(const Mat3& a, const Mat3& b) {
    Mat3 r{};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            double s = 0;
            for (int k = 0; k < 3; ++k) s += a.m[i * 3 + k] * b.m[k * 3 + j];
            r.m[i * 3 + j] = s;
        }
    }
    return r;
}

Mat3 Inverse(const Mat3& a) {
    const double* m = a.m;
    const double c00 = m[4] * m[8] - m[5] * m[7];
    const double c01 = m[5] * m[6] - m[3] * m[8];
    const double c02 = m[3] * m[7] - m[4] * m[6];
    const double det = m[0] * c00 + m[1] * c01 + m[2] * c02;
    Mat3 r;
    r.m[0] = c00 / det;
    r.m[1] = (m[2] * m[7] - m[1] * m[8]) / det;
    r.m[2] = (m[1] * m[5] - m[2] * m[4]) / det;
    r.m[3] = c01 / det;
    r.m[4] = (m[0] * m[8] - m[2] * m[6]) / det;
    r.m[5] = (m[2] * m[3] - m[0] * m[5]) / det;
    r.m[6] = c02 / det;
    r.m[7] = (m[1] * m[6] - m[0] * m[7]) / det;
    r.m[8] = (m[0] * m[4] - m[1] * m[3]) / det;
    return r;
}

Mat3 RgbToXyz(Primaries p) {
    static constexpr double kBt709[3][2] = {{0.640, 0.330}, {0.300, 0.600}, {0.150, 0.060}};
    static constexpr double kBt2020[3][2] = {{0.708, 0.292}, {0.170, 0.797}, {0.131, 0.046}};
    static constexpr double kP3[3][2] = {{0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}};
    const double(*xy)[2] = p == Primaries::BT2020 ? kBt2020 : p == Primaries::P3 ? kP3 : kBt709;
    const double wx = 0.3127;
    const double wy = 0.3290;
    Mat3 prim;
    for (int c = 0; c < 3; ++c) {
        prim.m[0 * 3 + c] = xy[c][0] / xy[c][1];
        prim.m[1 * 3 + c] = 1.0;
        prim.m[2 * 3 + c] = (1.0 - xy[c][0] - xy[c][1]) / xy[c][1];
    }
    // Scale each primary so that R = G = B = 1 gives the white point at Y = 1.
    const Mat3 inv = Inverse(prim);
    const double white[3] = {wx / wy, 1.0, (1.0 - wx - wy) / wy};
    double s[3];
    for (int i = 0; i < 3; ++i) {
        s[i] = inv.m[i * 3] * white[0] + inv.m[i * 3 + 1] * white[1] + inv.m[i * 3 + 2] * white[2];
    }
    Mat3 out;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) out.m[r * 3 + c] = prim.m[r * 3 + c] * s[c];
    }
    return out;
}

// ---- transfer curves ----

double Bt1886Eotf(double v) {
    return std::pow(v, 2.4);
}
double SrgbEotf(double v) {
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

struct TransferTables {
    CodeTable decode;
    PowerCurve power;  // the 1/2.4 power at the core of both inverse curves
    bool srgb;
};

TransferTables BuildTransfer(Transfer t) {
    TransferTables tt;
    tt.decode.Fill([t](int i) {
        const double v = i / 255.0;
        return t == Transfer::SRGB ? SrgbEotf(v) : Bt1886Eotf(v);
    });
    tt.power = PowerCurve::Of(1.0 / 2.4);
    tt.srgb = t == Transfer::SRGB;
    return tt;
}

// Built once on first use (thread-safe static initialisation), read-only afterwards.
const TransferTables& TablesOf(Transfer t) {
    static const TransferTables bt1886 = BuildTransfer(Transfer::BT1886);
    static const TransferTables srgb = BuildTransfer(Transfer::SRGB);
    return t == Transfer::SRGB ? srgb : bt1886;
}

// Linear source RGB -> linear destination RGB, with the destination's encoding.
GamutParams MakeGamut(const TransferTables* in, Primaries from, Primaries to,
                      const TransferTables& out) {
    GamutParams p{};
    p.decode = in != nullptr ? &in->decode : nullptr;
    const Mat3 to_xyz = RgbToXyz(to);
    const Mat3 conv = Mul(Inverse(to_xyz), RgbToXyz(from));
    p.map = false;
    for (int i = 0; i < 9; ++i) {
        p.m[i] = static_cast<float>(conv.m[i]);
        // Rows sum to 1 (white is kept), so with no negative coefficient every output
        // stays within the inputs' range.
        p.map = p.map || conv.m[i] < -1e-9;
    }
    for (int i = 0; i < 3; ++i) p.lum[i] = static_cast<float>(to_xyz.m[3 + i]);
    p.enc = {out.power, out.srgb};
    return p;
}

class GamutStage : public PixelStage {
  public:
    GamutStage(int from_cs, int to_cs, Kernel k) : p_(GamutParamsOf(from_cs, to_cs)), k_(k) {}

    void Run(uint8_t* r, uint8_t* g, uint8_t* b, int w) override { GamutRow(k_, p_, r, g, b, w); }
    bool RunsPacked() const override { return true; }
    void RunPacked(const uint8_t* src, PackedOrder so, uint8_t* dst, PackedOrder dor,
                   int w) override {
        GamutPackedRow(k_, p_, src, so, dst, dor, w);
    }

  private:
    const GamutParams p_;
    const Kernel k_;
};

// ---- HDR: SMPTE ST 2084 (PQ), BT.2100 HLG, BT.2390 EETF ----

constexpr double kPqM1 = 2610.0 / 16384.0;
constexpr double kPqM2 = 2523.0 / 4096.0 * 128.0;
constexpr double kPqC1 = 3424.0 / 4096.0;
constexpr double kPqC2 = 2413.0 / 4096.0 * 32.0;
constexpr double kPqC3 = 2392.0 / 4096.0 * 32.0;

// PQ signal [0, 1] -> nits.
double PqEotf(double e) {
    const double p = std::pow(std::max(e, 0.0), 1.0 / kPqM2);
    return 10000.0 * std::pow(std::max(p - kPqC1, 0.0) / (kPqC2 - kPqC3 * p), 1.0 / kPqM1);
}

// Nits -> PQ signal [0, 1].
double PqInverse(double nits) {
    const double y = std::pow(std::max(nits, 0.0) / 10000.0, kPqM1);
    return std::pow((kPqC1 + kPqC2 * y) / (1.0 + kPqC3 * y), kPqM2);
}

// HLG signal [0, 1] -> normalised scene light [0, 1].
double HlgInverseOetf(double e) {
    constexpr double a = 0.17883277;
    constexpr double b = 1.0 - 4.0 * a;
    const double c = 0.5 - a * std::log(4.0 * a);
    return e <= 0.5 ? e * e / 3.0 : (std::exp((e - c) / a) + b) / 12.0;
}

// BT.2390 EETF for a mastering display of peak `master` nits (black 0) shown on a
// target of peak `target` nits (black 0): identity below the knee, a Hermite spline
// from the knee up to the target peak, all in the PQ domain.
double Eetf(double nits, double master, double target) {
    const double src_max = PqInverse(master);
    const double e1 = std::min(PqInverse(nits) / src_max, 1.0);
    const double max_lum = PqInverse(target) / src_max;
    const double ks = 1.5 * max_lum - 0.5;
    double e2 = e1;
    if (e1 >= ks) {
        const double t = (e1 - ks) / (1.0 - ks);
        const double t2 = t * t;
        const double t3 = t2 * t;
        e2 = (2 * t3 - 3 * t2 + 1) * ks + (t3 - 2 * t2 + t) * (1 - ks) +
             (-2 * t3 + 3 * t2) * max_lum;
    }
    return PqEotf(e2 * src_max);
}

struct ModeParams {
    bool hlg;
    double master;  // peak nits of the HDR signal (HLG: nominal display peak)
    double target;  // SDR peak the curve aims at
};

ModeParams ParamsOf(int mode) {
    switch (mode) {
        case ZOCA_HDR_HLG:
            return {true, 1000.0, 100.0};
        case ZOCA_HDR_PQ:
            return {false, 1000.0, 203.0};
        case ZOCA_HDR_PQ_HIGHLIGHTS:
            return {false, 4000.0, 100.0};
        default:
            return {false, 1000.0, 100.0};
    }
}

struct ToneTables {
    ModeParams params;
    // PQ: nits of each code, and the gain for a pixel whose largest code is the index.
    CodeTable nits;
    CodeTable gain;
    // HLG: scene light of each code and the EETF.
    CodeTable scene;
    RatioCubic ratio;
    RatioLine line;
};

constexpr double kHlgGamma = 1.2;  // BT.2100 system gamma for a 1000-nit display

double RatioAt(const ModeParams& mp, double top) {
    const double n = mp.master * top;
    return n > 0 ? Eetf(n, mp.master, mp.target) / n : 1.0;
}

// Knot i of intervals 2^steps an octave over [2^-octaves, 1], placed where the float's bit
// pattern puts it, so that the kernels find a value's interval from its bits.
double Knot(int i, int steps) {
    const uint32_t bits = static_cast<uint32_t>(((127 - kCurveOctaves) << steps) + i)
                          << (23 - steps);
    float x;
    std::memcpy(&x, &bits, sizeof(x));
    return static_cast<double>(x);
}

// Per interval, the cubic in the fraction f that matches f(x) and its slope at both ends
// (cubic Hermite): out = ((c3 f + c2) f + c1) f + c0.
template <int N, typename F>
void FitHermite(float (&c)[4][N], int steps, F fn) {
    auto slope = [&](double x) {
        const double h = x * 1e-6;
        return x + h > 1.0 ? (fn(x) - fn(x - h)) / h : (fn(x + h) - fn(x - h)) / (2 * h);
    };
    for (int i = 0; i < N; ++i) {
        const double x0 = Knot(i, steps), x1 = Knot(i + 1, steps);
        const double a = fn(x0), b = fn(x1);
        const double da = slope(x0) * (x1 - x0), db = slope(x1) * (x1 - x0);
        c[0][i] = static_cast<float>(a);
        c[1][i] = static_cast<float>(da);
        c[2][i] = static_cast<float>(3 * (b - a) - 2 * da - db);
        c[3][i] = static_cast<float>(2 * (a - b) + da + db);
    }
}

ToneTables BuildTone(int mode) {
    ToneTables t{};
    const ModeParams mp = ParamsOf(mode);
    t.params = mp;
    t.nits.Fill([](int i) { return PqEotf(i / 255.0); });
    t.gain.Fill([&](int i) { return RatioAt(mp, PqEotf(i / 255.0) / mp.master) / mp.target; });
    t.scene.Fill([](int i) { return HlgInverseOetf(i / 255.0); });
    FitHermite(t.ratio.c, kRatioSteps, [&](double x) { return RatioAt(mp, x); });
    for (int i = 0; i <= kLineSize; ++i)
        t.line.at[i] = static_cast<float>(RatioAt(mp, Knot(i, kLineSteps)));
    for (int i = 0; i < kLineSize; ++i) t.line.step[i] = t.line.at[i + 1] - t.line.at[i];
    t.line.step[kLineSize] = 0;
    return t;
}

const ToneTables& ToneTablesOf(int mode) {
    static const ToneTables pq1000 = BuildTone(ZOCA_HDR_DEFAULT);
    static const ToneTables hlg = BuildTone(ZOCA_HDR_HLG);
    static const ToneTables pq203 = BuildTone(ZOCA_HDR_PQ);
    static const ToneTables pq4000 = BuildTone(ZOCA_HDR_PQ_HIGHLIGHTS);
    switch (mode) {
        case ZOCA_HDR_HLG:
            return hlg;
        case ZOCA_HDR_PQ:
            return pq203;
        case ZOCA_HDR_PQ_HIGHLIGHTS:
            return pq4000;
        default:
            return pq1000;
    }
}

}  // namespace

ToneParams ToneParamsOf(int mode) {
    const ToneTables& t = ToneTablesOf(mode);
    ToneParams p{};
    p.hlg = t.params.hlg;
    p.nits = &t.nits;
    p.gain = &t.gain;
    p.scene = &t.scene;
    p.ootf_power = PowerCurve::Of(kHlgGamma - 1.0);
    p.ratio = &t.ratio;
    p.line = &t.line;
    p.scale = static_cast<float>(t.params.master / t.params.target);
    p.out = MakeGamut(nullptr, Primaries::BT2020, Primaries::BT709, TablesOf(Transfer::BT1886));
    return p;
}

namespace {

class ToneStage : public PixelStage {
  public:
    ToneStage(int mode, Kernel k) : p_(ToneParamsOf(mode)), k_(k) {}

    void Run(uint8_t* r, uint8_t* g, uint8_t* b, int w) override { ToneRow(k_, p_, r, g, b, w); }
    bool RunsPacked() const override { return true; }
    void RunPacked(const uint8_t* src, PackedOrder so, uint8_t* dst, PackedOrder dor,
                   int w) override {
        TonePackedRow(k_, p_, src, so, dst, dor, w);
    }

  private:
    const ToneParams p_;
    const Kernel k_;
};

}  // namespace

GamutParams GamutParamsOf(int from_cs, int to_cs) {
    return MakeGamut(&TablesOf(TransferOf(from_cs)), PrimariesOf(from_cs), PrimariesOf(to_cs),
                     TablesOf(TransferOf(to_cs)));
}

bool SameGamut(int cs_a, int cs_b) {
    return PrimariesOf(cs_a) == PrimariesOf(cs_b) && TransferOf(cs_a) == TransferOf(cs_b);
}

int GamutConvert(const Img& src, const Img& dst, Kernel k) {
    if (SameGamut(src.cs, dst.cs)) return Convert(src, dst, false, k);
    GamutStage stage(src.cs, dst.cs, k);
    return ConvertThrough(src, dst, &stage, false, k);
}

int ToneMap(const Img& src, const Img& dst, int mode, Kernel k) {
    ToneStage stage(mode, k);
    return ConvertThrough(src, dst, &stage, false, k);
}

}  // namespace zoca
