// The plugin's own pixel paths and its per-call overhead over the image library.
#include "mivo/core/buffer/BufferExtension.h"
#include "mivo/core/buffer/OutputSlot.h"
#include "mivo/core/types/ColorFormat.h"
#include "mivo/ext/plugin/ImgbView.h"
#include "mivo/ext/plugin/Mirror.h"
#include "mivo/ext/plugin/PerceptualDownscale.h"
#include "mivo/ext/plugin/VexaPlugin.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

using mivo::core::MediaBuffer;
using mivo::core::detail::CpuMediaBuffer;

std::shared_ptr<MediaBuffer> noisyPicture(int colorFormat, int cols, int rows) {
    std::shared_ptr<mivo::MediaFormat> format =
        mivo::makeImageFormat(colorFormat, cols, rows)->freeze();
    std::shared_ptr<MediaBuffer> buffer = CpuMediaBuffer::allocateFor(format);
    std::mt19937 random(7);
    auto* bytes = static_cast<uint8_t*>(buffer->getDirectData());
    for (int i = 0; i < buffer->getSize(); ++i) bytes[i] = static_cast<uint8_t>(random());
    return buffer;
}

_ZOCA_IMGB recordOf(const MediaBuffer& buffer) {
    return buffer.getTypedData<_ZOCA_IMGB>(nullptr);
}

// Two NV12 pictures and their records; the buffers live as long as the records are used.
struct Nv12Pair {
    Nv12Pair(int cols, int rows, int outCols, int outRows)
        : in(noisyPicture(mivo::COLOR_FORMAT_NV12, cols, rows)),
          out(noisyPicture(mivo::COLOR_FORMAT_NV12, outCols, outRows)),
          src((mivo::ext::detail::registerImgbView(), recordOf(*in))),
          dst(recordOf(*out)) {}

    std::shared_ptr<MediaBuffer> in;
    std::shared_ptr<MediaBuffer> out;
    _ZOCA_IMGB src;
    _ZOCA_IMGB dst;
};

// Perceptual downscale of an NV12 frame by a factor, with each kernel; a plain copy of the
// frame sets the floor.
void BM_Downscale(benchmark::State& state) {
    using mivo::ext::detail::PdKernel;
    const auto kernel = static_cast<PdKernel>(state.range(0));
    if (!mivo::ext::detail::pdKernelSupported(kernel)) {
        state.SkipWithError("not supported by this CPU");
        return;
    }
    const int factor = static_cast<int>(state.range(3));
    const Nv12Pair p(state.range(1), state.range(2), state.range(1) / factor,
                     state.range(2) / factor);
    for (auto _ : state) {
        mivo::ext::detail::perceptualDownscale(p.src, p.dst, kernel);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * p.in->getSize());
}
BENCHMARK(BM_Downscale)
    ->ArgNames({"kernel", "cols", "rows", "k"})
    ->ArgsProduct({{0, 1, 2, 3}, {3840}, {2160}, {2, 4}})
    ->Args({3, 1920, 1080, 2})
    ->Unit(benchmark::kMillisecond);

void BM_FrameCopy(benchmark::State& state) {
    std::shared_ptr<MediaBuffer> in = noisyPicture(mivo::COLOR_FORMAT_NV12, 3840, 2160);
    std::vector<uint8_t> out(in->getSize());
    for (auto _ : state) {
        std::memcpy(out.data(), in->getDirectData(), out.size());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_FrameCopy)->Unit(benchmark::kMillisecond);

// The own mirror of a 4K NV12 frame, both directions, with and without 32-byte row copies.
void mirror(benchmark::State& state, bool wide) {
    const Nv12Pair p(3840, 2160, 3840, 2160);
    const int type = static_cast<int>(state.range(0));
    for (auto _ : state) {
        mivo::ext::detail::mirrorTwoPlane(p.src, p.dst, type, wide);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * p.in->getSize());
}

void BM_MirrorWordCopies(benchmark::State& state) {
    mirror(state, false);
}
void BM_MirrorWideCopies(benchmark::State& state) {
    mirror(state, true);
}
BENCHMARK(BM_MirrorWordCopies)->Arg(1)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MirrorWideCopies)->Arg(1)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);

// A 4K to 1080p NV12 resize through the plugin (descriptors, dispatch) and straight into the
// library with records built once: the difference is the plugin's own cost.
void BM_ResizeThroughPlugin(benchmark::State& state) {
    auto option = std::make_shared<mivo::core::ImgpOption>();
    mivo::ext::VexaPlugin plugin(option, {mivo::ext::Operation::Rsz});
    std::shared_ptr<MediaBuffer> in = noisyPicture(mivo::COLOR_FORMAT_NV12, 3840, 2160);
    std::shared_ptr<MediaBuffer> out = noisyPicture(mivo::COLOR_FORMAT_NV12, 1920, 1080);
    for (auto _ : state) benchmark::DoNotOptimize(plugin(in, out));
}

void BM_ResizeLibraryOnly(benchmark::State& state) {
    Nv12Pair p(3840, 2160, 1920, 1080);
    for (auto _ : state) benchmark::DoNotOptimize(vexa_rsz(&p.src, &p.dst));
}
BENCHMARK(BM_ResizeThroughPlugin)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResizeLibraryOnly)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
