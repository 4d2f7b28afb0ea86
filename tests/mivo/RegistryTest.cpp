// The per-type view registry and typed access. Registry state lives for the whole process,
// so every test that registers uses a record type of its own and the tests do not depend on
// their order.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "BufferSupport.h"
#include "mivo/core/buffer/BufferExtension.h"
#include "mivo/ext/plugin/ImgbView.h"

namespace mivo::test {
namespace {

using core::BufferExtension;
using core::Singleton;
using core::detail::BufferAlloc;
using core::detail::BufferIdentify;
using core::detail::BufferOption;
using core::detail::BufferTransform;

template <int N>
struct Record {
    unsigned char bytes[40];
};

template <int N>
Record<N> recordOf(unsigned char seed) {
    Record<N> record;
    for (size_t i = 0; i < sizeof(record.bytes); ++i) {
        record.bytes[i] = static_cast<unsigned char>(seed + i);
    }
    return record;
}

// Whether `a` has the bytes `b` starts with.
template <typename T, typename U>
bool sameBytes(const T& a, const U& b) {
    static_assert(sizeof(U) >= sizeof(T));
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

template <typename T>
MediaBufferType identify() {
    return (*Singleton<BufferIdentify<T>>::get())();
}

struct Counter {
    int value = 41;
};
struct OtherCounter {
    int value = 41;
};

// Counts its copies; having a copy constructor, it is kept on the heap by std::function.
struct CountedCall {
    int* copies;
    explicit CountedCall(int* counter) : copies(counter) {}
    CountedCall(const CountedCall& other) : copies(other.copies) { ++*copies; }
    MediaBufferType operator()() const { return MEDIA_BUFFER_TYPE_HEAP; }
    std::unique_ptr<Record<9>> operator()(const MediaFormat&,
                                          const std::shared_ptr<BufferOption>&) const {
        return nullptr;
    }
};

// get() on a never-reset singleton gives one default instance; reset() moves in its value.
TEST(Singleton, GetCreatesOneDefaultInstanceAndResetMovesTheNewOneIn) {
    std::unique_ptr<Counter>& first = Singleton<Counter>::get<>();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->value, 41);
    EXPECT_EQ(Singleton<Counter>::getBucket<>().once, ~0ul);
    EXPECT_EQ(&Singleton<Counter>::get(), &first);
    EXPECT_EQ(Singleton<Counter>::get().get(), first.get());

    Singleton<Counter>::reset(Counter{7});
    EXPECT_EQ(Singleton<Counter>::get()->value, 7);
    // A reset before any get also sticks.
    Singleton<OtherCounter>::reset(OtherCounter{3});
    EXPECT_EQ(Singleton<OtherCounter>::get()->value, 3);

    using R = Record<9>;
    int copies = 0;
    BufferIdentify<R> identifyCall{CountedCall(&copies)};
    BufferAlloc<R> allocCall{CountedCall(&copies)};
    copies = 0;
    Singleton<BufferIdentify<R>>::reset(std::move(identifyCall));
    Singleton<BufferAlloc<R>>::reset(std::move(allocCall));
    EXPECT_EQ(copies, 0);
    EXPECT_EQ(identify<R>(), MEDIA_BUFFER_TYPE_HEAP);
}

TEST(Registry, NothingRegistered) {
    using R = Record<1>;
    EXPECT_EQ(identify<R>(), 100);
    auto format = imageFormat(COLOR_FORMAT_RGB, 2, 2);
    EXPECT_THROW((*Singleton<BufferAlloc<R>>::get())(*format, nullptr), std::bad_function_call);

    // A buffer of type 100 already is a record; any other needs the empty conversion.
    R raw = recordOf<1>(3);
    PointerBuffer extension(format, PixelPointer(std::in_place_index<1>, &raw),
                            MEDIA_BUFFER_TYPE_EXTENSION);
    EXPECT_TRUE(sameBytes(extension.getTypedData<R>(nullptr), raw));
    PointerBuffer generic(format, PixelPointer(std::in_place_index<1>, &raw));
    EXPECT_THROW(generic.getTypedData<R>(nullptr), std::bad_function_call);
}

TEST(Registry, TypedAccessAfterAdd) {
    using R = Record<2>;
    constexpr auto kOwnType = static_cast<MediaBufferType>(7);
    struct Calls {
        int count = 0;
        const MediaFormat* format = nullptr;
        size_t pixelsIndex = 0;
        const BufferOption* option = nullptr;
    };
    auto calls = std::make_shared<Calls>();
    BufferExtension::Registry<R> registry;
    registry.identify = [] { return kOwnType; };
    registry.alloc = [](const MediaFormat&, const std::shared_ptr<BufferOption>&) {
        return std::make_unique<R>(recordOf<2>(50));
    };
    registry.fromPixel = [calls](const MediaFormat& format, const PixelPointer& pixels,
                                 const std::shared_ptr<BufferOption>& option) {
        *calls = {calls->count + 1, &format, pixels.index(), option.get()};
        if (option) throw std::runtime_error("conversion failed");
        return recordOf<2>(200);
    };
    Singleton<BufferExtension>::get()->add(registry);
    EXPECT_EQ(identify<R>(), kOwnType);
    auto format = imageFormat(COLOR_FORMAT_RGB, 2, 2);
    EXPECT_TRUE(sameBytes(*(*Singleton<BufferAlloc<R>>::get())(*format, nullptr), recordOf<2>(50)));

    // A buffer of the registered type is copied from its outer address.
    R outer = recordOf<2>(1), inner = recordOf<2>(100);
    auto planes = std::make_shared<android_ycbcr>();
    planes->ystride = 1234;
    const PixelPointer pointers[] = {
        PixelPointer(std::in_place_index<1>, &outer),
        PixelPointer(std::in_place_index<3>, &outer, PixelAddress(&inner)),
        PixelPointer(std::in_place_index<3>, &outer, PixelAddress(planes)),
    };
    for (const PixelPointer& pixels : pointers) {
        SCOPED_TRACE(pixels.index());
        PointerBuffer own(format, pixels, kOwnType);
        EXPECT_TRUE(sameBytes(own.getTypedData<R>(nullptr), outer));
    }
    PointerBuffer described(format, PixelPointer(std::in_place_index<2>, planes), kOwnType);
    EXPECT_TRUE(sameBytes(described.getTypedData<R>(nullptr), *planes));
    EXPECT_EQ(calls->count, 0);

    // Any other buffer goes through the conversion with its own format, pointer and option.
    PointerBuffer generic(format, PixelPointer(std::in_place_index<2>, planes));
    EXPECT_TRUE(sameBytes(generic.getTypedData<R>(nullptr), recordOf<2>(200)));
    EXPECT_EQ(calls->count, 1);
    EXPECT_EQ(calls->format, generic.getFormat().get());
    EXPECT_EQ(calls->pixelsIndex, 2u);
    EXPECT_EQ(calls->option, nullptr);
    const long owners = planes.use_count();
    auto option = std::make_shared<BufferOption>();
    EXPECT_THROW(generic.getTypedData<R>(option), std::runtime_error);
    EXPECT_EQ(calls->option, option.get());
    EXPECT_EQ(planes.use_count(), owners);  // the pointer copy is released on the way out

    // A second add without identify makes type 100 the record type again.
    BufferExtension::Registry<R> second;
    second.fromPixel = registry.fromPixel;
    Singleton<BufferExtension>::get()->add(second);
    EXPECT_EQ(identify<R>(), 100);
    PointerBuffer own(format, PixelPointer(std::in_place_index<1>, &outer), kOwnType);
    EXPECT_TRUE(sameBytes(own.getTypedData<R>(nullptr), recordOf<2>(200)));
    EXPECT_EQ(calls->count, 3);
    PointerBuffer extension(format, PixelPointer(std::in_place_index<1>, &outer),
                            MEDIA_BUFFER_TYPE_EXTENSION);
    EXPECT_TRUE(sameBytes(extension.getTypedData<R>(nullptr), outer));
    EXPECT_THROW((*Singleton<BufferAlloc<R>>::get())(*format, nullptr), std::bad_function_call);

    // Every functor is replaced, empty ones included.
    Singleton<BufferExtension>::get()->add(BufferExtension::Registry<R>{});
    EXPECT_FALSE(Singleton<BufferTransform<R>>::get()->fromPixel);
    EXPECT_THROW(own.getTypedData<R>(nullptr), std::bad_function_call);
}

// Bytes of the record up to the end of its last field (leaves out any tail padding).
constexpr size_t kImgbBytes = offsetof(_ZOCA_IMGB, reserved1) + sizeof(_ZOCA_IMGB::reserved1);

TEST(ImgbView, RegistrationTeachesTypedAccess) {
    unsigned char pixels[16];
    auto format = imageFormat(COLOR_FORMAT_NV12, 1919, 1081);
    PointerBuffer picture(format, PixelPointer(std::in_place_index<1>, pixels));
    _ZOCA_IMGB record;
    std::memset(&record, 0x5A, sizeof(record));
    // Its format has no descriptor: converting it would assert.
    PointerBuffer imgb(imageFormat(COLOR_FORMAT_NONE, 1, 1),
                       PixelPointer(std::in_place_index<1>, &record), MEDIA_BUFFER_TYPE_ZOCA_IMGB);

    EXPECT_THROW(picture.getTypedData<_ZOCA_IMGB>(nullptr), std::bad_function_call);
    EXPECT_THROW(imgb.getTypedData<_ZOCA_IMGB>(nullptr), std::bad_function_call);

    // identify gives 102; nothing else but the two conversions is registered.
    const auto registry = ext::detail::makeImgbRegistry();
    EXPECT_FALSE(registry.alloc || registry.dealloc || registry.stringify);
    ext::detail::registerImgbView();
    ext::detail::registerImgbView();
    EXPECT_EQ(identify<_ZOCA_IMGB>(), MEDIA_BUFFER_TYPE_ZOCA_IMGB);

    const _ZOCA_IMGB viewed = picture.getTypedData<_ZOCA_IMGB>(nullptr);
    const _ZOCA_IMGB direct = ext::detail::imgbFromPixel(*format, picture.getPixelPtr(), nullptr);
    EXPECT_EQ(std::memcmp(&viewed, &direct, kImgbBytes), 0);
    EXPECT_EQ(viewed.addr[0], reinterpret_cast<uintptr_t>(pixels));

    const _ZOCA_IMGB copy = imgb.getTypedData<_ZOCA_IMGB>(nullptr);
    EXPECT_EQ(std::memcmp(&copy, &record, kImgbBytes), 0);
}

}  // namespace
}  // namespace mivo::test
