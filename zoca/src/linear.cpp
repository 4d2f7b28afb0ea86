#include "linear.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "image.h"

namespace zoca {

double IndexCentre(int i) {
    if (i == 0) return 0.0;
    if (i == kEncodeSize - 1) return 1.0;
    const uint32_t bits =
        (static_cast<uint32_t>(i + kIndexBase) << (23 - kStepBits)) | (1u << (22 - kStepBits));
    float f;
    std::memcpy(&f, &bits, sizeof(f));
    return f;
}

// The polynomial runs in t = m - 1.5, which keeps its coefficients small; it
// interpolates m^g at the four Chebyshev nodes of [1, 2].
PowerCurve PowerCurve::Of(double g) {
    PowerCurve pc{};
    for (int i = 0; i < 32; ++i) pc.octave[i] = static_cast<float>(std::exp2((i - 31) * g));
    constexpr int n = 4;
    double a[n][n + 1];
    for (int j = 0; j < n; ++j) {
        const double t = 0.5 * std::cos((2 * j + 1) * M_PI / (2 * n));
        double p = 1;
        for (int k = 0; k < n; ++k, p *= t) a[j][k] = p;
        a[j][n] = std::pow(1.5 + t, g);
    }
    // Gaussian elimination with partial pivoting on the 4 x 4 Vandermonde system.
    for (int col = 0; col < n; ++col) {
        int piv = col;
        for (int r = col + 1; r < n; ++r) {
            if (std::fabs(a[r][col]) > std::fabs(a[piv][col])) piv = r;
        }
        std::swap(a[col], a[piv]);
        for (int r = 0; r < n; ++r) {
            if (r == col) continue;
            const double f = a[r][col] / a[col][col];
            for (int k = col; k <= n; ++k) a[r][k] -= f * a[col][k];
        }
    }
    for (int k = 0; k < n; ++k) pc.c[k] = static_cast<float>(a[k][n] / a[k][k]);
    return pc;
}

void SlicedTable::From(const float* table) {
    for (int i = 0; i < 256; ++i) {
        uint8_t bytes[4];
        std::memcpy(bytes, &table[i], 4);
        for (int k = 0; k < 4; ++k) plane[k][i] = bytes[k];
    }
}

float PowerCurve::At(float x) const {
    if (!(x >= 0x1p-31f)) return 0.0f;
    int e;
    const float m = 2.0f * std::frexp(std::min(x, 1.0f), &e);  // x = m * 2^(e - 1)
    const float t = m - 1.5f;
    const float p = ((c[3] * t + c[2]) * t + c[1]) * t + c[0];
    return octave[e - 1 + 31] * p;
}

float CurveCubic::RatioAt(float top) const {
    constexpr int kShift = 23 - kCurveSteps;
    uint32_t bits;
    std::memcpy(&bits, &top, sizeof(bits));
    const int pos = static_cast<int>(bits >> kShift) - ((127 - kCurveOctaves) << kCurveSteps);
    if (pos < 0) return 1.0f;
    const int i = std::min(pos, kCurveSize - 1);
    const float f =
        pos > i ? 1.0f : static_cast<float>(bits & ((1u << kShift) - 1)) * (1.0f / (1 << kShift));
    const float out = ((c[3][i] * f + c[2][i]) * f + c[1][i]) * f + c[0][i];
    return out / top;
}

namespace {

// Pixels per pass: the float rows of one pass stay in the first-level cache.
constexpr int kChunk = 256;

inline float Max(float a, float b) {
    return a > b ? a : b;
}
inline float Min(float a, float b) {
    return a < b ? a : b;
}

// Into the destination primaries; colours outside [0, 1] move toward their own
// luminance (kept, clipped to [0, 1]) just far enough to fit. Branch-free so the loop
// vectorises: inside the gamut the limit works out to t >= 1 and the colour passes.
ZOCA_HOT void MapChunk(const GamutParams& p, float* __restrict r, float* __restrict g,
                       float* __restrict b, int n) {
    const float m0 = p.m[0], m1 = p.m[1], m2 = p.m[2], m3 = p.m[3], m4 = p.m[4];
    const float m5 = p.m[5], m6 = p.m[6], m7 = p.m[7], m8 = p.m[8];
    const float wr = p.lum[0], wg = p.lum[1], wb = p.lum[2];
    constexpr float kTiny = 1e-6f;
    for (int x = 0; x < n; ++x) {
        const float r2 = m0 * r[x] + m1 * g[x] + m2 * b[x];
        const float g2 = m3 * r[x] + m4 * g[x] + m5 * b[x];
        const float b2 = m6 * r[x] + m7 * g[x] + m8 * b[x];
        const float hi = Max(r2, Max(g2, b2));
        const float lo = Min(r2, Min(g2, b2));
        const float l = Min(Max(wr * r2 + wg * g2 + wb * b2, 0.0f), 1.0f);
        // min((1 - l) / dh, l / dl) with one division: both denominators are positive.
        const float dh = Max(hi - l, kTiny);
        const float dl = Max(l - lo, kTiny);
        const float t = Min(1.0f, Min((1.0f - l) * dl, l * dh) / (dh * dl));
        r[x] = l + t * (r2 - l);
        g[x] = l + t * (g2 - l);
        b[x] = l + t * (b2 - l);
    }
}

ZOCA_HOT void MatrixChunk(const GamutParams& p, float* __restrict r, float* __restrict g,
                          float* __restrict b, int n) {
    const float m0 = p.m[0], m1 = p.m[1], m2 = p.m[2], m3 = p.m[3], m4 = p.m[4];
    const float m5 = p.m[5], m6 = p.m[6], m7 = p.m[7], m8 = p.m[8];
    for (int x = 0; x < n; ++x) {
        const float r2 = m0 * r[x] + m1 * g[x] + m2 * b[x];
        const float g2 = m3 * r[x] + m4 * g[x] + m5 * b[x];
        const float b2 = m6 * r[x] + m7 * g[x] + m8 * b[x];
        r[x] = r2;
        g[x] = g2;
        b[x] = b2;
    }
}

// Table indices of linear values (vectorised); the lookups follow in EncodeChunk.
ZOCA_HOT void LinearIndices(const float* __restrict v, int32_t* __restrict idx, int n) {
    for (int x = 0; x < n; ++x) {
        const float c = Min(Max(v[x], 0.0f), 1.0f);
        uint32_t bits;
        std::memcpy(&bits, &c, sizeof(bits));
        const int32_t i = static_cast<int32_t>(bits >> (23 - kStepBits)) - kIndexBase;
        idx[x] = i > 0 ? i : 0;
    }
}

void EncodeChunk(const uint8_t* __restrict table, const float* v, int32_t* __restrict idx,
                 uint8_t* __restrict out, int n) {
    LinearIndices(v, idx, n);
    for (int x = 0; x < n; ++x) out[x] = table[idx[x]];
}

struct Chunk {
    alignas(64) float r[kChunk];
    alignas(64) float g[kChunk];
    alignas(64) float b[kChunk];
    alignas(64) float t[kChunk];
    alignas(64) int32_t idx[kChunk];

    void MapAndEncode(const GamutParams& p, uint8_t* r8, uint8_t* g8, uint8_t* b8, int n) {
        if (p.map) {
            MapChunk(p, r, g, b, n);
        } else {
            MatrixChunk(p, r, g, b, n);
        }
        EncodeChunk(p.enc.table, r, idx, r8, n);
        EncodeChunk(p.enc.table, g, idx, g8, n);
        EncodeChunk(p.enc.table, b, idx, b8, n);
    }
};

void GamutPlain(const GamutParams& p, uint8_t* r8, uint8_t* g8, uint8_t* b8, int w) {
    Chunk c;
    const float* dec = p.decode->value;
    for (int x0 = 0; x0 < w; x0 += kChunk) {
        const int n = std::min(kChunk, w - x0);
        uint8_t* r = r8 + x0;
        uint8_t* g = g8 + x0;
        uint8_t* b = b8 + x0;
        for (int x = 0; x < n; ++x) {
            c.r[x] = dec[r[x]];
            c.g[x] = dec[g[x]];
            c.b[x] = dec[b[x]];
        }
        c.MapAndEncode(p, r, g, b, n);
    }
}

// The curve runs on the largest component and every component is scaled by the same
// gain, so hue and saturation are kept while brightness is compressed.
void PqPlain(const ToneParams& p, const uint8_t* r, const uint8_t* g, const uint8_t* b, Chunk& c,
             int n) {
    for (int x = 0; x < n; ++x) {
        const float gain = p.gain->value[std::max(r[x], std::max(g[x], b[x]))];
        c.r[x] = p.nits->value[r[x]] * gain;
        c.g[x] = p.nits->value[g[x]] * gain;
        c.b[x] = p.nits->value[b[x]] * gain;
    }
}

void HlgPlain(const ToneParams& p, const uint8_t* r, const uint8_t* g, const uint8_t* b, Chunk& c,
              int n) {
    float* od = c.t;
    for (int x = 0; x < n; ++x) {
        c.r[x] = p.scene->value[r[x]];
        c.g[x] = p.scene->value[g[x]];
        c.b[x] = p.scene->value[b[x]];
        od[x] = 0.2627f * c.r[x] + 0.6780f * c.g[x] + 0.0593f * c.b[x];  // scene luminance Ys
    }
    // BT.2100 OOTF: display light = peak * Ys^(gamma-1) * scene light.
    LinearIndices(od, c.idx, n);
    for (int x = 0; x < n; ++x) od[x] = p.ootf[c.idx[x]];
    for (int x = 0; x < n; ++x) {
        const float top =
            Min(od[x] * Max(c.r[x], Max(c.g[x], c.b[x])), 1.0f);  // display max / peak
        const float k = od[x] * p.curve->RatioAt(top) * p.scale;
        c.r[x] *= k;
        c.g[x] *= k;
        c.b[x] *= k;
    }
}

void TonePlain(const ToneParams& p, uint8_t* r8, uint8_t* g8, uint8_t* b8, int w) {
    Chunk c;
    for (int x0 = 0; x0 < w; x0 += kChunk) {
        const int n = std::min(kChunk, w - x0);
        if (p.hlg) {
            HlgPlain(p, r8 + x0, g8 + x0, b8 + x0, c, n);
        } else {
            PqPlain(p, r8 + x0, g8 + x0, b8 + x0, c, n);
        }
        c.MapAndEncode(p.out, r8 + x0, g8 + x0, b8 + x0, n);
    }
}

}  // namespace

bool avx512::Available() {
#if ZOCA_AVX512_BUILD
    static const bool yes =
        __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
        __builtin_cpu_supports("avx512vnni");
    return yes;
#else
    return false;
#endif
}

bool Supported(Kernel k) {
    return k == Kernel::Plain || avx512::Available();
}

Kernel BestKernel() {
    static const Kernel best = [] {
        const char* forced = std::getenv("ZOCA_KERNEL");
        if (forced != nullptr && std::strcmp(forced, "plain") == 0) return Kernel::Plain;
        return avx512::Available() ? Kernel::Avx512 : Kernel::Plain;
    }();
    return best;
}

void GamutRow(Kernel k, const GamutParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w) {
#if ZOCA_AVX512_BUILD
    if (k == Kernel::Avx512) return avx512::GamutRow(p, r, g, b, w);
#endif
    (void)k;
    GamutPlain(p, r, g, b, w);
}

void ToneRow(Kernel k, const ToneParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w) {
#if ZOCA_AVX512_BUILD
    if (k == Kernel::Avx512) return avx512::ToneRow(p, r, g, b, w);
#endif
    (void)k;
    TonePlain(p, r, g, b, w);
}

}  // namespace zoca
