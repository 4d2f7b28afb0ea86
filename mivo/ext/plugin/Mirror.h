// The plugin's own mirror of two-plane 8-bit YUV pictures (luma, then interleaved chroma
// pairs), used by flip when the request asks for it.
#ifndef MIVO_EXT_PLUGIN_MIRROR_H
#define MIVO_EXT_PLUGIN_MIRROR_H

#include <zoca/zoca.h>

namespace mivo::ext::detail {

enum FlipType : int {
    FLIP_NONE = 0,
    FLIP_HORIZONTAL = 1,
    FLIP_VERTICAL = 2,
    FLIP_BOTH = 3,
};

// Mirrors `src` into `dst` by `flipType`. Only whole 32-bit words of a luma row and whole
// exchanged pairs are written: a row's last width % 4 luma bytes, the middle chroma pair of
// an odd pair count and the middle row of an odd row count keep what `dst` held.
// `wideCopies` allows 32-byte row copies where rows are long and far enough apart; the
// result is the same either way.
void mirrorTwoPlane(const _ZOCA_IMGB& src, const _ZOCA_IMGB& dst, int flipType,
                    bool wideCopies = true);

}  // namespace mivo::ext::detail

#endif  // MIVO_EXT_PLUGIN_MIRROR_H
