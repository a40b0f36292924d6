// SPDX-License-Identifier: MIT
//
// A frame that is being encoded: what the driver in encode.cpp and the default callouts share.
#pragma once

#include "convert/transform.h"
#include "core/record.h"

namespace img {

enum EncodeState : uint32_t { encode_set_up = 0x4, needs_conversion = 0x8 };

struct EncodeContext {
    img_encode_callouts callouts; // the codec's table; data is this context
    img_record image;             // the codec's record
    uint32_t state;               // EncodeState bits
    img_format chosen;            // needs_conversion
    const img_encode_callouts *caller;
    img_record *record; // the caller's
    uint8_t *line;      // owned: one row in the caller's format, when its rows come from an access function
    img_dtransform_state *transform; // owned
    const uint8_t *next_line; // the next row to deliver, whatever number is asked for; null if the number decides
    int64_t line_step;        // bytes from one row to the next
    uint32_t lines_left;      // rows from next_line on
};

// The table of default callouts. scanline is there only if the caller has it.
img_encode_callouts default_callouts(EncodeContext &context);

// The access function of the codec's record: fetches a run of the caller's pixels and converts it.
int encode_access(void *context, uint32_t x, uint32_t y, uint32_t count, void *out);

} // namespace img
