// SPDX-License-Identifier: MIT
//
// The PNG codec module, on libpng: its entry and the reading side.
#include "modules/png/png.h"

#include <algorithm>

using namespace module;

void module::on_error(png_structp png, png_const_charp) { png_longjmp(png, 1); }

void module::on_warning(png_structp png, png_const_charp text) {
    auto &state = *static_cast<State *>(png_get_error_ptr(png));
    if (!state.warning[0]) strncpy(state.warning, text, sizeof state.warning - 1);
    if (state.strict) png_longjmp(png, 1);
}

png_voidp module::allocate(png_structp png, png_alloc_size_t size) {
    auto &state = *static_cast<State *>(png_get_mem_ptr(png));
    if (size > state.allowance) return nullptr;
    state.allowance -= size;
    void *block = malloc(size);
    if (!block) state.failure = no_memory;
    return block;
}

void module::release(png_structp, png_voidp block) { free(block); }

namespace {

constexpr png_alloc_size_t max_chunk_bytes = 8'000'000;

void read_bytes(png_structp png, png_bytep dst, size_t length) {
    const auto &state = *static_cast<State *>(png_get_io_ptr(png));
    if (read_up_to(*state.stream, dst, length) != length) png_error(png, "the data ends too early");
}

img_status decode_validate(io_handle *stream) {
    Signature signature;
    if (const img_status status = peek(*stream, signature)) return status;
    return signature.length >= 8 && png_sig_cmp(signature.bytes, 0, 8) == 0 ? ok : wrong_format;
}

// What of the file decides how it is offered.
struct Source {
    uint32_t depth;
    bool indexed, grey;
    bool transparency; // a tRNS chunk
    bool has_alpha;    // an alpha channel, or a key of 16 bits, which the top bytes alone would match too often
    bool has_key;      // a key that 8 bits express
    uint32_t ncolors;  // 0 unless indexed
    png_bytep entry_alpha;
    int entry_alphas;
    png_color_16p key;
};

Source describe(const Reader &r) {
    const auto color_type = png_get_color_type(r.png, r.info);
    Source s{};
    s.depth = png_get_bit_depth(r.png, r.info);
    s.indexed = color_type == PNG_COLOR_TYPE_PALETTE;
    s.grey = !(color_type & PNG_COLOR_MASK_COLOR);
    s.transparency = png_get_tRNS(r.png, r.info, &s.entry_alpha, &s.entry_alphas, &s.key) != 0;
    s.has_alpha = (color_type & PNG_COLOR_MASK_ALPHA) || (s.transparency && s.depth == 16);
    s.has_key = s.transparency && !s.indexed && !s.has_alpha;
    png_colorp colors;
    int ncolors = 0;
    if (s.indexed && png_get_PLTE(r.png, r.info, &colors, &ncolors)) s.ncolors = static_cast<uint32_t>(ncolors);
    return s;
}

// The file's own format first. Indices are not offered as colours: the library expands them as well, and checked.
Offer offer_for(const Source &source, bool want_alpha) {
    Offer offer;
    if (source.indexed) {
        if (source.depth == 1) offer.add(FMT_PAL1);
        if (source.depth == 4) offer.add(FMT_PAL4);
        offer.add(FMT_PAL8);
        return offer;
    }
    const bool alpha_first = source.has_alpha || (source.has_key && want_alpha);
    if (alpha_first) offer.add(alpha_layouts);
    if (source.grey) offer.add(FMT_G8);
    offer.add(opaque_layouts);
    if (source.has_key && !alpha_first) offer.add(alpha_layouts);
    return offer;
}

// The palette and its alpha. A single fully transparent entry becomes the colour key, unless the caller wants alpha: the
// library makes alpha of a key only in host byte order.
img_status hand_over_palette(Reader &r, const Source &source) {
    png_colorp colors;
    int ncolors;
    png_get_PLTE(r.png, r.info, &colors, &ncolors);
    for (int i = 0; i < ncolors; i++)
        r.palette[i] = 0xff000000u | uint32_t{colors[i].red} << 16 | uint32_t{colors[i].green} << 8 | colors[i].blue;

    const png_bytep begin = source.entry_alpha, end = begin + std::min(source.entry_alphas, ncolors);
    const auto seen = std::count_if(begin, end, [](png_byte alpha) { return alpha != 0xff; });
    const png_bytep clear = std::find(begin, end, 0);
    const bool as_key = seen == 1 && clear != end && !(r.picture.record().flags & IMG_F_WANT_ALPHA);
    if (seen && !as_key) {
        for (png_bytep alpha = begin; alpha != end; alpha++)
            r.palette[alpha - begin] = (r.palette[alpha - begin] & 0xffffff) | uint32_t{*alpha} << 24;
        r.picture.add_flags(IMG_F_PAL_ALPHA);
    }
    if (const img_status status = r.picture.set_palette(r.palette)) return status;
    if (as_key) r.picture.set_transparency(static_cast<uint32_t>(clear - begin));
    return ok;
}

// The colour key: a grey as a number, a colour as a pixel of the chosen format lies in memory.
void hand_over_key(const Reader &r, const Source &source) {
    const png_color_16 &key = *source.key;
    const uint32_t highest = (1u << source.depth) - 1; // 1, 3, 15 or 255, all of which divide 255
    const uint32_t grey = (key.gray & highest) * (255 / highest);
    const Layout *layout = layout_of(r.picture.record().format);
    if (!layout) return r.picture.set_transparency(grey);
    uint8_t pixel[4] = {0xff, 0xff, 0xff, 0xff};
    const ColorBytes at = color_bytes(*layout);
    pixel[at.red] = static_cast<uint8_t>(source.grey ? grey : key.red);
    pixel[at.green] = static_cast<uint8_t>(source.grey ? grey : key.green);
    pixel[at.blue] = static_cast<uint8_t>(source.grey ? grey : key.blue);
    uint32_t value;
    memcpy(&value, pixel, sizeof value);
    r.picture.set_transparency(value);
}

// Has libpng turn what the file holds into the chosen format.
void set_transformations(const Reader &r, const Source &source) {
    const img_format format = r.picture.record().format;
    png_set_strip_16(r.png);
    if (source.indexed) {
        if (format == FMT_PAL8) png_set_packing(r.png);
        return;
    }
    const bool alpha = format & IMG_FMT_ALPHA;
    if (source.grey && source.depth < 8) png_set_expand_gray_1_2_4_to_8(r.png);
    if (alpha && source.transparency) png_set_tRNS_to_alpha(r.png);
    if (!alpha) png_set_strip_alpha(r.png);
    const Layout *layout = layout_of(format);
    if (!layout) return;
    if (source.grey) png_set_gray_to_rgb(r.png);
    if (layout->blue_first) png_set_bgr(r.png);
    if (layout->fourth == Fourth::none) return;
    if (!alpha) png_set_filler(r.png, 0xff, layout->fourth == Fourth::last ? PNG_FILLER_AFTER : PNG_FILLER_BEFORE);
    if (alpha && layout->fourth == Fourth::first) png_set_swap_alpha(r.png);
}

// Hands over the row decoded at row(y), unless it has indices beyond the palette.
img_status hand_over(const Reader &r, uint32_t y) {
    const img_record &record = r.picture.record();
    if ((record.format & IMG_FMT_PAL) &&
        !indices_below(r.picture.row(y), bits_per_pixel(record.format), record.width, record.ncolors))
        return damaged;
    r.picture.hand_over(y);
    return ok;
}

img_status read_rows(Reader &r) {
    const uint32_t height = r.picture.record().height;
    for (uint32_t y = 0; y < height; y++) {
        png_read_row(r.png, r.picture.row(y), nullptr);
        if (const img_status status = hand_over(r, y)) return status;
        if (const img_status status = r.picture.progress(y + 1)) return status;
    }
    return ok;
}

uint8_t *held_row(const Reader &r, uint32_t y) {
    const img_record &record = r.picture.record();
    return r.whole ? r.whole.get() + row_bytes(record.format, record.width) * y : r.picture.row(y);
}

// Each pass adds pixels all over the image and fills the gaps between them with blocks, so rows are complete only at the
// end, but show something when there is no end.
img_status read_passes(Reader &r, uint32_t passes) {
    const img_record &record = r.picture.record();
    if (!(record.flags & IMG_F_DIRECT) &&
        !(r.whole = make_bytes(row_bytes(record.format, record.width) * record.height)))
        return no_memory;
    r.held = true;
    for (uint32_t pass = 0; pass < passes; pass++)
        for (uint32_t y = 0; y < record.height; y++) {
            png_read_row(r.png, nullptr, held_row(r, y));
            const auto rows_worth = static_cast<uint32_t>((uint64_t{pass} * record.height + y + 1) / passes);
            if (const img_status status = r.picture.progress(rows_worth)) return status;
        }
    return ok;
}

img_status hand_over_held(const Reader &r) {
    const img_record &record = r.picture.record();
    for (uint32_t y = 0; y < record.height; y++) {
        if (r.whole) memcpy(r.picture.row(y), held_row(r, y), row_bytes(record.format, record.width));
        if (const img_status status = hand_over(r, y)) return status;
    }
    return ok;
}

// libpng inflates compressed bytes in portions, and loses the last one when the data ends within: a small part of the
// picture, so that the rows before are not lost with it.
void set_portion(const Reader &r) {
    const uint64_t bytes = uint64_t{png_get_rowbytes(r.png, r.info)} * png_get_image_height(r.png, r.info);
    png_set_compression_buffer_size(r.png, std::clamp<uint64_t>(bytes / 64, 64, 8192));
}

img_status decode(Reader &r) {
    r.failure = damaged;
    png_set_read_fn(r.png, &r, read_bytes);
    png_set_user_limits(r.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX); // tested with a status of its own
    png_set_chunk_malloc_max(r.png, max_chunk_bytes);
    keep_values(r);
    r.allowance = values_allowance;
    png_read_info(r.png, r.info);
    r.allowance = SIZE_MAX;
    if (const img_status status = report_values(r, When::before_pixels)) return status;
    const uint32_t width = png_get_image_width(r.png, r.info), height = png_get_image_height(r.png, r.info);
    const Source source = describe(r);
    const Offer offer = offer_for(source, r.picture.record().flags & IMG_F_WANT_ALPHA);
    if (const img_status status = r.picture.choose(width, height, source.ncolors, offer.formats(), offer.count()))
        return status;
    if (const img_status status = r.picture.setup()) return status;
    if (source.indexed) {
        if (const img_status status = hand_over_palette(r, source)) return status;
    } else if (source.has_key && !(r.picture.record().format & IMG_FMT_ALPHA)) {
        hand_over_key(r, source);
    }
    set_portion(r);
    set_transformations(r, source);
    const auto passes = static_cast<uint32_t>(png_set_interlace_handling(r.png));
    png_read_update_info(r.png, r.info);
    if (const img_status status = passes > 1 ? read_passes(r, passes) : read_rows(r)) return status;
    r.allowance = values_allowance;
    png_read_end(r.png, r.values ? r.info : nullptr);
    return report_values(r, When::after_pixels);
}

img_status decode_frame(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **) {
    if (const img_status status = decode_validate(stream)) return status;
    const auto reader = make<Reader>();
    if (!reader) return no_memory;
    reader->stream = stream;
    reader->picture.begin(*callouts, *record);
    reader->values = callouts->set_value;
    img_option strict = switch_option("strict", "refuse files with damage that does not touch the pixels");
    if (const img_status status = reader->picture.ask(strict)) return status;
    reader->strict = strict.value;
    reader->png = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, reader.get(), on_error, on_warning, reader.get(),
                                           allocate, release);
    if (reader->png) reader->info = png_create_info_struct(reader->png);
    if (!reader->info) return no_memory;
    const img_status status = guarded(*reader, decode);
    if (!reader->held || (status != ok && status != damaged)) return status;
    const img_status handed_over = hand_over_held(*reader);
    return status ? status : handed_over;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(
        table, size,
        {decode_validate, want_large_buffer, decode_frame, nullptr, want_large_buffer, png_encode_frame, nullptr});
}
