// SPDX-License-Identifier: MIT
//
// The writing side of the PNG module.
#include "modules/png/png.h"

#include <algorithm>

namespace module {

namespace {

void write_bytes(png_structp png, png_bytep src, size_t length) {
    auto &state = *static_cast<State *>(png_get_io_ptr(png));
    if (write_all(*state.stream, src, length)) return;
    state.failure = write_failed;
    png_error(png, "the stream takes no more");
}

void flush_nothing(png_structp) {} // flushing is the business of the stream's owner

// Palette and transparency, in chunks before the image. PNG keeps alpha of a palette from its start, so both a key and
// alpha of entries go there.
img_status write_palette(Writer &w) {
    const img_record &image = w.picture.image();
    if (const img_status status = w.picture.get_palette(w.palette)) return status;
    const uint32_t ncolors = std::min(image.ncolors, 1u << bits_per_pixel(image.format));
    png_color colors[max_colors];
    for (uint32_t i = 0; i < ncolors; i++) {
        colors[i] = {static_cast<png_byte>(w.palette[i] >> 16), static_cast<png_byte>(w.palette[i] >> 8),
                     static_cast<png_byte>(w.palette[i])};
        w.alpha[i] = w.picture.has(IMG_F_PAL_ALPHA) ? static_cast<png_byte>(w.palette[i] >> 24) : png_byte{0xff};
    }
    if (w.picture.has(IMG_F_TRANSP)) {
        uint8_t key[4];
        if (const img_status status = w.picture.get_transparency(key)) return status;
        if (key[0] >= ncolors) return bad_record;
        w.alpha[key[0]] = 0;
    }
    png_set_PLTE(w.png, w.info, colors, static_cast<int>(ncolors));
    uint32_t alphas = ncolors;
    while (alphas && w.alpha[alphas - 1] == 0xff) alphas--;
    if (alphas) png_set_tRNS(w.png, w.info, w.alpha, static_cast<int>(alphas), nullptr);
    return ok;
}

img_status write_key(Writer &w, const Layout *layout) {
    uint8_t pixel[4];
    if (const img_status status = w.picture.get_transparency(pixel)) return status;
    png_color_16 key{};
    if (layout) {
        const ColorBytes at = color_bytes(*layout);
        key.red = pixel[at.red];
        key.green = pixel[at.green];
        key.blue = pixel[at.blue];
    } else {
        key.gray = pixel[0];
    }
    png_set_tRNS(w.png, w.info, nullptr, 0, &key);
    return ok;
}

img_status write_header(Writer &w, const Layout *layout) {
    const img_record &image = w.picture.image();
    const bool indexed = image.format & IMG_FMT_PAL, alpha = image.format & IMG_FMT_ALPHA;
    const int depth = indexed ? static_cast<int>(bits_per_pixel(image.format)) : 8;
    const int color_type = indexed   ? PNG_COLOR_TYPE_PALETTE
                           : !layout ? PNG_COLOR_TYPE_GRAY
                           : alpha   ? PNG_COLOR_TYPE_RGB_ALPHA
                                     : PNG_COLOR_TYPE_RGB;
    png_set_IHDR(w.png, w.info, image.width, image.height, depth, color_type,
                 w.interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    img_status status = set_metadata(w);
    if (status) return status;
    if (indexed)
        status = write_palette(w);
    else if (!alpha && w.picture.has(IMG_F_TRANSP))
        status = write_key(w, layout);
    if (status) return status;
    png_write_info(w.png, w.info);
    if (!layout) return ok;
    if (layout->blue_first) png_set_bgr(w.png);
    if (layout->fourth == Fourth::none) return ok;
    if (!alpha) png_set_filler(w.png, 0, layout->fourth == Fourth::last ? PNG_FILLER_AFTER : PNG_FILLER_BEFORE);
    if (alpha && layout->fourth == Fourth::first) png_set_swap_alpha(w.png);
    return ok;
}

img_status ask_for_options(Writer &w) {
    img_option level = number_option("level", "effort to make the file small", 0, 9, 4);
    img_option interlace = switch_option("interlace", "in seven passes, the first of which show all of the picture");
    img_option filter = choice_option("filter", "how pixels are predicted", "auto:none:sub:up:average:paeth", 6, 0);
    for (img_option *option : {&level, &interlace, &filter})
        if (const img_status status = w.picture.ask(*option)) return status;
    w.level = level.value;
    w.interlace = interlace.value;
    w.filter = filter.value;
    return ok;
}

void set_options(const Writer &w) {
    constexpr int filters[] = {0, PNG_FILTER_NONE, PNG_FILTER_SUB, PNG_FILTER_UP, PNG_FILTER_AVG, PNG_FILTER_PAETH};
    if (w.filter) png_set_filter(w.png, PNG_FILTER_TYPE_BASE, filters[w.filter]);
    png_set_compression_level(w.png, w.level);
}

// Indices are tested because readers refuse a file with some that have no entry.
img_status write_row(const Writer &w, const uint8_t *row) {
    const img_record &image = w.picture.image();
    if ((image.format & IMG_FMT_PAL) && !indices_below(row, bits_per_pixel(image.format), image.width, image.ncolors))
        return bad_record;
    png_write_row(w.png, row);
    return ok;
}

img_status write_rows(Writer &w) {
    const uint32_t height = w.picture.image().height;
    for (uint32_t y = 0; y < height; y++) {
        if (const img_status status = write_row(w, w.picture.fetch(y))) return status;
        if (const img_status status = w.picture.progress(y + 1)) return status;
    }
    return ok;
}

// Each pass takes pixels of all rows, but an access function gives each row once.
img_status write_passes(Writer &w) {
    const img_record &image = w.picture.image();
    const size_t bytes = row_bytes(image.format, image.width);
    if (!(image.flags & IMG_F_DIRECT)) {
        if (!(w.whole = make_bytes(bytes * image.height))) return no_memory;
        for (uint32_t y = 0; y < image.height; y++) memcpy(w.whole.get() + bytes * y, w.picture.fetch(y), bytes);
    }
    const auto passes = static_cast<uint32_t>(png_set_interlace_handling(w.png));
    for (uint32_t pass = 0; pass < passes; pass++)
        for (uint32_t y = 0; y < image.height; y++) {
            const uint8_t *row = w.whole ? w.whole.get() + bytes * y : w.picture.fetch(y);
            if (const img_status status = write_row(w, row)) return status;
            const auto rows_worth = static_cast<uint32_t>((uint64_t{pass} * image.height + y + 1) / passes);
            if (const img_status status = w.picture.progress(rows_worth)) return status;
        }
    return ok;
}

img_status encode(Writer &w) {
    w.failure = bad_record;
    png_set_write_fn(w.png, &w, write_bytes, flush_nothing);
    if (const img_status status = ask_for_options(w)) return status;
    if (const img_status status = ask_for_metadata(w)) return status;
    Offer offer;
    for (const img_format format : {FMT_PAL1, FMT_PAL4, FMT_PAL8, FMT_G8}) offer.add(format);
    offer.add(opaque_layouts);
    offer.add(alpha_layouts);
    if (const img_status status = w.picture.choose_and_set_up(offer.formats(), offer.count())) return status;
    set_options(w);
    if (const img_status status = write_header(w, layout_of(w.picture.image().format))) return status;
    if (const img_status status = w.interlace ? write_passes(w) : write_rows(w)) return status;
    png_write_end(w.png, nullptr);
    return ok;
}

} // namespace

img_status png_encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **) {
    const auto writer = make<Writer>();
    if (!writer) return no_memory;
    if (const img_status status = writer->picture.begin(*callouts, *image)) return status;
    writer->stream = stream;
    writer->png = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, writer.get(), on_error, on_warning, writer.get(),
                                            allocate, release);
    if (writer->png) writer->info = png_create_info_struct(writer->png);
    if (!writer->info) return no_memory;
    return guarded(*writer, encode);
}

} // namespace module
