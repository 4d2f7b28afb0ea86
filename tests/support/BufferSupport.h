// Shared by the framework's and the plugin's tests: format makers, a buffer with any pixel
// pointer, and a check of the exact arguments an assertion hands to the log.
#ifndef MIVO_TESTS_SUPPORT_BUFFERSUPPORT_H
#define MIVO_TESTS_SUPPORT_BUFFERSUPPORT_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "LogDouble.h"
#include "mivo/core/buffer/MediaBuffer.h"
#include "mivo/core/types/ColorFormat.h"
#include "mivo/core/types/MediaFormat.h"

namespace mivo::test {

using core::detail::PixelAddress;
using core::detail::PixelPointer;
using Extras = std::vector<std::pair<std::string, FormatExtraValue>>;
using FormatEdit = std::function<void(MutableMediaFormat&)>;

inline std::shared_ptr<MediaFormat> freeze(const MutableMediaFormat& format) {
    return std::shared_ptr<MediaFormat>(format.freeze());
}

inline std::shared_ptr<MediaFormat> imageFormat(int colorFormat, int cols, int rows,
                                                int colorSpace = 0, const FormatEdit& edit = {}) {
    auto format = makeImageFormat(colorFormat, cols, rows, colorSpace);
    if (edit) edit(*format);
    return freeze(*format);
}

inline std::shared_ptr<MediaFormat> imageFormat(int colorFormat, int cols, int rows,
                                                const Extras& extras, int colorSpace = 0) {
    return imageFormat(colorFormat, cols, rows, colorSpace, [&](MutableMediaFormat& f) {
        for (const auto& [key, value] : extras) f.setExtra(key, value);
    });
}

inline FormatEdit withExtra(const char* key, FormatExtraValue value) {
    return [key, value](MutableMediaFormat& f) { f.setExtra(key, value); };
}

// A pixel pointer that lost its value while a pair was being built into it.
inline PixelPointer valuelessPointer() {
    struct Throws {
        operator PixelAddress() const { throw 1; }
    };
    PixelPointer pixels;
    try {
        pixels.emplace<3>(nullptr, Throws{});
    } catch (int) {
    }
    EXPECT_TRUE(pixels.valueless_by_exception());
    return pixels;
}

// A buffer whose pixel pointer and type a test chooses.
class PointerBuffer : public core::detail::MediaBufferBase {
  public:
    PointerBuffer(std::shared_ptr<MediaFormat> format, PixelPointer pixels,
                  MediaBufferType type = MEDIA_BUFFER_TYPE_GENERIC)
        : MediaBufferBase(FORM_SINGLE, type, format, false, nullptr), pixels_(std::move(pixels)) {}

    bool isEmpty() const override { return pixels_.index() == 0; }
    bool isNotEmpty() const override { return !isEmpty(); }
    PixelPointer getPixelPtr() const override { return pixels_; }
    void* getDirectData() const override { return nullptr; }

  private:
    PixelPointer pixels_;
};

struct ExpectedAssertion {
    std::string condition;
    std::string format;
    std::string message;
};

template <typename F>
void expectAssertion(F&& call, const ExpectedAssertion& expected) {
    try {
        call();
        ADD_FAILURE() << "no assertion";
    } catch (const AssertionFailure& failure) {
        EXPECT_EQ(failure.condition, expected.condition);
        EXPECT_EQ(failure.tag, "MivoVexaPlugin");
        EXPECT_EQ(failure.format, expected.format);
        EXPECT_EQ(failure.message, expected.message);
    }
}

// The assertion every pointer without an address ends in.
inline const ExpectedAssertion kNotSupportedType{
    "!(!\"not supported type\")", "%s\nnot supported",
    "core/buffer/BufferExtension[256] ASSERT(!\"not supported type\") failed."};

}  // namespace mivo::test

#endif  // MIVO_TESTS_SUPPORT_BUFFERSUPPORT_H
