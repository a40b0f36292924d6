// SPDX-License-Identifier: MIT
//
// The default callouts of decoding. They fill the caller's record from what a codec reports, and call the caller's own
// callouts with the caller's data and record.
#include "codec/decode.h"

#include "codec/negotiate.h"

#include <string.h>

using namespace img;

namespace {

DecodeContext &context_of(void *data) { return *static_cast<DecodeContext *>(data); }

// Drops the caller's size where it is only a hint and the codec has one.
// Kept: With IMG_F_SIZE_HINT the file's size replaces the caller's even if the caller brought the buffer.
void release_hinted_size(img_record &record, const img_record &image) {
    if (has(record, IMG_F_SIZE_HINT)) record.flags &= ~(image.flags & size_flags);
}

uint32_t dflt_choose_format(void *data, img_record *image, const img_format *formats, uint32_t count) {
    DecodeContext &context = context_of(data);
    img_record &record = *context.record;
    release_hinted_size(record, *image);
    imgcpy(record, *image, size_flags | IMG_F_CODEC_MARK);
    if (!has(*image, IMG_F_FORMAT)) {
        const auto &caller = *context.caller;
        if (!caller.choose_format) return 0;
        const uint32_t index = caller.choose_format(caller.data, &record, formats, count);
        if (has(*image, IMG_F_SIZE_HINT)) {
            image->width = record.width;
            image->height = record.height;
        }
        if (index < count || !has(record, IMG_F_FORMAT)) return index;
        image->flags |= IMG_F_FORMAT;
        image->format = record.format;
    }
    const img_format target = image->format;
    const uint32_t exact = find_format(target, formats, count);
    if (exact < count) return exact;
    return closest_format(target, formats, count, [&](img_format format) { return convertible(format, target); });
}

// Decides where rows go: in order into the caller's buffer, or through a line of scratch memory, whose size in bytes is
// returned.
uint64_t place_rows(DecodeContext &context, const img_record &image, uint32_t setup_flags) {
    const img_record &record = *context.record;
    if (has(record, IMG_F_ACCESS)) {
        context.line_width = smaller(record.width, image.width);
        return stride_of(record.format, context.line_width);
    }
    if (!has(record, IMG_F_DIRECT)) return 0; // the record takes no pixels
    if (setup_flags & IMG_SETUP_TOPDOWN) {
        context.next_line = static_cast<uint8_t *>(record.data);
        context.line_step = static_cast<int32_t>(record.stride);
        context.lines_left = record.height;
    } else if (setup_flags & IMG_SETUP_BOTTOMUP) {
        context.lines_left = smaller(record.height, image.height);
        if (context.lines_left) context.next_line = row_at(record, context.lines_left - 1);
        context.line_step = static_cast<int32_t>(0 - record.stride);
    }
    return 0;
}

// Chooses the routine and allocates the memory that it needs.
img_status prepare_conversion(DecodeContext &context, img_record &image, uint32_t setup_flags) {
    const img_record &record = *context.record;
    const bool found = find_routine(image.format, record.format, context.transform);
    const bool expands = context.transform.kind & transform_expands;
    const uint64_t line_bytes = place_rows(context, image, setup_flags);
    if (context.lines_left > 1 && record.stride > INT32_MAX) return IMG_ST_NOMEM;

    // The palette covers every index of the depth; entries beyond the codec's are 0.
    const bool has_palette = expands && found && image.ncolors;
    const uint64_t entries = has_palette ? full_palette(image.format, image.ncolors) : 0;
    const uint64_t bytes = line_bytes + run_bytes(record.format, entries);
    if (bytes > UINT32_MAX) return IMG_ST_NOMEM;
    if (bytes) {
        context.scratch = static_cast<uint8_t *>(calloc(1, bytes));
        if (!context.scratch) return IMG_ST_NOMEM;
    }
    if (has_palette) {
        context.palette = context.scratch + line_bytes;
        context.transform.palette = context.palette;
        context.palette_entries = static_cast<uint32_t>(entries);
        image.flags |= IMG_F_PALETTE;
    }
    if (!found || (expands && !has_palette)) return IMG_ST_NOCONV;
    context.state |= converts_rows;
    return IMG_ST_OK;
}

img_status dflt_setup(void *data, img_record *image, uint32_t setup_flags) {
    DecodeContext &context = context_of(data);
    if (context.state & decode_set_up) return IMG_ST_OK;
    img_record &record = *context.record;
    release_hinted_size(record, *image);
    imgcpy(record, *image, shape_flags);
    if (!has(record, IMG_F_WANT_ALPHA) && !(image->format & record.format & IMG_FMT_ALPHA))
        record.format &= ~img_format{IMG_FMT_ALPHA};
    if (is_palette(record.format))
        record.ncolors = image->ncolors; // Kept: A palette of the caller's own gets as many entries as the file has.
    const auto &caller = *context.caller;
    if (caller.setup)
        if (const img_status status = caller.setup(caller.data, &record, setup_flags)) return status;

    context.state |= decode_set_up;
    img_alloc_result made;
    if (const img_status status = allocate_storage(record, made)) return status;
    context.state |= made;
    if (image->format == record.format && image->width <= record.width && image->height <= record.height) {
        imgcpy(*image, record, storage_flags);
        return IMG_ST_OK;
    }
    if (const img_status status = prepare_conversion(context, *image, setup_flags)) return status;
    image->flags = (image->flags & ~storage_flags) | IMG_F_ACCESS;
    image->access = decode_access;
    image->access_arg = &context;
    return IMG_ST_OK;
}

img_status dflt_set_palette(void *data, img_record *image, const void *palette, img_format format) {
    const DecodeContext &context = context_of(data);
    img_record &record = *context.record;
    if (is_palette(record.format)) {
        const auto &caller = *context.caller;
        const bool handled = caller.set_palette && !caller.set_palette(caller.data, &record, palette, format);
        if (!has(record, IMG_F_PALETTE)) return IMG_ST_OK;
        if (!handled)
            if (const img_status status =
                    img_convert_data(format, palette, FMT_ARGB8888HE, record.palette, record.ncolors))
                return status;
        record.flags |= image->flags & IMG_F_PAL_ALPHA;
        return IMG_ST_OK;
    }
    if (!is_palette(image->format)) return IMG_ST_OK;
    if (!context.palette) return IMG_ST_BADARG; // there was no successful setup
    return img_convert_data(format, palette, record.format, context.palette,
                            smaller(image->ncolors, context.palette_entries));
}

// Stores the key in the caller's record, in the form in which the record keeps it.
void store_key(const DecodeContext &context, img_format codec_format, uint32_t key) {
    img_record &record = *context.record;
    record.transparency = key;
    if (bits_per_pixel(record.format) <= 8) record.transparency8 = static_cast<uint8_t>(key);
    if (bits_per_pixel(record.format) == 16) record.transparency16 = static_cast<uint16_t>(key);
    const KeyPixel pixel = key_pixel(codec_format, key);
    const bool wide = bits_per_pixel(record.format) > 16;
    constexpr img_format argb = FMT_ARGB8888HE;
    if (!(context.transform.kind & transform_expands)) {
        img_convert_data(codec_format, pixel.bytes, wide ? argb : record.format, &record.transparency, 1);
    } else if (context.palette) {
        img_dtransform_apply(&context.transform, pixel.bytes, &record.transparency, 1);
        if (wide) img_convert_data(record.format, &record.transparency, argb, &record.transparency, 1);
    }
}

// Kept: In an expanded palette the top bits of the entry are cleared in either byte order.
void make_entry_transparent(const DecodeContext &context, uint32_t index) {
    if (index >= context.palette_entries) return;
    if (bits_per_pixel(context.record->format) == 32) {
        uint32_t entry;
        uint8_t *at = context.palette + uint64_t{index} * sizeof entry;
        memcpy(&entry, at, sizeof entry);
        entry &= 0x00ffffff;
        memcpy(at, &entry, sizeof entry);
    } else if (bits_per_pixel(context.record->format) == 16) {
        uint16_t entry;
        uint8_t *at = context.palette + uint64_t{index} * sizeof entry;
        memcpy(&entry, at, sizeof entry);
        entry &= 0x7fff;
        memcpy(at, &entry, sizeof entry);
    }
}

void dflt_set_transparency(void *data, img_record *image, uint32_t key) {
    DecodeContext &context = context_of(data);
    img_record &record = *context.record;
    store_key(context, image->format, key);
    if (has(record, IMG_F_WANT_ALPHA) && !has(record, IMG_F_PAL_ALPHA) && (record.format & IMG_FMT_ALPHA)) {
        // Kept: With a palette of the caller's own, a colour key has no effect on FMT_A8.
        if (has(*image, IMG_F_PALETTE) && (context.palette || bits_per_pixel(record.format) < 16)) {
            make_entry_transparent(context, key);
        } else {
            context.state |= key_becomes_alpha;
            context.key = key; // Kept: A colour key that becomes alpha is compared as the codec passed it.
        }
        return;
    }
    record.flags |= IMG_F_TRANSP;
    const auto &caller = *context.caller;
    if (!caller.set_transparency) return;
    caller.set_transparency(caller.data, &record, stored_key(record));
}

img_status dflt_scanline(void *data, img_record *, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    const DecodeContext &context = context_of(data);
    return context.caller->scanline(context.caller->data, context.record, a, b, c, d);
}

img_status dflt_set_value(void *data, img_record *, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    const DecodeContext &context = context_of(data);
    return context.caller->set_value(context.caller->data, context.record, a, b, c, d);
}

void free_scratch(DecodeContext &context) {
    free(context.scratch);
    context.scratch = nullptr;
    context.palette = nullptr;
    if (context.transform.kind & transform_expands) context.state &= ~uint32_t{converts_rows};
}

void dflt_frame(void *data, img_record *) {
    DecodeContext &context = context_of(data);
    if (context.caller->frame) context.caller->frame(context.caller->data, context.record);
    free_scratch(context);
}

void dflt_abort(void *data, img_record *) {
    DecodeContext &context = context_of(data);
    if (!(context.state & decode_set_up)) return;
    context.state &= ~uint32_t{decode_set_up};
    if (context.caller->abort) context.caller->abort(context.caller->data, context.record);
    Storage::release(*context.record, context.state & (pixels_allocated | palette_allocated));
    if (context.state & pixels_allocated) {
        context.record->flags &= ~img_flags{IMG_F_PALETTE};
        if (has(context.image, IMG_F_DIRECT)) context.image.data = nullptr;
    }
    free_scratch(context);
    context.state &= ~uint32_t{converts_rows}; // further rows are dropped
}

// Replaces pixels that are equal to match.
template <typename Pixel> void replace_pixels(uint8_t *pixels, uint32_t count, Pixel match, Pixel replacement) {
    for (size_t i = 0; i < count; i++) {
        Pixel pixel;
        memcpy(&pixel, pixels + i * sizeof pixel, sizeof pixel);
        if (pixel == match) pixel = replacement;
        memcpy(pixels + i * sizeof pixel, &pixel, sizeof pixel);
    }
}

} // namespace

namespace img {

bool key_to_alpha(img_format format, uint32_t key, uint8_t *pixels, uint32_t count) {
    const bool swapped = format & IMG_FMT_OE;
    switch (bits_per_pixel(format)) {
    case 32: {
        const uint32_t match = swapped ? __builtin_bswap32(key) : key;
        replace_pixels(pixels, count, match, match & (swapped ? 0xffffff00 : 0x00ffffff));
        return true;
    }
    case 16: {
        const auto low = static_cast<uint16_t>(key);
        const uint16_t match = swapped ? __builtin_bswap16(low) : low;
        // Kept: At 16 bits a pixel that matches the colour key keeps its alpha and loses its colour.
        replace_pixels(pixels, count, match, static_cast<uint16_t>(match & (swapped ? 0x0080 : 0x8000)));
        return true;
    }
    }
    return false;
}

img_decode_callouts default_callouts(DecodeContext &context) {
    return {dflt_choose_format,
            dflt_setup,
            dflt_abort,
            context.caller->scanline ? dflt_scanline : nullptr,
            dflt_set_palette,
            dflt_set_transparency,
            dflt_frame,
            context.caller->set_value ? dflt_set_value : nullptr,
            &context};
}

} // namespace img
