#include "geometry.h"

#include <libyuv.h>
#include <zimg.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

namespace zoca {
namespace {

void CopyPlanes(const Img& src, const Img& dst, bool flip) {
    for (int p = 0; p < PlaneCount(src.fmt); ++p) {
        const int rows = PlaneRows(src.fmt, p, src.h);
        // libyuv reads a negative height as "bottom row first".
        libyuv::CopyPlane(src.p[p], src.s[p], dst.p[p], dst.s[p], RowBytes(src.fmt, p, src.w),
                          flip ? -rows : rows);
    }
}

// libyuv has no quarter turn for 3-byte pixels; tiles keep both sides in cache.
void Rotate3(const Img& src, bool clockwise, const Img& dst) {
    constexpr int kTile = 32;
    const int w = src.w;
    const int h = src.h;
    for (int ty = 0; ty < dst.h; ty += kTile) {
        for (int tx = 0; tx < dst.w; tx += kTile) {
            const int ey = std::min(ty + kTile, dst.h);
            const int ex = std::min(tx + kTile, dst.w);
            for (int dy = ty; dy < ey; ++dy) {
                uint8_t* out = dst.p[0] + static_cast<ptrdiff_t>(dy) * dst.s[0];
                for (int dx = tx; dx < ex; ++dx) {
                    // Clockwise: dst(dx, dy) = src(dy, h - 1 - dx); counter: src(w - 1 - dy, dx).
                    const int sx = clockwise ? dy : w - 1 - dy;
                    const int sy = clockwise ? h - 1 - dx : dx;
                    const uint8_t* in = src.p[0] + static_cast<ptrdiff_t>(sy) * src.s[0] + sx * 3;
                    std::memcpy(out + dx * 3, in, 3);
                }
            }
        }
    }
}

// ---- resampling (zimg) ----

constexpr size_t kAlign = 64;  // zimg wants 32-byte aligned rows

// n interleaved 8-bit channels of one plane: channel c of column x is at
// row + x * n + c. zimg sees them as planes 0 (grey), 0+3 (grey and alpha), 0..2 or 0..3.
struct Channels {
    uint8_t* base;
    ptrdiff_t stride;
    int n;
};

int ZimgPlane(int n, int c) {
    return n == 2 && c == 1 ? 3 : c;
}

// Moves rows between a picture's interleaved plane and zimg's planar ring buffer.
struct RowMover {
    Channels pic;
    zimg_image_buffer ring;

    uint8_t* RingRow(int c, unsigned i) const {
        const auto& pl = ring.plane[ZimgPlane(pic.n, c)];
        return static_cast<uint8_t*>(pl.data) + static_cast<ptrdiff_t>(i & pl.mask) * pl.stride;
    }

    static int Unpack(void* user, unsigned i, unsigned left, unsigned right) {
        const RowMover& m = *static_cast<const RowMover*>(user);
        const uint8_t* in = m.pic.base + static_cast<ptrdiff_t>(i) * m.pic.stride + left * m.pic.n;
        uint8_t* o[4];
        for (int c = 0; c < m.pic.n; ++c) o[c] = m.RingRow(c, i) + left;
        const int w = static_cast<int>(right - left);
        switch (m.pic.n) {
            case 1:
                std::memcpy(o[0], in, w);
                break;
            case 2:
                libyuv::SplitUVPlane(in, 0, o[0], 0, o[1], 0, w, 1);
                break;
            case 3:
                libyuv::SplitRGBPlane(in, 0, o[0], 0, o[1], 0, o[2], 0, w, 1);
                break;
            default:
                libyuv::SplitARGBPlane(in, 0, o[0], 0, o[1], 0, o[2], 0, o[3], 0, w, 1);
                break;
        }
        return 0;
    }

    static int Pack(void* user, unsigned i, unsigned left, unsigned right) {
        const RowMover& m = *static_cast<const RowMover*>(user);
        uint8_t* out = m.pic.base + static_cast<ptrdiff_t>(i) * m.pic.stride + left * m.pic.n;
        const uint8_t* o[4];
        for (int c = 0; c < m.pic.n; ++c) o[c] = m.RingRow(c, i) + left;
        const int w = static_cast<int>(right - left);
        switch (m.pic.n) {
            case 1:
                std::memcpy(out, o[0], w);
                break;
            case 2:
                libyuv::MergeUVPlane(o[0], 0, o[1], 0, out, 0, w, 1);
                break;
            case 3:
                libyuv::MergeRGBPlane(o[0], 0, o[1], 0, o[2], 0, out, 0, w, 1);
                break;
            default:
                libyuv::MergeARGBPlane(o[0], 0, o[1], 0, o[2], 0, o[3], 0, out, 0, w, 1);
                break;
        }
        return 0;
    }
};

struct AlignedDeleter {
    void operator()(void* p) const { std::free(p); }
};

zimg_image_format FormatOf(int n, int w, int h) {
    zimg_image_format f;
    zimg_image_format_default(&f, ZIMG_API_VERSION);
    f.width = static_cast<unsigned>(w);
    f.height = static_cast<unsigned>(h);
    f.pixel_type = ZIMG_PIXEL_BYTE;
    f.depth = 8;
    f.pixel_range = ZIMG_RANGE_FULL;
    f.color_family = n >= 3 ? ZIMG_COLOR_RGB : ZIMG_COLOR_GREY;
    f.matrix_coefficients = n >= 3 ? ZIMG_MATRIX_RGB : ZIMG_MATRIX_UNSPECIFIED;
    // "Premultiplied" on both sides: every channel is filtered alike, none is divided out.
    f.alpha = n == 2 || n == 4 ? ZIMG_ALPHA_PREMULTIPLIED : ZIMG_ALPHA_NONE;
    return f;
}

bool Direct(const Channels& c) {
    return c.n == 1 && reinterpret_cast<uintptr_t>(c.base) % 32 == 0 && c.stride % 32 == 0;
}

struct GraphDeleter {
    void operator()(zimg_filter_graph* g) const { zimg_filter_graph_free(g); }
};

// Everything a resampling graph depends on.
struct GraphKey {
    int n, sw, sh;
    double left, top, rw, rh;
    int dw, dh;
    bool operator==(const GraphKey& o) const {
        return n == o.n && sw == o.sw && sh == o.sh && left == o.left && top == o.top &&
               rw == o.rw && rh == o.rh && dw == o.dw && dh == o.dh;
    }
};

struct Graph {
    GraphKey key;
    std::unique_ptr<zimg_filter_graph, GraphDeleter> graph;
    size_t tmp_size = 0;
    unsigned in_lines = 0, out_lines = 0;
};

std::shared_ptr<const Graph> BuildGraph(const GraphKey& k) {
    zimg_image_format sf = FormatOf(k.n, k.sw, k.sh);
    sf.active_region.left = k.left;
    sf.active_region.top = k.top;
    sf.active_region.width = k.rw;
    sf.active_region.height = k.rh;
    const zimg_image_format df = FormatOf(k.n, k.dw, k.dh);
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    if (k.dw < k.rw || k.dh < k.rh) {
        params.resample_filter = ZIMG_RESIZE_LANCZOS;
        params.filter_param_a = 3;
    } else {
        // Catmull-Rom: interpolating (an exact copy at integer shifts), no ringing to speak of.
        params.resample_filter = ZIMG_RESIZE_BICUBIC;
        params.filter_param_a = 0;
        params.filter_param_b = 0.5;
    }
    // Not ZIMG_CPU_AUTO_64B: zimg 3.0.4's 512-bit kernels, though up to twice as fast,
    // are off by 16 codes or more at some sizes (71 -> 28, 99 -> 48 wide, ...).
    params.cpu_type = ZIMG_CPU_AUTO;
    auto g = std::make_shared<Graph>();
    g->key = k;
    g->graph.reset(zimg_filter_graph_build(&sf, &df, &params));
    if (!g->graph || zimg_filter_graph_get_tmp_size(g->graph.get(), &g->tmp_size) ||
        zimg_filter_graph_get_input_buffering(g->graph.get(), &g->in_lines) ||
        zimg_filter_graph_get_output_buffering(g->graph.get(), &g->out_lines)) {
        return nullptr;
    }
    return g;
}

// Building a graph (the filter weights of every output sample) costs more than running
// it on a 1080p plane, and a stream asks for the same few sizes again and again: the
// last few graphs are kept. A graph is only read while it runs, so several threads may
// share one; a graph evicted while in use lives on until its last user is done.
std::shared_ptr<const Graph> CachedGraph(const GraphKey& key) {
    constexpr size_t kKept = 8;
    static std::mutex lock;
    static std::vector<std::shared_ptr<const Graph>> kept;  // most recent first
    {
        std::lock_guard<std::mutex> hold(lock);
        for (size_t i = 0; i < kept.size(); ++i) {
            if (kept[i]->key == key) {
                std::rotate(kept.begin(), kept.begin() + i, kept.begin() + i + 1);
                return kept.front();
            }
        }
    }
    std::shared_ptr<const Graph> g = BuildGraph(key);  // outside the lock: it is slow
    if (!g) return nullptr;
    std::lock_guard<std::mutex> hold(lock);
    kept.insert(kept.begin(), g);
    if (kept.size() > kKept) kept.pop_back();
    return g;
}

// Rows of a ring buffer holding `lines` lines of an image `h` rows high.
unsigned RingRows(unsigned mask, int h) {
    return mask == ZIMG_BUFFER_MAX ? static_cast<unsigned>(h) : mask + 1;
}

// Resamples the source region (left, top, rw x rh, in source samples, fractional) of
// src (sw x sh) onto the whole of dst (dw x dh). Sample centres map to sample centres:
// dst sample j is at left + (j + 0.5) * rw / dw - 0.5 in the source. Working memory is
// a few rows per channel (zimg runs the two passes over tiles and ring buffers).
int Resample(const Channels& src, int sw, int sh, double left, double top, double rw, double rh,
             const Channels& dst, int dw, int dh) {
    const GraphKey key{src.n, sw, sh, left, top, rw, rh, dw, dh};
    std::shared_ptr<const Graph> graph;
    try {
        graph = CachedGraph(key);
    } catch (const std::bad_alloc&) {
        return ZOCA_ERR_DESTINATION;
    }
    if (!graph) return ZOCA_ERR_DESTINATION;
    size_t tmp_size = graph->tmp_size;
    const unsigned in_lines = graph->in_lines;
    const unsigned out_lines = graph->out_lines;
    // A single-channel plane on zimg's alignment is read or written in place; anything
    // else goes through ring buffers of a few rows, filled and drained row by row.
    const bool in_place_src = Direct(src);
    const bool in_place_dst = Direct(dst);
    const unsigned in_mask = zimg_select_buffer_mask(in_lines);
    const unsigned out_mask = zimg_select_buffer_mask(out_lines);
    const size_t in_stride = (static_cast<size_t>(sw) + kAlign - 1) & ~(kAlign - 1);
    const size_t out_stride = (static_cast<size_t>(dw) + kAlign - 1) & ~(kAlign - 1);
    const size_t in_bytes = in_place_src ? 0 : in_stride * RingRows(in_mask, sh);
    const size_t out_bytes = in_place_dst ? 0 : out_stride * RingRows(out_mask, dh);
    tmp_size = (tmp_size + kAlign - 1) & ~(kAlign - 1);
    const size_t total = tmp_size + src.n * in_bytes + dst.n * out_bytes;
    std::unique_ptr<void, AlignedDeleter> mem(std::aligned_alloc(kAlign, total));
    if (!mem) return ZOCA_ERR_DESTINATION;
    uint8_t* at = static_cast<uint8_t*>(mem.get()) + tmp_size;

    RowMover in{src, {}};
    RowMover out{dst, {}};
    in.ring.version = out.ring.version = ZIMG_API_VERSION;
    if (in_place_src) {
        in.ring.plane[0] = {src.base, src.stride, ZIMG_BUFFER_MAX};
    } else {
        for (int c = 0; c < src.n; ++c, at += in_bytes) {
            in.ring.plane[ZimgPlane(src.n, c)] = {at, static_cast<ptrdiff_t>(in_stride), in_mask};
        }
    }
    if (in_place_dst) {
        out.ring.plane[0] = {dst.base, dst.stride, ZIMG_BUFFER_MAX};
    } else {
        for (int c = 0; c < dst.n; ++c, at += out_bytes) {
            out.ring.plane[ZimgPlane(dst.n, c)] = {at, static_cast<ptrdiff_t>(out_stride),
                                                   out_mask};
        }
    }
    zimg_image_buffer_const in_buf;
    in_buf.version = ZIMG_API_VERSION;
    for (int p = 0; p < 4; ++p) {
        in_buf.plane[p] = {in.ring.plane[p].data, in.ring.plane[p].stride, in.ring.plane[p].mask};
    }
    const zimg_error_code_e err =
        zimg_filter_graph_process(graph->graph.get(), &in_buf, &out.ring, mem.get(),
                                  in_place_src ? nullptr : RowMover::Unpack, &in,
                                  in_place_dst ? nullptr : RowMover::Pack, &out);
    return err == ZIMG_ERROR_SUCCESS ? ZOCA_OK : ZOCA_ERR_DESTINATION;
}

// The chroma planes of a 4:2:0 picture as channel groups: one per plane (I420), one
// interleaved pair (NV12/NV21; the order of the pair does not matter here).
int ChromaGroups(const Img& img, Channels out[2]) {
    if (LayoutOf(img.fmt) == Layout::I420) {
        out[0] = {img.p[1], img.s[1], 1};
        out[1] = {img.p[2], img.s[2], 1};
        return 2;
    }
    out[0] = {img.p[1], img.s[1], 2};
    return 1;
}

int ScaleResampled(const Img& src, const Img& dst) {
    const int n = IsYuv(src.fmt) ? 1 : OrderOf(src.fmt).bpp;
    int rc = Resample({src.p[0], src.s[0], n}, src.w, src.h, 0, 0, src.w, src.h,
                      {dst.p[0], dst.s[0], n}, dst.w, dst.h);
    if (rc != ZOCA_OK || !IsYuv(src.fmt)) return rc;
    // Chroma sample i covers luma columns 2i and 2i + 1. The destination's chroma plane
    // spans 2 * dcw of its luma columns (one more than the picture when dw is odd),
    // which is that many times src.w / dst.w luma columns of the source.
    const int cw = (src.w + 1) / 2;
    const int ch = (src.h + 1) / 2;
    const int dcw = (dst.w + 1) / 2;
    const int dch = (dst.h + 1) / 2;
    const double rw = static_cast<double>(dcw) * src.w / dst.w;
    const double rh = static_cast<double>(dch) * src.h / dst.h;
    Channels s[2], d[2];
    const int groups = ChromaGroups(src, s);
    ChromaGroups(dst, d);
    for (int g = 0; g < groups && rc == ZOCA_OK; ++g) {
        rc = Resample(s[g], cw, ch, 0, 0, rw, rh, d[g], dcw, dch);
    }
    return rc;
}

libyuv::RotationMode ModeOf(int code) {
    switch (code) {
        case ZOCA_ROT_270:
            return libyuv::kRotate270;
        case ZOCA_ROT_90:
            return libyuv::kRotate90;
        case ZOCA_ROT_180:
            return libyuv::kRotate180;
        default:
            return libyuv::kRotate0;
    }
}

int RotatePacked(const Img& src, int code, const Img& dst) {
    const int bpp = OrderOf(src.fmt).bpp;
    if (code == ZOCA_ROT_MIRROR_V) {
        CopyPlanes(src, dst, true);
        return ZOCA_OK;
    }
    if (bpp == 4) {
        if (code == ZOCA_ROT_MIRROR_H) {
            libyuv::ARGBMirror(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h);
        } else {
            libyuv::ARGBRotate(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h, ModeOf(code));
        }
        return ZOCA_OK;
    }
    switch (code) {
        case ZOCA_ROT_MIRROR_H:
            libyuv::RGB24Mirror(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h);
            break;
        case ZOCA_ROT_180:  // a mirror read bottom row first
            libyuv::RGB24Mirror(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, -src.h);
            break;
        default:
            Rotate3(src, code == ZOCA_ROT_90, dst);
            break;
    }
    return ZOCA_OK;
}

int RotateI420(const Img& src, int code, const Img& dst) {
    switch (code) {
        case ZOCA_ROT_MIRROR_H:
            libyuv::I420Mirror(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2], dst.p[0],
                               dst.s[0], dst.p[1], dst.s[1], dst.p[2], dst.s[2], src.w, src.h);
            return ZOCA_OK;
        case ZOCA_ROT_MIRROR_V:
            CopyPlanes(src, dst, true);
            return ZOCA_OK;
        default:
            libyuv::I420Rotate(src.p[0], src.s[0], src.p[1], src.s[1], src.p[2], src.s[2], dst.p[0],
                               dst.s[0], dst.p[1], dst.s[1], dst.p[2], dst.s[2], src.w, src.h,
                               ModeOf(code));
            return ZOCA_OK;
    }
}

int RotateNV(const Img& src, int code, const Img& dst) {
    const int cw = (src.w + 1) / 2;
    const int ch = (src.h + 1) / 2;
    switch (code) {
        case ZOCA_ROT_MIRROR_H:
            // Mirrors Cb,Cr pairs as units, so it serves NV21 as well.
            libyuv::NV12Mirror(src.p[0], src.s[0], src.p[1], src.s[1], dst.p[0], dst.s[0], dst.p[1],
                               dst.s[1], src.w, src.h);
            return ZOCA_OK;
        case ZOCA_ROT_MIRROR_V:
            CopyPlanes(src, dst, true);
            return ZOCA_OK;
        case ZOCA_ROT_180:
            libyuv::RotatePlane(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h,
                                libyuv::kRotate180);
            libyuv::MirrorUVPlane(src.p[1], src.s[1], dst.p[1], dst.s[1], cw, -ch);
            return ZOCA_OK;
        default:
            break;
    }
    // Quarter turns: libyuv turns interleaved chroma only into two planes, so the
    // halves are turned apart and interleaved again.
    const int tw = ch;  // turned chroma plane: ch samples wide, cw rows
    const int tstride = (tw + 31) & ~31;
    std::unique_ptr<uint8_t[]> tmp(new (std::nothrow)
                                       uint8_t[2 * static_cast<size_t>(tstride) * cw]);
    if (!tmp) return ZOCA_ERR_DESTINATION;
    uint8_t* a = tmp.get();
    uint8_t* b = a + static_cast<size_t>(tstride) * cw;
    libyuv::RotatePlane(src.p[0], src.s[0], dst.p[0], dst.s[0], src.w, src.h, ModeOf(code));
    libyuv::SplitRotateUV(src.p[1], src.s[1], a, tstride, b, tstride, cw, ch, ModeOf(code));
    libyuv::MergeUVPlane(a, tstride, b, tstride, dst.p[1], dst.s[1], tw, cw);
    return ZOCA_OK;
}

}  // namespace

bool SwapsAxes(int code) {
    return code == ZOCA_ROT_90 || code == ZOCA_ROT_270;
}

int Scale(const Img& src, const Img& dst) {
    if (src.w == dst.w && src.h == dst.h) {
        CopyPlanes(src, dst, false);
        return ZOCA_OK;
    }
    return ScaleResampled(src, dst);
}

int Rotate(const Img& src, int code, const Img& dst) {
    if (code == ZOCA_ROT_NONE) {
        CopyPlanes(src, dst, false);
        return ZOCA_OK;
    }
    switch (LayoutOf(src.fmt)) {
        case Layout::I420:
            return RotateI420(src, code, dst);
        case Layout::NV12:
        case Layout::NV21:
            return RotateNV(src, code, dst);
        default:
            return RotatePacked(src, code, dst);
    }
}

int Crop(const Img& src, int x, int y, const Img& dst) {
    const int bpp = IsYuv(src.fmt) ? 1 : OrderOf(src.fmt).bpp;
    libyuv::CopyPlane(src.p[0] + static_cast<ptrdiff_t>(y) * src.s[0] + x * bpp, src.s[0], dst.p[0],
                      dst.s[0], dst.w * bpp, dst.h);
    if (!IsYuv(src.fmt)) return ZOCA_OK;
    // Destination chroma sample i sits at source luma x + 2i + 0.5, which is source chroma
    // sample x / 2 + i: a whole sample for even x, halfway between two for odd x.
    Channels s[2], d[2];
    const int groups = ChromaGroups(src, s);
    ChromaGroups(dst, d);
    const int dcw = (dst.w + 1) / 2;
    const int dch = (dst.h + 1) / 2;
    for (int g = 0; g < groups; ++g) {
        if (x % 2 == 0 && y % 2 == 0) {
            libyuv::CopyPlane(
                s[g].base + static_cast<ptrdiff_t>(y / 2) * s[g].stride + x / 2 * s[g].n,
                s[g].stride, d[g].base, d[g].stride, dcw * d[g].n, dch);
            continue;
        }
        const int rc = Resample(s[g], (src.w + 1) / 2, (src.h + 1) / 2, x / 2.0, y / 2.0, dcw, dch,
                                d[g], dcw, dch);
        if (rc != ZOCA_OK) return rc;
    }
    return ZOCA_OK;
}

}  // namespace zoca
