// SPDX-License-Identifier: MIT
//
// Rotation by multiples of 90 degrees.
#include "geometry/kernels.h"
#include "geometry/rect_copier.h"

using namespace img;

namespace {

// Columns that an access function receives at a time.
constexpr uint32_t block_columns = 8;

// Rows that are converted before they are transposed together: enough to keep the kernels busy, few enough for the
// caches.
constexpr uint32_t band_rows = 64;

// Into a buffer: straight from the source where rows can be used in place, otherwise in bands of converted rows.
img_status rotate_into_buffer(RectCopier &copier, const img_record &dst, const Rect &rect, bool clockwise) {
    if (const img_status status = copier.begin(rect, band_rows, 0)) return status;
    const uint32_t pixel = copier.pixel_bytes();
    TransposeRows &transpose = *geometry_kernels.best().transpose[pixel - 1];
    uint8_t *first = row_at(dst, clockwise ? 0 : rect.width - 1); // where the leftmost column goes
    const ptrdiff_t dst_step = clockwise ? ptrdiff_t{dst.stride} : -ptrdiff_t{dst.stride};
    for (uint32_t y = 0; y < rect.height;) {
        const Band band = copier.rows(y, rect.height - y);
        y += band.count;
        // Clockwise the last row of the source is the first column.
        const uint8_t *last = band.first + (band.count - 1) * band.step;
        if (clockwise)
            transpose(last, -band.step, first + size_t{rect.height - y} * pixel, dst_step, rect.width, band.count);
        else
            transpose(band.first, band.step, first + size_t{y - band.count} * pixel, dst_step, rect.width, band.count);
    }
    return copier.done();
}

// To an access function, which receives blocks of eight columns line by line.
img_status rotate_to_function(RectCopier &copier, const img_record &dst, const Rect &rect, bool clockwise) {
    const uint64_t line_bytes = stride_of(dst.format, block_columns);
    if (const img_status status = copier.begin(rect, 1, line_bytes * rect.width)) return status;
    const auto pixel = copier.pixel_bytes();
    const auto down = static_cast<int32_t>(line_bytes);
    uint8_t *block = copier.extra(), *last_line = block + line_bytes * (rect.width - 1);
    uint32_t x = clockwise ? rect.height : 0;
    for (uint32_t y = 0; y < rect.height; y += block_columns) {
        const uint32_t columns = smaller(block_columns, rect.height - y);
        for (uint32_t i = 0; i < columns; i++) {
            if (clockwise)
                copier.strided_copy()(copier.row(y + i), block + (block_columns - 1 - i) * pixel, down, rect.width);
            else
                copier.strided_copy()(copier.row(y + i), last_line + i * pixel, -down, rect.width);
        }
        if (clockwise) x -= columns;
        uint8_t *line = block + (clockwise ? (block_columns - columns) * pixel : 0);
        for (uint32_t i = 0; i < rect.width; i++, line += line_bytes) Rows{dst}.pass(x, i, columns, line);
        if (!clockwise) x += columns;
    }
    return copier.done();
}

} // namespace

img_status img_rotate_ortho(const img_record *src, img_record *dst, uint32_t angle) {
    if (!has_all(*src, shape_flags)) return IMG_ST_BADARG;
    RectCopier copier{*src, *dst};
    take_format(*dst, *src);
    if (angle == IMG_ANGLE_0) return img_dtransform(src, dst);
    if (angle != IMG_ANGLE_90 && angle != IMG_ANGLE_180 && angle != IMG_ANGLE_270) return IMG_ST_BADFMT;
    img_record shape = *src; // of the rotated image
    if (angle != IMG_ANGLE_180) {
        shape.width = src->height;
        shape.height = src->width;
    }
    imgcpy(*dst, shape, size_flags);
    if (const img_status status = copier.prepare(IMG_F_PAL_ALPHA)) return status;

    // A smaller destination receives the top left part of the rotated image.
    const uint32_t across = smaller(shape.width, dst->width), down = smaller(shape.height, dst->height);
    if (angle == IMG_ANGLE_180)
        return copier.copy_rows({src->width - across, src->height - down, across, down}, {true, true, true});
    const bool clockwise = angle == IMG_ANGLE_90;
    const Rect rect =
        clockwise ? Rect{0, src->height - across, down, across} : Rect{src->width - down, 0, down, across};
    if (!rect.width || !rect.height) return copier.done();
    return copier.to_buffer() ? rotate_into_buffer(copier, *dst, rect, clockwise)
                              : rotate_to_function(copier, *dst, rect, clockwise);
}
