// SPDX-License-Identifier: MIT
//
// Crop: copies a rectangle of the destination's size.
#include "geometry/rect_copier.h"

using namespace img;

img_status img_crop(const img_record *src, img_record *dst, uint32_t x, uint32_t y) {
    if (!has_all(*src, shape_flags) || !has_all(*dst, size_flags)) return IMG_ST_BADARG;
    if (uint64_t{x} + dst->width > src->width || uint64_t{y} + dst->height > src->height) return IMG_ST_BADARG;
    RectCopier copier{*src, *dst};
    take_format(*dst, *src);
    if (const img_status status = copier.prepare(0)) return status; // Kept: Crop does not copy IMG_F_PAL_ALPHA.
    // Kept: Crop computes the offset of its first row in 32 bits.
    return copier.copy_rows({x, y, dst->width, dst->height, true}, {});
}
