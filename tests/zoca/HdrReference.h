// The HDR curves from their published formulas, in double precision, for checking the
// library's tables and kernels.
#ifndef TESTS_ZOCA_HDRREFERENCE_H
#define TESTS_ZOCA_HDRREFERENCE_H

#include <algorithm>
#include <cmath>

namespace zt {

// SMPTE ST 2084.
inline double PqToNits(double e) {
    const double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128;
    const double c1 = 3424.0 / 4096, c2 = 2413.0 / 4096 * 32, c3 = 2392.0 / 4096 * 32;
    const double p = std::pow(e, 1 / m2);
    return 10000 * std::pow(std::max(p - c1, 0.0) / (c2 - c3 * p), 1 / m1);
}
inline double NitsToPq(double n) {
    const double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128;
    const double c1 = 3424.0 / 4096, c2 = 2413.0 / 4096 * 32, c3 = 2392.0 / 4096 * 32;
    const double y = std::pow(n / 10000, m1);
    return std::pow((c1 + c2 * y) / (1 + c3 * y), m2);
}
// BT.2100 HLG inverse OETF.
inline double HlgToScene(double e) {
    const double a = 0.17883277, b = 1 - 4 * a, c = 0.5 - a * std::log(4 * a);
    return e <= 0.5 ? e * e / 3 : (std::exp((e - c) / a) + b) / 12;
}
// BT.2390 EETF, mastering black and target black at 0 nits.
inline double Eetf(double nits, double lw, double lmax) {
    const double e1 = std::min(NitsToPq(nits) / NitsToPq(lw), 1.0);
    const double max_lum = NitsToPq(lmax) / NitsToPq(lw);
    const double ks = 1.5 * max_lum - 0.5;
    double e2 = e1;
    if (e1 > ks) {
        const double t = (e1 - ks) / (1 - ks);
        e2 = (2 * t * t * t - 3 * t * t + 1) * ks + (t * t * t - 2 * t * t + t) * (1 - ks) +
             (-2 * t * t * t + 3 * t * t) * max_lum;
    }
    return PqToNits(e2 * NitsToPq(lw));
}

}  // namespace zt

#endif  // TESTS_ZOCA_HDRREFERENCE_H
