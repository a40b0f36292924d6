// SPDX-License-Identifier: MIT
//
// What flip, crop and quarter turns share: a rectangle of the source is read row by row in the destination's format, and
// each row is placed by the destination's copy routine. Where rows go is for the users to say.
#pragma once

#include "convert/rows.h"
#include "convert/transform.h"

#include <stddef.h>

namespace img {

// A rectangle of the source.
struct Cut {
    uint32_t x, y, width, height;
    bool wraps = false; // where its first row begins in a buffer is counted in 32 bits
};

// How rows lie in the destination.
struct Placement {
    bool mirrored;      // from right to left
    bool upward;        // the first row at the bottom of a buffer
    bool handed_upward; // the last row handed over first, numbered from the bottom
};

// Rows that lie `step` bytes apart.
struct Band {
    const uint8_t *first;
    ptrdiff_t step;
    uint32_t count;
};

class Frame {
public:
    Frame(const img_record &src, img_record &dst) : src_(src), dst_(dst), storage_(dst) {}

    // Finds the copy routine, prepares the conversion and gives dst its storage with the palette. marks: dst also takes
    // the mark that the palette carries alpha.
    img_status prepare(img_flags marks);

    // Makes the working memory for reading cut, `lines` converted rows at a time, and `extra` bytes for the user.
    img_status begin(const Cut &cut, uint32_t lines, uint64_t extra);

    // Row i of the cut. It stays until `lines` further rows were read.
    const uint8_t *row(uint32_t i);

    // Rows of the cut from i on, together: all that were asked for if they are read where they lie, otherwise as many as
    // there are lines for.
    Band rows(uint32_t i, uint32_t count);

    // Places all rows of the cut.
    img_status copy_rows(const Cut &cut, const Placement &placement);

    // Keeps what dst was given. All went well.
    img_status done() {
        storage_.keep();
        return IMG_ST_OK;
    }

    bool to_buffer() const { return has(dst_, IMG_F_DIRECT); }
    uint32_t pixel_bytes() const { return (bits_per_pixel(dst_.format) + 7) / 8; }
    img_copy_func copy() const { return copy_; }
    uint8_t *extra() const { return memory_.get() + lines_ * line_bytes_; }

private:
    void rows_to_buffer(const Cut &cut, const Placement &placement);
    void rows_to_function(const Cut &cut, const Placement &placement);

    const img_record &src_;
    img_record &dst_;
    Storage storage_;
    Transform transform_; // null when the formats are the same
    img_copy_func copy_ = nullptr;
    Cut cut_{};
    Owned<uint8_t> memory_; // converted rows, then the user's
    uint32_t lines_ = 0;
    uint64_t line_bytes_ = 0;        // 0 when rows are read where they lie
    const uint8_t *first_ = nullptr; // of a buffer, where the cut begins
    uint64_t readable_ = 0;          // bytes from there to the end of the row
};

} // namespace img
