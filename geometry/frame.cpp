// SPDX-License-Identifier: MIT
//
// The steps that flip, crop and quarter turns share.
#include "geometry/frame.h"

#include "geometry/kernels.h"

#include <string.h>

namespace img {

img_status Frame::prepare(img_flags marks) {
    copy_ = img_copy_getfunc(dst_.format);
    if (!copy_) return IMG_ST_BADFMT;
    if (src_.format != dst_.format) {
        img_dtransform_state *created;
        if (const img_status status = img_dtransform_create(&src_, &dst_, &created)) return status;
        transform_ = Transform{created};
    }
    if (const img_status status = storage_.allocate()) return status;
    if (storage_.made_palette()) {
        copy_palette(dst_, src_);
        dst_.flags |= src_.flags & marks;
    }
    return IMG_ST_OK;
}

img_status Frame::begin(const Cut &cut, uint32_t lines, uint64_t extra) {
    if (!has(src_, storage_flags) || !has(dst_, storage_flags)) return IMG_ST_BADARG;
    cut_ = cut;
    lines_ = lines;
    if (has(src_, IMG_F_DIRECT)) {
        const uint64_t offset = uint64_t{cut.y} * src_.stride;
        const uint64_t start = run_bytes(src_.format, cut.x);
        first_ = row_at(src_, 0) + (cut.wraps ? static_cast<uint32_t>(offset) : offset) + start;
        readable_ = run_bytes(src_.format, src_.width) - start;
    }
    if (transform_ || !first_)
        line_bytes_ = larger(1, larger(row_bytes(src_.format, cut.width), row_bytes(dst_.format, cut.width)));
    const uint64_t bytes = lines * line_bytes_ + extra;
    if (!bytes) return IMG_ST_OK;
    memory_ = img::allocate<uint8_t>(bytes);
    return memory_ ? IMG_ST_OK : IMG_ST_NOMEM;
}

const uint8_t *Frame::row(uint32_t i) {
    if (!line_bytes_) return first_ + uint64_t{i} * src_.stride;
    uint8_t *line = memory_.get() + i % lines_ * line_bytes_;
    if (!first_) Rows{src_}.pass(cut_.x, cut_.y + i, cut_.width, line);
    const uint8_t *in = line;
    if (first_)
        in = padded_run(first_ + uint64_t{i} * src_.stride, readable_, run_bytes(src_.format, cut_.width), line);
    if (transform_) img_dtransform_apply(transform_.get(), in, line, cut_.width);
    return line;
}

Band Frame::rows(uint32_t i, uint32_t count) {
    if (!line_bytes_) return {row(i), static_cast<ptrdiff_t>(src_.stride), count};
    const uint32_t held = smaller(count, lines_ - i % lines_);
    for (uint32_t k = 0; k < held; k++) row(i + k);
    return {memory_.get() + i % lines_ * line_bytes_, static_cast<ptrdiff_t>(line_bytes_), held};
}

void Frame::rows_to_buffer(const Cut &cut, const Placement &placement) {
    const Rows dst{dst_};
    const GeometryKernels &kernels = geometry_kernels.best();
    MirrorRows &mirror = *kernels.mirror[pixel_bytes() - 1];
    const bool apart = line_bytes_ || buffers_apart(src_, dst_);
    const size_t bytes = size_t{cut.width} * pixel_bytes();
    const ptrdiff_t step = placement.upward ? -ptrdiff_t{dst_.stride} : ptrdiff_t{dst_.stride};
    uint8_t *out = dst.at(placement.upward ? cut.height - 1 : 0);
    for (uint32_t i = 0; i < cut.height;) {
        const Band band = rows(i, cut.height - i);
        if (placement.mirrored)
            mirror(band.first, band.step, out, step, cut.width, band.count);
        else if (apart)
            kernels.copy(band.first, band.step, out, step, bytes, band.count);
        else // A cut may be moved within its own buffer.
            for (uint32_t k = 0; k < band.count; k++) memmove(out + k * step, band.first + k * band.step, bytes);
        i += band.count;
        out += step * band.count;
    }
}

void Frame::rows_to_function(const Cut &cut, const Placement &placement) {
    const auto pixel = static_cast<int32_t>(pixel_bytes());
    const int32_t step = placement.mirrored ? -pixel : pixel;
    const uint64_t start = placement.mirrored && cut.width ? run_bytes(dst_.format, cut.width - 1) : 0;
    for (uint32_t i = 0; i < cut.height; i++) {
        copy_(row(i), extra() + start, step, cut.width);
        Rows{dst_}.pass(0, placement.handed_upward ? cut.height - 1 - i : i, cut.width, extra());
    }
}

img_status Frame::copy_rows(const Cut &cut, const Placement &placement) {
    if (!cut.width || !cut.height) return done();
    const uint64_t line_bytes = to_buffer() ? 0 : larger(1, row_bytes(dst_.format, cut.width));
    if (const img_status status = begin(cut, 1, line_bytes)) return status;
    if (to_buffer())
        rows_to_buffer(cut, placement);
    else
        rows_to_function(cut, placement);
    return done();
}

} // namespace img
