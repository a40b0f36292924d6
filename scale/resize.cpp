// SPDX-License-Identifier: MIT
//
// Resizes whole images. Two working lines are kept whatever the size: the current row, and the next one, with which it
// may be blended. Rows are scaled horizontally by kernels.cpp; reduce.cpp averages rows of tall sources first.
#include "scale/resize.h"

#include "convert/rows.h"
#include "convert/transform.h"
#include "scale/params.h"
#include "scale/reduce.h"

#include <string.h>

#include <atomic>
#include <utility>

using namespace img;

namespace {

// Kept: An aborted resize answers IMG_ST_NOMEM. The request stops every resize of the process.
constinit std::atomic<uint32_t> abort_resize{0};

// The working format: the deeper of the two, or the destination's; at 16 bits preferably one without alpha.
img_format choose_format(img_format dst, img_format src) {
    const uint32_t dst_bits = bits_per_pixel(dst), src_bits = bits_per_pixel(src);
    if (dst_bits != src_bits) return dst_bits > src_bits ? dst : src;
    return dst_bits == 16 && (dst & IMG_FMT_ALPHA) && !(src & IMG_FMT_ALPHA) ? src : dst;
}

// Completes the destination's size in the source's proportions. Kept: img_resize_fs computes a missing side in 32 bits.
void complete_size(const img_record &src, img_record &dst) {
    const auto at_least_1 = [](uint32_t size) { return size ? size : 1; };
    const img_flags given = dst.flags & size_flags;
    if (!given) imgcpy(dst, src, size_flags);
    if (given == IMG_F_WIDTH) dst.height = at_least_1(dst.width * src.height / src.width);
    if (given == IMG_F_HEIGHT) dst.width = at_least_1(dst.height * src.width / src.height);
    dst.flags |= size_flags;
}

// The order in which the rows of an image are visited: the next row, and the distance to the one after it.
struct Walk {
    int64_t row, step;
};

constexpr int64_t no_row = -1;

// Working lines start at cache lines, so that no vector crosses from one cache line to the next.
constexpr uint64_t line_alignment = 64;
constexpr uint64_t whole_vectors(uint64_t bytes) { return (bytes + line_alignment - 1) & ~(line_alignment - 1); }
uint8_t *aligned(uint8_t *block) { return block + (-reinterpret_cast<uintptr_t>(block) & (line_alignment - 1)); }

class Resizer {
public:
    Resizer(const img_record &src, const img_record &dst) : src_(src), dst_(dst) {}

    // Everything that does not need the destination's storage: working format, conversions, vertical reduction.
    img_status prepare(const Sequence *sequence);

    // Allocates the working lines and writes all rows.
    img_status run(bool upside_down);

private:
    bool has_row(int64_t row) const { return row >= 0 && row < src_.height; }
    bool converts_output() const { return work_ != dst_.format; }
    bool converts_input() const { return work_ != src_.format; }

    img_status allocate_lines();
    void produce(int64_t row, uint8_t *line, uint8_t *out) const;
    bool make_current(int64_t row);
    bool blend(int64_t next, uint8_t *out);
    void write(int64_t row, bool convert);
    bool writes_in_place() const;
    img_status pick_rows(Walk in, uint32_t every, Walk out) const;
    void make_in_place(int64_t row, int64_t next, bool blends, uint8_t *out);
    img_status step_rows(Walk &in, Walk &out, uint32_t count);

    img_record src_; // with vertical reduction, the shape of the reduced source
    const img_record &dst_;
    img_record full_{}; // with vertical reduction, the source itself
    Reducer reducer_;
    bool reduces_ = false;

    img_format work_ = 0;
    img_avg_func average_ = nullptr;
    img_scl_parms parms_{};
    Transform transform_; // from the source's format to the destination's; the working format is one of the two

    Owned<uint8_t> block_;
    uint8_t *output_ = nullptr, *current_ = nullptr, *other_ = nullptr;
    int64_t in_current_ = no_row, in_other_ = no_row; // the source rows that the lines were produced from
};

img_status Resizer::prepare(const Sequence *sequence) {
    work_ = choose_format(dst_.format, src_.format);
    average_ = img_avg_getfunc(work_);
    if (!average_ || img_scl_calc_parms(work_, src_.width, dst_.width, &parms_) != 0) return IMG_ST_BADFMT;
    if (src_.format != dst_.format) {
        img_dtransform_state *state;
        const img_status status = img_dtransform_create(&src_, &dst_, &state);
        transform_ = Transform{state};
        if (status) return status;
    }

    uint32_t reduced_height = src_.height;
    const uint32_t shift = count_halvings(reduced_height, dst_.height);
    if (!shift) return IMG_ST_OK;
    full_ = src_;
    if (const img_status status = reducer_.prepare(full_, dst_, work_, shift, sequence)) return status;
    reduces_ = true;
    src_ = reducer_.shape();
    return IMG_ST_OK;
}

// Scales a source row horizontally in the working format, to out. line is working memory and may be out.
void Resizer::produce(int64_t row, uint8_t *line, uint8_t *out) const {
    const auto y = static_cast<uint32_t>(row);
    if (reduces_) {
        const auto [above, below] = reducer_.average(y);
        return parms_.scaler(above, below, line, out, &parms_);
    }
    const Rows rows{src_};
    const uint8_t *in = rows.direct() ? rows.at(y) : line;
    if (!rows.direct()) rows.pass(0, y, src_.width, line);
    if (converts_input()) {
        img_dtransform_apply(transform_.get(), in, line, src_.width);
        in = line;
    }
    parms_.scaler(in, nullptr, line, out, &parms_);
}

// Makes the row the current one. True if it had to be produced.
bool Resizer::make_current(int64_t row) {
    if (row == in_current_) return false;
    const bool is_other = row == in_other_;
    if (is_other) std::swap(current_, other_);
    in_current_ = row;
    if (!is_other) produce(row, current_, current_);
    return !is_other;
}

// Blends the current row with the next one, unless that was done before. True if it was done now.
bool Resizer::blend(int64_t next, uint8_t *out) {
    if (!has_row(next) || next == in_other_) return false;
    produce(next, other_, other_);
    average_(current_, other_, out, dst_.width);
    in_other_ = next;
    return true;
}

// Kept: With an output conversion, the row after a blended one can repeat it. A row that was neither produced nor
// blended just now is written from the output line as it is.
void Resizer::write(int64_t row, bool convert) {
    if (output_ && convert) img_dtransform_apply(transform_.get(), current_, output_, dst_.width);
    uint8_t *line = output_ ? output_ : current_;
    const Rows rows{dst_};
    const auto y = static_cast<uint32_t>(row);
    if (rows.direct())
        memcpy(rows.at(y), line, run_bytes(dst_.format, dst_.width));
    else
        rows.pass(0, y, dst_.width, line);
}

// Whether rows can be produced in the destination's buffer: no row is produced twice, no row is read from where another
// one was written, and none comes from an access function, which could request an abort before its row is written.
bool Resizer::writes_in_place() const {
    const img_record &src = reduces_ ? full_ : src_;
    if (!has(src, IMG_F_DIRECT) || !has(dst_, IMG_F_DIRECT) || converts_output() || src_.height < dst_.height)
        return false;
    return buffers_apart(src, dst_);
}

void Resizer::make_in_place(int64_t row, int64_t next, bool blends, uint8_t *out) {
    blends = blends && has_row(next);
    if (!blends && row != in_other_) return produce(row, current_, out);
    make_current(row);
    if (blends)
        blend(next, out);
    else
        memcpy(out, current_, run_bytes(dst_.format, dst_.width));
}

// Takes one row out of `every`, or the average of one pair, without blending: nothing has to be kept between rows.
img_status Resizer::pick_rows(Walk in, uint32_t every, Walk out) const {
    const auto [above, below] = reduces_ ? reducer_.average(static_cast<uint32_t>(in.row))
                                         : Reducer::Pair{row_at(src_, static_cast<uint32_t>(in.row)), nullptr};
    const ptrdiff_t step = in.step * ptrdiff_t{every} * src_.stride * (reduces_ ? 2 : 1);
    uint8_t *to = Rows{dst_}.at(static_cast<uint32_t>(out.row));
    for (ptrdiff_t i = 0; i < dst_.height; i++, to += out.step * dst_.stride) {
        if (abort_resize.load(std::memory_order_relaxed)) return IMG_ST_NOMEM;
        parms_.scaler(above + i * step, below ? below + i * step : nullptr, current_, to, &parms_);
    }
    return IMG_ST_OK;
}

img_status Resizer::allocate_lines() {
    const uint64_t output_bytes = converts_output() ? whole_vectors(run_bytes(dst_.format, dst_.width)) : 0;
    const uint64_t line_bytes = whole_vectors(run_bytes(work_, larger(src_.width, dst_.width)));
    const uint64_t plan_bytes = parms_.planner ? plan_words(dst_.width) * sizeof(uint32_t) : 0;
    block_ = allocate<uint8_t>(output_bytes + 2 * line_bytes + plan_bytes + line_alignment);
    if (!block_) return IMG_ST_NOMEM;
    uint8_t *first = aligned(block_.get());
    output_ = output_bytes ? first : nullptr;
    current_ = first + output_bytes;
    other_ = current_ + line_bytes;
    auto *plan = reinterpret_cast<uint32_t *>(other_ + line_bytes);
    if (parms_.planner && parms_.planner(parms_, plan)) parms_.plan = plan;
    return IMG_ST_OK;
}

// Writes `count` rows, each the nearest source row or, in the second half of the way to the next one, the average of
// both.
img_status Resizer::step_rows(Walk &in, Walk &out, uint32_t count) {
    const uint32_t dh = dst_.height, quotient = src_.height / dh, remainder = src_.height % dh, half = dh >> 1;
    const bool in_place = writes_in_place();
    const bool reads_in_place = reduces_ ? reducer_.reads_pairs_in_place() : !converts_input();
    if (in_place && reads_in_place && !remainder && half) return pick_rows(in, quotient, out);
    uint32_t fraction = 0;
    for (uint32_t i = 0; i < count; i++) {
        const int64_t next = in.row + in.step;
        if (in_place) {
            if (abort_resize.load(std::memory_order_relaxed)) return IMG_ST_NOMEM;
            make_in_place(in.row, next, fraction >= half, Rows{dst_}.at(static_cast<uint32_t>(out.row)));
        } else {
            bool convert = make_current(in.row);
            if (fraction >= half && blend(next, current_)) convert = true;
            if (abort_resize.load(std::memory_order_relaxed)) return IMG_ST_NOMEM;
            write(out.row, convert);
        }
        out.row += out.step;
        in.row += in.step * quotient;
        fraction += remainder;
        if (fraction >= dh) {
            fraction -= dh;
            in.row += in.step;
        }
    }
    return IMG_ST_OK;
}

img_status Resizer::run(bool upside_down) {
    if (const img_status status = allocate_lines()) return status;
    const uint32_t sh = src_.height, dh = dst_.height;
    const uint32_t tail_rows = sh < dh ? repeated_at_edge(sh, dh) : 0;
    // An enlargement onto its own buffer must not overwrite rows that it has yet to read.
    const bool backward =
        has(src_, IMG_F_DIRECT) && has(dst_, IMG_F_DIRECT) && uint64_t{sh} * src_.stride < uint64_t{dh} * dst_.stride;
    Walk in = backward ? Walk{int64_t{sh} - 1, -1} : Walk{0, 1};
    Walk out = backward != upside_down ? Walk{int64_t{dh} - 1, -1} : Walk{0, 1};
    if (const img_status status = step_rows(in, out, dh - tail_rows)) return status;
    if (!tail_rows) return IMG_ST_OK;
    bool convert = make_current(in.row);
    for (uint32_t i = 0; i < tail_rows; i++, convert = false, out.row += out.step) write(out.row, convert);
    return IMG_ST_OK;
}

} // namespace

namespace img {

img_status resize(const img_record &src, img_record &dst, bool upside_down, const Sequence *sequence) {
    abort_resize.store(0, std::memory_order_relaxed);
    const auto empty = [](const img_record &record) {
        return (has(record, IMG_F_WIDTH) && !record.width) || (has(record, IMG_F_HEIGHT) && !record.height);
    };
    if (!has_all(src, shape_flags) || empty(src) || empty(dst)) return IMG_ST_BADARG;
    imgcpy(dst, src, IMG_F_FORMAT);
    if (is_palette(dst.format)) return IMG_ST_BADFMT;
    complete_size(src, dst);
    if (dst.width == src.width && dst.height == src.height) return copy_image(src, dst, upside_down);

    Resizer resizer{src, dst};
    if (const img_status status = resizer.prepare(sequence)) return status;
    Storage storage{dst};
    if (const img_status status = storage.allocate()) return status;
    if (!has(src, storage_flags) || !has(dst, storage_flags)) return IMG_ST_BADARG;
    if (const img_status status = resizer.run(upside_down)) return status;
    storage.keep();
    return IMG_ST_OK;
}

} // namespace img

img_status img_resize_fs(const img_record *src, img_record *dst) { return resize(*src, *dst, false, nullptr); }

img_status img_resize_fsbu(const img_record *src, img_record *dst) { return resize(*src, *dst, true, nullptr); }

void img_resize_set_abort(uint32_t abort) { abort_resize.store(abort, std::memory_order_relaxed); }
