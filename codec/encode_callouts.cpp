// SPDX-License-Identifier: MIT
//
// The default callouts of encoding. They present the caller's image in a format that the codec can write, and call the
// caller's own callouts with the caller's data and record.
#include "codec/encode.h"

#include "codec/negotiate.h"

#include <string.h>

using namespace img;

namespace {

EncodeContext &context_of(void *data) { return *static_cast<EncodeContext *>(data); }

uint32_t dflt_choose_format(void *data, img_record *image, const img_format *formats, uint32_t count) {
    EncodeContext &context = context_of(data);
    const uint32_t exact = find_format(image->format, formats, count);
    if (exact < count) return exact;
    const auto &caller = *context.caller;
    if (caller.choose_format) {
        const uint32_t index = caller.choose_format(caller.data, context.record, formats, count);
        if (index < count) return index; // Kept: The caller's own choice of format for encoding sets up no conversion.
    }
    const uint32_t index = closest_format(image->format, formats, count,
                                          [&](img_format format) { return convertible(image->format, format); });
    if (index < count) {
        context.state |= needs_conversion;
        context.chosen = formats[index];
    }
    return index;
}

// Creates the transform into the chosen format, and decides where rows come from.
img_status prepare_conversion(EncodeContext &context, img_record &image, uint32_t setup_flags) {
    const img_record &record = *context.record;
    image.format = context.chosen;
    if (const img_status status = img_dtransform_create(&record, &image, &context.transform)) return status;
    if (has(record, IMG_F_ACCESS)) {
        const uint64_t line_bytes = run_bytes(record.format, record.width);
        context.line = line_bytes ? static_cast<uint8_t *>(malloc(line_bytes)) : nullptr;
        if (line_bytes && !context.line) return IMG_ST_NOMEM;
    } else if (has(record, IMG_F_DIRECT) && record.height) {
        context.lines_left = record.height;
        if (setup_flags & IMG_SETUP_TOPDOWN) {
            context.next_line = static_cast<const uint8_t *>(record.data);
            context.line_step = record.stride;
        } else if (setup_flags & IMG_SETUP_BOTTOMUP) {
            context.next_line = row_at(record, record.height - 1);
            context.line_step = -int64_t{record.stride};
        }
    }
    image.access = encode_access;
    image.access_arg = &context;
    image.flags = (image.flags & ~storage_flags) | IMG_F_ACCESS;
    return IMG_ST_OK;
}

img_status dflt_setup(void *data, img_record *image, uint32_t setup_flags) {
    EncodeContext &context = context_of(data);
    if (context.state & encode_set_up) return IMG_ST_OK;
    img_record &record = *context.record;
    const auto &caller = *context.caller;
    if (caller.setup)
        if (const img_status status = caller.setup(caller.data, &record, setup_flags)) return status;
    context.state |= encode_set_up;
    // Without this check the codec would write whatever its own row buffer holds: a black image.
    if (record.width && record.height && !has(record, storage_flags)) return IMG_ST_BADARG;
    if (context.state & needs_conversion) return prepare_conversion(context, *image, setup_flags);
    memcpy(&image->data, &record.data, sizeof record.data);
    memcpy(&image->access_arg, &record.access_arg, sizeof record.access_arg);
    image->flags = (image->flags & ~storage_flags) | (record.flags & storage_flags);
    return IMG_ST_OK;
}

img_status dflt_get_palette(void *data, img_record *image, void *dst, img_format format) {
    const EncodeContext &context = context_of(data);
    if (!has(*image, IMG_F_PALETTE)) return IMG_ST_BADARG;
    const auto &caller = *context.caller;
    if (caller.get_palette) return caller.get_palette(caller.data, context.record, dst, format);
    return img_convert_data(FMT_ARGB8888HE, image->palette, format, dst, image->ncolors);
}

img_status dflt_get_transparency(void *data, img_record *image, void *dst) {
    const EncodeContext &context = context_of(data);
    const auto &caller = *context.caller;
    if (caller.get_transparency) return caller.get_transparency(caller.data, context.record, dst);
    if (!has(*image, IMG_F_TRANSP)) return IMG_ST_BADARG;
    const img_record &record = *context.record;
    if (bits_per_pixel(record.format) > 16) { // the record's pixel passes through dst
        if (const img_status status = img_convert_data(FMT_ARGB8888HE, &record.transparency, record.format, dst, 1))
            return status;
        if (context.transform) img_dtransform_apply(context.transform, dst, dst, 1);
    } else if (context.transform) {
        const KeyPixel pixel = key_pixel(record.format, stored_key(record));
        img_dtransform_apply(context.transform, pixel.bytes, dst, 1);
    } else {
        memcpy(dst, &record.transparency, run_bytes(record.format, 1));
    }
    return IMG_ST_OK;
}

img_status dflt_scanline(void *data, img_record *, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    const EncodeContext &context = context_of(data);
    return context.caller->scanline(context.caller->data, context.record, a, b, c, d);
}

void release(EncodeContext &context) {
    free(context.line);
    context.line = nullptr;
    img_dtransform_free(context.transform);
    context.transform = nullptr;
}

void dflt_frame(void *data, img_record *) {
    EncodeContext &context = context_of(data);
    if (context.caller->frame) context.caller->frame(context.caller->data, context.record);
    release(context);
}

void dflt_abort(void *data, img_record *) {
    EncodeContext &context = context_of(data);
    if (!(context.state & encode_set_up)) return;
    context.state &= ~uint32_t{encode_set_up};
    if (context.caller->abort) context.caller->abort(context.caller->data, context.record);
    release(context);
}

} // namespace

namespace img {

img_encode_callouts default_callouts(EncodeContext &context) {
    return {dflt_choose_format, dflt_setup,
            dflt_abort,         context.caller->scanline ? dflt_scanline : nullptr,
            dflt_get_palette,   dflt_get_transparency,
            dflt_frame,         &context};
}

} // namespace img
