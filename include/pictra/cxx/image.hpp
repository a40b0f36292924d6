// SPDX-License-Identifier: MIT
//
// Images: image_view looks at pixels that belong to somebody else, image owns its own. Included by pictra.hpp.
#ifndef PICTRA_CXX_IMAGE_HPP
#define PICTRA_CXX_IMAGE_HPP

#include "result.hpp"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <cstdint>
#include <iterator>
#include <optional>
#include <span>

namespace pictra {
inline namespace PICTRA_CXX_ABI {

/// Width and height in pixels.
struct extent {
    std::uint32_t width = 0, height = 0;
    bool operator==(const extent &) const = default;
};

/// Bits of one pixel.
constexpr std::uint32_t bits_per_pixel(img_format format) noexcept { return format & IMG_FMT_BPP_MASK; }
/// Whether pixels are indices of a palette.
constexpr bool is_palette(img_format format) noexcept { return format & IMG_FMT_PAL; }
/// Whether pixels have an alpha channel.
constexpr bool has_alpha(img_format format) noexcept { return format & IMG_FMT_ALPHA; }
/// Bytes that the pixels of a row take, without padding.
constexpr std::size_t row_bytes(img_format format, std::uint32_t width) noexcept {
    return (std::size_t{width} * bits_per_pixel(format) + 7) / 8;
}

/// Rows from the top as spans of their bytes (padding left out), for range-for. Byte is std::uint8_t or const.
template <typename Byte> class row_range {
public:
    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = std::span<Byte>;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = value_type;

        iterator() = default;
        iterator(Byte *at, std::size_t stride, std::size_t bytes, std::uint32_t left)
            : at_(at), stride_(stride), bytes_(bytes), left_(left) {}
        value_type operator*() const { return {at_, bytes_}; }
        iterator &operator++() {
            if (--left_) at_ += stride_; // a buffer may end with the pixels of its last row
            return *this;
        }
        iterator operator++(int) {
            iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const iterator &other) const { return left_ == other.left_; }

    private:
        Byte *at_ = nullptr;
        std::size_t stride_ = 0, bytes_ = 0;
        std::uint32_t left_ = 0;
    };

    row_range(Byte *top, std::size_t stride, std::size_t bytes, std::uint32_t count)
        : first_(top, stride, bytes, count) {}
    iterator begin() const { return first_; }
    iterator end() const { return {}; }

private:
    iterator first_;
};

/// Pixels in memory that somebody else owns and keeps while the view is used. Cheap to copy.
class image_view {
public:
    /// Of nothing.
    image_view() = default;

    /// Of what a record of the C interface describes, which has a pixel buffer, or nothing.
    explicit image_view(const img_record &record) : record_(record) {}

    /// Of height rows, stride bytes apart, each of width pixels. A palette, of FMT_ARGB8888HE words, goes with the palette
    /// formats; its alpha counts only where palette_has_alpha is set.
    image_view(const void *pixels, std::uint32_t stride, extent size, img_format format,
               std::span<const std::uint32_t> palette = {}, bool palette_has_alpha = false) {
        record_.data = const_cast<void *>(pixels); // nothing writes through a view
        record_.stride = stride;
        record_.width = size.width;
        record_.height = size.height;
        record_.format = format;
        record_.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT;
        if (!is_palette(format)) return;
        record_.palette = const_cast<std::uint32_t *>(palette.data());
        record_.ncolors = static_cast<std::uint32_t>(palette.size());
        record_.flags |= IMG_F_PALETTE | (palette_has_alpha ? img_flags{IMG_F_PAL_ALPHA} : 0);
    }

    std::uint32_t width() const noexcept { return record_.width; }
    std::uint32_t height() const noexcept { return record_.height; }
    extent size() const noexcept { return {record_.width, record_.height}; }
    img_format format() const noexcept { return record_.format; }
    /// Bytes from one row to the next.
    std::uint32_t stride() const noexcept { return has(IMG_F_DIRECT) ? record_.stride : 0; }
    bool empty() const noexcept { return !has(IMG_F_DIRECT) || !record_.width || !record_.height; }

    /// The bytes of row y, which is below height().
    std::span<const std::uint8_t> row(std::uint32_t y) const noexcept { return {row_at(y), bytes()}; }
    /// All rows, from the top.
    row_range<const std::uint8_t> rows() const noexcept {
        return {row_at(0), stride(), bytes(), empty() ? 0 : record_.height};
    }

    /// FMT_ARGB8888HE words; empty for other than palette formats.
    std::span<const std::uint32_t> palette() const noexcept { return {record_.palette, entries()}; }
    /// Whether the alpha of palette entries is their transparency. Without it all entries are opaque.
    bool palette_has_alpha() const noexcept { return has(IMG_F_PAL_ALPHA); }
    /// The colour of transparent pixels: an index for palette formats, an FMT_ARGB8888HE word for 24 and 32 bits, else a
    /// pixel as it lies in memory.
    std::optional<std::uint32_t> color_key() const noexcept {
        if (!has(IMG_F_TRANSP)) return std::nullopt;
        const std::uint32_t bits = bits_per_pixel(record_.format);
        return bits >= 24 ? record_.transparency : bits == 16 ? record_.transparency16 : record_.transparency8;
    }
    /// Sets or takes away the colour key. Of a view only: the pixels stay as they are.
    void set_color_key(std::optional<std::uint32_t> key) noexcept {
        record_.flags &= ~img_flags{IMG_F_TRANSP};
        record_.transparency = 0;
        if (!key) return;
        record_.flags |= IMG_F_TRANSP;
        const std::uint32_t bits = bits_per_pixel(record_.format);
        if (bits >= 24)
            record_.transparency = *key;
        else if (bits == 16)
            record_.transparency16 = static_cast<std::uint16_t>(*key);
        else
            record_.transparency8 = static_cast<std::uint8_t>(*key);
    }
    /// Whether a pixel can be other than opaque, by whatever means.
    bool may_be_transparent() const noexcept { return has(IMG_F_TRANSP | IMG_F_PAL_ALPHA) || has_alpha(format()); }

    /// The record, for the functions of the C interface that read an image.
    const img_record &record() const noexcept { return record_; }

protected:
    bool has(img_flags flags) const noexcept { return record_.flags & flags; }
    std::size_t bytes() const noexcept { return row_bytes(record_.format, record_.width); }
    std::uint8_t *row_at(std::uint32_t y) const noexcept {
        return has(IMG_F_DIRECT) ? static_cast<std::uint8_t *>(record_.data) + std::size_t{y} * record_.stride
                                 : nullptr;
    }
    std::size_t entries() const noexcept { return has(IMG_F_PALETTE) ? record_.ncolors : 0; }

    img_record record_{};
};

/// An image that owns its pixels and its palette. Moves; clone() copies. An image that was moved from is empty.
class image : public image_view {
public:
    /// An empty image.
    image() = default;
    image(image &&other) noexcept : image_view(other) { other.record_ = {}; }
    image &operator=(image &&other) noexcept {
        if (this != &other) {
            release();
            record_ = std::exchange(other.record_, {});
        }
        return *this;
    }
    image(const image &) = delete;
    image &operator=(const image &) = delete;
    ~image() { release(); }

    /// A new image of zero bytes; ncolors entries of zero for the palette formats, which need at least one.
    /// IMG_ST_NOMEM where memory lacks or a row or the whole exceeds 4 GiB; IMG_ST_BADARG for a palette format without colours.
    static result<image> create(img_format format, extent size, std::uint32_t ncolors = 0) {
        if (is_palette(format) && !ncolors) return detail::fail(IMG_ST_BADARG, "a new image", "it needs a palette");
        // The library counts the bits of a row in 32 bits.
        if (std::uint64_t{size.width} * bits_per_pixel(format) > UINT32_MAX - 31)
            return detail::fail(IMG_ST_NOMEM, "a new image");
        image made;
        made.record_.format = format;
        made.record_.width = size.width;
        made.record_.height = size.height;
        made.record_.ncolors = is_palette(format) ? ncolors : 0;
        made.record_.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
        img_alloc_result result = 0;
        if (const img_status status = img_alloc(&made.record_, &result)) return detail::fail(status, "a new image");
        if (made.has(IMG_F_DIRECT)) memset(made.record_.data, 0, std::size_t{made.stride()} * made.height());
        for (std::uint32_t &entry : made.palette()) entry = 0;
        return made;
    }

    /// Takes over what the library gave to a record: it is freed with the image.
    static image adopt(const img_record &given) noexcept {
        image made;
        made.record_ = given;
        return made;
    }
    /// Gives the record away; the caller frees its storage as img_record says. The image is empty then.
    img_record release_record() noexcept { return std::exchange(record_, {}); }

    /// A copy of its own. IMG_ST_NOMEM where memory lacks.
    result<image> clone() const { return copy_of(*this); }
    /// A copy of what a view shows.
    static result<image> copy_of(const image_view &view) {
        const img_record &from = view.record();
        result<image> made = create(view.format(), view.size(), from.ncolors);
        if (!made) return made;
        for (std::uint32_t y = 0; y < view.height() && !view.empty(); y++)
            memcpy(made->row(y).data(), view.row(y).data(), view.row(y).size());
        for (std::size_t i = 0; i < view.palette().size(); i++) made->palette()[i] = view.palette()[i];
        made->take_transparency(view);
        return made;
    }

    using image_view::palette;
    using image_view::row;
    using image_view::rows;
    /// The bytes of row y, which is below height().
    std::span<std::uint8_t> row(std::uint32_t y) noexcept { return {row_at(y), bytes()}; }
    /// All rows, from the top.
    row_range<std::uint8_t> rows() noexcept { return {row_at(0), stride(), bytes(), empty() ? 0 : record_.height}; }
    /// Row y as pixels of 8, 16 or 32 bits: Pixel is the unsigned type of that size.
    template <typename Pixel> std::span<Pixel> pixels(std::uint32_t y) noexcept {
        return {reinterpret_cast<Pixel *>(row_at(y)), bytes() / sizeof(Pixel)}; // rows begin at multiples of 4 bytes
    }
    template <typename Pixel> std::span<const Pixel> pixels(std::uint32_t y) const noexcept {
        return {reinterpret_cast<const Pixel *>(row_at(y)), bytes() / sizeof(Pixel)};
    }
    /// The entries, to be changed.
    std::span<std::uint32_t> palette() noexcept { return {record_.palette, entries()}; }
    /// Whether the alpha of the entries counts.
    void set_palette_has_alpha(bool counts) noexcept {
        record_.flags = (record_.flags & ~img_flags{IMG_F_PAL_ALPHA}) | (counts ? img_flags{IMG_F_PAL_ALPHA} : 0);
    }
    /// Takes colour key and meaning of the palette's alpha from an image of the same format.
    void take_transparency(const image_view &from) noexcept {
        constexpr img_flags taken = IMG_F_TRANSP | IMG_F_PAL_ALPHA;
        record_.flags = (record_.flags & ~taken) | (from.record().flags & taken);
        record_.transparency = from.record().transparency;
    }
    /// Calls the pixels by another format of the same depth. They stay as they are.
    void set_format(img_format format) noexcept { record_.format = format; }

private:
    // The library puts pixels and palette in one block, and a palette alone in one of its own.
    void release() noexcept {
        free(has(IMG_F_DIRECT) ? record_.data : has(IMG_F_PALETTE) ? record_.palette : nullptr);
        record_ = {};
    }
};

} // namespace PICTRA_CXX_ABI
} // namespace pictra

#endif
