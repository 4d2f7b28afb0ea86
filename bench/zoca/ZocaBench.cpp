// Each vexa_* function beside the libyuv call that does the same work on the same
// buffers, at 1080p and 4K. Gamut conversion, tone mapping and dithering have no
// libyuv counterpart; they sit beside libyuv's NV12 -> RGBA of the same frame. Frames
// hold noise, or (picture 1) a photo upscaled to the frame: natural pictures have
// smooth areas and mostly in-gamut colours, which noise does not.
#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <cstring>
#include <memory>
#include <vector>

#include "colour.h"
#include "linear.h"
#include "vexa/io/ImageFile.h"
#include "zoca/zoca.h"

namespace {

struct Frame {
    _ZOCA_IMGB rec;
    std::vector<uint8_t> mem;

    Frame(int fmt, int w, int h, int cs) {
        std::memset(&rec, 0, sizeof(rec));
        rec.colorFormat = fmt;
        rec.colorSpace = cs;
        rec.width[0] = w;
        rec.height[0] = h;
        rec.scanlines[0] = h;
        const int cw = (w + 1) / 2;
        const int ch = (h + 1) / 2;
        size_t size[3] = {0, 0, 0};
        int planes = 1;
        if (fmt == ZOCA_CF_NV12 || fmt == ZOCA_CF_NV21) {
            planes = 2;
            rec.stride[0] = w;
            rec.width[1] = cw;
            rec.height[1] = rec.scanlines[1] = ch;
            rec.stride[1] = 2 * cw;
        } else if (fmt == ZOCA_CF_I420) {
            planes = 3;
            rec.stride[0] = w;
            for (int p = 1; p < 3; ++p) {
                rec.width[p] = cw;
                rec.height[p] = rec.scanlines[p] = ch;
                rec.stride[p] = cw;
            }
        } else {
            rec.stride[0] = w * (fmt == ZOCA_CF_RGB || fmt == ZOCA_CF_BGR ? 3 : 4);
        }
        size_t total = 0;
        for (int p = 0; p < planes; ++p) {
            size[p] = static_cast<size_t>(rec.stride[p]) * rec.height[p];
            total += size[p];
        }
        mem.resize(total + 64);
        uint8_t* base = mem.data() + ((64 - reinterpret_cast<uintptr_t>(mem.data()) % 64) % 64);
        for (int p = 0; p < planes; ++p) {
            rec.addr[p] = reinterpret_cast<uintptr_t>(base);
            base += size[p];
        }
        uint32_t seed = 12345;
        for (size_t i = 0; i < mem.size(); ++i) {
            seed = seed * 1664525u + 1013904223u;
            mem[i] = static_cast<uint8_t>(seed >> 24);
        }
    }

    // The CC0 photo assets/chelsea.png, scaled bilinearly to the frame and converted
    // into its format and colour space.
    void FillPhoto() {
        const vexa::io::Image png = vexa::io::readImage(ZOCA_BENCH_ASSETS "/chelsea.png");
        std::vector<uint8_t> small(4 * png.width * png.height);
        if (png.colorFormat == vexa::io::kRgb) {
            libyuv::RAWToARGB(png.data.data(), 3 * png.width, small.data(), 4 * png.width,
                              png.width, png.height);
        } else {
            libyuv::ABGRToARGB(png.data.data(), 4 * png.width, small.data(), 4 * png.width,
                               png.width, png.height);
        }
        Frame big(ZOCA_CF_BGRA, w(), h(), rec.colorSpace);
        libyuv::ARGBScale(small.data(), 4 * png.width, png.width, png.height, big.p(0), big.s(0),
                          w(), h(), libyuv::kFilterBilinear);
        vexa_csc(&big.rec, &rec);
    }

    uint8_t* p(int i) { return reinterpret_cast<uint8_t*>(rec.addr[i]); }
    int s(int i) const { return rec.stride[i]; }
    int w() const { return rec.width[0]; }
    int h() const { return rec.height[0]; }
};

int W(const benchmark::State& st) {
    return static_cast<int>(st.range(0));
}
int H(const benchmark::State& st) {
    return static_cast<int>(st.range(1));
}

void Sizes(benchmark::internal::Benchmark* b) {
    b->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMillisecond);
}

void Check(benchmark::State& st, int rc) {
    if (rc != 0) st.SkipWithError("call failed");
}

// ---- resize: ours (Lanczos-3 shrinking, Catmull-Rom enlarging) beside libyuv's box and
// bilinear filters (arg 4: 0 box, 1 bilinear) on the same buffers ----

void ResizeSizes(benchmark::internal::Benchmark* b) {
    b->Args({3840, 2160, 1920, 1080})->Args({1920, 1080, 1280, 720})->Args({1280, 720, 1920, 1080});
    b->Unit(benchmark::kMillisecond);
}
void LibyuvResizeSizes(benchmark::internal::Benchmark* b) {
    for (int filter : {0, 1}) {
        b->Args({3840, 2160, 1920, 1080, filter})->Args({1920, 1080, 1280, 720, filter});
        b->Args({1280, 720, 1920, 1080, filter});
    }
    b->Unit(benchmark::kMillisecond);
}
libyuv::FilterMode FilterOf(const benchmark::State& st) {
    return st.range(4) != 0 ? libyuv::kFilterBilinear : libyuv::kFilterBox;
}

template <int kFmt>
void BM_Rsz_Vexa(benchmark::State& st) {
    Frame src(kFmt, W(st), H(st), 0);
    Frame dst(kFmt, static_cast<int>(st.range(2)), static_cast<int>(st.range(3)), 0);
    for (auto _ : st) Check(st, vexa_rsz(&src.rec, &dst.rec));
}
void BM_Rsz_Nv12_Libyuv(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), 0);
    Frame dst(ZOCA_CF_NV12, static_cast<int>(st.range(2)), static_cast<int>(st.range(3)), 0);
    for (auto _ : st) {
        libyuv::NV12Scale(src.p(0), src.s(0), src.p(1), src.s(1), src.w(), src.h(), dst.p(0),
                          dst.s(0), dst.p(1), dst.s(1), dst.w(), dst.h(), FilterOf(st));
    }
}
void BM_Rsz_Rgba_Libyuv(benchmark::State& st) {
    Frame src(ZOCA_CF_RGBA, W(st), H(st), 0);
    Frame dst(ZOCA_CF_RGBA, static_cast<int>(st.range(2)), static_cast<int>(st.range(3)), 0);
    for (auto _ : st) {
        libyuv::ARGBScale(src.p(0), src.s(0), src.w(), src.h(), dst.p(0), dst.s(0), dst.w(),
                          dst.h(), FilterOf(st));
    }
}
BENCHMARK_TEMPLATE(BM_Rsz_Vexa, ZOCA_CF_NV12)->Apply(ResizeSizes);
BENCHMARK(BM_Rsz_Nv12_Libyuv)->Apply(LibyuvResizeSizes);
BENCHMARK_TEMPLATE(BM_Rsz_Vexa, ZOCA_CF_RGBA)->Apply(ResizeSizes);
BENCHMARK(BM_Rsz_Rgba_Libyuv)->Apply(LibyuvResizeSizes);

// ---- colour conversion: every matrix and range, plain and dithered ----

using CscFn = int (*)(const _ZOCA_IMGB*, _ZOCA_IMGB*);
CscFn CscOf(const benchmark::State& st) {
    return st.range(3) != 0 ? vexa_csc_dither : vexa_csc;
}

void BM_Csc_Nv12ToRgba_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), static_cast<int>(st.range(2)));
    Frame dst(ZOCA_CF_RGBA, W(st), H(st), static_cast<int>(st.range(2)));
    const CscFn fn = CscOf(st);
    for (auto _ : st) Check(st, fn(&src.rec, &dst.rec));
}
void BM_Csc_RgbaToNv12_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_RGBA, W(st), H(st), 0);
    Frame dst(ZOCA_CF_NV12, W(st), H(st), static_cast<int>(st.range(2)));
    const CscFn fn = CscOf(st);
    for (auto _ : st) Check(st, fn(&src.rec, &dst.rec));
}
void BM_Csc_Nv12ToRgba_Libyuv(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), 0);
    Frame dst(ZOCA_CF_RGBA, W(st), H(st), 0);
    for (auto _ : st) {
        // NV12 -> R,G,B,A bytes: libyuv's NV12ToABGRMatrix.
        libyuv::NV21ToARGBMatrix(src.p(0), src.s(0), src.p(1), src.s(1), dst.p(0), dst.s(0),
                                 &libyuv::kYvuI601Constants, src.w(), src.h());
    }
}
void BM_Csc_RgbaToNv12_Libyuv(benchmark::State& st) {
    Frame src(ZOCA_CF_RGBA, W(st), H(st), 0);
    Frame dst(ZOCA_CF_NV12, W(st), H(st), 0);
    for (auto _ : st) {
        libyuv::ABGRToNV12(src.p(0), src.s(0), dst.p(0), dst.s(0), dst.p(1), dst.s(1), src.w(),
                           src.h());
    }
}
void CscArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"w", "h", "cs", "dither"});
    b->Args({1920, 1080, 0, 0});
    for (int dither : {0, 1}) {
        for (int cs : {0, 1, 10, 11, 20, 21, 30}) b->Args({3840, 2160, cs, dither});
    }
    b->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Csc_Nv12ToRgba_Vexa)->Apply(CscArgs);
BENCHMARK(BM_Csc_RgbaToNv12_Vexa)->Apply(CscArgs);
BENCHMARK(BM_Csc_Nv12ToRgba_Libyuv)->Apply(Sizes);
BENCHMARK(BM_Csc_RgbaToNv12_Libyuv)->Apply(Sizes);

// ---- rotation ----

void BM_Rot90_Nv12_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), 0);
    Frame dst(ZOCA_CF_NV12, H(st), W(st), 0);
    for (auto _ : st) Check(st, vexa_rot(&src.rec, ZOCA_ROT_90, &dst.rec));
}
void BM_Rot90_Nv12ToI420_Libyuv(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), 0);
    Frame dst(ZOCA_CF_I420, H(st), W(st), 0);
    for (auto _ : st) {
        libyuv::NV12ToI420Rotate(src.p(0), src.s(0), src.p(1), src.s(1), dst.p(0), dst.s(0),
                                 dst.p(1), dst.s(1), dst.p(2), dst.s(2), src.w(), src.h(),
                                 libyuv::kRotate90);
    }
}
BENCHMARK(BM_Rot90_Nv12_Vexa)->Apply(Sizes);
BENCHMARK(BM_Rot90_Nv12ToI420_Libyuv)->Apply(Sizes);

void BM_Rot90_I420_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_I420, W(st), H(st), 0);
    Frame dst(ZOCA_CF_I420, H(st), W(st), 0);
    for (auto _ : st) Check(st, vexa_rot(&src.rec, ZOCA_ROT_90, &dst.rec));
}
void BM_Rot90_I420_Libyuv(benchmark::State& st) {
    Frame src(ZOCA_CF_I420, W(st), H(st), 0);
    Frame dst(ZOCA_CF_I420, H(st), W(st), 0);
    for (auto _ : st) {
        libyuv::I420Rotate(src.p(0), src.s(0), src.p(1), src.s(1), src.p(2), src.s(2), dst.p(0),
                           dst.s(0), dst.p(1), dst.s(1), dst.p(2), dst.s(2), src.w(), src.h(),
                           libyuv::kRotate90);
    }
}
BENCHMARK(BM_Rot90_I420_Vexa)->Apply(Sizes);
BENCHMARK(BM_Rot90_I420_Libyuv)->Apply(Sizes);

void BM_Rot90_Rgba_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_RGBA, W(st), H(st), 0);
    Frame dst(ZOCA_CF_RGBA, H(st), W(st), 0);
    for (auto _ : st) Check(st, vexa_rot(&src.rec, ZOCA_ROT_90, &dst.rec));
}
void BM_Rot90_Rgba_Libyuv(benchmark::State& st) {
    Frame src(ZOCA_CF_RGBA, W(st), H(st), 0);
    Frame dst(ZOCA_CF_RGBA, H(st), W(st), 0);
    for (auto _ : st) {
        libyuv::ARGBRotate(src.p(0), src.s(0), dst.p(0), dst.s(0), src.w(), src.h(),
                           libyuv::kRotate90);
    }
}
BENCHMARK(BM_Rot90_Rgba_Vexa)->Apply(Sizes);
BENCHMARK(BM_Rot90_Rgba_Libyuv)->Apply(Sizes);

// ---- crop: the centre quarter of an NV12 frame ----

void BM_Crop_Nv12_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), 0);
    Frame dst(ZOCA_CF_NV12, W(st) / 2, H(st) / 2, 0);
    src.rec.startX = W(st) / 4;
    src.rec.startY = H(st) / 4;
    for (auto _ : st) Check(st, vexa_crop(&src.rec, &dst.rec));
}
void BM_Crop_Nv12_Libyuv(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), 0);
    Frame dst(ZOCA_CF_NV12, W(st) / 2, H(st) / 2, 0);
    const int x = W(st) / 4;
    const int y = H(st) / 4;
    for (auto _ : st) {
        libyuv::NV12Copy(src.p(0) + y * src.s(0) + x, src.s(0),
                         src.p(1) + y / 2 * src.s(1) + x / 2 * 2, src.s(1), dst.p(0), dst.s(0),
                         dst.p(1), dst.s(1), dst.w(), dst.h());
    }
}
BENCHMARK(BM_Crop_Nv12_Vexa)->Apply(Sizes);
BENCHMARK(BM_Crop_Nv12_Libyuv)->Apply(Sizes);

// ---- linear-light work ----

void BM_Cgc_Rgba709To2020_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_RGBA, W(st), H(st), ZOCA_CS_BT709);
    Frame dst(ZOCA_CF_RGBA, W(st), H(st), ZOCA_CS_BT2020);
    if (st.range(2) != 0) src.FillPhoto();
    for (auto _ : st) Check(st, vexa_cgc(&src.rec, &dst.rec));
}
void BM_Cgc_Nv12_2020To709_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), ZOCA_CS_BT2020);
    Frame dst(ZOCA_CF_NV12, W(st), H(st), ZOCA_CS_BT709);
    if (st.range(2) != 0) src.FillPhoto();
    for (auto _ : st) Check(st, vexa_cgc(&src.rec, &dst.rec));
}
void PictureArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"w", "h", "photo"});
    for (int photo : {0, 1}) b->Args({3840, 2160, photo});
    b->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Cgc_Rgba709To2020_Vexa)->Apply(PictureArgs);
BENCHMARK(BM_Cgc_Nv12_2020To709_Vexa)->Apply(PictureArgs);

void BM_HdrToSdr_Nv12_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_NV12, W(st), H(st), ZOCA_CS_BT2020);
    Frame dst(ZOCA_CF_NV12, W(st), H(st), ZOCA_CS_BT709);
    if (st.range(3) != 0) src.FillPhoto();
    const int mode = static_cast<int>(st.range(2));
    for (auto _ : st) Check(st, vexa_hdr_to_sdr(&src.rec, &dst.rec, mode));
}
void BM_HdrToSdr_Rgba_Vexa(benchmark::State& st) {
    Frame src(ZOCA_CF_RGBA, W(st), H(st), ZOCA_CS_BT2020);
    Frame dst(ZOCA_CF_RGBA, W(st), H(st), ZOCA_CS_BT709);
    if (st.range(3) != 0) src.FillPhoto();
    const int mode = static_cast<int>(st.range(2));
    for (auto _ : st) Check(st, vexa_hdr_to_sdr(&src.rec, &dst.rec, mode));
}
void ModeArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"w", "h", "mode", "photo"});
    for (int photo : {0, 1}) {
        for (int mode : {ZOCA_HDR_DEFAULT, ZOCA_HDR_HLG}) b->Args({3840, 2160, mode, photo});
    }
    b->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_HdrToSdr_Nv12_Vexa)->Apply(ModeArgs);
BENCHMARK(BM_HdrToSdr_Rgba_Vexa)->Apply(ModeArgs);

// The linear-light kernels alone on a 4K frame of planar rows, plain beside AVX-512:
// what the vector build buys without the format conversions around it.
enum KernelWork { kGamutInto2020, kGamut2020To709, kTonePq, kToneHlg };

void BM_LinearKernel(benchmark::State& st) {
    const auto kernel = static_cast<zoca::Kernel>(st.range(0));
    const auto work = static_cast<KernelWork>(st.range(1));
    if (!zoca::Supported(kernel)) {
        st.SkipWithError("kernel not supported on this CPU");
        return;
    }
    constexpr int kW = 3840;
    constexpr int kH = 2160;
    std::vector<uint8_t> frame(3 * kW * kH);
    uint32_t seed = 99;
    for (auto& v : frame) v = static_cast<uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
    std::vector<uint8_t> row(3 * kW);
    const zoca::GamutParams gp = work == kGamutInto2020
                                     ? zoca::GamutParamsOf(ZOCA_CS_BT709, ZOCA_CS_BT2020)
                                     : zoca::GamutParamsOf(ZOCA_CS_BT2020, ZOCA_CS_BT709);
    const zoca::ToneParams tp =
        zoca::ToneParamsOf(work == kToneHlg ? ZOCA_HDR_HLG : ZOCA_HDR_DEFAULT);
    for (auto _ : st) {
        for (int y = 0; y < kH; ++y) {
            std::memcpy(row.data(), frame.data() + static_cast<size_t>(y) * 3 * kW, 3 * kW);
            uint8_t* r = row.data();
            if (work == kTonePq || work == kToneHlg) {
                zoca::ToneRow(kernel, tp, r, r + kW, r + 2 * kW, kW);
            } else {
                zoca::GamutRow(kernel, gp, r, r + kW, r + 2 * kW, kW);
            }
        }
        benchmark::DoNotOptimize(row.data());
    }
}
BENCHMARK(BM_LinearKernel)
    ->ArgsProduct({{static_cast<int>(zoca::Kernel::Plain), static_cast<int>(zoca::Kernel::Avx512)},
                   {kGamutInto2020, kGamut2020To709, kTonePq, kToneHlg}})
    ->ArgNames({"avx512", "work"})
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
