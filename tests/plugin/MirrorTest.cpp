// flip's own pixel path, byte for byte on two-plane pictures.
#include "PluginTestSupport.h"
#include "mivo/ext/plugin/Mirror.h"

#include <algorithm>

namespace mivo::test {
namespace {

constexpr uint8_t kUnwritten = 0xEE;
constexpr size_t kTail = 64;  // guard bytes behind the picture

// A two-plane picture over memory the test owns.
struct Picture {
    int w;
    int h;
    std::vector<uint8_t> bytes;
    std::shared_ptr<MediaBuffer> buffer;

    Picture(int cols, int rows, std::vector<uint8_t> content, int colorFormat = COLOR_FORMAT_NV12)
        : w(cols), h(rows), bytes(std::move(content)) {
        bytes.resize(size() + kTail, kUnwritten);
        buffer = CpuMediaBuffer::wrap(imageFormat(colorFormat, w, h), bytes.data());
    }

    int chromaStride() const { return (w + 1) & ~1; }
    size_t size() const {
        return static_cast<size_t>(w) * h + static_cast<size_t>(chromaStride()) * ((h + 1) / 2);
    }
    uint8_t& luma(int x, int y) { return bytes[static_cast<size_t>(y) * w + x]; }
    uint8_t& chroma(int byte, int row) {
        return bytes[static_cast<size_t>(w) * h + static_cast<size_t>(row) * chromaStride() + byte];
    }
};

Picture blank(int w, int h) {
    return Picture(w, h, {});
}

Picture randomPicture(int w, int h, unsigned seed) {
    return Picture(w, h,
                   randomBytes(static_cast<size_t>(w) * h + static_cast<size_t>(w + 1) * h, seed));
}

// The mirror rules applied one byte at a time.
void referenceHorizontal(Picture& s, Picture& d) {
    const int n = 4 * (s.w / 4);
    for (int y = 0; y < s.h; ++y) {
        for (int x = 0; x < n; ++x) d.luma(x, y) = s.luma(n - 1 - x, y);
    }
    if (s.h < 2 || s.w < 4) return;
    const int pairs = s.w / 2;
    for (int y = 0; y < s.h / 2; ++y) {
        for (int k = 0; k < std::max(s.w / 4, 1); ++k) {
            const int m = pairs - 1 - k;
            for (int b = 0; b < 2; ++b) {
                d.chroma(2 * m + b, y) = s.chroma(2 * k + b, y);
                d.chroma(2 * k + b, y) = s.chroma(2 * m + b, y);
            }
        }
    }
}

void referenceVertical(Picture s, Picture& d) {
    if (s.h < 2) return;
    if (s.w >= 4) {
        for (int i = 0; i < s.h / 2; ++i) {
            for (int x = 0; x < 4 * (s.w / 4); ++x) {
                d.luma(x, i) = s.luma(x, s.h - 1 - i);
                d.luma(x, s.h - 1 - i) = s.luma(x, i);
            }
        }
    }
    if (s.h < 4 || s.w < 2) return;
    const int rows = s.h / 2;
    for (int i = 0; i < rows / 2; ++i) {
        for (int b = 0; b < 2 * (s.w / 2); ++b) {
            d.chroma(b, i) = s.chroma(b, rows - 1 - i);
            d.chroma(b, rows - 1 - i) = s.chroma(b, i);
        }
    }
}

std::vector<uint8_t> referenceFlip(Picture& src, int type) {
    Picture out = blank(src.w, src.h);
    if (type == 1 || type == 3) referenceHorizontal(src, out);
    if (type == 2) referenceVertical(src, out);
    if (type == 3) referenceVertical(out, out);
    return out.bytes;
}

std::shared_ptr<ImgpOption> ownFlip(int type) {
    auto option = std::make_shared<ImgpOption>();
    option->set(core::IMGP_OPTION_OWN_FLIP, int32_t{0});
    option->set(core::IMGP_OPTION_FLIP_TYPE, int32_t{type});
    return option;
}

class MirrorTest : public PluginTest {
  protected:
    // Flips `src` into an unwritten picture through the operation; no library call.
    std::vector<uint8_t> flipped(Picture& src, int type) {
        Picture out = blank(src.w, src.h);
        EXPECT_EQ(Plugin::flip(src.buffer, out.buffer, ownFlip(type)), 0);
        EXPECT_TRUE(takeZocaCalls().empty());
        return out.bytes;
    }
};

std::vector<uint8_t> counting(size_t n, uint8_t from) {
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(from + i);
    return bytes;
}

TEST_F(MirrorTest, SixPixelsWideMirrorsOnlyTheFirstWordAndTheOuterChromaPairs) {
    // Luma rows 1..6 and 7..12, then one chroma row 13..18.
    Picture src(6, 2, counting(18, 1));
    const std::vector<uint8_t> out = flipped(src, 1);
    const std::vector<uint8_t> expected = {
        4,  3,  2,          1,          kUnwritten, kUnwritten,  // row 0
        10, 9,  8,          7,          kUnwritten, kUnwritten,  // row 1
        17, 18, kUnwritten, kUnwritten, 13,         14,          // chroma: pairs 0 and 2 exchanged
    };
    EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 18), expected);
    EXPECT_EQ(std::vector<uint8_t>(out.begin() + 18, out.end()),
              std::vector<uint8_t>(kTail, kUnwritten));
}

TEST_F(MirrorTest, VerticalExchangesRowsAndSkipsTheMiddleOne) {
    Picture src(4, 5, counting(4 * 5 + 4 * 3, 1));
    const std::vector<uint8_t> out = flipped(src, 2);
    Picture result(4, 5, out);
    for (int x = 0; x < 4; ++x) {
        EXPECT_EQ(result.luma(x, 0), src.luma(x, 4));
        EXPECT_EQ(result.luma(x, 4), src.luma(x, 0));
        EXPECT_EQ(result.luma(x, 1), src.luma(x, 3));
        EXPECT_EQ(result.luma(x, 2), kUnwritten);
    }
    // Two chroma rows (h / 2) exchanged; the third one, beyond h / 2, untouched.
    for (int b = 0; b < 4; ++b) {
        EXPECT_EQ(result.chroma(b, 0), src.chroma(b, 1));
        EXPECT_EQ(result.chroma(b, 1), src.chroma(b, 0));
        EXPECT_EQ(result.chroma(b, 2), kUnwritten);
    }
}

TEST_F(MirrorTest, FreshOutputKeepsTheInputShapeAndNv21IsMirroredAlike) {
    Picture src = randomPicture(10, 6, 5);
    Picture nv21(10, 6, src.bytes, COLOR_FORMAT_NV21);
    Buffer out = emptySlot(imageFormat(COLOR_FORMAT_RGBA, 4, 4));
    EXPECT_EQ(Plugin::flip(nv21.buffer, out, ownFlip(1)), 0);
    const Buffer made = held(out);
    ASSERT_TRUE(hasShape(made, 10, 6, COLOR_FORMAT_NV21));
    const uint8_t* data = static_cast<const uint8_t*>(made->getDirectData());
    std::vector<uint8_t> expected = referenceFlip(src, 1);
    // The fresh buffer is zero where the mirror does not write.
    std::replace(expected.begin(), expected.end(), kUnwritten, uint8_t{0});
    EXPECT_TRUE(std::equal(data, data + src.size(), expected.begin()));
}

// Sizes around the word and pair remainders, the 32-byte copies' thresholds (20 luma words,
// 24 chroma units), odd heights, and pictures too narrow or too low to mirror at all; the
// operation and both copy paths of the mirror give the same bytes.
TEST_F(MirrorTest, MatchesTheByteRulesOnRandomPictures) {
    unsigned seed = 1;
    for (const int w : {1, 2, 3, 4, 5, 6, 7, 8, 9, 14, 20, 47, 48, 80, 96, 100, 130, 160}) {
        for (const int h : {1, 2, 3, 4, 5, 7, 8, 9, 10}) {
            for (const int type : {1, 2, 3}) {
                SCOPED_TRACE(testing::Message() << w << "x" << h << " type " << type);
                Picture src = randomPicture(w, h, seed++);
                const std::vector<uint8_t> expected = referenceFlip(src, type);
                EXPECT_EQ(flipped(src, type), expected);
                for (const bool wide : {true, false}) {
                    Picture out = blank(w, h);
                    ext::detail::mirrorTwoPlane(describe(*src.buffer), describe(*out.buffer), type,
                                                wide);
                    EXPECT_EQ(out.bytes, expected) << wide;
                }
            }
        }
    }
}

}  // namespace
}  // namespace mivo::test
