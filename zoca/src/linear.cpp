#include "linear.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "image.h"

namespace zoca {

namespace {

// The polynomial in t = x - c of degree n - 1 through f at the n Chebyshev nodes of
// [c - h, c + h], into out[0..n-1] (n <= 8): close to the best uniform fit.
template <typename F>
void ChebyshevFit(F f, double c, double h, int n, double* out) {
    double a[8][9];
    for (int j = 0; j < n; ++j) {
        const double t = h * std::cos((2 * j + 1) * M_PI / (2 * n));
        double p = 1;
        for (int k = 0; k < n; ++k, p *= t) a[j][k] = p;
        a[j][n] = f(c + t);
    }
    // Gaussian elimination with partial pivoting on the Vandermonde system.
    for (int col = 0; col < n; ++col) {
        int piv = col;
        for (int r = col + 1; r < n; ++r) {
            if (std::fabs(a[r][col]) > std::fabs(a[piv][col])) piv = r;
        }
        std::swap(a[col], a[piv]);
        for (int r = 0; r < n; ++r) {
            if (r == col) continue;
            const double q = a[r][col] / a[col][col];
            for (int k = col; k <= n; ++k) a[r][k] -= q * a[col][k];
        }
    }
    for (int k = 0; k < n; ++k) out[k] = a[k][n] / a[k][k];
}

}  // namespace

// The polynomial runs in t = m - 1.5, which keeps its coefficients small.
PowerCurve PowerCurve::Of(double g) {
    PowerCurve pc{};
    pc.g = static_cast<float>(g);
    for (int i = 0; i < 32; ++i) pc.octave[i] = static_cast<float>(std::exp2((i - 31) * g));
    double c[4];
    ChebyshevFit([g](double m) { return std::pow(m, g); }, 1.5, 0.5, 4, c);
    for (int k = 0; k < 4; ++k) pc.c[k] = static_cast<float>(c[k]);
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

float RatioCubic::RatioAt(float top) const {
    constexpr int kShift = 23 - kRatioSteps;
    uint32_t bits;
    std::memcpy(&bits, &top, sizeof(bits));
    const int pos = static_cast<int>(bits >> kShift) - ((127 - kCurveOctaves) << kRatioSteps);
    if (pos < 0) return 1.0f;
    const int i = std::min(pos, kRatioSize - 1);
    const float f =
        pos > i ? 1.0f : static_cast<float>(bits & ((1u << kShift) - 1)) * (1.0f / (1 << kShift));
    return ((c[3][i] * f + c[2][i]) * f + c[1][i]) * f + c[0][i];
}

namespace {

// Pixels per pass: the float rows of one pass stay in the first-level cache.
constexpr int kChunk = 256;

template <typename T>
inline T Max(T a, T b) {
    return a > b ? a : b;
}
template <typename T>
inline T Min(T a, T b) {
    return a < b ? a : b;
}

// Clamps x to [0, 1] on its bits: as integers, non-negative floats are in order and
// negative ones are below 0 (NaN goes to 1 or 0). Two integer operations, where the
// compiler turns a float clamp into masked copies of the code for 0 and for 1.
ZOCA_INLINE int32_t UnitBits(float x) {
    int32_t bits;
    std::memcpy(&bits, &x, sizeof(bits));
    return Min(Max(bits, 0), 0x3f800000);
}

ZOCA_INLINE float FloatOf(int32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof(f));
    return f;
}

// max(x, k) for k > 0 on the bits, for the same reason as UnitBits.
ZOCA_INLINE float AtLeast(float x, float k) {
    int32_t xb, kb;
    std::memcpy(&xb, &x, sizeof(xb));
    std::memcpy(&kb, &k, sizeof(kb));
    return FloatOf(Max(xb, kb));
}

// Into the destination primaries; colours outside [0, 1] move toward their own
// luminance (kept, clipped to [0, 1]) just far enough to fit. Branch-free so the loop
// vectorises: inside the gamut the limit works out to t >= 1 and the colour passes.
ZOCA_CLONES void MapChunk(const GamutParams& p, float* __restrict r, float* __restrict g,
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
        const float l = FloatOf(UnitBits(wr * r2 + wg * g2 + wb * b2));
        // min((1 - l) / dh, l / dl) with one division: both denominators are positive.
        const float dh = AtLeast(hi - l, kTiny);
        const float dl = AtLeast(l - lo, kTiny);
        const float t = Min(1.0f, Min((1.0f - l) * dl, l * dh) / (dh * dl));
        r[x] = l + t * (r2 - l);
        g[x] = l + t * (g2 - l);
        b[x] = l + t * (b2 - l);
    }
}

ZOCA_CLONES void MatrixChunk(const GamutParams& p, float* __restrict r, float* __restrict g,
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

// Codes through a 256-entry table: the vector clones gather.
ZOCA_CLONES void Lookup(const float* __restrict table, const uint8_t* __restrict in,
                        float* __restrict out, int n) {
    for (int x = 0; x < n; ++x) out[x] = table[in[x]];
}

// Packed 4-byte pixels are read and written as words; a channel is a shift away.
struct Shifts {
    uint32_t r, g, b, a;
    explicit Shifts(const PackedOrder& o) : r(At(o.r)), g(At(o.g)), b(At(o.b)), a(At(o.a)) {}
    static uint32_t At(int byte) {
        return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? 8 * byte : 24 - 8 * byte;
    }
};

ZOCA_INLINE uint32_t Word(const uint8_t* p) {
    uint32_t w;
    std::memcpy(&w, p, sizeof(w));
    return w;
}

// Packed pixels into planar codes within one pass: the table reads then index bytes,
// which the compiler reads faster than bytes picked out of words.
ZOCA_CLONES void Unpack(const uint8_t* __restrict in, Shifts si, uint8_t* __restrict r,
                        uint8_t* __restrict g, uint8_t* __restrict b, int n) {
    for (int x = 0; x < n; ++x) {
        const uint32_t w = Word(in + 4 * x);
        r[x] = static_cast<uint8_t>(w >> si.r);
        g[x] = static_cast<uint8_t>(w >> si.g);
        b[x] = static_cast<uint8_t>(w >> si.b);
    }
}

// Codes of the three channels and the source's alpha into packed pixels. src is read
// before dst is written at each pixel, so the two may be the same row.
ZOCA_CLONES void MergePacked(const int32_t* __restrict r, const int32_t* __restrict g,
                             const int32_t* __restrict b, const uint8_t* src, Shifts si,
                             uint8_t* dst, Shifts so, int n) {
    for (int x = 0; x < n; ++x) {
        const uint32_t a = (Word(src + 4 * x) >> si.a) & 255;
        const uint32_t w = static_cast<uint32_t>(r[x]) << so.r |
                           static_cast<uint32_t>(g[x]) << so.g |
                           static_cast<uint32_t>(b[x]) << so.b | a << so.a;
        std::memcpy(dst + 4 * x, &w, sizeof(w));
    }
}

// A PowerCurve scaled by k, copied out of the parameters so that the loops below see
// that no store can change it. The octave factor 2^(e g) is computed rather than read
// from the table: the compiler emulates gathers from it with scalar loads.
struct Power {
    float g, g127;             // g, and -127 g (the exponent's bias, folded into one FMA)
    float c0, c1, c2, c3;      // the cubic's coefficients
    float q0, q1, q2, q3, q4;  // k 2^f ~ q0 + q1 f + ... + q4 f^4 for |f| <= 1/2
    Power(const PowerCurve& pc, float k)
        : g(pc.g), g127(-127.0f * pc.g), c0(pc.c[0]), c1(pc.c[1]), c2(pc.c[2]), c3(pc.c[3]) {
        // Fitted once: the rows build their Power on every call.
        static const struct Exp2 {
            double q[5];
            Exp2() {
                ChebyshevFit([](double f) { return std::exp2(f); }, 0.0, 0.5, 5, q);
            }
        } fit;
        q0 = static_cast<float>(k * fit.q[0]);
        q1 = static_cast<float>(k * fit.q[1]);
        q2 = static_cast<float>(k * fit.q[2]);
        q3 = static_cast<float>(k * fit.q[3]);
        q4 = static_cast<float>(k * fit.q[4]);
    }
};

// k x^g for the bits of x in [0, 1]. x = 2^e m: m^g from the curve's cubic, 2^(e g) =
// 2^n 2^f with n the nearest integer (k 2^f within 4e-6 relative there), 2^n added to
// the result's exponent. Below 2^-31 the result is not the curve's but stays below
// k 2^-12, a small fraction of a code for the encoders (0 and subnormals give
// e = -127, still a normal result); the HLG route clamps to 2^-31.
ZOCA_INLINE float PowerAt(const Power& pw, int32_t bits) {
    const float m = FloatOf((bits & 0x007fffff) | 0x3f800000);
    const float t = m - 1.5f;
    const float p = ((pw.c3 * t + pw.c2) * t + pw.c1) * t + pw.c0;
    const float y = static_cast<float>(bits >> 23) * pw.g + pw.g127;  // <= 0
    // Round to nearest by the float adder: n lands in the low bits of r.
    constexpr float kRound = 0x1.8p23f;
    const float r = y + kRound;
    const float f = y - (r - kRound);
    const float q = (((pw.q4 * f + pw.q3) * f + pw.q2) * f + pw.q1) * f + pw.q0;
    int32_t nb;
    std::memcpy(&nb, &r, sizeof(nb));
    int32_t pb;
    const float pq = p * q;
    std::memcpy(&pb, &pq, sizeof(pb));
    return FloatOf(pb + static_cast<int32_t>(static_cast<uint32_t>(nb) << 23));
}

// Linear light -> codes of the destination's curve.
// The codes go through a word row first: a loop that narrows floats to bytes as it goes
// is kept to half-width vectors by the compiler.
template <bool kSrgb>
ZOCA_INLINE void EncodeLoop(const Power& pw, const float* __restrict v, int32_t* __restrict words,
                            uint8_t* __restrict out, int n) {
    constexpr float kToe = 0.0031308f;
    for (int x = 0; x < n; ++x) {
        const int32_t bits = UnitBits(v[x]);
        float c = PowerAt(pw, bits) + (kSrgb ? 0.5f - 255.0f * 0.055f : 0.5f);
        if (kSrgb) {
            const float l = FloatOf(bits);
            const float toe = l * (255.0f * 12.92f) + 0.5f;
            c = l <= kToe ? toe : c;
        }
        words[x] = static_cast<int32_t>(c);
    }
    if (out == nullptr) return;  // packed rows merge the words themselves
    for (int x = 0; x < n; ++x) out[x] = static_cast<uint8_t>(words[x]);
}

ZOCA_CLONES void EncodeCodes(const Power& pw, bool srgb, const float* __restrict v,
                             int32_t* __restrict words, uint8_t* __restrict out, int n) {
    if (srgb) {
        EncodeLoop<true>(pw, v, words, out, n);
    } else {
        EncodeLoop<false>(pw, v, words, out, n);
    }
}

// Where a pass's codes go: planar rows in place, or packed pixels (src null for planar).
struct Dest {
    uint8_t *r, *g, *b;
    const uint8_t* src;
    PackedOrder si;
    uint8_t* dst;
    PackedOrder so;

    Dest At(int x0) const {
        if (src == nullptr) return {r + x0, g + x0, b + x0, nullptr, si, nullptr, so};
        return {nullptr, nullptr, nullptr, src + 4 * x0, si, dst + 4 * x0, so};
    }
};

// A chunk's source codes, planar rows either way.
struct Codes {
    const uint8_t *r, *g, *b;
};

struct Chunk {
    alignas(64) float r[kChunk];
    alignas(64) float g[kChunk];
    alignas(64) float b[kChunk];
    alignas(64) int32_t words[3][kChunk];
    alignas(64) uint8_t codes[3][kChunk];

    // The source's rows, or its packed pixels split into codes here.
    Codes Source(const Dest& d, const Shifts& si, int n) {
        if (d.src == nullptr) return {d.r, d.g, d.b};
        Unpack(d.src, si, codes[0], codes[1], codes[2], n);
        return {codes[0], codes[1], codes[2]};
    }

    void MapAndEncode(const GamutParams& p, const Power& pw, const Dest& d, int n) {
        if (p.map) {
            MapChunk(p, r, g, b, n);
        } else {
            MatrixChunk(p, r, g, b, n);
        }
        EncodeCodes(pw, p.enc.srgb, r, words[0], d.r, n);
        EncodeCodes(pw, p.enc.srgb, g, words[1], d.g, n);
        EncodeCodes(pw, p.enc.srgb, b, words[2], d.b, n);
        if (d.src != nullptr)
            MergePacked(words[0], words[1], words[2], d.src, Shifts(d.si), d.dst, Shifts(d.so), n);
    }
};

Power EncodePower(const Encoder& e) {
    return Power(e.power, e.srgb ? 255.0f * 1.055f : 255.0f);
}

void GamutPlain(const GamutParams& p, const Dest& d, int w) {
    Chunk c;
    const Power pw = EncodePower(p.enc);
    const float* dec = p.decode->value;
    const Shifts si(d.si);
    for (int x0 = 0; x0 < w; x0 += kChunk) {
        const int n = std::min(kChunk, w - x0);
        const Dest dx = d.At(x0);
        const Codes in = c.Source(dx, si, n);
        Lookup(dec, in.r, c.r, n);
        Lookup(dec, in.g, c.g, n);
        Lookup(dec, in.b, c.b, n);
        c.MapAndEncode(p, pw, dx, n);
    }
}

// The curve runs on the largest component and every component is scaled by the same
// gain, so hue and saturation are kept while brightness is compressed.
ZOCA_CLONES void PqPlain(const float* __restrict nits, const float* __restrict gain,
                         const uint8_t* __restrict r, const uint8_t* __restrict g,
                         const uint8_t* __restrict b, float* __restrict R, float* __restrict G,
                         float* __restrict B, int n) {
    for (int x = 0; x < n; ++x) {
        const uint8_t top = std::max(r[x], std::max(g[x], b[x]));
        const float k = gain[top];
        R[x] = nits[r[x]] * k;
        G[x] = nits[g[x]] * k;
        B[x] = nits[b[x]] * k;
    }
}

// The curve's lines and the OOTF's power, copied out for the same reason as Power (the
// lines' reads behind a pointer are not vectorised).
struct HlgCurve {
    RatioLine line;
    Power ootf;
    float scale;
};

// The curve's ratio at top in [2^-8, 1] from its straight lines; the float's bits give
// the interval and the fraction in it.
ZOCA_INLINE float LineRatio(const RatioLine& line, float top) {
    constexpr int kShift = 23 - kLineSteps;
    uint32_t bits;
    std::memcpy(&bits, &top, sizeof(bits));
    // Clamped although top is: the compiler vectorises table reads only by a bounded index.
    const int32_t pos =
        static_cast<int32_t>(bits >> kShift) - ((127 - kCurveOctaves) << kLineSteps);
    const int32_t i = Min(Max(pos, 0), kLineSize);
    const float f = static_cast<float>(static_cast<int32_t>(bits & ((1u << kShift) - 1))) *
                    (1.0f / (1 << kShift));
    return line.at[i] + f * line.step[i];
}

// BT.2100 OOTF (display light = peak * Ys^(gamma-1) * scene light), then the curve on
// the largest component of display light (the identity below 2^-8, where the curve
// starts: the knee sits far above).
ZOCA_CLONES void HlgPlain(const HlgCurve& hc, const float* __restrict scene,
                          const uint8_t* __restrict r, const uint8_t* __restrict g,
                          const uint8_t* __restrict b, float* __restrict R, float* __restrict G,
                          float* __restrict B, int n) {
    constexpr float kLow = 0x1p-8f;
    static_assert(kCurveOctaves == 8, "kLow is where the lines start");
    for (int x = 0; x < n; ++x) {
        const float sr = scene[r[x]], sg = scene[g[x]], sb = scene[b[x]];
        const float ys = 0.2627f * sr + 0.6780f * sg + 0.0593f * sb;
        const float od = PowerAt(hc.ootf, UnitBits(Max(ys, 0x1p-31f)));
        const float top = Min(Max(od * Max(sr, Max(sg, sb)), kLow), 1.0f);
        const float k = od * LineRatio(hc.line, top) * hc.scale;
        R[x] = sr * k;
        G[x] = sg * k;
        B[x] = sb * k;
    }
}

void TonePlain(const ToneParams& p, const Dest& d, int w) {
    Chunk c;
    const Power pw = EncodePower(p.out.enc);
    const HlgCurve hc{*p.line, Power(p.ootf_power, 1.0f), p.scale};
    const Shifts si(d.si);
    for (int x0 = 0; x0 < w; x0 += kChunk) {
        const int n = std::min(kChunk, w - x0);
        const Dest dx = d.At(x0);
        const Codes in = c.Source(dx, si, n);
        if (p.hlg) {
            HlgPlain(hc, p.scene->value, in.r, in.g, in.b, c.r, c.g, c.b, n);
        } else {
            PqPlain(p.nits->value, p.gain->value, in.r, in.g, in.b, c.r, c.g, c.b, n);
        }
        c.MapAndEncode(p.out, pw, dx, n);
    }
}

}  // namespace

float RatioLine::RatioAt(float top) const {
    return LineRatio(*this, Min(Max(top, 0x1p-8f), 1.0f));  // the plain kernel's clamp
}

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
    GamutPlain(p, {r, g, b, nullptr, {}, nullptr, {}}, w);
}

void ToneRow(Kernel k, const ToneParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w) {
#if ZOCA_AVX512_BUILD
    if (k == Kernel::Avx512) return avx512::ToneRow(p, r, g, b, w);
#endif
    (void)k;
    TonePlain(p, {r, g, b, nullptr, {}, nullptr, {}}, w);
}

void GamutPackedRow(Kernel k, const GamutParams& p, const uint8_t* src, PackedOrder so,
                    uint8_t* dst, PackedOrder dor, int w) {
#if ZOCA_AVX512_BUILD
    if (k == Kernel::Avx512 && Supported(k)) return avx512::GamutPacked(p, src, so, dst, dor, w);
#endif
    (void)k;
    GamutPlain(p, {nullptr, nullptr, nullptr, src, so, dst, dor}, w);
}

void TonePackedRow(Kernel k, const ToneParams& p, const uint8_t* src, PackedOrder so, uint8_t* dst,
                   PackedOrder dor, int w) {
#if ZOCA_AVX512_BUILD
    if (k == Kernel::Avx512 && Supported(k)) return avx512::TonePacked(p, src, so, dst, dor, w);
#endif
    (void)k;
    TonePlain(p, {nullptr, nullptr, nullptr, src, so, dst, dor}, w);
}

}  // namespace zoca
