// Buffers, slots and record checks shared by the plugin's tests.
#ifndef MIVO_TESTS_PLUGIN_PLUGINTESTSUPPORT_H
#define MIVO_TESTS_PLUGIN_PLUGINTESTSUPPORT_H

#include "BufferSupport.h"
#include "ZocaRecorder.h"
#include "mivo/core/buffer/BufferExtension.h"
#include "mivo/core/buffer/MediaBuffer.h"
#include "mivo/core/buffer/OutputSlot.h"
#include "mivo/ext/plugin/ImgbView.h"
#include "mivo/ext/plugin/VexaPlugin.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

namespace mivo::test {

using core::ImgpOption;
using core::MediaBuffer;
using core::OutputSlot;
using core::detail::CpuMediaBuffer;
using Plugin = ext::detail::VexaPluginBase;
using Buffer = std::shared_ptr<MediaBuffer>;

// An owned, zero-filled picture: immutable and not empty.
inline std::shared_ptr<MediaBuffer> picture(const std::shared_ptr<MediaFormat>& format) {
    return CpuMediaBuffer::allocateFor(format);
}

// An empty, mutable output slot wishing for `format`.
inline std::shared_ptr<MediaBuffer> emptySlot(const std::shared_ptr<MediaFormat>& format) {
    return OutputSlot::create(format);
}

inline std::shared_ptr<MediaBuffer> held(const std::shared_ptr<MediaBuffer>& slot) {
    return std::static_pointer_cast<OutputSlot>(slot)->get();
}

inline _ZOCA_IMGB describe(const MediaBuffer& buffer) {
    return buffer.getTypedData<_ZOCA_IMGB>(nullptr);
}

// A picture whose memory is itself a descriptor record: typed access copies the record, so
// formats without a descriptor code (p010, vendor-specific) can still be an input.
class RecordBuffer final : public core::detail::MediaBufferBase {
  public:
    RecordBuffer(const std::shared_ptr<MediaFormat>& format, const _ZOCA_IMGB& record)
        : MediaBufferBase(FORM_SINGLE, MEDIA_BUFFER_TYPE_ZOCA_IMGB, format, false, nullptr),
          record_(record) {}

    bool isEmpty() const override { return false; }
    bool isNotEmpty() const override { return true; }
    core::detail::PixelPointer getPixelPtr() const override {
        return core::detail::PixelPointer(std::in_place_index<1>, getDirectData());
    }
    void* getDirectData() const override { return const_cast<_ZOCA_IMGB*>(&record_); }

  private:
    _ZOCA_IMGB record_;
};

inline bool sameBytes(const _ZOCA_IMGB& a, const _ZOCA_IMGB& b) {
    return std::memcmp(&a, &b, sizeof(_ZOCA_IMGB)) == 0;
}

// Whether `buffer` exists with the given size and colour format.
inline ::testing::AssertionResult hasShape(const std::shared_ptr<MediaBuffer>& buffer, int cols,
                                           int rows, int colorFormat) {
    if (!buffer) return ::testing::AssertionFailure() << "no buffer";
    const int cf = buffer->getFormat()->getColorFormat();
    if (buffer->getCols() == cols && buffer->getRows() == rows && cf == colorFormat) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << buffer->getCols() << "x" << buffer->getRows() << " in " << cf << ", not " << cols
           << "x" << rows << " in " << colorFormat;
}

inline std::vector<uint8_t> randomBytes(size_t n, unsigned seed) {
    std::mt19937 engine(seed);
    std::uniform_int_distribution<int> byte(0, 255);
    std::vector<uint8_t> bytes(n);
    for (uint8_t& b : bytes) b = static_cast<uint8_t>(byte(engine));
    return bytes;
}

// Every test starts with the view registered, an idle recorder and an empty log.
class PluginTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ext::detail::registerImgbView();
        resetZoca();
        takeLogLines();
    }
    void TearDown() override { resetZoca(); }

    // The single library call the operation made.
    static ZocaCall onlyCall() {
        std::vector<ZocaCall> calls = takeZocaCalls();
        EXPECT_EQ(calls.size(), 1u);
        if (calls.empty()) return ZocaCall{"(none)", {}, {}, -1};
        return calls.front();
    }
};

}  // namespace mivo::test

#endif  // MIVO_TESTS_PLUGIN_PLUGINTESTSUPPORT_H
