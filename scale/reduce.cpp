// SPDX-License-Identifier: MIT
//
// Folding 2^k rows into one by a balanced tree of means.
#include "scale/reduce.h"

#include "convert/rows.h"

namespace img {

img_status Reducer::prepare(const img_record &src, const img_record &dst, img_format work, uint32_t shift,
                            const Sequence *sequence) {
    src_ = &src;
    sequence_ = sequence;
    work_ = work;
    shift_ = shift;
    average_ = img_avg_getfunc(work);
    // A row of an access function lies in the line before it is converted.
    const uint32_t raw_bits = has(src, IMG_F_ACCESS) ? bits_per_pixel(src.format) : 0;
    line_bytes_ = row_bytes(static_cast<img_format>(larger(bits_per_pixel(work), raw_bits)), src.width);
    lines_ = allocate<uint8_t>((shift + 1) * line_bytes_);
    if (!lines_) return IMG_ST_NOMEM;
    if (work == src.format) return IMG_ST_OK;
    img_dtransform_state *state;
    const img_status status = img_dtransform_create(&src, &dst, &state);
    transform_ = Transform{state};
    return status;
}

img_record Reducer::image() {
    img_record folded = *src_;
    folded.flags = shape_flags | IMG_F_ACCESS;
    folded.access = read;
    folded.access_arg = this;
    folded.height = src_->height >> shift_;
    folded.format = work_;
    return folded;
}

int Reducer::read(void *reducer, uint32_t, uint32_t row, uint32_t width, void *out) {
    static_cast<const Reducer *>(reducer)->fold(row, width, static_cast<uint8_t *>(out));
    return 0;
}

const uint8_t *Reducer::fetch(uint32_t row, uint32_t width, uint8_t *line) const {
    const Rows rows{*src_};
    const uint8_t *in = rows.direct() ? rows.at(row) : line;
    if (!rows.direct()) rows.pass(0, row, width, line);
    if (!transform_) return in;
    img_dtransform_apply(transform_.get(), in, line, width);
    return line;
}

// The rows are a stack: whenever an even number of them lies at one level, two become one of the next.
void Reducer::fold(uint32_t row, uint32_t width, uint8_t *out) const {
    const uint32_t count = uint32_t{1} << shift_;
    const uint8_t *rows[33];
    uint32_t depth = 0;
    if (sequence_) sequence_->expect(sequence_->source, row * count, count);
    for (uint32_t i = 1; i <= count; i++) {
        rows[depth] = fetch(row * count + i - 1, width, lines_.get() + depth * line_bytes_);
        depth++;
        for (uint32_t level = i; level % 2 == 0; level /= 2) {
            depth--;
            const bool last = i == count && depth == 1;
            uint8_t *mean = last ? out : lines_.get() + (depth - 1) * line_bytes_;
            average_(rows[depth - 1], rows[depth], mean, width);
            rows[depth - 1] = mean;
        }
    }
}

} // namespace img
