// The per-type registry of buffer views: a plugin registers, once per process, the functions
// that turn any MediaBuffer into a record of type T and back, and
// MediaBuffer::getTypedData<T> uses them.
#ifndef MIVO_CORE_BUFFER_BUFFEREXTENSION_H
#define MIVO_CORE_BUFFER_BUFFEREXTENSION_H

#include "mivo/Def.h"
#include "mivo/core/buffer/MediaBuffer.h"

#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>

namespace mivo::core {

// One process-wide instance of T, created on first use. The registry's classes keep default
// visibility so that every library and program in the process shares one instance.
template <typename T>
class MIVO_EXPORT Singleton {
  public:
    struct Bucket {
        unsigned long once = 0;  // all bits set once the default instance exists
        std::unique_ptr<T> instance;
        std::mutex lock;
    };

    template <typename = void>
    static Bucket& getBucket() {
        static Bucket bucket;
        return bucket;
    }

    template <typename = void>
    static std::unique_ptr<T>& get() {
        Bucket& bucket = getBucket<>();
        callOnce(bucket);
        // Only orders this caller after a thread that holds the lock right now.
        bucket.lock.lock();
        bucket.lock.unlock();
        return bucket.instance;
    }

    static void reset(T&& value) {
        get<>();
        // Not locked: registration finishes before other threads take typed views. The new
        // object is built before the old one goes, so a failure leaves the old in place.
        getBucket<>().instance = std::make_unique<T>(std::move(value));
    }

  private:
    // The one-time creation of the default instance, on the bucket's own flag.
    static void callOnce(Bucket& bucket) {
        if (__atomic_load_n(&bucket.once, __ATOMIC_ACQUIRE) == kDone) return;
        static std::mutex onceLock;
        std::lock_guard<std::mutex> guard(onceLock);
        if (__atomic_load_n(&bucket.once, __ATOMIC_RELAXED) == kDone) return;
        bucket.instance = std::make_unique<T>();
        __atomic_store_n(&bucket.once, kDone, __ATOMIC_RELEASE);
    }

    static constexpr unsigned long kDone = ~0ul;
};

// The framework side of the registry; one instance lives in its singleton.
class MIVO_EXPORT BufferExtension {
  public:
    BufferExtension();
    ~BufferExtension();

    template <typename T>
    struct Registry {
        std::function<MediaBufferType()> identify;
        std::function<std::unique_ptr<T>(const MediaFormat&,
                                         const std::shared_ptr<detail::BufferOption>&)>
            alloc;
        std::function<void(std::unique_ptr<T>&)> dealloc;
        std::function<detail::PixelPointer(const MediaFormat&, const T&,
                                           const std::shared_ptr<detail::BufferOption>&)>
            toPixel;
        std::function<T(const MediaFormat&, const detail::PixelPointer&,
                        const std::shared_ptr<detail::BufferOption>&)>
            fromPixel;
        std::function<std::string(const T&)> stringify;
    };

    template <typename T>
    void add(const Registry<T>& registry);
};

namespace detail {

template <typename T>
class MIVO_EXPORT BufferIdentify {
  public:
    BufferIdentify() = default;
    explicit BufferIdentify(std::function<MediaBufferType()> fn) : fn_(std::move(fn)) {}
    // The virtual destructor would leave only the copy: reset() moves.
    BufferIdentify(BufferIdentify&&) noexcept = default;
    virtual ~BufferIdentify() = default;
    virtual MediaBufferType operator()() const { return fn_ ? fn_() : MEDIA_BUFFER_TYPE_EXTENSION; }

  private:
    std::function<MediaBufferType()> fn_;
};

template <typename T>
class MIVO_EXPORT BufferAlloc {
  public:
    using Fn = decltype(BufferExtension::Registry<T>::alloc);
    BufferAlloc() = default;
    explicit BufferAlloc(Fn fn) : fn_(std::move(fn)) {}
    BufferAlloc(BufferAlloc&&) noexcept = default;
    virtual ~BufferAlloc() = default;
    virtual std::unique_ptr<T> operator()(const MediaFormat& format,
                                          const std::shared_ptr<BufferOption>& option) const {
        return fn_(format, option);  // an empty function throws bad_function_call
    }

  private:
    Fn fn_;
};

template <typename T>
class MIVO_EXPORT BufferDealloc {
  public:
    using Fn = decltype(BufferExtension::Registry<T>::dealloc);
    BufferDealloc() = default;
    explicit BufferDealloc(Fn fn) : fn_(std::move(fn)) {}
    void operator()(std::unique_ptr<T>& value) const { fn_(value); }

  private:
    Fn fn_;
};

template <typename T>
struct MIVO_EXPORT BufferTransform {
    decltype(BufferExtension::Registry<T>::toPixel) toPixel;
    decltype(BufferExtension::Registry<T>::fromPixel) fromPixel;
};

template <typename T>
class MIVO_EXPORT BufferStringfy {
  public:
    using Fn = decltype(BufferExtension::Registry<T>::stringify);
    BufferStringfy() = default;
    explicit BufferStringfy(Fn fn) : fn_(std::move(fn)) {}
    std::string operator()(const T& value) const { return fn_(value); }

  private:
    Fn fn_;
};

}  // namespace detail

template <typename T>
void BufferExtension::add(const Registry<T>& registry) {
    Singleton<detail::BufferIdentify<T>>::reset(detail::BufferIdentify<T>(registry.identify));
    Singleton<detail::BufferAlloc<T>>::reset(detail::BufferAlloc<T>(registry.alloc));
    Singleton<detail::BufferDealloc<T>>::reset(detail::BufferDealloc<T>(registry.dealloc));
    Singleton<detail::BufferTransform<T>>::reset(
        detail::BufferTransform<T>{registry.toPixel, registry.fromPixel});
    Singleton<detail::BufferStringfy<T>>::reset(detail::BufferStringfy<T>(registry.stringify));
}

template <typename T>
T MediaBuffer::getTypedData(const std::shared_ptr<detail::BufferOption>& option) const {
    static_assert(std::is_trivially_copyable_v<T>, "typed views are plain records");
    const MediaBufferType type = getType();
    Singleton<BufferExtension>::get();
    const MediaBufferType id = (*Singleton<detail::BufferIdentify<T>>::get())();
    if (type == id) {
        // The buffer's memory already is a T.
        T value;
        std::memcpy(&value, detail::outerAddress(getPixelPtr()), sizeof(T));
        return value;
    }
    const detail::PixelPointer pixels = getPixelPtr();
    Singleton<BufferExtension>::get();
    const std::shared_ptr<MediaFormat> format = getFormat();
    const auto& transform = *Singleton<detail::BufferTransform<T>>::get();
    if (!transform.fromPixel) throw std::bad_function_call();
    return transform.fromPixel(*format, pixels, option);
}

}  // namespace mivo::core

#endif  // MIVO_CORE_BUFFER_BUFFEREXTENSION_H
