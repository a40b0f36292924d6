// SPDX-License-Identifier: MIT
//
// The formats that can be scaled, as values: how two of their pixels are averaged. Data and constant expressions only.
#pragma once

#include "pictra/pictra.h"

namespace img {

// A pixel is `elements` words of `bytes` bytes. Loops are compiled for each kind of pixel.
struct Kind {
    uint32_t elements, bytes;
    bool swapped; // the words are averaged in the other byte order
};

// The mean of two words is taken on all channels at once and rounded down: (a & b) + (((a ^ b) & mask) >> 1). The mask
// has all bits but the lowest of each channel, so that none is carried into the next one. The bits of `forced` are set
// in every result: the field that the format ignores. Both are repeated to fill 32 bits.
struct MeanRule {
    uint32_t mask, forced;
};

struct Family {
    Kind kind;
    MeanRule rule;
};

namespace family {

constexpr uint32_t twice(uint32_t half) { return half * 0x10001u; }

inline constexpr Kind halves{1, 2, false}, halves_swapped{1, 2, true}, words{1, 4, false};

inline constexpr Family grey{{1, 1, false}, {0xfefefefe, 0}};
inline constexpr Family bytes3{{3, 1, false}, {0xfefefefe, 0}};
inline constexpr Family bytes4{words, {0xfefefefe, 0}};
inline constexpr Family x888he{words, {0xfefefefe, 0xff000000}};
inline constexpr Family x888oe{words, {0xfefefefe, 0x000000ff}};
inline constexpr Family rgb565he{halves, {twice(0xf7de), 0}};
inline constexpr Family rgb565oe{halves_swapped, {twice(0xf7de), 0}};
// The alpha bit is not in the mask: it is set in the mean if it is set in both pixels.
inline constexpr Family argb1555he{halves, {twice(0x7bde), 0}};
inline constexpr Family argb1555oe{halves_swapped, {twice(0x7bde), 0}};
inline constexpr Family xrgb1555he{halves, {twice(0x7bde), twice(0x8000)}};
inline constexpr Family xrgb1555oe{halves_swapped, {twice(0x7bde), twice(0x0080)}};

} // namespace family

// The place of a format's family in tables over FOR_EACH_FAMILY.
// clang-format off
#define FOR_EACH_FAMILY(EACH) \
    EACH(grey) EACH(bytes3) EACH(bytes4) EACH(x888he) EACH(x888oe) EACH(rgb565he) EACH(rgb565oe) \
    EACH(argb1555he) EACH(argb1555oe) EACH(xrgb1555he) EACH(xrgb1555oe)
// clang-format on

enum FamilyIndex {
#define EACH(name) family_##name,
    FOR_EACH_FAMILY(EACH)
#undef EACH
        family_count
};

// family_count for formats that cannot be scaled. Kept: Both FMT_XBGR8888 orders and FMT_ABGR8888OE cannot be scaled.
constexpr FamilyIndex family_of(img_format format) {
    switch (format) {
    case FMT_G8:
        return family_grey;
    case FMT_BGR888:
    case FMT_RGB888:
        return family_bytes3;
    case FMT_XRGB1555HE:
        return family_xrgb1555he;
    case FMT_XRGB1555OE:
        return family_xrgb1555oe;
    case FMT_ARGB1555HE:
        return family_argb1555he;
    case FMT_ARGB1555OE:
        return family_argb1555oe;
    case FMT_RGB565HE:
        return family_rgb565he;
    case FMT_RGB565OE:
        return family_rgb565oe;
    case FMT_XRGB8888HE:
        return family_x888he;
    case FMT_XRGB8888OE:
        return family_x888oe;
    case FMT_ARGB8888HE:
    case FMT_ARGB8888OE:
    case FMT_ABGR8888HE:
        return family_bytes4;
    }
    return family_count;
}

} // namespace img
