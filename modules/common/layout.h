// SPDX-License-Identifier: MIT
//
// Direct formats of bytes as a codec sees them: the order of their channels in memory. And lists of formats on offer.
#pragma once

#include "modules/common/picture.h"

#include <algorithm>
#include <array>
#include <bit>

namespace codec {

// Where the fourth byte of a pixel is, seen in memory.
enum class Fourth : uint8_t { none, first, last };

struct Layout {
    img_format format;
    bool blue_first;
    Fourth fourth;
};

constexpr img_format word(img_format host_order_on_little_endian) {
    return std::endian::native == std::endian::little ? host_order_on_little_endian
                                                      : host_order_on_little_endian ^ (IMG_FMT_HE | IMG_FMT_OE);
}

inline constexpr img_format rgba_bytes = word(FMT_ABGR8888HE); // R, G, B, A in memory

// ARGB first: of the alpha formats it is the one whose conversion to grey weighs all three colours.
inline constexpr std::array alpha_layouts = {
    Layout{word(FMT_ARGB8888HE), true, Fourth::last},
    Layout{word(FMT_ABGR8888HE), false, Fourth::last},
    Layout{word(FMT_ARGB8888OE), false, Fourth::first},
    Layout{word(FMT_ABGR8888OE), true, Fourth::first},
};
inline constexpr std::array opaque_layouts = {
    Layout{FMT_RGB888, false, Fourth::none},
    Layout{FMT_BGR888, true, Fourth::none},
    Layout{word(FMT_XRGB8888HE), true, Fourth::last},
    Layout{word(FMT_XBGR8888HE), false, Fourth::last},
    Layout{word(FMT_XRGB8888OE), false, Fourth::first},
    Layout{word(FMT_XBGR8888OE), true, Fourth::first},
};

// Null for grey, indices and words of 16 bits.
inline const Layout *layout_of(img_format format) {
    const auto same = [format](const Layout &layout) { return layout.format == format; };
    const auto *alpha = std::find_if(alpha_layouts.begin(), alpha_layouts.end(), same);
    if (alpha != alpha_layouts.end()) return alpha;
    const auto *opaque = std::find_if(opaque_layouts.begin(), opaque_layouts.end(), same);
    return opaque != opaque_layouts.end() ? opaque : nullptr;
}

// The bytes of red, green and blue in a pixel of a layout.
struct ColorBytes {
    size_t red, green, blue;
};
constexpr ColorBytes color_bytes(const Layout &layout) {
    const size_t first = layout.fourth == Fourth::first ? 1 : 0;
    return layout.blue_first ? ColorBytes{first + 2, first + 1, first} : ColorBytes{first, first + 1, first + 2};
}

// Formats on offer, in the order of preference.
class Offer {
public:
    void add(img_format format) { formats_[count_++] = format; }
    template <size_t N> void add(const std::array<Layout, N> &layouts) {
        for (const Layout &layout : layouts) add(layout.format);
    }
    const img_format *formats() const { return formats_; }
    uint32_t count() const { return count_; }

private:
    img_format formats_[21] = {};
    uint32_t count_ = 0;
};

} // namespace codec
