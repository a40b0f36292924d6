// SPDX-License-Identifier: MIT
//
// The tables of conversion kernels, one for each variant. Declarations only: this header is compiled for several
// instruction sets.
#pragma once

#include "core/cpu.h"
#include "pictra/pictra.h"

namespace img {

// Expansions are indexed by the depth of the index (1, 4, 8 bits) and of the pixel (8, 16, 24, 32 bits).
enum : uint32_t { index_depths = 3, pixel_depths = 4 };

struct ConvertKernels {
#define ROUTINE(name, source, destination, rule) img_cvt_func name;
#include "convert/routines.inc"
};
IMG_PER_VARIANT(ConvertKernels, convert_kernels)

struct PaletteKernels {
    img_cvt_func pal1_pal8, pal4_pal8;
    img_expand_func expand[index_depths][pixel_depths];
};
IMG_PER_VARIANT(PaletteKernels, palette_kernels)

} // namespace img
