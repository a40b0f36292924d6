// SPDX-License-Identifier: MIT
//
// A source that is folded vertically: each row is the mean of 2^k rows, so that a tall reduction reads every row once and
// weighs it equally. The last mean is left to who scales the row: the two lines go through the CPU together once.
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

    // The format and the size of the folded source.
    img_record shape() const;

    // The two lines whose mean is a row, in the working format; they last until the next call.
    struct Pair {
        const uint8_t *above, *below;
    };
    Pair fold(uint32_t row) const;

    // Whether each row is the mean of two that are used where they lie, one pair behind the other.
    bool pairs_lie_ready() const { return shift_ == 1 && has(*src_, IMG_F_DIRECT) && !transform_; }

private:
    const uint8_t *fetch(uint32_t row, uint8_t *line) const;

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
