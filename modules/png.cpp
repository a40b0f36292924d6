// SPDX-License-Identifier: MIT
//
// The PNG codec module, on libpng.
//
// libpng reports errors by longjmp. It is called from guarded() only; what runs inside has no object with a destructor, and
// everything that changes there lives in the state on the heap, which is released after the jump.
#include "modules/layout.h"

#include <algorithm>
#include <png.h>
#include <string.h>

using namespace module;

namespace {

constexpr png_alloc_size_t max_chunk_bytes = 8'000'000;

// ---- libpng ----

struct State {
    png_structp png = nullptr;
    png_infop info = nullptr;
    io_handle *stream = nullptr;
    img_status failure = 0; // what a jump out of libpng means

    State() = default;
    State(const State &) = delete;
    State &operator=(const State &) = delete;
};

struct Reader : State {
    Decoding picture;
    Bytes whole; // an interlaced image that cannot be decoded in place
    uint32_t palette[PNG_MAX_PALETTE_LENGTH];
    bool jumping_rows() const { return png_get_interlace_type(png, info) != PNG_INTERLACE_NONE; }
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

struct Writer : State {
    Encoding picture;
    uint32_t palette[max_colors];
    png_byte alpha[max_colors];
    ~Writer() { png_destroy_write_struct(&png, &info); }
};

[[noreturn]] void on_error(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void on_warning(png_structp, png_const_charp) {}

png_voidp allocate(png_structp png, png_alloc_size_t size) {
    void *block = malloc(size);
    if (!block) static_cast<State *>(png_get_mem_ptr(png))->failure = no_memory;
    return block;
}
void release(png_structp, png_voidp block) { free(block); }

void read_bytes(png_structp png, png_bytep dst, size_t length) {
    const auto &state = *static_cast<State *>(png_get_io_ptr(png));
    if (read_up_to(*state.stream, dst, length) != length) png_error(png, "the data ends too early");
}

void write_bytes(png_structp png, png_bytep src, size_t length) {
    auto &state = *static_cast<State *>(png_get_io_ptr(png));
    if (write_all(*state.stream, src, length)) return;
    state.failure = write_failed;
    png_error(png, "the stream takes no more");
}

void flush_nothing(png_structp) {} // flushing is the business of the stream's owner

// Runs a step that calls libpng.
template <typename S> img_status guarded(S &state, img_status (*step)(S &)) {
    if (setjmp(png_jmpbuf(state.png))) return state.failure;
    return step(state);
}

// ---- Decoding ----

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

// The colour key as a pixel of the chosen format, the way it lies in memory.
void hand_over_key(const Reader &r, const Source &source) {
    const png_color_16 &key = *source.key;
    uint8_t pixel[4] = {0xff, 0xff, 0xff, 0xff};
    const uint32_t highest = (1u << source.depth) - 1; // 1, 3, 15 or 255, all of which divide 255
    const uint32_t grey = (key.gray & highest) * (255 / highest);
    const Layout *layout = layout_of(r.picture.record().format);
    if (!layout) {
        pixel[0] = static_cast<uint8_t>(grey);
    } else {
        const ColorBytes at = color_bytes(*layout);
        pixel[at.red] = static_cast<uint8_t>(source.grey ? grey : key.red);
        pixel[at.green] = static_cast<uint8_t>(source.grey ? grey : key.green);
        pixel[at.blue] = static_cast<uint8_t>(source.grey ? grey : key.blue);
    }
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
img_status hand_over(const Reader &r, const Source &source, uint32_t y) {
    const img_record &record = r.picture.record();
    if (source.indexed && !indices_below(r.picture.row(y), bits_per_pixel(record.format), record.width, source.ncolors))
        return damaged;
    r.picture.hand_over(y);
    return ok;
}

img_status read_rows(Reader &r, const Source &source) {
    const uint32_t height = r.picture.record().height;
    for (uint32_t y = 0; y < height; y++) {
        png_read_row(r.png, r.picture.row(y), nullptr);
        if (const img_status status = hand_over(r, source, y)) return status;
        if (const img_status status = r.picture.progress(y + 1)) return status;
    }
    return ok;
}

// Each pass adds pixels all over the image, so rows are complete only at the end.
img_status read_passes(Reader &r, const Source &source, uint32_t passes) {
    const img_record &record = r.picture.record();
    const bool in_place = record.flags & IMG_F_DIRECT;
    const size_t bytes = row_bytes(record.format, record.width);
    if (!in_place && !(r.whole = make_bytes(bytes * record.height))) return no_memory;
    const auto row = [&](uint32_t y) { return in_place ? r.picture.row(y) : r.whole.get() + bytes * y; };
    for (uint32_t pass = 0; pass < passes; pass++)
        for (uint32_t y = 0; y < record.height; y++) {
            png_read_row(r.png, row(y), nullptr);
            const uint32_t rows_worth = (pass * record.height + y + 1) / passes;
            if (const img_status status = r.picture.progress(rows_worth)) return status;
        }
    for (uint32_t y = 0; y < record.height; y++) {
        if (!in_place) memcpy(r.picture.row(y), row(y), bytes);
        if (const img_status status = hand_over(r, source, y)) return status;
    }
    return ok;
}

img_status decode(Reader &r) {
    png_set_sig_bytes(r.png, 8);
    png_read_info(r.png, r.info);
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
    set_transformations(r, source);
    const auto passes = static_cast<uint32_t>(png_set_interlace_handling(r.png));
    png_read_update_info(r.png, r.info);
    const img_status status = r.jumping_rows() ? read_passes(r, source, passes) : read_rows(r, source);
    if (status == ok) png_read_end(r.png, nullptr);
    return status;
}

img_status decode_frame(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **) {
    uint8_t signature[8];
    if (read_up_to(*stream, signature, sizeof signature) != sizeof signature ||
        png_sig_cmp(signature, 0, sizeof signature) != 0)
        return wrong_format;
    const auto reader = make<Reader>();
    if (!reader) return no_memory;
    reader->stream = stream;
    reader->failure = no_memory;
    reader->picture.begin(*callouts, *record);
    reader->png =
        png_create_read_struct_2(PNG_LIBPNG_VER_STRING, nullptr, on_error, on_warning, reader.get(), allocate, release);
    if (reader->png) reader->info = png_create_info_struct(reader->png);
    if (!reader->info) return no_memory;
    png_set_read_fn(reader->png, reader.get(), read_bytes);
    png_set_user_limits(reader->png, PNG_UINT_31_MAX, PNG_UINT_31_MAX); // tested with a status of its own
    png_set_chunk_malloc_max(reader->png, max_chunk_bytes);
    png_set_keep_unknown_chunks(reader->png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1); // of the ancillary ones, only tRNS
    reader->failure = damaged;
    return guarded(*reader, decode);
}

// ---- Encoding ----

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
    png_set_IHDR(w.png, w.info, image.width, image.height, depth, color_type, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    img_status status = ok;
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

img_status encode(Writer &w) {
    Offer offer;
    for (const img_format format : {FMT_PAL1, FMT_PAL4, FMT_PAL8, FMT_G8}) offer.add(format);
    offer.add(opaque_layouts);
    offer.add(alpha_layouts);
    if (const img_status status = w.picture.choose_and_set_up(offer.formats(), offer.count())) return status;
    const img_record &image = w.picture.image();
    if (const img_status status = write_header(w, layout_of(image.format))) return status;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = w.picture.fetch(y);
        if ((image.format & IMG_FMT_PAL) &&
            !indices_below(row, bits_per_pixel(image.format), image.width, image.ncolors))
            return bad_record; // readers refuse such a file
        png_write_row(w.png, row);
        if (const img_status status = w.picture.progress(y + 1)) return status;
    }
    png_write_end(w.png, nullptr);
    return ok;
}

img_status encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **) {
    const auto writer = make<Writer>();
    if (!writer) return no_memory;
    if (const img_status status = writer->picture.begin(*callouts, *image)) return status;
    writer->stream = stream;
    writer->failure = no_memory;
    writer->png = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, nullptr, on_error, on_warning, writer.get(),
                                            allocate, release);
    if (writer->png) writer->info = png_create_info_struct(writer->png);
    if (!writer->info) return no_memory;
    png_set_write_fn(writer->png, writer.get(), write_bytes, flush_nothing);
    writer->failure = bad_record;
    return guarded(*writer, encode);
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    if (size < sizeof *table) return unsupported;
    *table = {decode_validate, want_large_buffer, decode_frame, nullptr, want_large_buffer, encode_frame, nullptr};
    return ok;
}
