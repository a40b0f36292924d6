// SPDX-License-Identifier: MIT
//
// The steps that flip, crop and rotation share.
#include "geometry/rect_copier.h"

#include "geometry/kernels.h"

#include <string.h>

namespace img {

img_status RectCopier::prepare(img_flags marks) {
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

img_status RectCopier::begin(const Rect &rect, uint32_t lines, uint64_t extra) {
    if (!has(src_, storage_flags) || !has(dst_, storage_flags)) return IMG_ST_BADARG;
    rect_ = rect;
    lines_ = lines;
    if (has(src_, IMG_F_DIRECT)) {
        const uint64_t offset = uint64_t{rect.y} * src_.stride;
        const uint64_t start = run_bytes(src_.format, rect.x);
        first_ = row_at(src_, 0) + (rect.wraps ? static_cast<uint32_t>(offset) : offset) + start;
        readable_ = run_bytes(src_.format, src_.width) - start;
    }
    if (transform_ || !first_)
        line_bytes_ = larger(1, larger(stride_of(src_.format, rect.width), stride_of(dst_.format, rect.width)));
    const uint64_t bytes = lines * line_bytes_ + extra;
    if (!bytes) return IMG_ST_OK;
    memory_ = img::allocate<uint8_t>(bytes);
    return memory_ ? IMG_ST_OK : IMG_ST_NOMEM;
}

const uint8_t *RectCopier::row(uint32_t i) {
    if (!line_bytes_) return first_ + uint64_t{i} * src_.stride;
    uint8_t *line = memory_.get() + i % lines_ * line_bytes_;
    if (!first_) Rows{src_}.pass(rect_.x, rect_.y + i, rect_.width, line);
    const uint8_t *in = line;
    if (first_)
        in = padded_run(first_ + uint64_t{i} * src_.stride, readable_, run_bytes(src_.format, rect_.width), line);
    if (transform_) img_dtransform_apply(transform_.get(), in, line, rect_.width);
    return line;
}

Band RectCopier::rows(uint32_t i, uint32_t count) {
    if (!line_bytes_) return {row(i), static_cast<ptrdiff_t>(src_.stride), count};
    const uint32_t held = smaller(count, lines_ - i % lines_);
    for (uint32_t k = 0; k < held; k++) row(i + k);
    return {memory_.get() + i % lines_ * line_bytes_, static_cast<ptrdiff_t>(line_bytes_), held};
}

void RectCopier::rows_to_buffer(const Rect &rect, const Placement &placement) {
    const Rows dst{dst_};
    const GeometryKernels &kernels = geometry_kernels.best();
    MirrorRows &mirror = *kernels.mirror[pixel_bytes() - 1];
    const bool apart = line_bytes_ || buffers_apart(src_, dst_);
    const size_t bytes = size_t{rect.width} * pixel_bytes();
    const ptrdiff_t step = placement.upward ? -ptrdiff_t{dst_.stride} : ptrdiff_t{dst_.stride};
    uint8_t *out = dst.at(placement.upward ? rect.height - 1 : 0);
    for (uint32_t i = 0; i < rect.height;) {
        const Band band = rows(i, rect.height - i);
        if (placement.mirrored)
            mirror(band.first, band.step, out, step, rect.width, band.count);
        else if (apart)
            kernels.copy(band.first, band.step, out, step, bytes, band.count);
        else // a rectangle may be copied within its own buffer
            for (uint32_t k = 0; k < band.count; k++) memmove(out + k * step, band.first + k * band.step, bytes);
        i += band.count;
        out += step * band.count;
    }
}

void RectCopier::rows_to_function(const Rect &rect, const Placement &placement) {
    const auto pixel = static_cast<int32_t>(pixel_bytes());
    const int32_t step = placement.mirrored ? -pixel : pixel;
    const uint64_t start = placement.mirrored && rect.width ? run_bytes(dst_.format, rect.width - 1) : 0;
    for (uint32_t i = 0; i < rect.height; i++) {
        copy_(row(i), extra() + start, step, rect.width);
        Rows{dst_}.pass(0, placement.calls_upward ? rect.height - 1 - i : i, rect.width, extra());
    }
}

img_status RectCopier::copy_rows(const Rect &rect, const Placement &placement) {
    if (!rect.width || !rect.height) return done();
    const uint64_t line_bytes = to_buffer() ? 0 : larger(1, stride_of(dst_.format, rect.width));
    if (const img_status status = begin(rect, 1, line_bytes)) return status;
    if (to_buffer())
        rows_to_buffer(rect, placement);
    else
        rows_to_function(rect, placement);
    return done();
}

} // namespace img
