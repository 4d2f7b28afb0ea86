// Linear-light row kernels behind gamut conversion and tone mapping. Each one works in
// place on one row of planar 8-bit R, G, B. The plain build runs anywhere; the AVX-512
// build (VBMI byte permutes for the tables, no gathers) is picked when the CPU has it
// (and VNNI, which the YUV encoder uses).
// The two agree to within one code and almost always exactly.
#ifndef ZOCA_SRC_LINEAR_H
#define ZOCA_SRC_LINEAR_H

#include <cstdint>

#include "image.h"

// The plain build's loops, cloned by instruction set rather than by CPU model (an "arch="
// clone is dispatched only on that vendor's parts), picked at load time.
// Not under ThreadSanitizer, for the reason given at ZOCA_HOT.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__)
#define ZOCA_CLONES __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define ZOCA_CLONES
#endif
#if defined(__GNUC__)
#define ZOCA_INLINE inline __attribute__((always_inline))
#else
#define ZOCA_INLINE inline
#endif

namespace zoca {

// x^g on [0, 1] without a table lookup per value: x = 2^e * m with m in [1, 2), so
// x^g = (2^e)^g * m^g, the first factor from 32 per-octave values (e >= -31; anything
// darker is taken as 0) and the second a cubic fitted at construction, within 1.1e-4
// of m^g for the exponents used here (a thirtieth of an 8-bit code).
struct PowerCurve {
    float octave[32];  // octave[e + 31] = 2^(e * g)
    float c[4];        // m^g ~ c0 + c1 t + c2 t^2 + c3 t^3, t = m - 1.5
    float g;
    static PowerCurve Of(double g);
    float At(float x) const;
};

// A table of 256 floats as four planes of bytes, plane k holding byte k of each entry:
// the vector build looks codes up in it with byte permutes.
struct alignas(64) SlicedTable {
    uint8_t plane[4][256];
    void From(const float* table);
};

// 256 values by 8-bit code, with the byte planes the vector build reads them from.
struct CodeTable {
    float value[256];
    SlicedTable bytes;
    template <typename F>
    void Fill(F f) {
        for (int i = 0; i < 256; ++i) value[i] = static_cast<float>(f(i));
        bytes.From(value);
    }
};

// Linear light -> 8-bit code of the destination's curve.
struct Encoder {
    PowerCurve power;  // x^(1/2.4), the core of both curves
    bool srgb;         // sRGB's linear toe and offset around the power
};

// Source codes -> linear light, into the destination's primaries, back to codes.
struct GamutParams {
    const CodeTable* decode;  // linear light by source code
    float m[9];               // linear source RGB -> linear destination RGB
    float lum[3];             // luminance of each destination primary
    // False when no colour can leave the destination gamut (every coefficient >= 0 and
    // rows summing to 1), so clamping replaces the mapping.
    bool map;
    Encoder enc;
};

// The HLG route's curve as its ratio, display light out over display light in (both over
// the peak), on intervals a fixed number an octave over [2^-8, 1], so that a float's bits
// give its interval and the fraction in it. Below 2^-8 the curve is the identity (its
// knee sits far above).
constexpr int kCurveOctaves = 8;
// The curve's ratio itself (out over in), 4 intervals an octave, for the vector build:
// 32 intervals fit one two-register permute per coefficient, and no division is left.
constexpr int kRatioSteps = 2;
constexpr int kRatioSize = kCurveOctaves << kRatioSteps;
struct RatioCubic {
    float c[4][kRatioSize];
    // The ratio at top in [0, 1], one value at a time.
    float RatioAt(float top) const;
};

// The ratio again as straight lines, 64 intervals an octave, for the plain build: two
// table reads a value where the cubics take four and a division.
constexpr int kLineSteps = 6;
constexpr int kLineSize = kCurveOctaves << kLineSteps;
struct RatioLine {
    float at[kLineSize + 1];    // the ratio at the start of each interval, and at 1
    float step[kLineSize + 1];  // at[i + 1] - at[i]; 0 at the end
    // The ratio at top in [0, 1], as the plain build computes it.
    float RatioAt(float top) const;
};

struct ToneParams {
    bool hlg;
    // PQ: nits of each code, and the gain (the curve's ratio over the target peak) for
    // a pixel whose largest code is the index (PQ is monotonic, so the largest code is
    // the largest light).
    const CodeTable* nits;
    const CodeTable* gain;
    // HLG: scene light of each code; Ys^(gamma-1) as a power; the curve by display
    // light over the peak.
    const CodeTable* scene;
    PowerCurve ootf_power;
    const RatioCubic* ratio;
    const RatioLine* line;
    float scale;      // peak of the HDR signal over the SDR target
    GamutParams out;  // BT.2020 -> BT.709 and the BT.1886 encoding (decode unused)
};

enum class Kernel { Plain, Avx512 };

// Whether this CPU (and this build) can run k; Plain always can.
bool Supported(Kernel k);
// The fastest supported kernel; ZOCA_KERNEL=plain in the environment forces the plain one.
Kernel BestKernel();

void GamutRow(Kernel k, const GamutParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w);
void ToneRow(Kernel k, const ToneParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w);
// The same on a row of packed 4-byte pixels (src and dst in their own byte orders, alpha
// passed through).
void GamutPackedRow(Kernel k, const GamutParams& p, const uint8_t* src, PackedOrder so,
                    uint8_t* dst, PackedOrder dor, int w);
void TonePackedRow(Kernel k, const ToneParams& p, const uint8_t* src, PackedOrder so, uint8_t* dst,
                   PackedOrder dor, int w);

namespace avx512 {
bool Available();
void GamutRow(const GamutParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w);
void ToneRow(const ToneParams& p, uint8_t* r, uint8_t* g, uint8_t* b, int w);
// The same on a row of packed 4-byte pixels (src and dst in their own byte orders,
// alpha passed through), with no planar rows between.
void GamutPacked(const GamutParams& p, const uint8_t* src, PackedOrder so, uint8_t* dst,
                 PackedOrder dor, int w);
void TonePacked(const ToneParams& p, const uint8_t* src, PackedOrder so, uint8_t* dst,
                PackedOrder dor, int w);
}  // namespace avx512

}  // namespace zoca

#endif  // ZOCA_SRC_LINEAR_H
