#include "mivo/ext/plugin/Mirror.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace mivo::ext::detail {

namespace {

uint8_t* planeRow(const _ZOCA_IMGB& image, int plane, int row) {
    return reinterpret_cast<uint8_t*>(image.addr[plane]) +
           static_cast<intptr_t>(row) * image.stride[plane];
}

uint32_t loadWord(const uint8_t* p) {
    uint32_t word;
    std::memcpy(&word, p, sizeof(word));
    return word;
}

void storeWord(uint8_t* p, uint32_t word) {
    std::memcpy(p, &word, sizeof(word));
}

// Writes the first 4 * words bytes of `from` in reverse order into `to`.
void reverseLumaRow(const uint8_t* from, uint8_t* to, int words) {
    for (int i = 0, j = words - 1; i < j; ++i, --j) {
        const uint32_t left = loadWord(from + 4 * i);
        const uint32_t right = loadWord(from + 4 * j);
        storeWord(to + 4 * j, __builtin_bswap32(left));
        storeWord(to + 4 * i, __builtin_bswap32(right));
    }
    if (words % 2 == 1) {
        const int middle = words / 2;
        storeWord(to + 4 * middle, __builtin_bswap32(loadWord(from + 4 * middle)));
    }
}

// Exchanges two-byte pairs k and pairs-1-k of a chroma row for k < exchanges.
void reverseChromaRow(const uint8_t* from, uint8_t* to, int pairs, int exchanges) {
    for (int k = 0; k < exchanges; ++k) {
        const int m = pairs - 1 - k;
        uint16_t left;
        uint16_t right;
        std::memcpy(&left, from + 2 * k, 2);
        std::memcpy(&right, from + 2 * m, 2);
        std::memcpy(to + 2 * m, &left, 2);
        std::memcpy(to + 2 * k, &right, 2);
    }
}

// Row a of the source goes to row b of the output and row b to row a: `units` units of
// `unit` bytes each. Safe when source and output are the same rows (in-place flips).
void exchangeRows(const uint8_t* fromA, const uint8_t* fromB, uint8_t* toA, uint8_t* toB, int units,
                  int unit, int wideThreshold, bool wideCopies) {
    constexpr size_t kChunk = 32;
    const size_t bytes = static_cast<size_t>(units) * unit;
    const size_t apart = static_cast<size_t>(std::abs(fromA - fromB));
    size_t done = 0;
    if (wideCopies && units >= wideThreshold && apart >= kChunk) {
        uint8_t a[kChunk];
        uint8_t b[kChunk];
        for (; done + kChunk <= bytes; done += kChunk) {
            std::memcpy(a, fromA + done, kChunk);
            std::memcpy(b, fromB + done, kChunk);
            std::memcpy(toB + done, a, kChunk);
            std::memcpy(toA + done, b, kChunk);
        }
    }
    uint8_t a[4];
    uint8_t b[4];
    for (; done < bytes; done += unit) {
        std::memcpy(a, fromA + done, unit);
        std::memcpy(b, fromB + done, unit);
        std::memcpy(toB + done, a, unit);
        std::memcpy(toA + done, b, unit);
    }
}

void mirrorHorizontally(const _ZOCA_IMGB& src, const _ZOCA_IMGB& dst) {
    const int w = src.width[0];
    const int h = src.height[0];
    for (int y = 0; y < h; ++y) reverseLumaRow(planeRow(src, 0, y), planeRow(dst, 0, y), w / 4);
    if (h < 2 || w < 4) return;
    const int exchanges = std::max(w / 4, 1);
    for (int y = 0; y < h / 2; ++y) {
        reverseChromaRow(planeRow(src, 1, y), planeRow(dst, 1, y), w / 2, exchanges);
    }
}

void mirrorVertically(const _ZOCA_IMGB& from, const _ZOCA_IMGB& dst, int w, int h,
                      bool wideCopies) {
    if (w >= 4) {
        const int words = std::max(w / 4, 1);
        for (int i = 0; i < h / 2; ++i) {
            const int j = h - 1 - i;
            exchangeRows(planeRow(from, 0, i), planeRow(from, 0, j), planeRow(dst, 0, i),
                         planeRow(dst, 0, j), words, 4, 20, wideCopies);
        }
    }
    if (h < 4 || w < 2) return;
    const int rows = h / 2;
    const int units = std::max(w / 2, 1);
    for (int i = 0; i < rows / 2; ++i) {
        const int j = rows - 1 - i;
        exchangeRows(planeRow(from, 1, i), planeRow(from, 1, j), planeRow(dst, 1, i),
                     planeRow(dst, 1, j), units, 2, 24, wideCopies);
    }
}

}  // namespace

void mirrorTwoPlane(const _ZOCA_IMGB& src, const _ZOCA_IMGB& dst, int flipType, bool wideCopies) {
    const int w = src.width[0];
    const int h = src.height[0];
    if (flipType == FLIP_HORIZONTAL || flipType == FLIP_BOTH) mirrorHorizontally(src, dst);
    if (flipType != FLIP_VERTICAL && flipType != FLIP_BOTH) return;
    if (h < 2) return;
    // Both directions: the output already holds the horizontal mirror, flipped in place.
    mirrorVertically(flipType == FLIP_BOTH ? dst : src, dst, w, h, wideCopies);
}

}  // namespace mivo::ext::detail
