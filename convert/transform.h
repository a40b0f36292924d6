// SPDX-License-Identifier: MIT
//
// The state of a data transform, and what its users share.
#pragma once

#include "core/owned.h"
#include "core/record.h"

struct img_dtransform_state {
    uint32_t kind; // img::transform_expands or 0
    union {
        img_cvt_func convert;
        img_expand_func expand;
    };
    const void *palette; // when expanding: entries in the destination's format, often stored right after this record
};

namespace img {

inline constexpr uint32_t transform_expands = 0x1;

// Sets kind and routine for runs of one format into another: indices that become colours are expanded, all else is
// converted. False if there is no routine. A state that expands needs a palette as well, in dst's format.
bool find_routine(img_format src, img_format dst, img_dtransform_state &state);

// Owns a state from img_dtransform_create.
using Transform = Owned<img_dtransform_state>;

// img_dtransform and img_dtransform_bu.
img_status copy_image(const img_record &src, img_record &dst, bool upside_down);

// The number of entries that a palette needs to cover every index of the format.
constexpr uint64_t full_palette(img_format format, uint32_t ncolors) {
    return larger(ncolors, uint64_t{1} << bits_per_pixel(format));
}

} // namespace img
