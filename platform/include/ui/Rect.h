// Host stand-in for Android's android::Rect (ui/Rect.h), which no Debian package provides.
#ifndef MIVO_PLATFORM_UI_RECT_H
#define MIVO_PLATFORM_UI_RECT_H

#include <cstdint>

namespace android {

struct Rect {
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;

    constexpr Rect() = default;
    constexpr Rect(int32_t l, int32_t t, int32_t r, int32_t b)
        : left(l), top(t), right(r), bottom(b) {}

    constexpr int32_t getWidth() const { return right - left; }
    constexpr int32_t getHeight() const { return bottom - top; }
    constexpr bool operator==(const Rect& o) const {
        return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
    }
    constexpr bool operator!=(const Rect& o) const { return !(*this == o); }
};

}  // namespace android

#endif  // MIVO_PLATFORM_UI_RECT_H
