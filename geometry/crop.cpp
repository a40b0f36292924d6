// SPDX-License-Identifier: MIT
//
// Crop: a rectangle of an image, of the destination's size.
#include "geometry/frame.h"

using namespace img;

img_status img_crop(const img_record *src, img_record *dst, uint32_t x, uint32_t y) {
    if (!has_all(*src, shape_flags) || !has_all(*dst, size_flags)) return IMG_ST_BADARG;
    if (uint64_t{x} + dst->width > src->width || uint64_t{y} + dst->height > src->height) return IMG_ST_BADARG;
    Frame frame{*src, *dst};
    take_format(*dst, *src);
    if (const img_status status = frame.prepare(0)) return status;
    // Kept: the offset of the first row wraps at 32 bits.
    return frame.copy_rows({x, y, dst->width, dst->height, true}, {});
}
