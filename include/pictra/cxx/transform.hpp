// SPDX-License-Identifier: MIT
//
// From one image to another: convert, crop, rotate, flip, resize. Included by pictra.hpp.
//
// Each takes any view and gives a new image. Palettes, colour keys and alpha go along wherever the result can hold them.
// Failures: IMG_ST_NOMEM where memory lacks, IMG_ST_BADARG for an empty image or an argument out of range, IMG_ST_BADFMT as
// each says.
#ifndef PICTRA_CXX_TRANSFORM_HPP
#define PICTRA_CXX_TRANSFORM_HPP

#include "image.hpp"

#include <algorithm>
#include <array>
#include <mutex>
#include <shared_mutex>

namespace pictra {
inline namespace PICTRA_CXX_ABI {

namespace detail {

constexpr img_flags shape_flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;

/// The format that the library moves and averages pixels of this one as: it has no loops for some, which differ from those that
/// it has in the names of their channels only.
constexpr img_format movable_format(img_format format) noexcept {
    if (format == FMT_A8) return FMT_G8;
    return bits_per_pixel(format) == 32 ? format & ~img_format{IMG_FMT_ALT} : format;
}

/// A result as it is asked for from the library: in this format, with room for the palette of the source.
inline img_record wanted(img_format format, const img_record &src) noexcept {
    img_record dst{};
    dst.format = format;
    dst.flags = IMG_F_FORMAT;
    dst.ncolors = is_palette(format) ? src.ncolors : 0;
    return dst;
}

/// Converts without a thought for transparency.
inline result<image> convert_plain(const img_record &src, img_format format) {
    img_record dst = wanted(format, src);
    if (const img_status status = img_dtransform(&src, &dst)) return fail(status, "convert");
    return image::adopt(dst);
}

/// The bits of a pixel's first four bytes that are its alpha.
inline std::uint32_t alpha_mask(img_format format) noexcept {
    const bool swapped = format & IMG_FMT_OE;
    if (bits_per_pixel(format) == 16) return swapped ? 0x80 : 0x8000;
    return swapped ? 0xff : 0xff000000;
}

template <typename Pixel> void clear_key(image &picture, std::uint32_t key, std::uint32_t mask) noexcept {
    const auto alpha = static_cast<Pixel>(mask), color = static_cast<Pixel>(~mask);
    for (std::uint32_t y = 0; y < picture.height(); y++)
        for (Pixel &pixel : picture.pixels<Pixel>(y))
            if (((pixel ^ key) & color) == 0) pixel = static_cast<Pixel>(pixel & ~alpha);
}

/// Gives opaque pixels of 16 or 32 bits the alpha channel of format, of the same layout, and clears it where they have the key.
inline void key_to_alpha(image &picture, img_format format) noexcept {
    const std::optional<std::uint32_t> key = picture.color_key();
    for (std::span<std::uint8_t> row : picture.rows())
        img_convert_data(picture.format(), row.data(), format, row.data(), picture.width());
    picture.set_color_key(std::nullopt);
    picture.set_format(format);
    if (!key) return;
    std::uint32_t raw = *key;
    if (bits_per_pixel(format) == 32) img_convert_data(FMT_ARGB8888HE, &*key, format, &raw, 1);
    if (bits_per_pixel(format) == 32)
        clear_key<std::uint32_t>(picture, raw, alpha_mask(format));
    else
        clear_key<std::uint16_t>(picture, raw, alpha_mask(format));
}

/// Colours of indices, with the transparency that key and palette say.
inline result<image> expand_palette(const image_view &view, img_format format) {
    std::array<std::uint32_t, 256> palette{};
    const std::size_t count = std::min(view.palette().size(), palette.size());
    for (std::size_t i = 0; i < count; i++)
        palette[i] = view.palette()[i] | (view.palette_has_alpha() ? 0 : 0xff000000);
    if (const auto key = view.color_key(); key && *key < count) palette[*key] &= 0xffffff;
    img_record src = view.record();
    src.palette = palette.data();
    src.ncolors = static_cast<std::uint32_t>(count);
    return convert_plain(src, format);
}

/// A colour with a key becomes one with alpha. At 32 bits, where different colours stay different.
inline result<image> expand_key(const image_view &view, img_format format) {
    std::uint32_t key = *view.color_key();
    if (bits_per_pixel(view.format()) <= 16) img_convert_data(view.format(), &key, FMT_ARGB8888HE, &key, 1);
    result<image> made = convert_plain(view.record(), FMT_ARGB8888HE);
    if (!made) return made;
    clear_key<std::uint32_t>(*made, key, 0xff000000);
    return format == FMT_ARGB8888HE ? std::move(made) : convert_plain(made->record(), format);
}

/// Indices of 8 bits into 1 or 4 bits again.
inline result<image> pack(const image_view &view, img_format format) {
    const std::uint32_t bits = bits_per_pixel(format), mask = (1u << bits) - 1;
    if (view.palette().size() > mask + 1) return fail(IMG_ST_BADFMT, "convert", "the palette has too many colours");
    result<image> made = image::create(format, view.size(), view.record().ncolors);
    if (!made) return made;
    std::copy(view.palette().begin(), view.palette().end(), made->palette().begin());
    made->take_transparency(view);
    for (std::uint32_t y = 0; y < view.height(); y++) {
        const std::uint8_t *from = view.row(y).data();
        std::uint8_t *to = made->row(y).data();
        for (std::size_t x = 0, bit = 0; x < view.width(); x++, bit += bits)
            to[bit / 8] = static_cast<std::uint8_t>(to[bit / 8] | (from[x] & mask) << (8 - bits - bit % 8));
    }
    return made;
}

/// Indices of one depth into another. The library knows 8 bits as a target only.
inline result<image> convert_indices(const image_view &view, img_format format) {
    if (view.format() == FMT_PAL8) return pack(view, format);
    result<image> made = convert_plain(view.record(), FMT_PAL8);
    if (made) made->take_transparency(view);
    return made && format != FMT_PAL8 ? pack(*made, format) : std::move(made);
}

/// Runs step(src, dst) from an image to one of the same format, in a format that the library can move pixels of.
template <typename Step> result<image> move_pixels(const image_view &view, const char *name, const Step &step) {
    if (view.empty()) return fail(IMG_ST_BADARG, name, "the image is empty");
    if (is_palette(view.format()) && view.format() != FMT_PAL8) {
        const result<image> wide = convert_indices(view, FMT_PAL8);
        if (!wide) return failure(wide.error());
        const result<image> moved = move_pixels(*wide, name, step);
        return moved ? pack(*moved, view.format()) : failure(moved.error());
    }
    img_record src = view.record();
    src.format = movable_format(src.format);
    img_record dst = wanted(src.format, src);
    if (const img_status status = step(src, dst)) return fail(status, name);
    image made = image::adopt(dst);
    made.set_format(view.format());
    made.take_transparency(view);
    return made;
}

/// Held by every resize while it runs; alone by one that is run again.
inline std::shared_mutex resizes;
inline thread_local bool resizes_here = false;

/// Runs a resize. When a load_resized fails in another thread, the library stops all resizes of the process, and those have
/// IMG_ST_NOMEM to say. So one that says it is run again, if it can be, when no other runs. Within a progress function it is run
/// as it is.
template <typename Step> img_status undisturbed(const Step &step, bool repeatable = true) {
    if (resizes_here) return step();
    struct mark {
        mark() { resizes_here = true; }
        ~mark() { resizes_here = false; }
    } marked;
    {
        const std::shared_lock<std::shared_mutex> with_others(resizes);
        if (const img_status status = step(); status != IMG_ST_NOMEM || !repeatable) return status;
    }
    const std::unique_lock<std::shared_mutex> alone(resizes);
    return step();
}

/// The other side in proportion, rounded, at least 1; 0 of none, and where it does not fit.
constexpr std::uint32_t in_proportion(std::uint32_t side, std::uint32_t to, std::uint32_t from) noexcept {
    if (!side || !from) return 0;
    const std::uint64_t size = (std::uint64_t{side} * to + from / 2) / from;
    return size > UINT32_MAX ? 0 : size ? static_cast<std::uint32_t>(size) : 1;
}

} // namespace detail

/// A copy in another pixel format. A format with alpha gets all transparency there is, from a colour key or a palette. Without
/// alpha a colour key goes along among 24 and 32 bits and among indices, and is dropped otherwise. IMG_ST_BADFMT for colours
/// into indices, for indices into fewer bits than the palette needs, and for FMT_A8 from or into opaque pixels.
inline result<image> convert(const image_view &view, img_format format) {
    if (view.empty()) return detail::fail(IMG_ST_BADARG, "convert", "the image is empty");
    if (view.format() == format) return image::copy_of(view);
    if (is_palette(view.format()))
        return is_palette(format) ? detail::convert_indices(view, format) : detail::expand_palette(view, format);
    if (has_alpha(format) && view.color_key() && !has_alpha(view.format())) return detail::expand_key(view, format);
    result<image> made = detail::convert_plain(view.record(), format);
    const bool keeps_key = bits_per_pixel(view.format()) > 16 && bits_per_pixel(format) > 16 && !has_alpha(format);
    if (made && keeps_key) made->set_color_key(view.color_key());
    return made;
}

/// The rectangle of that size whose top left pixel is (x, y). IMG_ST_BADARG if it is empty or reaches out of the image.
inline result<image> crop(const image_view &view, std::uint32_t x, std::uint32_t y, extent size) {
    if (!size.width || !size.height) return detail::fail(IMG_ST_BADARG, "crop", "the rectangle is empty");
    return detail::move_pixels(view, "crop", [&](const img_record &src, img_record &dst) {
        dst.width = size.width;
        dst.height = size.height;
        dst.flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
        return img_crop(&src, &dst, x, y);
    });
}

/// Clockwise turns.
enum class turn : std::uint32_t {
    none = IMG_ANGLE_0,
    quarter = IMG_ANGLE_90,
    half = IMG_ANGLE_180,
    back = IMG_ANGLE_270
};
/// Turned clockwise; back is a quarter counterclockwise.
inline result<image> rotate(const image_view &view, turn by) {
    return detail::move_pixels(view, "rotate", [&](const img_record &src, img_record &dst) {
        return img_rotate_ortho(&src, &dst, static_cast<std::uint32_t>(by));
    });
}

/// What a flip exchanges.
enum class side : std::uint32_t { left_right = IMG_FLIP_HORIZONTAL, top_bottom = IMG_FLIP_VERTICAL };
/// Mirrored.
inline result<image> flip(const image_view &view, side exchanged) {
    return detail::move_pixels(view, "flip", [&](const img_record &src, img_record &dst) {
        return img_flip(&src, &dst, static_cast<std::uint32_t>(exchanged));
    });
}

/// As it is to be seen, from the orientation 1 to 8 that a file gives (values). 0, unknown, is as 1.
inline result<image> upright(const image_view &view, std::uint32_t orientation) {
    if (orientation > 8) return detail::fail(IMG_ST_BADARG, "upright", "orientations go from 1 to 8");
    constexpr struct {
        bool mirrored;
        turn by;
    } ways[9] = {{false, turn::none},    {false, turn::none},   {true, turn::none},
                 {false, turn::half},    {true, turn::half},    {true, turn::back},
                 {false, turn::quarter}, {true, turn::quarter}, {false, turn::back}};
    const auto [mirrored, by] = ways[orientation];
    if (!mirrored) return rotate(view, by);
    result<image> made = flip(view, side::left_right);
    return made && by != turn::none ? rotate(*made, by) : std::move(made);
}

/// A size to scale to. A side of 0 follows the other in proportion.
struct scale {
    std::uint32_t width = 0, height = 0;
    bool fit = false; ///< keep the proportions within width and height, and never enlarge

    /// The size that a picture of that size gets. A side of 0 where none can be given.
    constexpr extent of(extent picture) const noexcept {
        if (fit) {
            const extent box{width ? width : picture.width, height ? height : picture.height};
            if (picture.width <= box.width && picture.height <= box.height) return picture;
            const bool wide = std::uint64_t{picture.width} * box.height > std::uint64_t{picture.height} * box.width;
            return scale{wide ? box.width : 0, wide ? 0 : box.height}.of(picture);
        }
        return {width ? width : detail::in_proportion(height, picture.width, picture.height),
                height ? height : detail::in_proportion(width, picture.height, picture.width)};
    }
};
/// At most so many pixels a side, for thumbnails.
constexpr scale within(std::uint32_t side) noexcept { return {side, side, true}; }

/// Scaled. The format stays, but indices become FMT_RGB888, and pictures with a colour key or a transparent palette
/// FMT_ARGB8888HE: means of indices, or of keys and their neighbours, would be of no use. IMG_ST_BADARG if neither side is given.
/// Pictures are halved by exact means and stepped from there, which is fast and smooth enough for showing them smaller.
inline result<image> resize(const image_view &view, const scale &to) {
    const extent size = to.of(view.size());
    if (!size.width || !size.height) return detail::fail(IMG_ST_BADARG, "resize", "no size, or one out of range");
    const bool transparent = view.color_key() || view.palette_has_alpha();
    if (!view.empty() && !has_alpha(view.format()) && (is_palette(view.format()) || transparent)) {
        const result<image> colours = convert(view, transparent ? FMT_ARGB8888HE : FMT_RGB888);
        return colours ? resize(*colours, {size.width, size.height}) : failure(colours.error());
    }
    return detail::move_pixels(view, "resize", [&](const img_record &src, img_record &dst) {
        dst.width = size.width;
        dst.height = size.height;
        dst.flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
        return detail::undisturbed([&] { return img_resize_fs(&src, &dst); });
    });
}

} // namespace PICTRA_CXX_ABI
} // namespace pictra

#endif
