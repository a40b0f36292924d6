// SPDX-License-Identifier: MIT
//
// Palette expansion: chooses the routine for two depths. The routines call those of the active variant.
#include "convert/expand.h"

#include "convert/kernels.h"
#include "core/record.h"

#define EXPAND(index_bits, depth, pixel_bits)                                                                          \
    void img_expand_##index_bits##_##pixel_bits(const void *src, void *dst, uint32_t count, const void *palette) {     \
        img::palette_kernels.best().expand[depth][pixel_bits / 8 - 1](src, dst, count, palette);                       \
    }
#define EXPAND_ALL(index_bits, depth)                                                                                  \
    EXPAND(index_bits, depth, 8)                                                                                       \
    EXPAND(index_bits, depth, 16)                                                                                      \
    EXPAND(index_bits, depth, 24)                                                                                      \
    EXPAND(index_bits, depth, 32)

EXPAND_ALL(1, 0)
EXPAND_ALL(4, 1)
EXPAND_ALL(8, 2)

img_expand_func img_expand_getfunc(img_format src, img_format dst) {
    static constexpr img_expand_func routines[img::index_depths][img::pixel_depths] = {
        {img_expand_1_8, img_expand_1_16, img_expand_1_24, img_expand_1_32},
        {img_expand_4_8, img_expand_4_16, img_expand_4_24, img_expand_4_32},
        {img_expand_8_8, img_expand_8_16, img_expand_8_24, img_expand_8_32},
    };
    // Kept: img_expand_getfunc looks at the depths alone.
    const uint32_t index_bits = img::bits_per_pixel(src), pixel_bits = img::bits_per_pixel(dst);
    if (pixel_bits % 8 || pixel_bits < 8 || pixel_bits > 32) return nullptr;
    const auto &row = index_bits == 1 ? routines[0] : index_bits == 4 ? routines[1] : routines[2];
    return index_bits == 1 || index_bits == 4 || index_bits == 8 ? row[pixel_bits / 8 - 1] : nullptr;
}
