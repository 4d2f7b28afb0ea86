#include "resample.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "zoca/zoca.h"

namespace zoca {
namespace {

double Lanczos3(double x) {
    const double px = M_PI * std::fabs(x);
    if (px < 1e-12) return 1;
    return px >= 3 * M_PI ? 0 : 3 * std::sin(px) * std::sin(px / 3) / (px * px);
}

// Catmull-Rom: interpolating (an exact copy at integer shifts), no ringing to speak of.
double CatmullRom(double x) {
    x = std::fabs(x);
    if (x < 1) return (1.5 * x - 2.5) * x * x + 1;
    return x < 2 ? ((-0.5 * x + 2.5) * x - 4) * x + 2 : 0;
}

// `out` samples over the source span [left - 0.5, left + span - 0.5] of `in` samples.
Axis MakeAxis(int in, double left, double span, int out, bool lanczos) {
    Axis a;
    a.identity = left == 0 && span == out && out <= in;
    const double scale = std::max(1.0, span / out);
    const double support = (lanczos ? 3 : 2) * scale;
    std::vector<std::vector<std::pair<int, double>>> taps(out);
    int width = 1;
    for (int j = 0; j < out; ++j) {
        const double c = left + (j + 0.5) * span / out - 0.5;
        double sum = 0;
        int lo = in, hi = 0;
        for (int k = static_cast<int>(std::floor(c - support)); k <= c + support; ++k) {
            const double w = lanczos ? Lanczos3((k - c) / scale) : CatmullRom((k - c) / scale);
            if (w == 0) continue;
            int m = k;
            while (m < 0 || m >= in) m = m < 0 ? -m - 1 : 2 * in - 1 - m;
            taps[j].emplace_back(m, w);
            sum += w;
            lo = std::min(lo, m), hi = std::max(hi, m);
        }
        for (auto& t : taps[j]) t.second /= sum;
        width = std::max(width, hi - lo + 1);
    }
    a.taps = width + (width & 1);
    a.start.resize(out);
    a.coef.assign(static_cast<size_t>(out) * a.taps, 0);
    for (int j = 0; j < out; ++j) {
        int lo = in;
        for (const auto& t : taps[j]) lo = std::min(lo, t.first);
        const int s = std::min(lo, std::max(0, in - a.taps));
        a.start[j] = s;
        // Weights to 14 bits by rounding their running sum: each stays within a step of
        // its exact value and they sum to exactly 1 << 14 (flat stays flat), even when
        // thousands of tiny weights would all round the same way.
        int16_t* c = &a.coef[static_cast<size_t>(j) * a.taps];
        std::vector<double> w(a.taps, 0.0);
        for (const auto& t : taps[j]) w[t.first - s] += t.second;
        double run = 0;
        long before = 0;
        for (int k = 0; k < a.taps; ++k) {
            run += w[k];
            const long upto =
                k + 1 == a.taps ? 1 << kCoefBits : std::lround(run * (1 << kCoefBits));
            c[k] = static_cast<int16_t>(upto - before);
            before = upto;
        }
    }
    return a;
}

HTable MakeTable(const Axis& a, int n, int outs) {
    HTable t;
    const int pairs = a.taps / 2;
    const int words = outs * n;
    std::vector<int32_t> base(pairs), coef(pairs * 16);
    std::vector<uint16_t> idx(pairs * 32);
    std::vector<uint16_t> last_idx;  // the last run's idx and bases before any conversion
    std::vector<int32_t> last_base;
    for (int b = 0; b * 16 < words; ++b) {
        for (int j = 0; j < pairs; ++j) {
            base[j] = 1 << 30;
            for (int l = 0; l < 16 && b * 16 + l < words; ++l) {
                const int o = b * 16 + l;
                base[j] = std::min(base[j], (a.start[o / n] + 2 * j) * n + o % n);
            }
            for (int l = 0; l < 16; ++l) {
                // Lanes past the end repeat the last output; their results are not stored.
                const int o = std::min(b * 16 + l, words - 1);
                const int x = o / n;
                const int lo = (a.start[x] + 2 * j) * n + o % n - base[j];
                if (lo < 0 || lo + n > 63) return HTable{};
                idx[j * 32 + 2 * l] = static_cast<uint16_t>(lo);
                idx[j * 32 + 2 * l + 1] = static_cast<uint16_t>(lo + n);
                const int16_t* c = &a.coef[static_cast<size_t>(x) * a.taps + 2 * j];
                coef[j * 16 + l] = static_cast<int32_t>(static_cast<uint16_t>(c[0]) |
                                                        static_cast<uint32_t>(c[1]) << 16);
            }
        }
        if (!t.runs.empty()) {
            // Does this block continue the last run?
            HRun& r = t.runs.back();
            const size_t e = t.runs.size() - 1;
            const int step = r.blocks == 1 ? base[0] - t.base[e * pairs] : r.step;
            bool same = idx == last_idx &&
                        std::equal(coef.begin(), coef.end(), t.coef.begin() + e * pairs * 16);
            for (int j = 0; j < pairs && same; ++j)
                same = base[j] == last_base[j] + r.blocks * step;
            if (same) {
                r.step = step;
                ++r.blocks;
                continue;
            }
        }
        last_idx = idx;
        last_base = base;
        bool direct = true, in_lane = true, shared = true;
        for (int i = 0; i < pairs * 32; ++i) {
            direct = direct && idx[i] == i % 32;
            in_lane = in_lane && idx[i] / 8 == i % 32 / 8;
            shared = shared && idx[i] + base[i / 32] - base[0] < 64;
        }
        // Loads across cache lines cost twice: one window for every pair where it fits.
        if (!direct && !in_lane && shared) {
            for (int i = 0; i < pairs * 32; ++i)
                idx[i] = static_cast<uint16_t>(idx[i] + base[i / 32] - base[0]);
            std::fill(base.begin(), base.end(), base[0]);
        }
        t.runs.push_back({1, 0,
                          direct    ? HRun::kDirect
                          : in_lane ? HRun::kInLane
                          : shared  ? HRun::kShared
                                    : HRun::kPermute});
        if (!direct && in_lane) {
            for (int j = 0; j < pairs; ++j) {
                uint8_t bytes[64];
                for (int i = 0; i < 32; ++i) {
                    bytes[2 * i] = static_cast<uint8_t>(idx[j * 32 + i] % 8 * 2);
                    bytes[2 * i + 1] = static_cast<uint8_t>(bytes[2 * i] + 1);
                }
                std::memcpy(&idx[j * 32], bytes, 64);
            }
        }
        t.base.insert(t.base.end(), base.begin(), base.end());
        t.idx.insert(t.idx.end(), idx.begin(), idx.end());
        t.coef.insert(t.coef.end(), coef.begin(), coef.end());
    }
    // Cycles of at most 12 entries x pairs, which fit in registers beside the sums.
    auto same = [&](size_t e, size_t f, int step) {
        if (t.runs[e].blocks != 1 || t.runs[f].blocks != 1 || t.runs[e].gather != t.runs[f].gather)
            return false;
        for (int j = 0; j < pairs; ++j)
            if (t.base[f * pairs + j] - t.base[e * pairs + j] != step) return false;
        return std::equal(&t.idx[e * pairs * 32], &t.idx[(e + 1) * pairs * 32],
                          &t.idx[f * pairs * 32]) &&
               std::equal(&t.coef[e * pairs * 16], &t.coef[(e + 1) * pairs * 16],
                          &t.coef[f * pairs * 16]);
    };
    for (size_t r = 0; r < t.runs.size();) {
        int taken = 0;
        for (int k = 2; k <= 4 && pairs * k <= 12 && r + k < t.runs.size() && !taken; ++k) {
            const int step = t.base[(r + k) * pairs] - t.base[r * pairs];
            size_t e = r;
            while (e + k < t.runs.size() && same(e, e + k, step)) ++e;
            const int reps = static_cast<int>((e + k - r) / k);
            bool one_kind = true;  // the kernel gathers a whole cycle alike
            for (int q = 1; q < k && reps >= 2; ++q)
                one_kind = one_kind && t.runs[r + q].gather == t.runs[r].gather;
            if (reps >= 2 && one_kind) {
                t.cycles.push_back({r, k, reps, step});
                taken = k * reps;
            }
        }
        r += taken > 0 ? taken : 1;
    }
    t.ok = true;
    return t;
}

// Everything a filter depends on.
struct Key {
    int n, sw, sh;
    double left, top, rw, rh;
    int dw, dh;
    bool operator==(const Key& o) const {
        return n == o.n && sw == o.sw && sh == o.sh && left == o.left && top == o.top &&
               rw == o.rw && rh == o.rh && dw == o.dw && dh == o.dh;
    }
};

struct Plan {
    Key key;
    Axis h, v;
    HTable table;
    bool vertical_first;
    Half half_h, half_v;  // both ok: exact 2:1 in both axes
};

std::shared_ptr<const Plan> MakePlan(const Key& k) {
    auto p = std::make_shared<Plan>();
    p->key = k;
    const bool lanczos = k.dw < k.rw || k.dh < k.rh;
    p->h = MakeAxis(k.sw, k.left, k.rw, k.dw, lanczos);
    p->v = MakeAxis(k.sh, k.top, k.rh, k.dh, lanczos);
    if (Supported(Simd::Avx2)) p->table = MakeTable(p->h, k.n, k.dw);
    // Multiply-adds of each order: the vertical pass first works on source-wide rows,
    // the horizontal pass first on every source row.
    const double v_first = double(k.dh) * k.sw * p->v.taps + double(k.dh) * k.dw * p->h.taps;
    const double h_first = double(k.sh) * k.dw * p->h.taps + double(k.dh) * k.dw * p->v.taps;
    // On a tie (both axes scaled alike) shrinking goes vertical first, where byte rows
    // are paired cheaply; enlarging horizontal first, which measured faster.
    p->vertical_first = v_first < h_first || (v_first == h_first && k.dh <= k.sh);
    if (p->vertical_first && (k.n == 1 || k.n == 2 || k.n == 4)) {
        p->half_h = FindHalf(p->h, k.sw);
        p->half_v = FindHalf(p->v, k.sh);
    }
    return p;
}

// Weights and tables cost about as much as filtering a small picture once, and a
// stream asks for the same few sizes again and again: the last few plans are kept. A
// plan is only read while it runs, so several threads may share one; a plan evicted
// while in use lives on until its last user is done.
std::shared_ptr<const Plan> CachedPlan(const Key& key) {
    constexpr size_t kKept = 8;
    static std::mutex lock;
    static std::vector<std::shared_ptr<const Plan>> kept;  // most recent first
    {
        std::lock_guard<std::mutex> hold(lock);
        for (size_t i = 0; i < kept.size(); ++i) {
            if (kept[i]->key == key) {
                std::rotate(kept.begin(), kept.begin() + i, kept.begin() + i + 1);
                return kept.front();
            }
        }
    }
    std::shared_ptr<const Plan> p = MakePlan(key);  // outside the lock: it is slow
    std::lock_guard<std::mutex> hold(lock);
    kept.insert(kept.begin(), p);
    if (kept.size() > kKept) kept.pop_back();
    return p;
}

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

void Widen(const uint8_t* in, int words, int16_t* out, Simd simd) {
#if ZOCA_AVX512_BUILD
    if (simd == Simd::Avx512) return resample::avx512::Widen(in, words, out);
#endif
    (void)simd;
    for (int i = 0; i < words; ++i) out[i] = in[i];
}

// Exact 2:1 in both axes (AVX-512): the vertical pass goes into planar rows, where
// the horizontal pass finds every tap pair in order. Edge rows and columns take the
// general kernels; all compute the same sums.
int ResampleHalves(const Plan& plan, const Channels& src, int sh, const Channels& dst, int dh) {
    const int n = src.n;
    const int sw = plan.key.sw, dw = plan.key.dw;
    const Axis& H = plan.h;
    const Axis& V = plan.v;
    const size_t plane_words = (static_cast<size_t>(sw) + 256 + 32 + 31) & ~size_t{31};
    // The horizontal kernel's windows start on 64-byte lines.
    const int lead = (32 - (2 * plan.half_h.lo + plan.half_h.off) % 32) % 32;
    const size_t row_words = (static_cast<size_t>(sw) * n + 64 + 31) & ~size_t{31};
    std::unique_ptr<void, FreeDeleter> mem(
        std::aligned_alloc(64, 2 * (n * plane_words + row_words)));
    if (!mem) return ZOCA_ERR_DESTINATION;
    std::memset(mem.get(), 0, 2 * (n * plane_words + row_words));
    int16_t* tmp = static_cast<int16_t*>(mem.get());
    int16_t* planes[4];
    for (int c = 0; c < n; ++c) planes[c] = tmp + row_words + c * plane_words + lead;
    const void* rows[12];
    VRowJob vj{rows, nullptr, V.taps, sw * n, false, true, kCoefBits - kMidBits, tmp};
    for (int y = 0; y < dh; ++y) {
        auto src_row = [&](int r) { return src.base + static_cast<ptrdiff_t>(r) * src.stride; };
        if (y >= plan.half_v.lo && y < plan.half_v.hi) {
            // The next output row's two new rows stream in while this one is filtered.
            const uint8_t* in[14];
            const int first = 2 * y + plan.half_v.off;
            for (int k = 0; k < 14; ++k) in[k] = src_row(std::min(first + k, sh - 1));
            resample::avx512::HalfV(in, plan.half_v, sw * n, n, planes, in + 12);
        } else {
            vj.coef = &V.coef[static_cast<size_t>(y) * V.taps];
            for (int k = 0; k < V.taps; ++k) rows[k] = src_row(std::min(V.start[y] + k, sh - 1));
            VRow(vj, Simd::Avx512);
            for (int x = 0; x < sw; ++x)
                for (int c = 0; c < n; ++c) planes[c][x] = tmp[x * n + c];
        }
        uint8_t* out = dst.base + static_cast<ptrdiff_t>(y) * dst.stride;
        resample::avx512::HalfH(planes, plan.half_h, n, out);
        resample::avx512::HalfEdges(planes, H, n, 0, plan.half_h.lo, out);
        resample::avx512::HalfEdges(planes, H, n, plan.half_h.hi, dw, out);
    }
    return ZOCA_OK;
}

}  // namespace

Half FindHalf(const Axis& a, int in) {
    Half h;
    const int out = static_cast<int>(a.start.size());
    if (a.taps != 12 || out == 0 || a.identity) return h;
    const int mid = out / 2;
    h.off = a.start[mid] - 2 * mid;
    std::copy_n(&a.coef[static_cast<size_t>(mid) * 12], 12, h.k);
    for (int k = 0; k < 6; ++k)
        if (h.k[k] != h.k[11 - k]) return h;
    auto interior = [&](int j) {
        const int s = 2 * j + h.off;
        return a.start[j] == s && s >= 0 && s + 12 <= in &&
               std::equal(h.k, h.k + 12, &a.coef[static_cast<size_t>(j) * 12]);
    };
    if (!interior(mid)) return h;
    h.lo = mid;
    h.hi = mid + 1;
    while (h.lo > 0 && interior(h.lo - 1)) --h.lo;
    while (h.hi < out && interior(h.hi)) ++h.hi;
    h.ok = true;
    return h;
}

bool Supported(Simd s) {
    switch (s) {
        case Simd::Avx512:
            return resample::avx512::Available();
        case Simd::Avx2:
            return resample::avx2::Available();
        default:
            return true;
    }
}

Simd BestSimd() {
    static const Simd best = [] {
        const char* forced = std::getenv("ZOCA_KERNEL");
        if (forced != nullptr && std::strcmp(forced, "plain") == 0) return Simd::Plain;
        if (resample::avx512::Available()) return Simd::Avx512;
        return resample::avx2::Available() ? Simd::Avx2 : Simd::Plain;
    }();
    return best;
}

#if !ZOCA_AVX512_BUILD
bool resample::avx2::Available() {
    return false;
}
bool resample::avx512::Available() {
    return false;
}
void resample::avx512::HalfV(const uint8_t* const*, const Half&, int, int, int16_t* const*,
                             const uint8_t* const*) {}
void resample::avx512::HalfH(const int16_t* const*, const Half&, int, uint8_t*) {}
void resample::avx512::HalfEdges(const int16_t* const*, const Axis&, int, int, int, uint8_t*) {}
#endif

void VRow(const VRowJob& j, Simd s) {
    if (j.out2 != nullptr && s != Simd::Avx512) {  // only that build makes two rows at once
        VRowJob one = j;
        one.out2 = nullptr;
        VRow(one, s);
        one.rows = j.rows + j.lead;
        one.coef = j.coef2;
        one.out = j.out2;
        VRow(one, s);
        return;
    }
#if ZOCA_AVX512_BUILD
    if (s == Simd::Avx512) return resample::avx512::VRow(j);
    if (s == Simd::Avx2) return resample::avx2::VRow(j);
#endif
    (void)s;
    resample::plain::VRow(j, 0);
}

void HRow(const HRowJob& j, Simd s) {
#if ZOCA_AVX512_BUILD
    if (j.table != nullptr && j.table->ok) {
        if (s == Simd::Avx512) return resample::avx512::HRow(j);
        if (s == Simd::Avx2) return resample::avx2::HRow(j);
    }
#endif
    (void)s;
    resample::plain::HRow(j);
}

void resample::plain::VRow(const VRowJob& j, int from) {
    // Chunks of words so that the inner loop runs along a row and vectorises.
    constexpr int kChunk = 256;
    int32_t acc[kChunk];
    for (int i0 = from; i0 < j.words; i0 += kChunk) {
        const int m = std::min(kChunk, j.words - i0);
        for (int i = 0; i < m; ++i) acc[i] = 1 << (j.shift - 1);
        for (int k = 0; k < j.taps; ++k) {
            const int32_t c = j.coef[k];
            if (j.in16) {
                const int16_t* r = static_cast<const int16_t*>(j.rows[k]) + i0;
                for (int i = 0; i < m; ++i) acc[i] += c * r[i];
            } else {
                const uint8_t* r = static_cast<const uint8_t*>(j.rows[k]) + i0;
                for (int i = 0; i < m; ++i) acc[i] += c * r[i];
            }
        }
        if (j.out16) {
            int16_t* o = static_cast<int16_t*>(j.out) + i0;
            for (int i = 0; i < m; ++i)
                o[i] = static_cast<int16_t>(std::clamp(acc[i] >> j.shift, -32768, 32767));
        } else {
            uint8_t* o = static_cast<uint8_t*>(j.out) + i0;
            for (int i = 0; i < m; ++i)
                o[i] = static_cast<uint8_t>(std::clamp(acc[i] >> j.shift, 0, 255));
        }
    }
}

namespace {

// Pixels x0 .. x1 - 1 of N channels: the channels of a tap are summed side by side.
template <int N>
void HPixels(const HRowJob& j, int x0, int x1) {
    const Axis& a = *j.axis;
    for (int x = x0; x < x1; ++x) {
        const int16_t* c = &a.coef[static_cast<size_t>(x) * a.taps];
        const int16_t* in = j.in + a.start[x] * N;
        int32_t acc[N];
        for (int ch = 0; ch < N; ++ch) acc[ch] = 1 << (j.shift - 1);
        for (int k = 0; k < a.taps; ++k)
            for (int ch = 0; ch < N; ++ch) acc[ch] += c[k] * in[k * N + ch];
        for (int ch = 0; ch < N; ++ch) {
            const int32_t v = acc[ch] >> j.shift;
            if (j.out16) {
                static_cast<int16_t*>(j.out)[x * N + ch] =
                    static_cast<int16_t>(std::clamp(v, -32768, 32767));
            } else {
                static_cast<uint8_t*>(j.out)[x * N + ch] =
                    static_cast<uint8_t>(std::clamp(v, 0, 255));
            }
        }
    }
}

}  // namespace

void resample::plain::HRow(const HRowJob& j) {
    switch (j.n) {
        case 1:
            return HPixels<1>(j, 0, j.outs);
        case 2:
            return HPixels<2>(j, 0, j.outs);
        case 3:
            return HPixels<3>(j, 0, j.outs);
        default:
            return HPixels<4>(j, 0, j.outs);
    }
}

int Resample(const Channels& src, int sw, int sh, double left, double top, double rw, double rh,
             const Channels& dst, int dw, int dh, Simd simd) {
    if (!Supported(simd)) simd = Simd::Plain;
    std::shared_ptr<const Plan> plan;
    try {
        plan = CachedPlan({src.n, sw, sh, left, top, rw, rh, dw, dh});
    } catch (const std::bad_alloc&) {
        return ZOCA_ERR_DESTINATION;
    }
    const Axis& H = plan->h;
    const Axis& V = plan->v;
    const int n = src.n;
    auto src_row = [&](int y) { return src.base + static_cast<ptrdiff_t>(y) * src.stride; };
    auto dst_row = [&](int y) { return dst.base + static_cast<ptrdiff_t>(y) * dst.stride; };
    if (H.identity && V.identity) {
        for (int y = 0; y < dh; ++y)
            std::memcpy(dst_row(y), src_row(y), static_cast<size_t>(dw) * n);
        return ZOCA_OK;
    }
    // One int16 row wide enough for either side plus the horizontal pass's overreach
    // (zeroed, and only ever met by zero weights), and a ring of horizontally filtered rows.
    const size_t row_words =
        (static_cast<size_t>(std::max(sw, dw) + H.taps + 2) * n + 64 + 31) & ~size_t{31};
    const bool ring = !H.identity && !V.identity && !plan->vertical_first;
    const size_t ring_words = (static_cast<size_t>(dw) * n + 31) & ~size_t{31};
    // Vertical first: two such rows, for output rows filtered in pairs.
    constexpr int kMaxLead = 4;
    const size_t bytes = 2 * (2 * row_words + (ring ? ring_words * V.taps : 0));
    std::unique_ptr<void, FreeDeleter> mem(std::aligned_alloc(64, bytes));
    std::vector<const void*> rows(V.taps + kMaxLead + 1);
    if (!mem) return ZOCA_ERR_DESTINATION;
    std::memset(mem.get(), 0, 2 * 2 * row_words);
    int16_t* tmp = static_cast<int16_t*>(mem.get());
    int16_t* tmp2 = tmp + row_words;
    int16_t* ring_mem = tmp2 + row_words;

    HRowJob hj{&H, &plan->table, n, dw, tmp, false, 0, nullptr};
    VRowJob vj{rows.data(), nullptr, V.taps, 0, false, false, 0, nullptr};
    auto take_rows = [&](int y, auto&& row_of) {
        vj.coef = &V.coef[static_cast<size_t>(y) * V.taps];
        for (int k = 0; k < V.taps; ++k) rows[k] = row_of(std::min(V.start[y] + k, sh - 1));
    };
    if (H.identity) {  // vertical only
        vj.words = dw * n;
        vj.shift = kCoefBits;
        for (int y = 0; y < dh; ++y) {
            take_rows(y, src_row);
            vj.out = dst_row(y);
            VRow(vj, simd);
        }
    } else if (V.identity) {  // horizontal only
        hj.shift = kCoefBits;
        for (int y = 0; y < dh; ++y) {
            Widen(src_row(y), sw * n, tmp, simd);
            hj.out = dst_row(y);
            HRow(hj, simd);
        }
    } else if (simd == Simd::Avx512 && plan->half_h.ok && plan->half_v.ok) {
        return ResampleHalves(*plan, src, sh, dst, dh);
    } else if (plan->vertical_first) {
        vj.words = sw * n;
        vj.out16 = true;
        vj.shift = kCoefBits - kMidBits;
        vj.out = tmp;
        hj.shift = kCoefBits + kMidBits;
        for (int y = 0; y < dh; ++y) {
            // Two output rows whose windows start a few rows apart share most of their
            // row pairs: one pass makes both.
            const int lead = y + 1 < dh ? V.start[y + 1] - V.start[y] : -1;
            const bool two = simd == Simd::Avx512 && lead >= 0 && lead <= kMaxLead;
            take_rows(y, src_row);
            if (two) {
                for (int k = V.taps; k < V.taps + lead + (lead & 1); ++k)
                    rows[k] = src_row(std::min(V.start[y] + k, sh - 1));
                vj.coef2 = &V.coef[static_cast<size_t>(y + 1) * V.taps];
                vj.lead = lead;
                vj.out2 = tmp2;
            }
            VRow(vj, simd);
            vj.out2 = nullptr;
            hj.in = tmp;
            hj.out = dst_row(y);
            HRow(hj, simd);
            if (two) {
                hj.in = tmp2;
                hj.out = dst_row(++y);
                HRow(hj, simd);
            }
        }
    } else {
        hj.out16 = true;
        hj.shift = kCoefBits - kMidBits;
        vj.in16 = true;
        vj.words = dw * n;
        vj.shift = kCoefBits + kMidBits;
        auto ring_row = [&](int r) { return ring_mem + (r % V.taps) * ring_words; };
        int next = 0;  // next source row to filter into the ring
        for (int y = 0; y < dh; ++y) {
            next = std::max(next, V.start[y]);
            const int last = std::min(V.start[y] + V.taps, sh) - 1;
            for (; next <= last; ++next) {
                Widen(src_row(next), sw * n, tmp, simd);
                hj.out = ring_row(next);
                HRow(hj, simd);
            }
            take_rows(y, ring_row);
            vj.out = dst_row(y);
            VRow(vj, simd);
        }
    }
    return ZOCA_OK;
}

}  // namespace zoca
