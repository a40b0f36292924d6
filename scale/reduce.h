// SPDX-License-Identifier: MIT
//
// A source that is folded vertically: each row delivered is the mean of 2^k rows, so that a tall reduction reads every row
// once and weighs it equally.
#pragma once

#include "convert/transform.h"
#include "core/owned.h"
#include "core/record.h"
#include "scale/resize.h"

namespace img {

class Reducer {
public:
    // Prepares the folding of 2^shift rows of src into one in the working format. dst is the destination of the resize.
    img_status prepare(const img_record &src, const img_record &dst, img_format work, uint32_t shift,
                       const Sequence *sequence);

    // The folded source as an image with an access function; the reducer must outlive it.
    img_record image();

private:
    static int read(void *reducer, uint32_t x, uint32_t row, uint32_t width, void *out);
    void fold(uint32_t row, uint32_t width, uint8_t *out) const;
    const uint8_t *fetch(uint32_t row, uint32_t width, uint8_t *line) const;

    const img_record *src_ = nullptr;
    const Sequence *sequence_ = nullptr;
    img_format work_ = 0;
    uint32_t shift_ = 0;
    img_avg_func average_ = nullptr;
    Transform transform_;  // null when src is in the working format
    Owned<uint8_t> lines_; // shift + 1 of them
    uint64_t line_bytes_ = 0;
};

} // namespace img
