// The record contract: every malformed record is rejected with its code before any
// pixel is touched, and records built the way the plugin builds them are accepted.
#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <thread>

#include "TestImage.h"

using namespace zt;

namespace {

// Each entry point, called on a src/dst pair of equal shape (rotation 0, mode 1).
struct Op {
    const char* name;
    std::function<int(const _ZOCA_IMGB*, _ZOCA_IMGB*)> call;
};

const Op kOps[] = {
    {"rsz", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_rsz(s, d); }},
    {"csc", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_csc(s, d); }},
    {"csc_dither", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_csc_dither(s, d); }},
    {"rot", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_rot(s, 0, d); }},
    {"rsz_rot", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_rsz_rot(s, 0, d); }},
    {"csc_rot", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_csc_rot(s, 0, d); }},
    {"crop", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_crop(s, d); }},
    {"cgc", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_cgc(s, d); }},
    {"hdr_to_sdr", [](const _ZOCA_IMGB* s, _ZOCA_IMGB* d) { return vexa_hdr_to_sdr(s, d, 1); }},
};

// One way to spoil a record, and the code it must draw.
struct Fault {
    const char* name;
    int fmt;
    std::function<void(_ZOCA_IMGB&)> spoil;
    int on_src;  // expected code when the source carries the fault
    int on_dst;  // ... and when the destination does
};

const Fault kFaults[] = {
    {"unknown format", ZOCA_CF_NV12, [](_ZOCA_IMGB& r) { r.colorFormat = 2; }, -2, -2},
    {"unknown colour space", ZOCA_CF_RGBA, [](_ZOCA_IMGB& r) { r.colorSpace = 2; }, -2, -2},
    {"zero width", ZOCA_CF_RGBA, [](_ZOCA_IMGB& r) { r.width[0] = 0; }, -1, -1},
    {"negative height", ZOCA_CF_I420, [](_ZOCA_IMGB& r) { r.height[0] = -6; }, -1, -1},
    {"huge width", ZOCA_CF_RGB, [](_ZOCA_IMGB& r) { r.width[0] = 1 << 20; }, -1, -1},
    {"chroma width not (w+1)/2", ZOCA_CF_I420, [](_ZOCA_IMGB& r) { r.width[1] = 3; }, -1, -1},
    {"chroma height not (h+1)/2", ZOCA_CF_NV21, [](_ZOCA_IMGB& r) { r.height[1] = 2; }, -1, -1},
    {"luma stride below width", ZOCA_CF_NV12, [](_ZOCA_IMGB& r) { r.stride[0] = 6; }, -1, -1},
    {"NV12 chroma stride below 2*pairs", ZOCA_CF_NV12, [](_ZOCA_IMGB& r) { r.stride[1] = 7; }, -1,
     -1},
    {"I420 chroma stride below width", ZOCA_CF_I420, [](_ZOCA_IMGB& r) { r.stride[2] = 3; }, -1,
     -1},
    {"packed stride below width*bpp", ZOCA_CF_BGR, [](_ZOCA_IMGB& r) { r.stride[0] = 20; }, -1, -1},
    {"negative stride", ZOCA_CF_ARGB, [](_ZOCA_IMGB& r) { r.stride[0] = -28; }, -1, -1},
    {"scanlines below height", ZOCA_CF_NV12, [](_ZOCA_IMGB& r) { r.scanlines[1] = 2; }, -1, -1},
    {"planes overlap", ZOCA_CF_NV12, [](_ZOCA_IMGB& r) { r.addr[1] = r.addr[0] + 8; }, -1, -1},
    {"no luma memory", ZOCA_CF_NV12, [](_ZOCA_IMGB& r) { r.addr[0] = 0; }, -1, -3},
    {"no chroma memory", ZOCA_CF_I420, [](_ZOCA_IMGB& r) { r.addr[2] = 0; }, -1, -3},
};

TEST(Validation, EveryFaultDrawsItsCodeAndTouchesNothing) {
    for (const Op& op : kOps) {
        TestImage img(ZOCA_CF_RGBA, 4, 4);  // a missing record is invalid
        EXPECT_EQ(op.call(nullptr, img.r()), ZOCA_ERR_INVALID) << op.name;
        EXPECT_EQ(op.call(img.r(), nullptr), ZOCA_ERR_INVALID) << op.name;
        for (const Fault& f : kFaults) {
            for (bool on_src : {true, false}) {
                SCOPED_TRACE(std::string(op.name) + ": " + f.name + (on_src ? " (src)" : " (dst)"));
                TestImage src(f.fmt, 7, 5, 0, 1);
                TestImage dst(f.fmt, 7, 5, 0, 1);
                src.FillNoise(3);
                dst.FillNoise(4);
                TestImage src_copy(f.fmt, 7, 5);
                TestImage dst_copy(f.fmt, 7, 5);
                src_copy.FillNoise(3);
                dst_copy.FillNoise(4);
                _ZOCA_IMGB& victim = on_src ? src.rec : dst.rec;
                const _ZOCA_IMGB sound = victim;
                f.spoil(victim);
                EXPECT_EQ(op.call(src.r(), dst.r()), on_src ? f.on_src : f.on_dst);
                victim = sound;  // compare through the unspoilt layout
                EXPECT_TRUE(dst.SameContent(dst_copy));
                EXPECT_TRUE(src.SameContent(src_copy));
                EXPECT_TRUE(dst.PaddingIntact());
            }
        }
    }
}

// The destination is a sound record but cannot take this result.
TEST(Validation, DestinationThatDoesNotFit) {
    TestImage src(ZOCA_CF_NV12, 8, 6);
    TestImage wrong_size(ZOCA_CF_RGBA, 8, 4);
    EXPECT_EQ(vexa_csc(src.r(), wrong_size.r()), ZOCA_ERR_DESTINATION);
    EXPECT_EQ(vexa_csc_dither(src.r(), wrong_size.r()), ZOCA_ERR_DESTINATION);
    EXPECT_EQ(vexa_cgc(src.r(), wrong_size.r()), ZOCA_ERR_DESTINATION);
    EXPECT_EQ(vexa_hdr_to_sdr(src.r(), wrong_size.r(), 1), ZOCA_ERR_DESTINATION);

    // Quarter turns need the axes exchanged; the other codes need them kept.
    TestImage upright(ZOCA_CF_NV12, 8, 6);
    TestImage turned(ZOCA_CF_NV12, 6, 8);
    EXPECT_EQ(vexa_rot(src.r(), ZOCA_ROT_90, upright.r()), ZOCA_ERR_DESTINATION);
    EXPECT_EQ(vexa_rot(src.r(), ZOCA_ROT_180, turned.r()), ZOCA_ERR_DESTINATION);
    EXPECT_EQ(vexa_csc_rot(src.r(), ZOCA_ROT_270, upright.r()), ZOCA_ERR_DESTINATION);
    EXPECT_EQ(vexa_rot(src.r(), ZOCA_ROT_90, turned.r()), ZOCA_OK);

    // Crop regions must lie inside the source.
    TestImage part(ZOCA_CF_NV12, 4, 4);
    src.rec.startX = 5;
    EXPECT_EQ(vexa_crop(src.r(), part.r()), ZOCA_ERR_DESTINATION);
    src.rec.startX = 4;
    src.rec.startY = 3;
    EXPECT_EQ(vexa_crop(src.r(), part.r()), ZOCA_ERR_DESTINATION);
    src.rec.startY = 2;
    EXPECT_EQ(vexa_crop(src.r(), part.r()), ZOCA_OK);
    src.rec.startY = -1;
    EXPECT_EQ(vexa_crop(src.r(), part.r()), ZOCA_ERR_INVALID);

    // Source and destination memory may not overlap (no in-place work).
    TestImage same(ZOCA_CF_NV12, 8, 6);
    EXPECT_EQ(vexa_csc(same.r(), same.r()), ZOCA_ERR_DESTINATION);
    EXPECT_EQ(vexa_rot(same.r(), ZOCA_ROT_MIRROR_H, same.r()), ZOCA_ERR_DESTINATION);
}

TEST(Validation, UnsupportedCodesAndPairs) {
    TestImage src(ZOCA_CF_I420, 8, 6);
    TestImage dst(ZOCA_CF_I420, 8, 6);
    TestImage other(ZOCA_CF_NV12, 8, 6);
    for (int code : {-1, 6, 90, 270}) {
        EXPECT_EQ(vexa_rot(src.r(), code, dst.r()), ZOCA_ERR_UNSUPPORTED) << code;
        EXPECT_EQ(vexa_rsz_rot(src.r(), code, dst.r()), ZOCA_ERR_UNSUPPORTED) << code;
        EXPECT_EQ(vexa_csc_rot(src.r(), code, dst.r()), ZOCA_ERR_UNSUPPORTED) << code;
    }
    for (int mode : {0, 5, -1}) {
        EXPECT_EQ(vexa_hdr_to_sdr(src.r(), dst.r(), mode), ZOCA_ERR_UNSUPPORTED) << mode;
    }
    // rot and crop keep the format; converting is csc_rot's job.
    EXPECT_EQ(vexa_rot(src.r(), ZOCA_ROT_180, other.r()), ZOCA_ERR_UNSUPPORTED);
    EXPECT_EQ(vexa_crop(src.r(), other.r()), ZOCA_ERR_UNSUPPORTED);
    EXPECT_EQ(vexa_csc_rot(src.r(), ZOCA_ROT_180, other.r()), ZOCA_OK);
}

// NV12 as the plugin lays it out: one buffer, the chroma plane after scanlines[0] rows,
// scan-lines padded past the height, stride rounded to even for the chroma.
TEST(Validation, PluginLayoutIsAccepted) {
    const int w = 1919;
    const int h = 1081;
    const int sp = 1921;
    const int sl = 1088;
    std::vector<uint8_t> buf(static_cast<size_t>(sp) * sl + static_cast<size_t>(sp + 1) * (sl / 2));
    _ZOCA_IMGB rec;
    std::memset(&rec, 0, sizeof(rec));
    rec.colorFormat = ZOCA_CF_NV12;
    rec.colorSpace = ZOCA_CS_BT601_FULL;
    rec.width[0] = w;
    rec.width[1] = (w + 1) >> 1;
    rec.height[0] = h;
    rec.height[1] = (h + 1) >> 1;
    rec.scanlines[0] = sl;
    rec.scanlines[1] = sl / 2;
    rec.stride[0] = sp;
    rec.stride[1] = (sp + 1) & ~1;
    rec.addr[0] = reinterpret_cast<uintptr_t>(buf.data());
    rec.addr[1] = rec.addr[0] + static_cast<uintptr_t>(sl) * sp;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) buf[static_cast<size_t>(y) * sp + x] = 200;
    for (int y = 0; y < (h + 1) / 2; ++y)
        for (int x = 0; x < rec.stride[1]; ++x)
            buf[rec.addr[1] - rec.addr[0] + y * rec.stride[1] + x] = 128;

    TestImage rgba(ZOCA_CF_RGBA, w, h, ZOCA_CS_BT601_FULL, 1);
    ASSERT_EQ(vexa_csc(&rec, rgba.r()), ZOCA_OK);
    EXPECT_NEAR(rgba.GetRgb(w - 1, h - 1).g, 200, 1);
    TestImage small(ZOCA_CF_NV12, 960, 540, ZOCA_CS_BT601_FULL);
    ASSERT_EQ(vexa_rsz(&rec, small.r()), ZOCA_OK);
    EXPECT_EQ(small.Y(959, 539), 200);
}

// Calls share nothing but the source and the resampler's cache of filter graphs: threads
// running every function at once, at several sizes, give the single-thread results.
TEST(Validation, ConcurrentCallsAgree) {
    TestImage src(ZOCA_CF_NV12, 64, 48, ZOCA_CS_BT2020);
    src.FillNoise(7);
    src.rec.startX = 3;  // an odd crop origin resamples the chroma
    struct Job {
        int fmt, w, h, cs;
        std::function<int(_ZOCA_IMGB*)> call;
    };
    const _ZOCA_IMGB* s = src.r();
    const Job jobs[] = {
        {ZOCA_CF_NV12, 40, 30, ZOCA_CS_BT2020, [s](_ZOCA_IMGB* d) { return vexa_rsz(s, d); }},
        {ZOCA_CF_NV12, 90, 70, ZOCA_CS_BT2020, [s](_ZOCA_IMGB* d) { return vexa_rsz(s, d); }},
        {ZOCA_CF_RGBA, 64, 48, ZOCA_CS_BT709, [s](_ZOCA_IMGB* d) { return vexa_csc_dither(s, d); }},
        {ZOCA_CF_NV12, 36, 30, ZOCA_CS_BT2020,
         [s](_ZOCA_IMGB* d) { return vexa_rsz_rot(s, ZOCA_ROT_90, d); }},
        {ZOCA_CF_NV12, 31, 21, ZOCA_CS_BT2020, [s](_ZOCA_IMGB* d) { return vexa_crop(s, d); }},
        {ZOCA_CF_NV12, 64, 48, ZOCA_CS_BT709, [s](_ZOCA_IMGB* d) { return vexa_cgc(s, d); }},
        {ZOCA_CF_NV12, 64, 48, ZOCA_CS_BT709,
         [s](_ZOCA_IMGB* d) { return vexa_hdr_to_sdr(s, d, ZOCA_HDR_HLG); }},
    };
    constexpr int kThreads = 4;
    std::vector<std::unique_ptr<TestImage>> out[kThreads];
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 3; ++i) {
                for (const Job& j : jobs) {
                    out[t].push_back(std::make_unique<TestImage>(j.fmt, j.w, j.h, j.cs));
                    if (j.call(out[t].back()->r()) != ZOCA_OK) out[t].pop_back();
                }
            }
        });
    }
    for (auto& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) {
        ASSERT_EQ(out[t].size(), 3 * std::size(jobs)) << t;
        for (size_t i = 0; i < out[t].size(); ++i) {
            const Job& j = jobs[i % std::size(jobs)];
            TestImage want(j.fmt, j.w, j.h, j.cs);
            ASSERT_EQ(j.call(want.r()), ZOCA_OK);
            EXPECT_TRUE(out[t][i]->SameContent(want)) << t << " " << i;
        }
    }
}

}  // namespace
