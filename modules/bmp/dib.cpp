// SPDX-License-Identifier: MIT
//
// Device-independent bitmaps: parsing headers, and converting colours.
#include "modules/bmp/dib.h"

#include "modules/common/bytes.h"
#include "modules/common/layout.h"

#include <bit>

namespace bmp {

namespace {

// Headers are told apart by their size.
constexpr uint32_t core_size = 12, info_size = 40, color_masks_size = 52, alpha_mask_size = 56, os2_size = 64,
                   profile_size = 124;

// OS/2 headers have any size from 16 to 64 bytes, and compression codes of their own.
bool is_os2(uint32_t size) {
    return size < os2_size + 1 && size != core_size && size != info_size && size != color_masks_size &&
           size != alpha_mask_size;
}

uint32_t compression_of(const uint8_t *header) { return little32(header) >= 20 ? little32(header + 16) : Dib::plain; }

bool contiguous(uint32_t mask) {
    const uint32_t field = mask ? mask >> std::countr_zero(mask) : 0;
    return (field & (field + 1)) == 0;
}

img_status parse_core(const uint8_t *header, Dib &dib) {
    dib.width = little16(header + 4);
    dib.height = little16(header + 6);
    dib.depth = little16(header + 10);
    dib.entry_size = 3;
    dib.entries = dib.depth <= 8 ? 1u << dib.depth : 0;
    return ok;
}

img_status parse_info(const uint8_t *header, Dib &dib) {
    const uint32_t size = little32(header), height = little32(header + 8);
    dib.width = little32(header + 4);
    dib.top_down = height >> 31;
    dib.height = dib.top_down ? 0 - height : height;
    dib.depth = little16(header + 14);
    if (dib.width >> 31) return damaged;
    dib.compression = compression_of(header);
    dib.data_size = little32(header + 20);
    dib.resolution = {static_cast<double>(little32(header + 24)), static_cast<double>(little32(header + 28))};
    dib.entries = little32(header + 32);
    if (!dib.entries && dib.depth <= 8) dib.entries = 1u << dib.depth;
    dib.entry_size = 4;
    if (size == profile_size && little32(header + 56) == embedded_profile) {
        dib.profile_offset = little32(header + 112);
        dib.profile_size = little32(header + 116);
    }
    return ok;
}

img_status check_compression(const Dib &dib, bool os2) {
    switch (dib.compression) {
    case Dib::plain:
        return ok;
    case Dib::rle8:
        return dib.depth == 8 ? ok : damaged;
    case Dib::rle4:
        return dib.depth == 4 ? ok : damaged;
    case Dib::fields:
    case Dib::alpha_fields:
        if (os2) return unsupported; // a fax code
        return dib.depth == 16 || dib.depth == 32 ? ok : damaged;
    default:
        return unsupported;
    }
}

void set_masks(const uint8_t *header, Dib &dib) {
    constexpr uint32_t wide[] = {0xff0000, 0xff00, 0xff, 0}, narrow[] = {0x7c00, 0x3e0, 0x1f, 0};
    const bool given = dib.compression == Dib::fields || dib.compression == Dib::alpha_fields;
    const bool alpha = given && (little32(header) >= alpha_mask_size || dib.compression == Dib::alpha_fields);
    for (size_t i = 0; i < 4; i++)
        dib.masks[i] = !given           ? (dib.depth == 16 ? narrow : wide)[i]
                       : i < 3 || alpha ? little32(header + info_size + 4 * i)
                                        : 0;
}

} // namespace

bool dib_plausible(const uint8_t *header) {
    const uint32_t size = little32(header);
    if (size != core_size && (size < 16 || size > os2_size) && size != 108 && size != profile_size) return false;
    const size_t planes = size == core_size ? 8 : 12;
    const uint32_t depth = little16(header + planes + 2);
    if (little16(header + planes) != 1) return false;
    if (depth == 0) return compression_of(header) == Dib::jpeg || compression_of(header) == Dib::png;
    return depth == 24 || (depth <= 32 && std::has_single_bit(depth));
}

uint32_t dib_mask_bytes(const uint8_t *header) {
    if (little32(header) != info_size) return 0;
    const uint32_t compression = compression_of(header);
    return compression == Dib::fields ? 12 : compression == Dib::alpha_fields ? 16 : 0;
}

img_status dib_parse(const uint8_t *header, Dib &dib) {
    const uint32_t size = little32(header);
    dib = {};
    if (const img_status status = size == core_size ? parse_core(header, dib) : parse_info(header, dib)) return status;
    if (const img_status status = check_compression(dib, is_os2(size))) return status;
    set_masks(header, dib);
    return ok;
}

img_format dib_format(const Dib &dib) {
    const auto masked = [&](uint32_t red, uint32_t green, uint32_t blue, uint32_t alpha) {
        const uint32_t masks[] = {red, green, blue, alpha};
        return std::equal(masks, masks + 4, dib.masks);
    };
    const auto same_layout = [&](const Layout &layout) {
        const ColorBytes at = color_bytes(layout);
        const uint32_t alpha = !(layout.format & IMG_FMT_ALPHA) ? 0
                               : layout.fourth == Fourth::first ? 0xffu
                                                                : 0xff000000u;
        return layout.fourth != Fourth::none &&
               masked(0xffu << at.red * 8, 0xffu << at.green * 8, 0xffu << at.blue * 8, alpha);
    };
    switch (dib.depth) {
    case 1:
        return FMT_PAL1;
    case 4:
        return FMT_PAL4;
    case 8:
        return FMT_PAL8;
    case 16:
        if (masked(0x7c00, 0x3e0, 0x1f, 0)) return word(FMT_XRGB1555HE);
        if (masked(0x7c00, 0x3e0, 0x1f, 0x8000)) return word(FMT_ARGB1555HE);
        return masked(0xf800, 0x7e0, 0x1f, 0) ? word(FMT_RGB565HE) : img_format{0};
    case 24:
        return FMT_BGR888;
    case 32:
        for (const Layout &layout : alpha_layouts)
            if (same_layout(layout)) return layout.format;
        for (const Layout &layout : opaque_layouts)
            if (same_layout(layout)) return layout.format;
    }
    return 0;
}

uint32_t dib_sample_bits(const Dib &dib) {
    if (dib.depth <= 8) return dib.depth;
    int most = 0;
    for (const uint32_t mask : dib.masks) most = std::max(most, std::popcount(mask));
    return static_cast<uint32_t>(most);
}

void dib_palette(const Dib &dib, const uint8_t *entries, uint32_t count, uint32_t *argb) {
    for (uint32_t i = 0; i < count; i++, entries += dib.entry_size)
        argb[i] = 0xff000000u | uint32_t{entries[2]} << 16 | uint32_t{entries[1]} << 8 | entries[0];
}

img_status MaskedColors::begin(const Dib &dib) {
    bytes_ = dib.depth / 8;
    for (size_t i = 0; i < 4; i++) {
        const uint32_t mask = dib.masks[i];
        Channel &channel = channels_[i];
        channel.mask = mask;
        channel.scaled[0] = i == 3 && !mask ? 0xff : 0;
        if (!mask) continue;
        if (!contiguous(mask)) return unsupported;
        const int width = std::popcount(mask), used = std::min(width, 8);
        channel.shift = static_cast<uint32_t>(std::countr_zero(mask) + width - used);
        const uint32_t highest = (1u << used) - 1;
        for (uint32_t value = 0; value <= highest; value++)
            channel.scaled[value] = static_cast<uint8_t>((value * 255 + highest / 2) / highest);
    }
    return ok;
}

template <uint32_t bytes> void MaskedColors::expand_pixels(const uint8_t *pixels, uint32_t count, uint8_t *argb) const {
    const auto channel = [this](uint32_t pixel, size_t i) -> uint32_t {
        return channels_[i].scaled[(pixel & channels_[i].mask) >> channels_[i].shift];
    };
    for (uint32_t x = 0; x < count; x++, pixels += bytes, argb += 4) {
        uint32_t pixel = little16(pixels);
        if (bytes > 2) pixel |= uint32_t{pixels[2]} << 16;
        if (bytes > 3) pixel |= uint32_t{pixels[bytes - 1]} << 24;
        const uint32_t out =
            channel(pixel, 3) << 24 | channel(pixel, 0) << 16 | channel(pixel, 1) << 8 | channel(pixel, 2);
        memcpy(argb, &out, sizeof out);
    }
}

void MaskedColors::expand(const uint8_t *pixels, uint32_t count, uint8_t *argb) const {
    if (bytes_ == 2) return expand_pixels<2>(pixels, count, argb);
    if (bytes_ == 3) return expand_pixels<3>(pixels, count, argb);
    expand_pixels<4>(pixels, count, argb);
}

} // namespace bmp
