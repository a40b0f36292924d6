// SPDX-License-Identifier: MIT
//
// Which routine serves which pair of formats: a table of all pairs, made at compile time from the rules below.
#include "core/record.h"

namespace {

using namespace img;

// The formats by the names that the table of routines uses.
namespace code {
constexpr img_format g8 = FMT_G8, a8 = FMT_A8, xrgb1555he = FMT_XRGB1555HE, xrgb1555oe = FMT_XRGB1555OE,
                     argb1555he = FMT_ARGB1555HE, argb1555oe = FMT_ARGB1555OE, rgb565he = FMT_RGB565HE,
                     rgb565oe = FMT_RGB565OE, bgr888 = FMT_BGR888, rgb888 = FMT_RGB888, xrgb8888he = FMT_XRGB8888HE,
                     xrgb8888oe = FMT_XRGB8888OE, argb8888he = FMT_ARGB8888HE, argb8888oe = FMT_ARGB8888OE,
                     xbgr8888he = FMT_XBGR8888HE, xbgr8888oe = FMT_XBGR8888OE, abgr8888he = FMT_ABGR8888HE,
                     abgr8888oe = FMT_ABGR8888OE;
} // namespace code

constexpr img_format formats[] = {
    FMT_PAL1,       FMT_PAL4,       FMT_PAL8,       FMT_G8,         FMT_A8,         FMT_XRGB1555HE, FMT_XRGB1555OE,
    FMT_ARGB1555HE, FMT_ARGB1555OE, FMT_RGB565HE,   FMT_RGB565OE,   FMT_BGR888,     FMT_RGB888,     FMT_XRGB8888HE,
    FMT_XRGB8888OE, FMT_ARGB8888HE, FMT_ARGB8888OE, FMT_XBGR8888HE, FMT_XBGR8888OE, FMT_ABGR8888HE, FMT_ABGR8888OE};
constexpr size_t format_count = sizeof formats / sizeof *formats;

constexpr struct Routine {
    img_format src, dst;
    img_cvt_func convert;
} routines[] = {
    {FMT_PAL1, FMT_PAL8, img_cvt_pal1_pal8},
    {FMT_PAL4, FMT_PAL8, img_cvt_pal4_pal8},
#define ROUTINE(name, source, destination, rule) {code::source, code::destination, img_cvt_##name},
#include "convert/routines.inc"
};

consteval img_cvt_func routine(img_format src, img_format dst) {
    for (const Routine &r : routines)
        if (r.src == src && r.dst == dst) return r.convert;
    return nullptr;
}

consteval img_cvt_func copy_of(img_format format) {
    constexpr img_cvt_func of_bytes[] = {nullptr, img_cvt_copy8, img_cvt_copy16, img_cvt_copy24, img_cvt_copy32};
    return of_bytes[bits_per_pixel(format) / 8];
}

constexpr img_format orders = IMG_FMT_HE | IMG_FMT_OE;

// Layouts with room for alpha: their A and X formats differ in one bit of the code.
consteval bool has_alpha_field(img_format format) {
    return bits_per_pixel(format) == 32 || (bits_per_pixel(format) == 16 && !(format & IMG_FMT_ALT));
}
consteval img_format a_format(img_format format) { return has_alpha_field(format) ? format | IMG_FMT_ALPHA : format; }
consteval img_format x_format(img_format format) { return format & ~img_format{IMG_FMT_ALPHA}; }

// The first rule that fits decides.
consteval img_cvt_func choose(img_format src, img_format dst) {
    const uint32_t src_bits = bits_per_pixel(src), dst_bits = bits_per_pixel(dst);
    // Indices go to 8-bit indices only, and nothing else becomes an index.
    if (is_palette(src) || is_palette(dst)) {
        if (dst != FMT_PAL8 || !is_palette(src)) return nullptr;
        return src == dst ? img_cvt_copy8 : routine(src, dst);
    }
    // Alpha alone is no source, and comes from layouts with alpha only. ABGR has its alpha where ARGB has it.
    if (src == FMT_A8) return nullptr;
    if (dst == FMT_A8) return routine(src_bits == 32 ? src & ~img_format{IMG_FMT_ALT} : src, dst);
    if (src == dst) return copy_of(src);
    if (src_bits == 24 && dst_bits == 24) return img_cvt_swab24;
    if ((src ^ dst) == orders) return src_bits == 16 ? img_cvt_swab16 : img_cvt_swab32;
    if ((src ^ dst) == IMG_FMT_ALPHA && dst_bits == 32) return dst & IMG_FMT_HE ? img_cvt_msb32 : img_cvt_lsb32;
    // A destination that never has alpha takes whatever the source has there; an X destination becomes opaque.
    if (!has_alpha_field(dst)) return routine(a_format(src), dst);
    return routine(dst & IMG_FMT_ALPHA ? src : x_format(src), a_format(dst));
}

struct Pairs {
    img_cvt_func of[format_count][format_count];
};

consteval Pairs all_pairs() {
    Pairs pairs{};
    for (size_t s = 0; s < format_count; s++)
        for (size_t d = 0; d < format_count; d++) pairs.of[s][d] = choose(formats[s], formats[d]);
    return pairs;
}

// The exported routines themselves, since callers compare addresses.
constexpr Pairs pairs = all_pairs();

size_t index_of(img_format format) {
    size_t i = 0;
    while (i < format_count && formats[i] != format) i++;
    return i;
}

} // namespace

img_cvt_func img_convert_getfunc(img_format src, img_format dst) {
    const size_t s = index_of(src), d = index_of(dst);
    return s < format_count && d < format_count ? pairs.of[s][d] : nullptr;
}

img_status img_convert_data(img_format src_format, const void *src, img_format dst_format, void *dst, uint32_t count) {
    const img_cvt_func convert = img_convert_getfunc(src_format, dst_format);
    if (!convert) return IMG_ST_BADFMT;
    convert(src, dst, count);
    return IMG_ST_OK;
}
