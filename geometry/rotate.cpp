// SPDX-License-Identifier: MIT
//
// Quarter, half and three-quarter turns.
#include "geometry/frame.h"
#include "geometry/kernels.h"

using namespace img;

namespace {

// Columns that are handed to an access function together.
constexpr uint32_t block_columns = 8;

// Rows that are converted before they are turned together: enough for the kernels, and few enough for the caches.
constexpr uint32_t band_rows = 64;

// Into a buffer: straight from the source where rows are read where they lie, otherwise by bands of converted rows.
img_status turn_into_buffer(Frame &frame, const img_record &dst, const Cut &cut, bool clockwise) {
    if (const img_status status = frame.begin(cut, band_rows, 0)) return status;
    const uint32_t pixel = frame.pixel_bytes();
    TransposeRows &transpose = *geometry_kernels.best().transpose[pixel - 1];
    uint8_t *first = row_at(dst, clockwise ? 0 : cut.width - 1); // where the leftmost column goes
    const ptrdiff_t dst_step = clockwise ? ptrdiff_t{dst.stride} : -ptrdiff_t{dst.stride};
    for (uint32_t y = 0; y < cut.height;) {
        const Band band = frame.rows(y, cut.height - y);
        y += band.count;
        // Clockwise the last row of the source is the first column.
        const uint8_t *last = band.first + (band.count - 1) * band.step;
        if (clockwise)
            transpose(last, -band.step, first + size_t{cut.height - y} * pixel, dst_step, cut.width, band.count);
        else
            transpose(band.first, band.step, first + size_t{y - band.count} * pixel, dst_step, cut.width, band.count);
    }
    return frame.done();
}

// To an access function, in blocks of eight columns, which it gets line by line.
img_status turn_to_function(Frame &frame, const img_record &dst, const Cut &cut, bool clockwise) {
    const uint64_t line_bytes = row_bytes(dst.format, block_columns);
    if (const img_status status = frame.begin(cut, 1, line_bytes * cut.width)) return status;
    const auto pixel = frame.pixel_bytes();
    const auto down = static_cast<int32_t>(line_bytes);
    uint8_t *block = frame.extra(), *last_line = block + line_bytes * (cut.width - 1);
    uint32_t x = clockwise ? cut.height : 0;
    for (uint32_t y = 0; y < cut.height; y += block_columns) {
        const uint32_t columns = smaller(block_columns, cut.height - y);
        for (uint32_t i = 0; i < columns; i++) {
            if (clockwise)
                frame.copy()(frame.row(y + i), block + (block_columns - 1 - i) * pixel, down, cut.width);
            else
                frame.copy()(frame.row(y + i), last_line + i * pixel, -down, cut.width);
        }
        if (clockwise) x -= columns;
        uint8_t *line = block + (clockwise ? (block_columns - columns) * pixel : 0);
        for (uint32_t i = 0; i < cut.width; i++, line += line_bytes) Rows{dst}.pass(x, i, columns, line);
        if (!clockwise) x += columns;
    }
    return frame.done();
}

} // namespace

img_status img_rotate_ortho(const img_record *src, img_record *dst, uint32_t angle) {
    if (!has_all(*src, shape_flags)) return IMG_ST_BADARG;
    Frame frame{*src, *dst};
    take_format(*dst, *src);
    if (angle == IMG_ANGLE_0) return img_dtransform(src, dst);
    if (angle != IMG_ANGLE_90 && angle != IMG_ANGLE_180 && angle != IMG_ANGLE_270) return IMG_ST_BADFMT;
    img_record shape = *src; // as it is after the turn
    if (angle != IMG_ANGLE_180) {
        shape.width = src->height;
        shape.height = src->width;
    }
    imgcpy(*dst, shape, size_flags);
    if (const img_status status = frame.prepare(IMG_F_PAL_ALPHA)) return status;

    // A smaller destination gets the part that ends up at its top left.
    const uint32_t across = smaller(shape.width, dst->width), down = smaller(shape.height, dst->height);
    if (angle == IMG_ANGLE_180)
        return frame.copy_rows({src->width - across, src->height - down, across, down}, {true, true, true});
    const bool clockwise = angle == IMG_ANGLE_90;
    const Cut cut = clockwise ? Cut{0, src->height - across, down, across} : Cut{src->width - down, 0, down, across};
    if (!cut.width || !cut.height) return frame.done();
    return frame.to_buffer() ? turn_into_buffer(frame, *dst, cut, clockwise)
                             : turn_to_function(frame, *dst, cut, clockwise);
}
