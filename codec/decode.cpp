// SPDX-License-Identifier: MIT
//
// The decode driver: finds the codec for a stream, runs it for one frame, and receives its rows.
#include "codec/decode.h"

#include "core/registry.h"

using namespace img;

img_status img_decode_validate(img_codec *const *candidates, uint32_t ncandidates, io_handle *stream, uint32_t *index) {
    img_status status = IMG_ST_NOCODEC;
    for (uint32_t i = 0; i < ncandidates; i++) {
        img_codec &codec = *candidates[i];
        status = codec_init(&codec);
        if (status != IMG_ST_OK) continue;
        status = codec.funcs.decode_validate ? codec.funcs.decode_validate(stream) : img_status{IMG_ST_NOTSUP};
        if (status != IMG_ST_OK) continue;
        if (index) *index = i;
        return IMG_ST_OK;
    }
    return status;
}

img_status img_decode_begin(img_codec *codec, io_handle *stream, void **state) {
    if (const img_status status = codec_init(codec)) return status;
    if (!codec->funcs.decode_frame) return IMG_ST_NOTSUP;
    return codec->funcs.decode_begin ? codec->funcs.decode_begin(stream, state) : img_status{IMG_ST_OK};
}

img_status img_decode_frame(img_codec *codec, io_handle *stream, const img_decode_callouts *callouts,
                            img_record *record, void **state) {
    static constexpr img_decode_callouts none{};
    if (const img_status status = codec_init(codec)) return status;
    if (!codec->funcs.decode_frame)
        return IMG_ST_MODULE; // Kept: Begin and frame report a missing frame function differently.

    DecodeContext context{};
    context.image = *record;
    context.caller = callouts ? callouts : &none;
    context.record = record;
    context.callouts = default_callouts(context);

    const img_status status = codec->funcs.decode_frame(stream, &context.callouts, &context.image, state);
    (status ? context.callouts.abort : context.callouts.frame)(&context, &context.image);
    if (has(context.image, IMG_F_DIRECT)) {
        record->width = context.image.width;
        record->height = context.image.height;
        record->stride = context.image.stride;
        record->data = context.image.data;
    }
    return status;
}

img_status img_decode_finish(img_codec *codec, io_handle *stream, void **state) {
    const bool initialised = codec->state & codec_initialised;
    return initialised && codec->funcs.decode_finish ? codec->funcs.decode_finish(stream, state)
                                                     : img_status{IMG_ST_OK};
}

namespace img {

int decode_access(void *data, uint32_t x, uint32_t y, uint32_t count, void *line) {
    auto &context = *static_cast<DecodeContext *>(data);
    const img_record &record = *context.record;
    const uint64_t end = uint64_t{x} + count;
    if (y >= record.height || (end > record.width && count <= end - record.width)) return 0;
    if (end > record.width) count = record.width - x;
    if (!has(record, IMG_F_DIRECT)) count = smaller(count, context.line_width);
    if (!count) return 0; // an empty run neither takes a row nor reaches the caller
    if (!(context.state & converts_rows)) return 0;

    if (has(record, IMG_F_DIRECT)) {
        uint8_t *out = row_at(record, y);
        if (context.next_line) {
            if (!context.lines_left) return 0;
            out = context.next_line;
            if (--context.lines_left) context.next_line += context.line_step;
        }
        if (x) out += run_bytes(record.format, x);
        img_dtransform_apply(&context.transform, line, out, count);
        if (context.state & key_becomes_alpha) key_to_alpha(record.format, context.key, out, count);
    } else if (has(record, IMG_F_ACCESS)) {
        if (!context.scratch) return 0; // the codec already ended the frame
        img_dtransform_apply(&context.transform, line, context.scratch, count);
        if (context.state & key_becomes_alpha && !key_to_alpha(record.format, context.key, context.scratch, count))
            return 0;
        record.access(record.access_arg, x, y, count, context.scratch);
    }
    return 0;
}

} // namespace img
