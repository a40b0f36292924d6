// SPDX-License-Identifier: MIT
//
// Quarter, half and three-quarter turns.
#include "geometry/frame.h"

#include <string.h>

using namespace img;

namespace {

// Columns that are handed to an access function together.
constexpr uint32_t block_columns = 8;

// Rows of a band that is turned together: enough to fill the cache lines that a column touches.
constexpr uint32_t band_rows = 32;

// Writes rows as columns: row i goes down, or up, the column `first + i * column_step` of dst.
template <size_t bytes>
void turn_band(const uint8_t *const *rows, uint32_t nrows, uint32_t width, uint8_t *first, int64_t column_step,
               int64_t row_step) {
    for (uint32_t x = 0; x < width; x++) {
        uint8_t *out = first + x * row_step;
        for (uint32_t i = 0; i < nrows; i++) memcpy(out + i * column_step, rows[i] + size_t{x} * bytes, bytes);
    }
}

using TurnBand = void(const uint8_t *const *rows, uint32_t nrows, uint32_t width, uint8_t *first, int64_t column_step,
                      int64_t row_step);
constexpr TurnBand *turn_bands[] = {nullptr, turn_band<1>, turn_band<2>, turn_band<3>, turn_band<4>};

// Into a buffer, a band of rows at a time: each cache line of the destination is filled while it is at hand.
img_status turn_into_buffer(Frame &frame, const img_record &dst, const Cut &cut, bool clockwise) {
    if (const img_status status = frame.begin(cut, band_rows, 0)) return status;
    const auto pixel = static_cast<int64_t>(frame.pixel_bytes());
    const int64_t row_step = clockwise ? int64_t{dst.stride} : -int64_t{dst.stride};
    const int64_t column_step = clockwise ? -pixel : pixel;
    uint8_t *first = clockwise ? row_at(dst, 0) + (cut.height - 1) * pixel : row_at(dst, cut.width - 1);
    for (uint32_t y = 0; y < cut.height; y += band_rows) {
        const uint8_t *rows[band_rows];
        const uint32_t nrows = smaller(band_rows, cut.height - y);
        for (uint32_t i = 0; i < nrows; i++) rows[i] = frame.row(y + i);
        turn_bands[pixel](rows, nrows, cut.width, first + y * column_step, column_step, row_step);
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
    frame.take_format();
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
