// SPDX-License-Identifier: MIT
//
// What flip, crop and rotation share: they read a rectangle of the source row by row, convert each row to the
// destination's format, and copy its pixels into place. The callers say where each row goes.
#pragma once

#include "convert/rows.h"
#include "convert/transform.h"

#include <stddef.h>

namespace img {

// A rectangle of the source.
struct Rect {
    uint32_t x, y, width, height;
    bool wraps = false; // the byte offset of its first row is computed in 32 bits
};

// Where rows go in the destination.
struct Placement {
    bool mirrored;     // each row from right to left
    bool upward;       // into a buffer: the first row goes to the bottom
    bool calls_upward; // to an access function: the first row has the highest number
};

// Rows that start `step` bytes apart.
struct Band {
    const uint8_t *first;
    ptrdiff_t step;
    uint32_t count;
};

class RectCopier {
public:
    RectCopier(const img_record &src, img_record &dst) : src_(src), dst_(dst), storage_(dst) {}

    // Finds the strided copy, prepares the conversion, and allocates what dst lacks of storage and palette. dst takes
    // those of the flags in marks that src has along with a palette.
    img_status prepare(img_flags marks);

    // Allocates the memory for reading rect, `lines` converted rows at a time, and `extra` bytes for the caller.
    img_status begin(const Rect &rect, uint32_t lines, uint64_t extra);

    // Row i of the rectangle. It is valid until `lines` more rows have been read.
    const uint8_t *row(uint32_t i);

    // Rows of the rectangle from row i on: all `count` of them if they can be used in place, otherwise as many as there
    // are lines for.
    Band rows(uint32_t i, uint32_t count);

    // Copies all rows of the rectangle into place.
    img_status copy_rows(const Rect &rect, const Placement &placement);

    // Success: dst keeps what was allocated for it.
    img_status done() {
        storage_.keep();
        return IMG_ST_OK;
    }

    bool to_buffer() const { return has(dst_, IMG_F_DIRECT); }
    uint32_t pixel_bytes() const { return (bits_per_pixel(dst_.format) + 7) / 8; }
    img_copy_func strided_copy() const { return copy_; }
    uint8_t *extra() const { return memory_.get() + lines_ * line_bytes_; }

private:
    void rows_to_buffer(const Rect &rect, const Placement &placement);
    void rows_to_function(const Rect &rect, const Placement &placement);

    const img_record &src_;
    img_record &dst_;
    Storage storage_;
    Transform transform_; // null when the formats are the same
    img_copy_func copy_ = nullptr;
    Rect rect_{};
    Owned<uint8_t> memory_; // lines_ converted rows, followed by the caller's bytes
    uint32_t lines_ = 0;
    uint64_t line_bytes_ = 0;        // 0 when rows are used in place
    const uint8_t *first_ = nullptr; // first byte of the rectangle in the source's buffer; null for an access function
    uint64_t readable_ = 0;          // bytes from there to the end of the row
};

} // namespace img
