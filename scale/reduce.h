// SPDX-License-Identifier: MIT
//
// A source that is reduced vertically before it is resized: each of its rows is the average of 2^k source rows, so a
// tall reduction reads every row once and gives each the same weight. The last average is left to the caller, which
// computes it while it scales the row: the two lines then pass through the CPU once.
#pragma once

#include "convert/transform.h"
#include "core/owned.h"
#include "core/record.h"
#include "scale/resize.h"

namespace img {

class Reducer {
public:
    // Prepares the averaging of 2^shift rows of src in the working format. dst is the destination of the resize.
    img_status prepare(const img_record &src, const img_record &dst, img_format work, uint32_t shift,
                       const Sequence *sequence);

    // Format and size of the reduced source.
    img_record shape() const;

    // Two lines in the working format whose average is a row. They are valid until the next call.
    struct Pair {
        const uint8_t *above, *below;
    };
    Pair average(uint32_t row) const;

    // Whether every row averages two adjacent source rows that can be read in place.
    bool reads_pairs_in_place() const { return shift_ == 1 && has(*src_, IMG_F_DIRECT) && !transform_; }

private:
    const uint8_t *fetch(uint32_t row, uint8_t *line) const;

    const img_record *src_ = nullptr;
    const Sequence *sequence_ = nullptr;
    img_format work_ = 0;
    uint32_t shift_ = 0;
    img_avg_func average_ = nullptr;
    Transform transform_;  // null when src is in the working format
    Owned<uint8_t> lines_; // shift_ + 1 of them
    uint64_t line_bytes_ = 0;
};

} // namespace img
