// Internal picture view: a record that has passed validation, reduced to what the
// pixel code needs. Every function behind the public entry points works on these.
#ifndef ZOCA_SRC_IMAGE_H
#define ZOCA_SRC_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zoca/zoca.h"

// The hot loops get Ice Lake (AVX-512) and AVX2 builds beside the baseline one, picked
// at load time. Not under ThreadSanitizer: it instruments the clone resolvers, which run
// during relocation, before its runtime is set up.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__)
#define ZOCA_HOT __attribute__((target_clones("arch=icelake-server", "avx2", "default")))
#else
#define ZOCA_HOT
#endif

namespace zoca {

enum class Layout { I420, NV12, NV21, Packed };

// Byte offsets of each channel inside one packed pixel; a < 0 means no alpha.
struct PackedOrder {
    int bpp, r, g, b, a;
};

struct Img {
    int fmt = 0;
    int cs = 0;
    int w = 0;
    int h = 0;
    uint8_t* p[3] = {nullptr, nullptr, nullptr};
    int s[3] = {0, 0, 0};
};

bool IsYuv(int fmt);
Layout LayoutOf(int fmt);
// Only meaningful for packed formats.
PackedOrder OrderOf(int fmt);
int PlaneCount(int fmt);
// Bytes per row of plane p for a picture of width w.
int RowBytes(int fmt, int plane, int w);
int PlaneRows(int fmt, int plane, int h);

bool KnownFormat(int fmt);
bool KnownColorSpace(int cs);

// Checks one record on its own. Addresses are checked only when need_addr is set;
// destinations report a missing address separately (-3).
int CheckRecord(const _ZOCA_IMGB* rec, bool need_addr, Img* out);
// 0 when every plane of dst has memory, ZOCA_ERR_DESTINATION otherwise.
int CheckDestinationMemory(const _ZOCA_IMGB* rec);
// True when any plane of a overlaps any plane of b.
bool Overlaps(const Img& a, const Img& b);

// A picture with its own memory, for intermediate steps.
struct OwnedImg {
    std::unique_ptr<uint8_t[]> mem;
    Img img;
};
OwnedImg MakeImage(int fmt, int w, int h, int cs);

}  // namespace zoca

#endif  // ZOCA_SRC_IMAGE_H
