// What a picture file says about its colours, both ways: cICP code points, PNG's gAMA and
// cHRM, and ICC profiles (built and read with Little CMS). Only the colour spaces the image
// library distinguishes are recognised; anything else reads as untagged.
#include <lcms2.h>

#include <cmath>
#include <memory>
#include <type_traits>

#include "vexa/io/Internal.h"

namespace vexa::io::detail {

namespace {

enum Family { kBt709Primaries, kDisplayP3, kBt2020Primaries, kSmpte170, kBt470bg, kFamilies };

// CIE xy of red, green, blue; every one with the D65 white.
constexpr double kPrimaries[kFamilies][3][2] = {
    {{0.640, 0.330}, {0.300, 0.600}, {0.150, 0.060}},
    {{0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}},
    {{0.708, 0.292}, {0.170, 0.797}, {0.131, 0.046}},
    {{0.630, 0.340}, {0.310, 0.595}, {0.155, 0.070}},
    {{0.640, 0.330}, {0.290, 0.600}, {0.150, 0.060}},
};
constexpr double kD65[2] = {0.3127, 0.3290};

// H.273 colour primaries of each family.
constexpr uint8_t kCicpPrimaries[kFamilies] = {1, 12, 9, 6, 5};

enum class Curve { Srgb, Bt1886, Pq, Hlg };

Family familyOf(int colorSpace) {
    switch (colorSpace) {
        case kSpaceDisplayP3:
            return kDisplayP3;
        case kSpaceBt2020:
        case kSpaceBt2020Full:
        case kSpaceBt2100:
            return kBt2020Primaries;
        case kSpaceBt601:
        case kSpaceBt601Full:
            return kSmpte170;
        case kSpaceBt601_625:
            return kBt470bg;
        default:
            return kBt709Primaries;
    }
}

// The image library takes every video space's linear light through BT.1886 (a 2.4 power),
// and sRGB and Display P3 through the sRGB curve.
Curve curveOf(int colorSpace, int hdrType) {
    switch (colorSpace) {
        case 0:
        case kSpaceSrgb:
        case kSpaceDisplayP3:
            return Curve::Srgb;
        case kSpaceBt2100:
            return hdrType == 4 ? Curve::Hlg : Curve::Pq;
        default:
            return Curve::Bt1886;
    }
}

// The colour space of primaries and curve: the inverse of familyOf and curveOf.
int colorSpaceOf(Family family, Curve curve, int& hdrType) {
    hdrType = 0;
    switch (family) {
        case kBt709Primaries:
            if (curve == Curve::Srgb) return kSpaceSrgb;
            return curve == Curve::Bt1886 ? kSpaceBt709 : 0;
        case kDisplayP3:
            return kSpaceDisplayP3;
        case kBt2020Primaries:
            if (curve == Curve::Pq || curve == Curve::Hlg) {
                hdrType = curve == Curve::Pq ? 3 : 4;
                return kSpaceBt2100;
            }
            return kSpaceBt2020;
        case kSmpte170:
            return kSpaceBt601;
        case kBt470bg:
            return kSpaceBt601_625;
        default:
            return 0;
    }
}

// Which family xy primaries belong to; kFamilies for none. Files round their values (PNG
// to 1e-5, ICC through D50 adaptation), so close is enough.
Family familyOfPrimaries(const double (&xy)[3][2], double tolerance) {
    for (int f = 0; f < kFamilies; ++f) {
        bool close = true;
        for (int c = 0; c < 3; ++c) {
            for (int k = 0; k < 2; ++k)
                close &= std::fabs(xy[c][k] - kPrimaries[f][c][k]) < tolerance;
        }
        if (close) return static_cast<Family>(f);
    }
    return kFamilies;
}

// PQ (SMPTE ST 2084) and HLG (BT.2100) signal to linear light, 1 at the top of the signal.
double pqToLinear(double e) {
    const double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128, c1 = 3424.0 / 4096,
                 c2 = 2413.0 / 4096 * 32, c3 = 2392.0 / 4096 * 32;
    const double p = std::pow(e, 1 / m2);
    return std::pow(std::max(p - c1, 0.0) / (c2 - c3 * p), 1 / m1);
}
double hlgToLinear(double e) {
    const double a = 0.17883277, b = 1 - 4 * a, c = 0.5 - a * std::log(4 * a);
    return e <= 0.5 ? e * e / 3 : (std::exp((e - c) / a) + b) / 12;
}

struct ContextDeleter {
    void operator()(cmsContext c) const { cmsDeleteContext(c); }
};
struct ProfileDeleter {
    void operator()(void* p) const { cmsCloseProfile(p); }
};
struct CurveDeleter {
    void operator()(cmsToneCurve* c) const { cmsFreeToneCurve(c); }
};
using Context = std::unique_ptr<std::remove_pointer_t<cmsContext>, ContextDeleter>;
using Profile = std::unique_ptr<void, ProfileDeleter>;
using ToneCurve = std::unique_ptr<cmsToneCurve, CurveDeleter>;

void ignoreLcmsError(cmsContext, cmsUInt32Number, const char*) {}

// Each call gets its own context: Little CMS's global one is not meant for threads.
Context newContext() {
    Context context(cmsCreateContext(nullptr, nullptr));
    if (!context) fail("out of memory");
    cmsSetLogErrorHandlerTHR(context.get(), ignoreLcmsError);
    return context;
}

ToneCurve buildCurve(cmsContext context, Curve curve) {
    switch (curve) {
        case Curve::Srgb: {
            const double sRgb[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
            return ToneCurve(cmsBuildParametricToneCurve(context, 4, sRgb));
        }
        case Curve::Bt1886:
            return ToneCurve(cmsBuildGamma(context, 2.4));
        case Curve::Pq:
        case Curve::Hlg: {
            std::vector<float> table(1024);
            for (size_t i = 0; i < table.size(); ++i) {
                const double e = double(i) / (table.size() - 1);
                table[i] = static_cast<float>(curve == Curve::Pq ? pqToLinear(e) : hlgToLinear(e));
            }
            return ToneCurve(cmsBuildTabulatedToneCurveFloat(context, cmsUInt32Number(table.size()),
                                                             table.data()));
        }
    }
    return nullptr;
}

// The value of a curve halfway up the signal tells the curves apart: sRGB 0.214, a 2.2
// power 0.218, a 2.4 power 0.189, the BT.709 camera curve's inverse 0.260, HLG 0.083,
// PQ 0.009.
Curve classifyCurve(double half) {
    if (half < 0.03) return Curve::Pq;
    if (half < 0.13) return Curve::Hlg;
    if (half > 0.2 && half < 0.235) return Curve::Srgb;
    return Curve::Bt1886;
}

}  // namespace

Cicp cicpFor(int colorSpace, int hdrType) {
    Cicp cicp;
    cicp.primaries = kCicpPrimaries[familyOf(colorSpace)];
    switch (curveOf(colorSpace, hdrType)) {
        case Curve::Srgb:
            cicp.transfer = 13;
            break;
        case Curve::Bt1886:
            cicp.transfer =
                familyOf(colorSpace) == kSmpte170 || familyOf(colorSpace) == kBt470bg ? 6 : 1;
            break;
        case Curve::Pq:
            cicp.transfer = 16;
            break;
        case Curve::Hlg:
            cicp.transfer = 18;
            break;
    }
    return cicp;
}

int colorSpaceOfCicp(const Cicp& cicp, int& hdrType) {
    hdrType = 0;
    Family family = kFamilies;
    for (int f = 0; f < kFamilies; ++f) {
        if (kCicpPrimaries[f] == cicp.primaries) family = static_cast<Family>(f);
    }
    if (cicp.primaries == 7) family = kSmpte170;  // SMPTE 240M: the same primaries
    if (family == kFamilies) return 0;
    switch (cicp.transfer) {
        case 1:
        case 6:
        case 14:
        case 15:
            return colorSpaceOf(family, Curve::Bt1886, hdrType);
        case 4:  // a 2.2 power, close to sRGB
        case 13:
            return colorSpaceOf(family, Curve::Srgb, hdrType);
        case 16:
            return colorSpaceOf(family, Curve::Pq, hdrType);
        case 18:
            return colorSpaceOf(family, Curve::Hlg, hdrType);
        default:
            return 0;
    }
}

Chromaticities chromaticitiesFor(int colorSpace, int hdrType) {
    const auto& p = kPrimaries[familyOf(colorSpace)];
    Chromaticities c{
        {kD65[0], kD65[1]}, {p[0][0], p[0][1]}, {p[1][0], p[1][1]}, {p[2][0], p[2][1]}, 0};
    switch (curveOf(colorSpace, hdrType)) {
        case Curve::Srgb:
            c.gamma = 45455;  // sRGB's customary 1/2.2
            break;
        case Curve::Bt1886:
            c.gamma = 41667;  // 1/2.4
            break;
        default:
            break;
    }
    return c;
}

int colorSpaceOfChromaticities(const Chromaticities* chromaticities, int gamma) {
    Family family = kBt709Primaries;
    if (chromaticities != nullptr) {
        const double xy[3][2] = {{chromaticities->red[0], chromaticities->red[1]},
                                 {chromaticities->green[0], chromaticities->green[1]},
                                 {chromaticities->blue[0], chromaticities->blue[1]}};
        family = familyOfPrimaries(xy, 0.002);
        if (family == kFamilies) return 0;
    }
    // Without gAMA the curve is unknown; with it, exponents up to 2.3 are the sRGB kind.
    const Curve curve = gamma > 0 && 100000.0 / gamma > 2.3 ? Curve::Bt1886 : Curve::Srgb;
    int hdrType = 0;
    return colorSpaceOf(family, curve, hdrType);
}

std::vector<uint8_t> iccProfileFor(int colorSpace, int hdrType) {
    Context context = newContext();
    const auto& p = kPrimaries[familyOf(colorSpace)];
    const cmsCIExyY white{kD65[0], kD65[1], 1.0};
    const cmsCIExyYTRIPLE primaries{
        {p[0][0], p[0][1], 1.0}, {p[1][0], p[1][1], 1.0}, {p[2][0], p[2][1], 1.0}};
    ToneCurve curve = buildCurve(context.get(), curveOf(colorSpace, hdrType));
    if (!curve) fail("cannot build the ICC profile's tone curve");
    cmsToneCurve* curves[3] = {curve.get(), curve.get(), curve.get()};
    Profile profile(cmsCreateRGBProfileTHR(context.get(), &white, &primaries, curves));
    if (!profile) fail("cannot build an ICC profile");
    const char* names[] = {"BT.709", "Display P3", "BT.2020", "BT.601 (525 lines)",
                           "BT.601 (625 lines)"};
    std::string name = std::string("vexa ") + names[familyOf(colorSpace)];
    if (colorSpace == kSpaceBt2100) name += hdrType == 4 ? " HLG" : " PQ";
    cmsMLU* description = cmsMLUalloc(context.get(), 1);
    if (description != nullptr) {
        cmsMLUsetASCII(description, "en", "US", name.c_str());
        cmsWriteTag(profile.get(), cmsSigProfileDescriptionTag, description);
        cmsMLUfree(description);
    }
    cmsUInt32Number size = 0;
    if (!cmsSaveProfileToMem(profile.get(), nullptr, &size)) fail("cannot save an ICC profile");
    std::vector<uint8_t> bytes(size);
    if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size))
        fail("cannot save an ICC profile");
    bytes.resize(size);
    return bytes;
}

int colorSpaceOfIcc(const uint8_t* data, size_t size, int& hdrType) {
    hdrType = 0;
    Context context = newContext();
    Profile profile(cmsOpenProfileFromMemTHR(context.get(), data, cmsUInt32Number(size)));
    if (!profile || cmsGetColorSpace(profile.get()) != cmsSigRgbData) return 0;
    const auto* red =
        static_cast<const cmsCIEXYZ*>(cmsReadTag(profile.get(), cmsSigRedColorantTag));
    const auto* green =
        static_cast<const cmsCIEXYZ*>(cmsReadTag(profile.get(), cmsSigGreenColorantTag));
    const auto* blue =
        static_cast<const cmsCIEXYZ*>(cmsReadTag(profile.get(), cmsSigBlueColorantTag));
    const auto* trc = static_cast<const cmsToneCurve*>(cmsReadTag(profile.get(), cmsSigRedTRCTag));
    if (red == nullptr || green == nullptr || blue == nullptr || trc == nullptr) return 0;
    // The colorants are adapted to D50; the reference profiles below are built the same way,
    // so comparing the two compares the primaries.
    for (int f = 0; f < kFamilies; ++f) {
        const auto& p = kPrimaries[f];
        const cmsCIExyY white{kD65[0], kD65[1], 1.0};
        const cmsCIExyYTRIPLE primaries{
            {p[0][0], p[0][1], 1.0}, {p[1][0], p[1][1], 1.0}, {p[2][0], p[2][1], 1.0}};
        ToneCurve linear(cmsBuildGamma(context.get(), 1.0));
        cmsToneCurve* curves[3] = {linear.get(), linear.get(), linear.get()};
        Profile reference(cmsCreateRGBProfileTHR(context.get(), &white, &primaries, curves));
        if (!reference) return 0;
        const cmsCIEXYZ* expected[3] = {
            static_cast<const cmsCIEXYZ*>(cmsReadTag(reference.get(), cmsSigRedColorantTag)),
            static_cast<const cmsCIEXYZ*>(cmsReadTag(reference.get(), cmsSigGreenColorantTag)),
            static_cast<const cmsCIEXYZ*>(cmsReadTag(reference.get(), cmsSigBlueColorantTag))};
        const cmsCIEXYZ* actual[3] = {red, green, blue};
        bool close = true;
        for (int c = 0; c < 3; ++c) {
            close &= std::fabs(actual[c]->X - expected[c]->X) < 0.004 &&
                     std::fabs(actual[c]->Y - expected[c]->Y) < 0.004 &&
                     std::fabs(actual[c]->Z - expected[c]->Z) < 0.004;
        }
        if (close) {
            return colorSpaceOf(static_cast<Family>(f),
                                classifyCurve(cmsEvalToneCurveFloat(trc, 0.5f)), hdrType);
        }
    }
    return 0;
}

}  // namespace vexa::io::detail
