#include "colour.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "convert.h"

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
double Bt1886Inverse(double l) {
    return std::pow(l, 1.0 / 2.4);
}
double SrgbEotf(double v) {
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}
double SrgbInverse(double l) {
    return l <= 0.0031308 ? 12.92 * l : 1.055 * std::pow(l, 1.0 / 2.4) - 0.055;
}

// Linear light in [0, 1] -> table index through the float's own bits: 512 steps per
// octave over 24 octaves keep dark values as finely resolved as bright ones, which a
// uniform index cannot do for a 1/2.4 power.
constexpr int kOctaves = 24;
constexpr int kStepBits = 9;
constexpr int kEncodeSize = (kOctaves << kStepBits) + 1;
constexpr int kIndexBase = (127 - kOctaves) << kStepBits;

// Centre of the linear interval that index i stands for.
double IndexCentre(int i) {
    if (i == 0) return 0.0;
    if (i == kEncodeSize - 1) return 1.0;
    const uint32_t bits =
        (static_cast<uint32_t>(i + kIndexBase) << (23 - kStepBits)) | (1u << (22 - kStepBits));
    float f;
    std::memcpy(&f, &bits, sizeof(f));
    return f;
}

struct TransferTables {
    float decode[256];
    uint8_t encode[kEncodeSize];
};

TransferTables BuildTransfer(Transfer t) {
    TransferTables tt;
    for (int i = 0; i < 256; ++i) {
        const double v = i / 255.0;
        tt.decode[i] = static_cast<float>(t == Transfer::SRGB ? SrgbEotf(v) : Bt1886Eotf(v));
    }
    for (int i = 0; i < kEncodeSize; ++i) {
        const double l = IndexCentre(i);
        const double v = t == Transfer::SRGB ? SrgbInverse(l) : Bt1886Inverse(l);
        tt.encode[i] = static_cast<uint8_t>(std::lround(std::min(std::max(v, 0.0), 1.0) * 255.0));
    }
    return tt;
}

// Built once on first use (thread-safe static initialisation), read-only afterwards.
const TransferTables& TablesOf(Transfer t) {
    static const TransferTables bt1886 = BuildTransfer(Transfer::BT1886);
    static const TransferTables srgb = BuildTransfer(Transfer::SRGB);
    return t == Transfer::SRGB ? srgb : bt1886;
}

// Linear RGB -> destination primaries, then colours outside [0, 1] move toward their
// own luminance (kept, clipped to [0, 1]) just far enough to fit: hue and brightness
// survive, only saturation is given up.
struct GamutMapper;
void MapGamutRow(const GamutMapper& gm, float* r, float* g, float* b, int w);

struct GamutMapper {
    float m[9];
    float wr, wg, wb;  // luminance of each destination primary

    GamutMapper(Primaries from, Primaries to) {
        const Mat3 to_xyz = RgbToXyz(to);
        const Mat3 conv = Mul(Inverse(to_xyz), RgbToXyz(from));
        for (int i = 0; i < 9; ++i) m[i] = static_cast<float>(conv.m[i]);
        wr = static_cast<float>(to_xyz.m[3]);
        wg = static_cast<float>(to_xyz.m[4]);
        wb = static_cast<float>(to_xyz.m[5]);
    }

    void MapRow(float* r, float* g, float* b, int w) const { MapGamutRow(*this, r, g, b, w); }
};

inline float Max(float a, float b) {
    return a > b ? a : b;
}
inline float Min(float a, float b) {
    return a < b ? a : b;
}

// Branch-free so the loop vectorises: inside the gamut both limits work out to t >= 1
// and the colour passes unchanged.
ZOCA_HOT void MapGamutRow(const GamutMapper& gm, float* __restrict r, float* __restrict g,
                          float* __restrict b, int w) {
    const float m0 = gm.m[0], m1 = gm.m[1], m2 = gm.m[2], m3 = gm.m[3], m4 = gm.m[4];
    const float m5 = gm.m[5], m6 = gm.m[6], m7 = gm.m[7], m8 = gm.m[8];
    const float wr = gm.wr, wg = gm.wg, wb = gm.wb;
    constexpr float kTiny = 1e-6f;
    for (int x = 0; x < w; ++x) {
        const float r2 = m0 * r[x] + m1 * g[x] + m2 * b[x];
        const float g2 = m3 * r[x] + m4 * g[x] + m5 * b[x];
        const float b2 = m6 * r[x] + m7 * g[x] + m8 * b[x];
        const float hi = Max(r2, Max(g2, b2));
        const float lo = Min(r2, Min(g2, b2));
        const float l = Min(Max(wr * r2 + wg * g2 + wb * b2, 0.0f), 1.0f);
        const float t_hi = (1.0f - l) / Max(hi - l, kTiny);
        const float t_lo = l / Max(l - lo, kTiny);
        const float t = Min(1.0f, Min(t_hi, t_lo));
        r[x] = l + t * (r2 - l);
        g[x] = l + t * (g2 - l);
        b[x] = l + t * (b2 - l);
    }
}

// Table indices of a row of linear values (vectorised), then the lookups.
ZOCA_HOT void LinearIndices(const float* __restrict v, int32_t* __restrict idx, int w) {
    for (int x = 0; x < w; ++x) {
        const float c = Min(Max(v[x], 0.0f), 1.0f);
        uint32_t bits;
        std::memcpy(&bits, &c, sizeof(bits));
        const int32_t i = static_cast<int32_t>(bits >> (23 - kStepBits)) - kIndexBase;
        idx[x] = i > 0 ? i : 0;
    }
}

void EncodeRow(const uint8_t* __restrict table, const float* v, int32_t* __restrict idx,
               uint8_t* __restrict out, int w) {
    LinearIndices(v, idx, w);
    for (int x = 0; x < w; ++x) out[x] = table[idx[x]];
}

// Three 8-bit rows through one table of floats.
ZOCA_HOT void DecodeRow3(const float* __restrict table, const uint8_t* __restrict r,
                         const uint8_t* __restrict g, const uint8_t* __restrict b,
                         float* __restrict fr, float* __restrict fg, float* __restrict fb, int w) {
    for (int x = 0; x < w; ++x) {
        fr[x] = table[r[x]];
        fg[x] = table[g[x]];
        fb[x] = table[b[x]];
    }
}

// Per-call float rows for the stages (a stage object lives for one call).
struct FloatRows {
    explicit FloatRows(int w) : r(w), g(w), b(w), t(w), idx(w) {}
    void Fit(int w) {
        if (static_cast<int>(r.size()) >= w) return;
        r.resize(w);
        g.resize(w);
        b.resize(w);
        t.resize(w);
        idx.resize(w);
    }
    // Maps the float rows into the destination gamut and encodes them into the byte rows.
    void MapAndEncode(const GamutMapper& map, const TransferTables& out, uint8_t* r8, uint8_t* g8,
                      uint8_t* b8, int w) {
        map.MapRow(r.data(), g.data(), b.data(), w);
        EncodeRow(out.encode, r.data(), idx.data(), r8, w);
        EncodeRow(out.encode, g.data(), idx.data(), g8, w);
        EncodeRow(out.encode, b.data(), idx.data(), b8, w);
    }

    std::vector<float> r, g, b, t;
    std::vector<int32_t> idx;
};

class GamutStage : public PixelStage {
  public:
    GamutStage(int from_cs, int to_cs, int width)
        : in_(TablesOf(TransferOf(from_cs))),
          out_(TablesOf(TransferOf(to_cs))),
          map_(PrimariesOf(from_cs), PrimariesOf(to_cs)),
          f_(width) {}

    void Run(uint8_t* r, uint8_t* g, uint8_t* b, int w) override {
        f_.Fit(w);
        float* fr = f_.r.data();
        float* fg = f_.g.data();
        float* fb = f_.b.data();
        DecodeRow3(in_.decode, r, g, b, fr, fg, fb, w);
        f_.MapAndEncode(map_, out_, r, g, b, w);
    }

  private:
    const TransferTables& in_;
    const TransferTables& out_;
    GamutMapper map_;
    FloatRows f_;
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

constexpr int kRatioSize = 4096;

struct ToneTables {
    ModeParams params;
    // PQ: nits of each code, and the gain for a pixel whose largest code is the index
    // (PQ is monotonic, so the largest code is the largest light).
    float nits[256];
    float gain[256];
    // HLG: scene light of each code, Ys^(gamma-1) by LinearIndex, and EETF ratio over
    // display light / peak in kRatioSize steps.
    float scene[256];
    float ootf[kEncodeSize];
    float ratio[kRatioSize + 1];
};

constexpr double kHlgGamma = 1.2;  // BT.2100 system gamma for a 1000-nit display

ToneTables BuildTone(int mode) {
    ToneTables t{};
    const ModeParams mp = ParamsOf(mode);
    t.params = mp;
    for (int i = 0; i < 256; ++i) {
        const double n = PqEotf(i / 255.0);
        t.nits[i] = static_cast<float>(n);
        t.gain[i] = static_cast<float>(n > 0 ? Eetf(n, mp.master, mp.target) / n / mp.target
                                             : 1.0 / mp.target);
        t.scene[i] = static_cast<float>(HlgInverseOetf(i / 255.0));
    }
    for (int i = 0; i < kEncodeSize; ++i) {
        t.ootf[i] = static_cast<float>(std::pow(IndexCentre(i), kHlgGamma - 1.0));
    }
    for (int i = 0; i <= kRatioSize; ++i) {
        const double n = mp.master * i / kRatioSize;
        t.ratio[i] = static_cast<float>(n > 0 ? Eetf(n, mp.master, mp.target) / n : 1.0);
    }
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

// The curve runs on the largest component and every component is scaled by the same
// gain, so hue and saturation are kept while brightness is compressed.
class ToneStage : public PixelStage {
  public:
    ToneStage(int mode, int width)
        : t_(ToneTablesOf(mode)),
          out_(TablesOf(Transfer::BT1886)),
          map_(Primaries::BT2020, Primaries::BT709),
          f_(width) {}

    void Run(uint8_t* r, uint8_t* g, uint8_t* b, int w) override {
        f_.Fit(w);
        float* fr = f_.r.data();
        float* fg = f_.g.data();
        float* fb = f_.b.data();
        if (t_.params.hlg) {
            Hlg(r, g, b, w);
        } else {
            for (int x = 0; x < w; ++x) {
                // PQ is monotonic: the largest code is the largest light.
                const float gain = t_.gain[std::max(r[x], std::max(g[x], b[x]))];
                fr[x] = t_.nits[r[x]] * gain;
                fg[x] = t_.nits[g[x]] * gain;
                fb[x] = t_.nits[b[x]] * gain;
            }
        }
        f_.MapAndEncode(map_, out_, r, g, b, w);
    }

  private:
    void Hlg(const uint8_t* r, const uint8_t* g, const uint8_t* b, int w) {
        float* fr = f_.r.data();
        float* fg = f_.g.data();
        float* fb = f_.b.data();
        float* od = f_.t.data();
        int32_t* idx = f_.idx.data();
        const float scale = static_cast<float>(t_.params.master / t_.params.target);
        for (int x = 0; x < w; ++x) {
            fr[x] = t_.scene[r[x]];
            fg[x] = t_.scene[g[x]];
            fb[x] = t_.scene[b[x]];
            od[x] = 0.2627f * fr[x] + 0.6780f * fg[x] + 0.0593f * fb[x];  // scene luminance Ys
        }
        // BT.2100 OOTF: display light = peak * Ys^(gamma-1) * scene light.
        LinearIndices(od, idx, w);
        for (int x = 0; x < w; ++x) od[x] = t_.ootf[idx[x]];
        for (int x = 0; x < w; ++x) {
            const float top =
                od[x] * std::max(fr[x], std::max(fg[x], fb[x]));  // display max / peak
            idx[x] = static_cast<int32_t>(std::min(top, 1.0f) * kRatioSize + 0.5f);
        }
        for (int x = 0; x < w; ++x) {
            const float k = od[x] * t_.ratio[idx[x]] * scale;
            fr[x] *= k;
            fg[x] *= k;
            fb[x] *= k;
        }
    }

    const ToneTables& t_;
    const TransferTables& out_;
    GamutMapper map_;
    FloatRows f_;
};

}  // namespace

bool SameGamut(int cs_a, int cs_b) {
    return PrimariesOf(cs_a) == PrimariesOf(cs_b) && TransferOf(cs_a) == TransferOf(cs_b);
}

int GamutConvert(const Img& src, const Img& dst) {
    if (SameGamut(src.cs, dst.cs)) return Convert(src, dst, false);
    GamutStage stage(src.cs, dst.cs, src.w);
    return ConvertThrough(src, dst, &stage, false);
}

int ToneMap(const Img& src, const Img& dst, int mode) {
    ToneStage stage(mode, src.w);
    return ConvertThrough(src, dst, &stage, false);
}

}  // namespace zoca
