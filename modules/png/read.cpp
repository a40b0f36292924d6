// SPDX-License-Identifier: MIT
//
// The reading side of the PNG module.
#include "modules/png/png.h"

#include <algorithm>

namespace png {

namespace {

// Bytes that libpng may allocate for all texts and profiles of a file on one side of its pixels, whatever they were
// compressed to.
constexpr size_t values_allowance = 64 << 20;
constexpr png_alloc_size_t max_chunk_bytes = 8'000'000;

} // namespace

void State::on_error(png_structp png, png_const_charp) { static_cast<State *>(png_get_error_ptr(png))->leave(); }

void State::on_warning(png_structp png, png_const_charp text) {
    auto &state = *static_cast<State *>(png_get_error_ptr(png));
    if (!state.warning_[0]) strncpy(state.warning_, text, sizeof state.warning_ - 1);
    if (state.strict_) state.leave();
}

png_voidp State::allocate(png_structp png, png_alloc_size_t size) {
    auto &state = *static_cast<State *>(png_get_mem_ptr(png));
    if (size > state.allowance_) return nullptr;
    state.allowance_ -= size;
    void *block = malloc(size);
    if (!block) state.failure_ = no_memory;
    return block;
}

void State::release(png_structp, png_voidp block) { free(block); }

void Reader::read_bytes(png_structp png, png_bytep dst, size_t length) {
    const auto &reader = *static_cast<Reader *>(png_get_io_ptr(png));
    if (read_up_to(reader.stream_, dst, length) != length) png_error(png, "the data ends too early");
}

bool Reader::recognises(const Signature &start) { return start.length >= 8 && png_sig_cmp(start.bytes, 0, 8) == 0; }

// The properties of the file that decide which formats are offered.
struct Reader::Source {
    uint32_t depth;
    bool indexed, grey;
    bool transparency; // a tRNS chunk
    bool has_alpha;    // an alpha channel, or a key of 16 bits, which the top bytes alone would match too often
    bool has_key;      // a key that 8 bits express
    png_colorp colors;
    uint32_t ncolors; // 0 unless indexed
    png_bytep entry_alpha;
    uint32_t entry_alphas;
    png_color_16p key;
};

img_status Reader::describe(Source &s) const {
    const auto color_type = png_get_color_type(png_, info_);
    s = {};
    s.depth = png_get_bit_depth(png_, info_);
    s.indexed = color_type == PNG_COLOR_TYPE_PALETTE;
    s.grey = !(color_type & PNG_COLOR_MASK_COLOR);
    int entries = 0, alphas = 0;
    s.transparency = png_get_tRNS(png_, info_, &s.entry_alpha, &alphas, &s.key) != 0;
    s.has_alpha = (color_type & PNG_COLOR_MASK_ALPHA) || (s.transparency && s.depth == 16);
    s.has_key = s.transparency && !s.indexed && !s.has_alpha;
    if (!s.indexed) return ok;
    if (!png_get_PLTE(png_, info_, &s.colors, &entries) || !entries) return damaged;
    s.ncolors = static_cast<uint32_t>(entries);
    s.entry_alphas = std::min(static_cast<uint32_t>(alphas), s.ncolors);
    return ok;
}

// The file's own format first. Indices are not offered as colours: the library expands them as well.
Offer Reader::offer_for(const Source &source) const {
    Offer offer;
    if (source.indexed) {
        if (source.depth == 1) offer.add(FMT_PAL1);
        if (source.depth == 4) offer.add(FMT_PAL4);
        offer.add(FMT_PAL8);
        return offer;
    }
    const bool alpha_first = source.has_alpha || (source.has_key && (picture_.record().flags & IMG_F_WANT_ALPHA));
    if (alpha_first) offer.add(alpha_layouts);
    if (source.grey) offer.add(FMT_G8);
    offer.add(opaque_layouts);
    if (source.has_key && !alpha_first) offer.add(alpha_layouts);
    return offer;
}

img_status Reader::set_palette(const Source &source) {
    for (uint32_t i = 0; i < source.ncolors; i++) {
        const png_color &color = source.colors[i];
        palette_[i] = 0xff000000u | uint32_t{color.red} << 16 | uint32_t{color.green} << 8 | color.blue;
    }
    for (uint32_t i = 0; i < source.entry_alphas; i++)
        palette_[i] = (palette_[i] & 0xffffff) | uint32_t{source.entry_alpha[i]} << 24;
    return picture_.set_palette(palette_);
}

// Hands over the colour key: a grey as a number, a colour as a pixel in the memory layout of the chosen format.
void Reader::set_key(const Source &source) const {
    const png_color_16 &key = *source.key;
    const uint32_t highest = (1u << source.depth) - 1; // 1, 3, 15 or 255, all of which divide 255
    const uint32_t grey = (key.gray & highest) * (255 / highest);
    const Layout *layout = layout_of(picture_.record().format);
    if (!layout) return picture_.set_transparency(grey);
    uint8_t pixel[4] = {0xff, 0xff, 0xff, 0xff};
    const ColorBytes at = color_bytes(*layout);
    pixel[at.red] = static_cast<uint8_t>(source.grey ? grey : key.red);
    pixel[at.green] = static_cast<uint8_t>(source.grey ? grey : key.green);
    pixel[at.blue] = static_cast<uint8_t>(source.grey ? grey : key.blue);
    uint32_t value;
    memcpy(&value, pixel, sizeof value);
    picture_.set_transparency(value);
}

// Has libpng convert the file's pixels to the chosen format.
void Reader::set_transformations(const Source &source) const {
    const img_format format = picture_.record().format;
    png_set_strip_16(png_);
    if (source.indexed) {
        if (format == FMT_PAL8) png_set_packing(png_);
        return;
    }
    const bool alpha = format & IMG_FMT_ALPHA;
    if (source.grey && source.depth < 8) png_set_expand_gray_1_2_4_to_8(png_);
    if (alpha && source.transparency) png_set_tRNS_to_alpha(png_);
    if (!alpha) png_set_strip_alpha(png_);
    const Layout *layout = layout_of(format);
    if (!layout) return;
    if (source.grey) png_set_gray_to_rgb(png_);
    if (layout->blue_first) png_set_bgr(png_);
    if (layout->fourth == Fourth::none) return;
    if (!alpha) png_set_filler(png_, 0xff, layout->fourth == Fourth::last ? PNG_FILLER_AFTER : PNG_FILLER_BEFORE);
    if (alpha && layout->fourth == Fourth::first) png_set_swap_alpha(png_);
}

img_status Reader::read_rows() {
    const uint32_t height = picture_.record().height;
    for (uint32_t y = 0; y < height; y++) {
        png_read_row(png_, picture_.row(y), nullptr);
        if (const img_status status = picture_.deliver(y)) return status;
    }
    return ok;
}

uint8_t *Reader::held_row(uint32_t y) const {
    const img_record &record = picture_.record();
    return whole_ ? whole_.get() + row_bytes(record.format, record.width) * y : picture_.row(y);
}

// Each pass adds pixels all over the image and fills the gaps between them with blocks. So rows are complete only after
// the last pass, but show something if the data ends before.
img_status Reader::read_passes(uint32_t passes) {
    const img_record &record = picture_.record();
    if (!(record.flags & IMG_F_DIRECT)) {
        const size_t bytes = row_bytes(record.format, record.width) * record.height;
        if (const img_status status = picture_.hold(bytes)) return status;
        whole_size_ = bytes;
        if (!(whole_ = make_bytes(bytes))) return no_memory;
    }
    held_ = true;
    for (uint32_t pass = 0; pass < passes; pass++)
        for (uint32_t y = 0; y < record.height; y++) {
            png_read_row(png_, nullptr, held_row(y));
            const auto rows_worth = static_cast<uint32_t>((uint64_t{pass} * record.height + y + 1) / passes);
            if (const img_status status = picture_.progress(rows_worth)) return status;
        }
    return ok;
}

img_status Reader::hand_over_held() {
    const img_record &record = picture_.record();
    for (uint32_t y = 0; y < record.height; y++) {
        if (whole_) memcpy(picture_.row(y), held_row(y), row_bytes(record.format, record.width));
        if (const img_status status = picture_.hand_over(y)) return status;
    }
    return ok;
}

// libpng inflates compressed bytes in portions, and loses a portion that the data ends in. Small portions save the rows
// before the end.
void Reader::set_portion() const {
    const uint64_t bytes = uint64_t{png_get_rowbytes(png_, info_)} * png_get_image_height(png_, info_);
    png_set_compression_buffer_size(png_, std::clamp<uint64_t>(bytes / 64, 64, 8192));
}

img_status Reader::decode() {
    State *const state = this;
    png_ = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, state, on_error, on_warning, state, allocate, release);
    if (png_) info_ = png_create_info_struct(png_);
    if (!info_) return no_memory;
    failure_ = damaged;
    png_set_read_fn(png_, this, read_bytes);
    png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX); // tested with a status of its own
    png_set_chunk_malloc_max(png_, max_chunk_bytes);
    keep_values();
    allowance_ = values_allowance;
    png_read_info(png_, info_);
    allowance_ = SIZE_MAX;
    if (const img_status status = report_values(When::before_pixels)) return status;
    const uint32_t width = png_get_image_width(png_, info_), height = png_get_image_height(png_, info_);
    Source source;
    if (const img_status status = describe(source)) return status;
    const Offer offer = offer_for(source);
    if (const img_status status = picture_.choose(width, height, source.ncolors, offer.formats(), offer.count()))
        return status;
    if (const img_status status = picture_.setup()) return status;
    if (source.indexed) {
        if (const img_status status = set_palette(source)) return status;
    } else if (source.has_key && !(picture_.record().format & IMG_FMT_ALPHA)) {
        set_key(source);
    }
    set_portion();
    set_transformations(source);
    const auto passes = static_cast<uint32_t>(png_set_interlace_handling(png_));
    png_read_update_info(png_, info_);
    if (const img_status status = passes > 1 ? read_passes(passes) : read_rows()) return status;
    allowance_ = values_allowance;
    png_read_end(png_, picture_.listens() ? info_ : nullptr);
    return report_values(When::after_pixels);
}

img_status ask_strict(const Decoding &picture, bool &strict) {
    img_option option = switch_option("strict", "refuse files with damage that does not touch the pixels");
    const img_status status = picture.ask(option);
    strict = option.value;
    return status;
}

img_status Reader::read(bool strict) {
    strict_ = strict;
    const img_status status = guarded([this] { return decode(); });
    if (!held_ || (status != ok && status != damaged)) return status;
    const img_status handed_over = hand_over_held();
    return status ? status : handed_over;
}

img_status Reader::frame() {
    bool strict;
    const img_status status = ask_strict(picture_, strict);
    return status ? status : read(strict);
}

} // namespace png
