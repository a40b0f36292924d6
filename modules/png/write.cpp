// SPDX-License-Identifier: MIT
//
// The writing side of the PNG module.
#include "modules/png/png.h"

#include <algorithm>

namespace png {

namespace {

void flush_nothing(png_structp) {} // flushing is the business of the stream's owner

} // namespace

void Writer::write_bytes(png_structp png, png_bytep src, size_t length) {
    auto &writer = *static_cast<Writer *>(png_get_io_ptr(png));
    if (write_all(writer.stream_, src, length)) return;
    writer.failure_ = write_failed;
    png_error(png, "the stream takes no more");
}

// Palette and transparency, in chunks before the image. PNG keeps alpha of a palette from its start, so both a key and
// alpha of entries go there.
img_status Writer::write_palette() {
    const img_record &image = picture_.image();
    if (const img_status status = picture_.get_palette(palette_)) return status;
    const uint32_t ncolors = std::min(image.ncolors, 1u << bits_per_pixel(image.format));
    png_color colors[max_colors];
    for (uint32_t i = 0; i < ncolors; i++) {
        colors[i] = {static_cast<png_byte>(palette_[i] >> 16), static_cast<png_byte>(palette_[i] >> 8),
                     static_cast<png_byte>(palette_[i])};
        alpha_[i] = static_cast<png_byte>(palette_[i] >> 24);
    }
    png_set_PLTE(png_, info_, colors, static_cast<int>(ncolors));
    uint32_t alphas = ncolors;
    while (alphas && alpha_[alphas - 1] == 0xff) alphas--;
    if (alphas) png_set_tRNS(png_, info_, alpha_, static_cast<int>(alphas), nullptr);
    return ok;
}

img_status Writer::write_key(const Layout *layout) {
    uint8_t pixel[4];
    if (const img_status status = picture_.get_transparency(pixel)) return status;
    png_color_16 key{};
    if (layout) {
        const ColorBytes at = color_bytes(*layout);
        key.red = pixel[at.red];
        key.green = pixel[at.green];
        key.blue = pixel[at.blue];
    } else {
        key.gray = pixel[0];
    }
    png_set_tRNS(png_, info_, nullptr, 0, &key);
    return ok;
}

img_status Writer::write_header(const Layout *layout) {
    const img_record &image = picture_.image();
    const bool indexed = image.format & IMG_FMT_PAL, alpha = image.format & IMG_FMT_ALPHA;
    const int depth = indexed ? static_cast<int>(bits_per_pixel(image.format)) : 8;
    const int color_type = indexed   ? PNG_COLOR_TYPE_PALETTE
                           : !layout ? PNG_COLOR_TYPE_GRAY
                           : alpha   ? PNG_COLOR_TYPE_RGB_ALPHA
                                     : PNG_COLOR_TYPE_RGB;
    png_set_IHDR(png_, info_, image.width, image.height, depth, color_type,
                 interlace_ ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    img_status status = set_metadata();
    if (status) return status;
    if (indexed)
        status = write_palette();
    else if (!alpha && picture_.has(IMG_F_TRANSP))
        status = write_key(layout);
    if (status) return status;
    png_write_info(png_, info_);
    if (!layout) return ok;
    if (layout->blue_first) png_set_bgr(png_);
    if (layout->fourth == Fourth::none) return ok;
    if (!alpha) png_set_filler(png_, 0, layout->fourth == Fourth::last ? PNG_FILLER_AFTER : PNG_FILLER_BEFORE);
    if (alpha && layout->fourth == Fourth::first) png_set_swap_alpha(png_);
    return ok;
}

img_status Writer::ask_for_options() {
    img_option level = number_option("level", "effort to make the file small", 0, 9, 4);
    img_option interlace = switch_option("interlace", "in seven passes, the first of which show all of the picture");
    img_option filter = choice_option("filter", "how pixels are predicted", "auto:none:sub:up:average:paeth", 6, 0);
    for (img_option *option : {&level, &interlace, &filter})
        if (const img_status status = picture_.ask(*option)) return status;
    level_ = level.value;
    interlace_ = interlace.value;
    filter_ = filter.value;
    return ok;
}

void Writer::set_options() const {
    constexpr int filters[] = {0, PNG_FILTER_NONE, PNG_FILTER_SUB, PNG_FILTER_UP, PNG_FILTER_AVG, PNG_FILTER_PAETH};
    if (filter_) png_set_filter(png_, PNG_FILTER_TYPE_BASE, filters[filter_]);
    png_set_compression_level(png_, level_);
}

img_status Writer::write_row(const uint8_t *row) const {
    if (!row) return bad_record;
    png_write_row(png_, row);
    return ok;
}

img_status Writer::write_rows() {
    const uint32_t height = picture_.image().height;
    for (uint32_t y = 0; y < height; y++) {
        if (const img_status status = write_row(picture_.fetch(y))) return status;
        if (const img_status status = picture_.progress(y + 1)) return status;
    }
    return ok;
}

// Each pass takes pixels of all rows, but an access function gives each row once.
img_status Writer::write_passes() {
    const img_record &image = picture_.image();
    const size_t bytes = row_bytes(image.format, image.width);
    if (!(image.flags & IMG_F_DIRECT)) {
        if (!(whole_ = make_bytes(bytes * image.height))) return no_memory;
        for (uint32_t y = 0; y < image.height; y++) {
            const uint8_t *row = picture_.fetch(y);
            if (!row) return bad_record;
            memcpy(whole_.get() + bytes * y, row, bytes);
        }
    }
    const auto passes = static_cast<uint32_t>(png_set_interlace_handling(png_));
    for (uint32_t pass = 0; pass < passes; pass++)
        for (uint32_t y = 0; y < image.height; y++) {
            const uint8_t *row = whole_ ? whole_.get() + bytes * y : picture_.fetch(y);
            if (const img_status status = write_row(row)) return status;
            const auto rows_worth = static_cast<uint32_t>((uint64_t{pass} * image.height + y + 1) / passes);
            if (const img_status status = picture_.progress(rows_worth)) return status;
        }
    return ok;
}

img_status Writer::encode() {
    State *const state = this;
    png_ = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, state, on_error, on_warning, state, allocate, release);
    if (png_) info_ = png_create_info_struct(png_);
    if (!info_) return no_memory;
    failure_ = bad_record;
    png_set_write_fn(png_, this, write_bytes, flush_nothing);
    if (const img_status status = ask_for_options()) return status;
    if (const img_status status = ask_for_metadata()) return status;
    Offer offer;
    for (const img_format format : {FMT_PAL1, FMT_PAL4, FMT_PAL8, FMT_G8}) offer.add(format);
    offer.add(opaque_layouts);
    offer.add(alpha_layouts);
    if (const img_status status = picture_.choose_and_set_up(offer.formats(), offer.count())) return status;
    set_options();
    if (const img_status status = write_header(layout_of(picture_.image().format))) return status;
    if (const img_status status = interlace_ ? write_passes() : write_rows()) return status;
    png_write_end(png_, nullptr);
    return warning_[0] ? picture_.warn(warning_) : ok;
}

img_status Writer::frame() {
    return guarded([this] { return encode(); });
}

} // namespace png
