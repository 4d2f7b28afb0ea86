// The nine image functions on records built from arbitrary bytes: close to what the plugin
// sends, then disturbed. Every plane lives in its own allocation of exactly the extent the
// record describes, so a function that accepts a record and then reads or writes outside
// it is caught by AddressSanitizer; one that should have refused it is caught the same way.
#include "FuzzDriver.h"

#include <zoca/zoca.h>

#include <algorithm>
#include <memory>

namespace {

constexpr int kFormats[] = {ZOCA_CF_I420, ZOCA_CF_NV12, ZOCA_CF_NV21,
                            ZOCA_CF_RGB,  ZOCA_CF_BGR,  ZOCA_CF_RGBA,
                            ZOCA_CF_BGRA, ZOCA_CF_ARGB, 3};
constexpr int kSpaces[] = {0, 1, 10, 11, 20, 21, 30, 5};

struct Bytes {
    const uint8_t* data;
    size_t size;
    size_t at = 0;
    int next(int range) { return range <= 0 ? 0 : (at < size ? data[at++] : 0) % range; }
};

int bytesPerSample(int format, int plane) {
    if (format == ZOCA_CF_RGB || format == ZOCA_CF_BGR) return 3;
    if (format > 199) return 4;
    return (plane == 1 && format != ZOCA_CF_I420) ? 2 : 1;
}

int planeCount(int format) {
    return format == ZOCA_CF_I420 ? 3 : (format > 199 ? 1 : 2);
}

// A record like the plugin's for w x h, then, when the bytes say so, a few fields moved by
// small amounts. Zero bytes give a well-formed record.
_ZOCA_IMGB makeRecord(Bytes& in, std::vector<std::unique_ptr<uint8_t[]>>& memory) {
    _ZOCA_IMGB r{};
    r.colorFormat = kFormats[in.next(9)];
    r.colorSpace = kSpaces[in.next(8)];
    int w = 1 + in.next(24);
    const int h = 1 + in.next(24);
    if (in.next(8) == 7) w = -w / 2;
    const int pad = in.next(4);
    const int planes = r.colorFormat == 3 ? 2 : planeCount(r.colorFormat);
    for (int p = 0; p < planes; ++p) {
        const bool chroma = p > 0;
        r.width[p] = chroma ? (w + 1) / 2 : w;
        r.height[p] = r.scanlines[p] = chroma ? (h + 1) / 2 : h;
        r.stride[p] = (r.width[p] + pad) * bytesPerSample(r.colorFormat, p);
    }
    const int edits = in.next(4) == 3 ? 1 + in.next(3) : 0;
    for (int e = 0; e < edits; ++e) {
        int* fields[] = {r.width, r.height, r.stride, r.scanlines};
        int* field = fields[in.next(4)];
        const int plane = in.next(planes);
        field[plane] += in.next(5) - 2;
    }
    r.startX = in.next(6);
    r.startY = in.next(6);
    if (in.next(8) == 7) r.startX = -1;
    for (int p = 0; p < planes; ++p) {
        const long long row =
            static_cast<long long>(std::max(r.width[p], 0)) * bytesPerSample(r.colorFormat, p);
        const long long extent = r.height[p] > 0 && r.stride[p] > 0
                                     ? static_cast<long long>(r.stride[p]) * (r.height[p] - 1) + row
                                     : 0;
        memory.emplace_back(new uint8_t[static_cast<size_t>(std::max(extent, 1LL))]());
        if (in.next(16) != 15) r.addr[p] = reinterpret_cast<uintptr_t>(memory.back().get());
    }
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in{data, size};
    std::vector<std::unique_ptr<uint8_t[]>> memory;
    const int function = in.next(9);
    const int code = in.next(8) - 1;
    const _ZOCA_IMGB src = makeRecord(in, memory);
    _ZOCA_IMGB dst = makeRecord(in, memory);
    switch (function) {
        case 0:
            vexa_rsz(&src, &dst);
            break;
        case 1:
            vexa_csc(&src, &dst);
            break;
        case 2:
            vexa_csc_dither(&src, &dst);
            break;
        case 3:
            vexa_rot(&src, code, &dst);
            break;
        case 4:
            vexa_rsz_rot(&src, code, &dst);
            break;
        case 5:
            vexa_csc_rot(&src, code, &dst);
            break;
        case 6:
            vexa_crop(&src, &dst);
            break;
        case 7:
            vexa_cgc(&src, &dst);
            break;
        default:
            vexa_hdr_to_sdr(&src, &dst, code);
            break;
    }
    return 0;
}

std::vector<std::vector<uint8_t>> fuzzSeeds() {
    // function, code, then per record: format, colour space, w - 1, h - 1, shrink flag,
    // padding, edit flag, start x, start y, crop flag, address flags. Same-size conversions,
    // a resize, rotations, a crop, gamut and tone mapping between well-formed records.
    return {
        {1, 0, 1, 2, 9, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 2, 9, 7},
        {0, 0, 5, 0, 19, 11, 0, 1, 0, 0, 0, 0, 0, 1, 0, 6, 4},
        {3, 3, 3, 4, 8, 12, 0, 0, 0, 0, 0, 0, 0, 3, 4, 12, 8},
        {5, 2, 1, 0, 9, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 5, 9},
        {6, 0, 2, 0, 15, 15, 0, 0, 0, 3, 3, 0, 0, 0, 0, 2, 0, 7, 7},
        {7, 0, 5, 1, 11, 5, 0, 0, 0, 0, 0, 0, 0, 5, 4, 11, 5},
        {8, 2, 1, 4, 11, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 1, 11, 5},
        {2, 0, 5, 2, 14, 6, 0, 2, 0, 0, 0, 0, 0, 1, 2, 14, 6},
    };
}
