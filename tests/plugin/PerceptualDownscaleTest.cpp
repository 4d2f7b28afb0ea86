// The plugin's own detail-preserving downscaler: hand-computed cases, a double-precision
// reference written from the formula, and every fast kernel byte for byte against the plain one.
#include "PluginTestSupport.h"
#include "mivo/ext/plugin/PerceptualDownscale.h"

#include <algorithm>
#include <cmath>

namespace mivo::test {
namespace {

using ext::detail::PdKernel;
using ext::detail::perceptualDownscale;

constexpr uint8_t kUntouched = 0xA5;
constexpr size_t kTail = 64;  // guard bytes behind the picture

// A picture over memory the test owns, sized from its own descriptor.
struct Image {
    int colorFormat;
    std::shared_ptr<MediaFormat> format;
    std::vector<uint8_t> bytes;
    size_t end = 0;  // first byte behind the planes
    std::shared_ptr<MediaBuffer> buffer;
    _ZOCA_IMGB record;

    Image(int colorFormat, int cols, int rows, std::vector<uint8_t> content = {})
        : colorFormat(colorFormat),
          format(imageFormat(colorFormat, cols, rows)),
          bytes(std::move(content)) {
        // Described without memory, the plane addresses are the plane offsets.
        const _ZOCA_IMGB layout = describe(*CpuMediaBuffer::wrap(format, nullptr));
        for (int p = 0; p < 3; ++p) {
            end = std::max(end, static_cast<size_t>(layout.addr[p]) +
                                    static_cast<size_t>(layout.stride[p]) * layout.height[p]);
        }
        bytes.resize(end + kTail, kUntouched);
        buffer = CpuMediaBuffer::wrap(format, bytes.data());
        record = describe(*buffer);
    }

    const uint8_t* plane(int q) const { return reinterpret_cast<const uint8_t*>(record.addr[q]); }
};

// Noise, or a picture with flat areas, soft gradients and hard edges the way photos have them.
Image sourceImage(int colorFormat, int cols, int rows, unsigned seed, bool natural) {
    std::vector<uint8_t> bytes = randomBytes(static_cast<size_t>(cols) * rows * 4, seed);
    if (natural) {
        for (size_t i = 0, x = 0, y = 0; i < bytes.size(); ++i, x = i % cols, y = i / cols) {
            const int shade =
                x < y ? 40 : static_cast<int>(120 + 60 * std::sin(x * 0.07 + y * 0.05));
            bytes[i] = static_cast<uint8_t>((x / 9 + y / 7) % 5 ? shade : shade + bytes[i] % 3);
        }
    }
    return Image(colorFormat, cols, rows, std::move(bytes));
}

// Every kernel this CPU runs, the plain one first.
std::vector<PdKernel> kernels() {
    std::vector<PdKernel> all{PdKernel::Plain, PdKernel::Fused};
    if (ext::detail::pdKernelSupported(PdKernel::FusedAvx2)) all.push_back(PdKernel::FusedAvx2);
    if (ext::detail::pdKernelSupported(PdKernel::FusedAvx512)) all.push_back(PdKernel::FusedAvx512);
    return all;
}

// The method in double precision, each output sample straight from the input; float rounding
// in the plugin may move a sample by one code.
void expectNearReference(const Image& src, const Image& dst) {
    const int k = src.record.width[0] / dst.record.width[0];
    const bool semiPlanar =
        src.record.colorFormat == ZOCA_CF_NV12 || src.record.colorFormat == ZOCA_CF_NV21;
    auto clamp01 = [](double v) { return std::min(std::max(v, 0.0), 1.0); };
    for (int p = 0; p < 3; ++p) {
        const bool interleaved = p > 0 && semiPlanar;
        const int q = interleaved ? 1 : p, step = interleaved ? 2 : 1,
                  offset = interleaved ? p - 1 : 0;
        const int block = interleaved ? k / 2 : k, r = interleaved ? 1 : 2, w = src.record.width[q];
        const int bw = w / k, bh = src.record.height[q] / k;
        if (block == 0) continue;  // chroma at factor 1: no samples, no defined mean
        auto blockMean = [&](int bx, int by, int power) {  // of the samples or their squares
            double sum = 0;
            for (int j = 0; j < block * block; ++j) {
                const size_t at = static_cast<size_t>(by * k + j / block) * w + bx * k + j % block;
                sum += std::pow(src.plane(q)[at * step + offset] / 255.0, power);
            }
            return clamp01(sum / (block * block));
        };
        auto term = [&](int tx, int ty, double centre) {  // M + R x (L - M) at one position
            double m = 0, ll = 0, l2 = 0;
            for (int j = 0; j < r * r; ++j) {
                const int bx = std::min(tx + j % r, bw - 1), by = std::min(ty + j / r, bh - 1);
                m += blockMean(bx, by, 1) / (r * r);
                ll += std::pow(blockMean(bx, by, 1), 2) / (r * r);
                l2 += blockMean(bx, by, 2) / (r * r);
            }
            const double sl = ll - m * m, ratio = sl >= 1e-6 ? std::sqrt((l2 - m * m) / sl) : 0;
            return clamp01(m + std::min(ratio, 1.0) * (centre - m));
        };
        for (int y = 0; y < bh; ++y) {
            for (int x = 0; x < bw; ++x) {
                const int xs = std::max(x, 1) - 1, ys = std::max(y, 1) - 1;
                const double c = blockMean(x, y, 1);
                const double sum =
                    r < 2 ? term(x, y, c)
                          : term(x, y, c) + term(xs, y, c) + term(x, ys, c) + term(xs, ys, c);
                ASSERT_NEAR(dst.plane(q)[(y * bw + x) * step + offset],
                            static_cast<int>(sum / (r * r) * 255.0), 1)
                    << "plane " << p << " at " << x << "," << y;
            }
        }
    }
}

// Runs every kernel; all must write the plain kernel's bytes, guard bytes included.
Image downscaleAll(const Image& src, int cols, int rows) {
    Image plain(src.colorFormat, cols, rows);
    perceptualDownscale(src.record, plain.record, PdKernel::Plain);
    for (PdKernel kernel : kernels()) {
        Image fast(src.colorFormat, cols, rows);
        perceptualDownscale(src.record, fast.record, kernel);
        EXPECT_EQ(fast.bytes, plain.bytes) << "kernel " << static_cast<int>(kernel);
    }
    return plain;
}

using DownscaleTest = PluginTest;

struct Case {
    int colorFormat, cols, rows, outCols, outRows;
};

TEST_F(DownscaleTest, HandComputedCases) {
    // Left half 0, right half 255: the edge stays sharp.
    std::vector<uint8_t> edge(64);
    for (int i = 0; i < 64; ++i) edge[i] = (i % 8) < 4 ? 0 : 255;
    const Image edged = downscaleAll(Image(COLOR_FORMAT_NV12, 8, 8, edge), 4, 4);
    for (int y = 0; y < 4; ++y)
        EXPECT_EQ(std::vector<uint8_t>(edged.plane(0) + 4 * y, edged.plane(0) + 4 * y + 4),
                  (std::vector<uint8_t>{0, 0, 255, 255}));
    // Block 0 a 0/255 checker (L = L2 = 0.5), block 1 black: the ratio sqrt(3) is capped at 1,
    // so sample 0 is its own block mean.
    const Image capped =
        downscaleAll(Image(COLOR_FORMAT_NV12, 4, 2, {0, 255, 0, 0, 255, 0, 0, 0}), 2, 1);
    EXPECT_EQ(capped.plane(0)[0], 127);
    EXPECT_EQ(capped.plane(0)[1], 0);
    // A uniform input has no variance: every sample of every plane is the block mean.
    for (const int v : {0, 1, 17, 128, 254, 255}) {
        const Image flat =
            downscaleAll(Image(COLOR_FORMAT_YUV420, 16, 12, std::vector<uint8_t>(384, v)), 8, 6);
        EXPECT_TRUE(std::all_of(flat.bytes.begin(), flat.bytes.begin() + flat.end, [v](uint8_t b) {
            return b == v;
        })) << v;
    }
}

TEST_F(DownscaleTest, KernelsMatchPlainAndReference) {
    // Odd widths, rows of one sample, partial vectors and factors 1 to 5.
    const Case cases[] = {
        {COLOR_FORMAT_NV12, 37, 23, 12, 7},    {COLOR_FORMAT_NV21, 53, 41, 13, 10},
        {COLOR_FORMAT_NV12, 101, 33, 50, 16},  {COLOR_FORMAT_YUV420, 29, 19, 9, 6},
        {COLOR_FORMAT_YUV420, 67, 45, 16, 11}, {COLOR_FORMAT_RGBA, 37, 23, 12, 7},
        {COLOR_FORMAT_RGB, 31, 17, 15, 8},     {COLOR_FORMAT_NV12, 70, 40, 70, 40},
        {COLOR_FORMAT_NV12, 4, 300, 2, 150},   {COLOR_FORMAT_NV12, 330, 6, 66, 1},
    };
    unsigned seed = 7;
    for (const Case& c : cases) {
        for (const bool natural : {false, true}) {
            SCOPED_TRACE(testing::Message()
                         << c.colorFormat << " " << c.cols << "x" << c.rows << " " << natural);
            const Image src = sourceImage(c.colorFormat, c.cols, c.rows, seed++, natural);
            const Image out = downscaleAll(src, c.outCols, c.outRows);
            expectNearReference(src, out);
        }
    }
    // Every width up to a few vectors of the widest kernel, at factors 2, 3, 4 and 8.
    for (const int k : {2, 3, 4, 8}) {
        for (int cols = 2; cols <= 80; cols += 1 + cols / 16) {
            SCOPED_TRACE(testing::Message() << "k " << k << " width " << cols);
            downscaleAll(sourceImage(COLOR_FORMAT_NV12, cols * k, 4 * k + 1, seed++, cols % 2),
                         cols, 4);
        }
    }
}

TEST_F(DownscaleTest, WiderOutputComputesNothing) {
    const Image src = sourceImage(COLOR_FORMAT_NV12, 16, 8, 9, false);
    Image dst(COLOR_FORMAT_NV12, 32, 16);
    EXPECT_EQ(Plugin::rszPd(*src.buffer, *dst.buffer, nullptr), 0);
    EXPECT_EQ(downscaleAll(src, 32, 16).bytes, dst.bytes);
    EXPECT_EQ(dst.bytes, std::vector<uint8_t>(dst.bytes.size(), kUntouched));
}

// A factor that does not divide the sizes gives rows longer than the destination's: each plane
// on its own memory keeps every sample whose byte is inside it, as a taller plane gets them.
TEST_F(DownscaleTest, UnevenFactorWritesExactlyTheBytesInsideEachPlane) {
    const Case cases[] = {{COLOR_FORMAT_NV12, 64, 48, 40, 30},
                          {COLOR_FORMAT_NV21, 66, 50, 30, 21},
                          {COLOR_FORMAT_YUV420, 64, 48, 41, 30},
                          {COLOR_FORMAT_YUV420, 90, 30, 50, 10},
                          {COLOR_FORMAT_NV12, 200, 60, 61, 13}};
    for (const Case& c : cases) {
        const Image src = sourceImage(c.colorFormat, c.cols, c.rows, 21, false);
        const _ZOCA_IMGB dst = Image(c.colorFormat, c.outCols, c.outRows).record;
        for (PdKernel kernel : kernels()) {
            std::vector<uint8_t> clipped[3], tall[3];
            _ZOCA_IMGB small = dst, large = dst;
            for (int q = 0; q < 3; ++q) {
                const size_t size = static_cast<size_t>(dst.stride[q]) * dst.scanlines[q];
                clipped[q].assign(size + kTail, kUntouched);
                tall[q].assign(size * 16 + 4096, kUntouched);
                small.addr[q] = reinterpret_cast<uintptr_t>(clipped[q].data());
                large.addr[q] = reinterpret_cast<uintptr_t>(tall[q].data());
                large.scanlines[q] = static_cast<int>(tall[q].size() / std::max(dst.stride[q], 1));
            }
            perceptualDownscale(src.record, small, kernel);
            perceptualDownscale(src.record, large, kernel);
            for (int q = 0; q < 3; ++q) {
                SCOPED_TRACE(testing::Message() << c.colorFormat << " kernel "
                                                << static_cast<int>(kernel) << " plane " << q);
                const size_t size = clipped[q].size() - kTail;
                EXPECT_TRUE(
                    std::equal(clipped[q].begin(), clipped[q].begin() + size, tall[q].begin()));
                EXPECT_EQ(std::vector<uint8_t>(clipped[q].begin() + size, clipped[q].end()),
                          std::vector<uint8_t>(kTail, kUntouched));
                // The case is one where the unbounded rows really run past the plane.
                EXPECT_TRUE(q > 0 || tall[q][size] != kUntouched);
            }
        }
    }
}

}  // namespace
}  // namespace mivo::test
