// The plugin's own detail-preserving downscaler, against a plain float model of the method.
#include "PluginTestSupport.h"
#include "mivo/ext/plugin/PerceptualDownscale.h"

#include <algorithm>
#include <cmath>

namespace mivo::test {
namespace {

using ext::detail::perceptualDownscale;

constexpr uint8_t kUntouched = 0xA5;
constexpr size_t kTail = 64;  // guard bytes behind the picture

// A picture over memory the test owns, sized from its own descriptor.
struct Image {
    std::shared_ptr<MediaFormat> format;
    std::vector<uint8_t> bytes;
    size_t end = 0;  // first byte behind the planes
    std::shared_ptr<MediaBuffer> buffer;
    _ZOCA_IMGB record;

    Image(int colorFormat, int cols, int rows, std::vector<uint8_t> content = {})
        : format(imageFormat(colorFormat, cols, rows)), bytes(std::move(content)) {
        // Described without memory, the plane addresses are the plane offsets.
        const _ZOCA_IMGB layout = describe(*CpuMediaBuffer::wrap(format, nullptr));
        size_t size = 0;
        for (int p = 0; p < 3; ++p) {
            if (layout.stride[p] == 0) continue;
            size = std::max(size, static_cast<size_t>(layout.addr[p]) +
                                      static_cast<size_t>(layout.stride[p]) * layout.height[p]);
        }
        end = size;
        bytes.resize(size + kTail, kUntouched);
        buffer = CpuMediaBuffer::wrap(format, bytes.data());
        record = describe(*buffer);
    }

    const uint8_t* plane(int q) const { return reinterpret_cast<const uint8_t*>(record.addr[q]); }
};

Image randomImage(int colorFormat, int cols, int rows, unsigned seed) {
    return Image(colorFormat, cols, rows, randomBytes(static_cast<size_t>(cols) * rows * 4, seed));
}

// The method as published, one output sample at a time: block statistics over P x P
// samples, a clamped r x r neighbourhood of block means, a detail ratio capped at 1, and the
// mean over the centre and its left, top and top-left neighbours.
std::vector<uint8_t> modelPlane(const uint8_t* base, int w, int h, int step, int offset, int k,
                                int block, int r) {
    const int bw = w / k;
    const int bh = h / k;
    auto clamp01 = [](float v) { return std::min(std::max(v, 0.0f), 1.0f); };
    std::vector<float> mean(bw * bh), square(bw * bh), m(bw * bh), ratio(bw * bh);
    const float inverseArea = 1.0f / static_cast<float>(block * block);
    for (int by = 0; by < bh; ++by) {
        for (int bx = 0; bx < bw; ++bx) {
            float sum = 0.0f;
            float squares = 0.0f;
            for (int j = 0; j < block; ++j) {
                for (int i = 0; i < block; ++i) {
                    const size_t at = static_cast<size_t>(by * k + j) * w + bx * k + i;
                    const float v = static_cast<float>(base[at * step + offset]) * 0.003921569f;
                    sum += v;
                    squares += v * v;
                }
            }
            mean[by * bw + bx] = clamp01(sum * inverseArea);
            square[by * bw + bx] = clamp01(squares * inverseArea);
        }
    }
    const float area = static_cast<float>(r * r);
    for (int y = 0; y < bh; ++y) {
        for (int x = 0; x < bw; ++x) {
            float sumL = 0.0f, sumLL = 0.0f, sumL2 = 0.0f;
            for (int dy = 0; dy < r; ++dy) {
                for (int dx = 0; dx < r; ++dx) {
                    const int at = std::min(y + dy, bh - 1) * bw + std::min(x + dx, bw - 1);
                    sumL += mean[at];
                    sumLL += mean[at] * mean[at];
                    sumL2 += square[at];
                }
            }
            const float mu = sumL / area;
            const float sl = sumLL / area - mu * mu;
            const float sh = sumL2 / area - mu * mu;
            m[y * bw + x] = clamp01(mu);
            ratio[y * bw + x] = sl >= 0.000001f ? std::min(std::sqrt(sh / sl), 1.0f) : 0.0f;
        }
    }
    std::vector<uint8_t> out(bw * bh);
    for (int y = 0; y < bh; ++y) {
        for (int x = 0; x < bw; ++x) {
            const float l = mean[y * bw + x];
            const int xs[] = {x, std::max(x, 1) - 1, x, std::max(x, 1) - 1};
            const int ys[] = {y, y, std::max(y, 1) - 1, std::max(y, 1) - 1};
            float sum = 0.0f;
            for (int t = 0; t < (r >= 2 ? 4 : 1); ++t) {
                const int at = ys[t] * bw + xs[t];
                sum += clamp01(m[at] + l * ratio[at] - m[at] * ratio[at]);
            }
            const double value = sum * (1.0f / area) * 255.0;
            out[y * bw + x] = static_cast<uint8_t>(std::clamp(static_cast<int>(value), 0, 255));
        }
    }
    return out;
}

// Every plane of `src` through the model, laid out the way the plugin writes `dst`.
void expectModel(const Image& src, const Image& dst) {
    const int k = src.record.width[0] / dst.record.width[0];
    const bool semiPlanar =
        src.record.colorFormat == ZOCA_CF_NV12 || src.record.colorFormat == ZOCA_CF_NV21;
    for (int p = 0; p < 3; ++p) {
        const bool interleaved = p > 0 && semiPlanar;
        const int q = interleaved ? 1 : p;
        const int w = src.record.width[q];
        const int h = src.record.height[q];
        if (w / k == 0 || h / k == 0) continue;
        const int step = interleaved ? 2 : 1;
        const int offset = interleaved ? p - 1 : 0;
        const std::vector<uint8_t> expected = modelPlane(
            src.plane(q), w, h, step, offset, k, interleaved ? k / 2 : k, interleaved ? 1 : 2);
        std::vector<uint8_t> actual(expected.size());
        for (size_t i = 0; i < actual.size(); ++i) actual[i] = dst.plane(q)[i * step + offset];
        EXPECT_EQ(actual, expected) << "plane " << p;
    }
}

using DownscaleTest = PluginTest;

TEST_F(DownscaleTest, EdgeStaysSharp) {
    // Left half 0, right half 255: four block columns 0, 0, 1, 1.
    std::vector<uint8_t> luma(64);
    for (int i = 0; i < 64; ++i) luma[i] = (i % 8) < 4 ? 0 : 255;
    Image src(COLOR_FORMAT_NV12, 8, 8, luma);
    Image dst(COLOR_FORMAT_NV12, 4, 4);
    perceptualDownscale(src.record, dst.record);
    for (int y = 0; y < 4; ++y) {
        const std::vector<uint8_t> row(dst.plane(0) + 4 * y, dst.plane(0) + 4 * y + 4);
        EXPECT_EQ(row, (std::vector<uint8_t>{0, 0, 255, 255})) << y;
    }
}

TEST_F(DownscaleTest, DetailRatioIsCappedAtOne) {
    // Block 0 is a 0/255 checker (L = L2 = 0.5), block 1 is black: the ratio would be
    // sqrt(3); capped, sample 0 is its own block mean, 127.
    Image src(COLOR_FORMAT_NV12, 4, 2, {0, 255, 0, 0, 255, 0, 0, 0});
    Image dst(COLOR_FORMAT_NV12, 2, 1);
    perceptualDownscale(src.record, dst.record);
    EXPECT_EQ(dst.plane(0)[0], 127);
    EXPECT_EQ(dst.plane(0)[1], 0);
}

TEST_F(DownscaleTest, UniformInputGivesTheBlockMean) {
    for (const int v : {0, 1, 17, 128, 200, 254, 255}) {
        Image src(COLOR_FORMAT_YUV420, 16, 12,
                  std::vector<uint8_t>(16 * 12 * 2, static_cast<uint8_t>(v)));
        Image dst(COLOR_FORMAT_YUV420, 8, 6);
        perceptualDownscale(src.record, dst.record);
        // R = 0 everywhere, so each sample is the block mean: v itself, in all three planes.
        EXPECT_TRUE(std::all_of(dst.bytes.begin(), dst.bytes.begin() + dst.end, [v](uint8_t b) {
            return b == v;
        })) << v;
    }
}

TEST_F(DownscaleTest, VectorKernelEqualsScalarAndTheModel) {
    struct Case {
        int colorFormat, cols, rows, outCols, outRows;
    };
    const Case cases[] = {
        {COLOR_FORMAT_NV12, 8, 8, 4, 4},     {COLOR_FORMAT_NV12, 37, 23, 12, 7},
        {COLOR_FORMAT_NV21, 53, 41, 13, 10}, {COLOR_FORMAT_NV12, 101, 33, 50, 16},
        {COLOR_FORMAT_YUV420, 29, 19, 9, 6}, {COLOR_FORMAT_YUV420, 67, 45, 16, 11},
        {COLOR_FORMAT_RGBA, 37, 23, 12, 7},  {COLOR_FORMAT_RGB, 31, 17, 15, 8},
    };
    unsigned seed = 7;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.colorFormat << " " << c.cols << "x" << c.rows);
        const Image src = randomImage(c.colorFormat, c.cols, c.rows, seed++);
        Image vector(c.colorFormat, c.outCols, c.outRows);
        Image scalar(c.colorFormat, c.outCols, c.outRows);
        perceptualDownscale(src.record, vector.record, true);
        perceptualDownscale(src.record, scalar.record, false);
        EXPECT_EQ(vector.bytes, scalar.bytes);
        expectModel(src, vector);
    }
}

TEST_F(DownscaleTest, RowsBelowTheLastWholeBlockAreIgnored) {
    for (const int cf : {COLOR_FORMAT_NV12, COLOR_FORMAT_YUV420}) {
        Image first = randomImage(cf, 16, 9, 5);
        Image second = first;
        second.buffer = CpuMediaBuffer::wrap(second.format, second.bytes.data());
        second.record = describe(*second.buffer);
        // Luma row 8 and the last chroma row lie beyond bh * k.
        std::fill(second.bytes.begin() + 16 * 8, second.bytes.begin() + 16 * 9, 0);
        const int chromaRows = second.record.height[1];
        for (int q = 1; q <= (cf == COLOR_FORMAT_YUV420 ? 2 : 1); ++q) {
            uint8_t* last = const_cast<uint8_t*>(second.plane(q)) +
                            static_cast<size_t>(chromaRows - 1) * second.record.stride[q];
            std::fill(last, last + second.record.stride[q], 255);
        }
        Image a(cf, 8, 4);
        Image b(cf, 8, 4);
        perceptualDownscale(first.record, a.record);
        perceptualDownscale(second.record, b.record);
        EXPECT_EQ(a.bytes, b.bytes) << cf;
        EXPECT_NE(first.bytes, second.bytes);
    }
}

bool untouchedFrom(const Image& image, size_t from) {
    return std::all_of(image.bytes.begin() + from, image.bytes.end(),
                       [](uint8_t b) { return b == kUntouched; });
}

TEST_F(DownscaleTest, WiderOutputComputesNothing) {
    const Image src = randomImage(COLOR_FORMAT_NV12, 16, 8, 9);
    Image dst(COLOR_FORMAT_NV12, 32, 16);
    EXPECT_EQ(Plugin::rszPd(*src.buffer, *dst.buffer, nullptr), 0);
    EXPECT_TRUE(untouchedFrom(dst, 0));
    _ZOCA_IMGB none = dst.record;
    none.width[0] = 0;
    perceptualDownscale(src.record, none);
    EXPECT_TRUE(untouchedFrom(dst, 0));
}

// 64 / 40 gives k = 1: rows of 64 samples, which the 40-column planes cannot take whole.
TEST_F(DownscaleTest, UnevenFactorStaysInsideTheDestinationPlanes) {
    for (const int cf : {COLOR_FORMAT_NV12, COLOR_FORMAT_YUV420, COLOR_FORMAT_RGBA}) {
        const Image src = randomImage(cf, 64, 48, 21);
        Image dst(cf, 40, 30);
        perceptualDownscale(src.record, dst.record);
        EXPECT_TRUE(untouchedFrom(dst, dst.end)) << cf;
    }
    // The rows that fit are those of the unclipped computation.
    const Image src = randomImage(COLOR_FORMAT_RGBA, 64, 48, 22);
    Image small(COLOR_FORMAT_RGBA, 40, 30);
    Image large(COLOR_FORMAT_RGBA, 40, 80);
    perceptualDownscale(src.record, small.record);
    perceptualDownscale(src.record, large.record);
    EXPECT_TRUE(
        std::equal(small.bytes.begin(), small.bytes.begin() + small.end, large.bytes.begin()));
}

TEST_F(DownscaleTest, OperationFillsAFreshOutput) {
    const Image src = randomImage(COLOR_FORMAT_NV21, 40, 24, 13);
    const Buffer out = emptySlot(imageFormat(COLOR_FORMAT_NV21, 20, 12));
    EXPECT_EQ(Plugin::rszPd(*src.buffer, *out, nullptr), 0);
    ASSERT_NE(held(out), nullptr);
    Image expected(COLOR_FORMAT_NV21, 20, 12);
    perceptualDownscale(src.record, expected.record, false);
    const uint8_t* made = static_cast<const uint8_t*>(held(out)->getDirectData());
    EXPECT_TRUE(std::equal(made, made + 20 * 12 + 20 * 6, expected.bytes.begin()));
}

}  // namespace
}  // namespace mivo::test
