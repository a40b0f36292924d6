// SPDX-License-Identifier: MIT
//
// A frame that is being decoded: what the driver in decode.cpp and the default callouts share.
#pragma once

#include "convert/transform.h"
#include "core/record.h"

namespace img {

enum DecodeState : uint32_t {
    pixels_allocated = IMG_ALLOC_PIXELS,
    palette_allocated = IMG_ALLOC_PALETTE,
    decode_set_up = 0x4,
    converts_rows = 0x8, // with transform
    key_becomes_alpha = 0x10
};

struct DecodeContext {
    img_decode_callouts callouts; // the codec's table; data is this context
    img_record image;             // the codec's record
    uint32_t state;               // DecodeState bits
    const img_decode_callouts *caller;
    img_record *record;             // the caller's
    uint8_t *scratch;               // owned: one line, followed by the palette
    uint8_t *palette;               // in the caller's format; null unless the transform expands
    img_dtransform_state transform; // from the codec's format to the caller's
    uint8_t *next_line;             // where the next row goes, whatever its number; null if its number decides
    int32_t line_step;              // bytes from one row to the next
    uint32_t key;                   // key_becomes_alpha

    uint32_t lines_left;      // rows that next_line still has room for
    uint32_t line_width;      // pixels that the scratch line holds
    uint32_t palette_entries; // entries that the palette holds
};

// The table of default callouts. scanline and set_value are there only if the caller has them.
img_decode_callouts default_callouts(DecodeContext &context);

// Makes pixels that are equal to the key transparent. False for depths other than 16 and 32.
bool key_to_alpha(img_format format, uint32_t key, uint8_t *pixels, uint32_t count);

// The access function of the codec's record: converts a run and stores it in the caller's image.
int decode_access(void *context, uint32_t x, uint32_t y, uint32_t count, void *line);

} // namespace img
