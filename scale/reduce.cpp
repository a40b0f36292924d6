// SPDX-License-Identifier: MIT
//
// Averages 2^k rows into one, in a balanced tree of pairs.
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
    // A row from an access function is converted in place, so the line must hold it in either format.
    const uint32_t raw_bits = has(src, IMG_F_ACCESS) ? bits_per_pixel(src.format) : 0;
    line_bytes_ = stride_of(static_cast<img_format>(larger(bits_per_pixel(work), raw_bits)), src.width);
    lines_ = allocate<uint8_t>((shift + 1) * line_bytes_);
    if (!lines_) return IMG_ST_NOMEM;
    if (work == src.format) return IMG_ST_OK;
    img_dtransform_state *state;
    const img_status status = img_dtransform_create(&src, &dst, &state);
    transform_ = Transform{state};
    return status;
}

img_record Reducer::shape() const {
    img_record reduced = *src_;
    reduced.flags = shape_flags;
    reduced.height = src_->height >> shift_;
    reduced.format = work_;
    return reduced;
}

const uint8_t *Reducer::fetch(uint32_t row, uint8_t *line) const {
    const Rows rows{*src_};
    const uint8_t *in = rows.direct() ? rows.at(row) : line;
    if (!rows.direct()) rows.pass(0, row, src_->width, line);
    if (!transform_) return in;
    img_dtransform_apply(transform_.get(), in, line, src_->width);
    return line;
}

// The lines form a stack: whenever two of them are averages of equally many rows, they are averaged into one.
Reducer::Pair Reducer::average(uint32_t row) const {
    const uint32_t count = uint32_t{1} << shift_;
    if (reads_pairs_in_place()) return {row_at(*src_, 2 * uint64_t{row}), row_at(*src_, 2 * uint64_t{row} + 1)};
    const uint8_t *rows[33];
    uint32_t depth = 0;
    if (sequence_) sequence_->expect(sequence_->source, row * count, count);
    for (uint32_t i = 1; i <= count; i++) {
        rows[depth] = fetch(row * count + i - 1, lines_.get() + depth * line_bytes_);
        depth++;
        for (uint32_t level = i; level % 2 == 0 && (i < count || depth > 2); level /= 2) {
            depth--;
            uint8_t *mean = lines_.get() + (depth - 1) * line_bytes_;
            average_(rows[depth - 1], rows[depth], mean, src_->width);
            rows[depth - 1] = mean;
        }
    }
    return {rows[0], rows[1]};
}

} // namespace img
