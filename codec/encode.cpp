// SPDX-License-Identifier: MIT
//
// The encode driver: runs a codec for one frame and supplies the caller's pixels.
#include "codec/encode.h"

#include "core/registry.h"

using namespace img;

namespace {

img_status ready_to_encode(img_codec &codec) {
    if (const img_status status = codec_init(&codec)) return status;
    return codec.funcs.encode_frame ? IMG_ST_OK : IMG_ST_NOTSUP;
}

} // namespace

img_status img_encode_begin(img_codec *codec, io_handle *stream, void **state) {
    if (const img_status status = ready_to_encode(*codec)) return status;
    return codec->funcs.encode_begin ? codec->funcs.encode_begin(stream, state) : img_status{IMG_ST_OK};
}

img_status img_encode_frame(img_codec *codec, io_handle *stream, const img_encode_callouts *callouts, img_record *image,
                            void **state) {
    static constexpr img_encode_callouts none{};
    if (const img_status status = ready_to_encode(*codec)) return status;

    EncodeContext context{};
    context.image = *image;
    context.caller = callouts ? callouts : &none;
    context.record = image;
    context.callouts = default_callouts(context);

    const img_status status = codec->funcs.encode_frame(stream, &context.callouts, &context.image, state);
    (status ? context.callouts.abort : context.callouts.frame)(&context, &context.image);
    return status;
}

img_status img_encode_finish(img_codec *codec, io_handle *stream, void **state) {
    const bool initialised = codec->state & codec_initialised;
    return initialised && codec->funcs.encode_finish ? codec->funcs.encode_finish(stream, state)
                                                     : img_status{IMG_ST_OK};
}

namespace img {

namespace {

// Bytes from an address to the end of the image's buffer.
uint64_t bytes_from(const img_record &record, const uint8_t *at) {
    const auto *begin = static_cast<const uint8_t *>(record.data);
    const uint64_t bytes = uint64_t{record.height} * record.stride;
    if (at < begin || at >= begin + bytes) return 0;
    return bytes - static_cast<uint64_t>(at - begin);
}

// Cuts the run from column x on, which starts at the address, to what can be read. Returns where to read it.
const uint8_t *readable_run(const img_record &record, const uint8_t *at, uint32_t x, uint32_t &count, void *out) {
    const uint32_t bits = bits_per_pixel(record.format);
    const uint64_t there = bytes_from(record, at), end = uint64_t{x} + count;
    if (bits >= 8 || end > record.width) {
        if (there * 8 / bits < count) count = static_cast<uint32_t>(there * 8 / bits);
        return at;
    }
    // Reads on after the row, to the end of the buffer. The codec's pixels are larger, so out has room for the run.
    return padded_run(at, there, run_bytes(record.format, count), static_cast<uint8_t *>(out));
}

} // namespace

// Kept: While encoding, a run may be longer than a row or start after its end. It is cut at the end of the buffer only.
int encode_access(void *data, uint32_t x, uint32_t y, uint32_t count, void *out) {
    auto &context = *static_cast<EncodeContext *>(data);
    const img_record &record = *context.record;
    if (!context.transform || !has(record, storage_flags)) return 0;
    if (has(record, IMG_F_ACCESS)) {
        count = smaller(count, record.width); // which the line has room for
        record.access(record.access_arg, x, y, count, context.line);
        if (count) img_dtransform_apply(context.transform, context.line, out, count);
        return 0;
    }
    // Kept: The offset of a row wraps at 32 bits when pixels are fetched for encoding.
    const uint8_t *line = static_cast<const uint8_t *>(record.data) + uint32_t{y * record.stride};
    if (context.next_line) {
        if (!context.lines_left) return 0;
        line = context.next_line; // Kept: A run of 0 pixels takes a row while encoding.
        if (--context.lines_left) context.next_line += context.line_step;
    } else if (y >= record.height) {
        return 0;
    }
    if (x) line += run_bytes(record.format, x);
    line = readable_run(record, line, x, count, out);
    if (count) img_dtransform_apply(context.transform, line, out, count);
    return 0;
}

} // namespace img
