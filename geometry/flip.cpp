// SPDX-License-Identifier: MIT
//
// Flips, in place or into another record.
#include "geometry/kernels.h"
#include "geometry/rect_copier.h"

#include <string.h>

using namespace img;

namespace {

// The four bits of a number in reverse order.
constexpr uint8_t reverse_table[16] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};

uint8_t reversed(uint8_t byte) {
    return static_cast<uint8_t>(reverse_table[byte & 15] << 4 | reverse_table[byte >> 4]);
}

// In place: swaps chunks from both ends of the row, one of them through a buffer.
template <size_t bytes> void mirror_pixels(uint8_t *row, uint32_t width) {
    constexpr size_t chunk = 1024;
    uint8_t saved[chunk * bytes];
    MirrorRows &mirror = *geometry_kernels.best().mirror[bytes - 1];
    uint8_t *left = row, *end = row + size_t{width} * bytes;
    for (size_t half = width / 2; half > 0;) {
        const size_t count = half < chunk ? half : chunk, count_bytes = count * bytes;
        memcpy(saved, left, count_bytes);
        mirror(end - count_bytes, 0, left, 0, count, 1);
        mirror(saved, 0, end - count_bytes, 0, count, 1);
        left += count_bytes;
        end -= count_bytes;
        half -= count;
    }
}

// 1 bit per pixel: reverses the bytes, then shifts left by the number of unused bits in the last byte, which become 0.
void mirror_bits(uint8_t *row, uint32_t width) {
    const size_t bytes = (size_t{width} + 7) / 8;
    mirror_pixels<1>(row, static_cast<uint32_t>(bytes));
    const uint32_t used = width & 7;
    uint8_t carry = 0;
    for (size_t i = bytes; i-- > 0;) {
        const uint8_t byte = reversed(row[i]);
        row[i] = used ? static_cast<uint8_t>(carry | byte << (8 - used)) : byte;
        carry = used ? static_cast<uint8_t>(byte >> used) : uint8_t{0};
    }
}

using Mirror = void(uint8_t *row, uint32_t width);

Mirror *mirror_of(uint32_t depth) {
    switch (depth) {
    case 1:
        return mirror_bits;
    case 8:
        return mirror_pixels<1>;
    case 16:
        return mirror_pixels<2>;
    case 24:
        return mirror_pixels<3>;
    case 32:
        return mirror_pixels<4>;
    }
    return nullptr;
}

} // namespace

img_status img_flip_vertical(img_record *image) {
    if (!has(*image, IMG_F_DIRECT)) return IMG_ST_BADFMT;
    if (!image->height) return IMG_ST_OK;
    const Owned<uint8_t> row = allocate<uint8_t>(image->stride);
    if (!row) return IMG_ST_NOMEM;
    auto *top = static_cast<uint8_t *>(image->data);
    uint8_t *bottom =
        top + uint32_t{(image->height - 1) * image->stride}; // Kept: img_flip_vertical computes an offset in 32 bits.
    for (; top < bottom; top += image->stride, bottom -= image->stride) {
        memcpy(row.get(), top, image->stride);
        memcpy(top, bottom, image->stride);
        memcpy(bottom, row.get(), image->stride);
    }
    return IMG_ST_OK;
}

img_status img_flip_horizontal(img_record *image) {
    if (image->width < 2) return IMG_ST_OK;
    if (!has(*image, IMG_F_DIRECT)) return IMG_ST_BADFMT;
    if (!image->height) return IMG_ST_OK;
    const uint32_t depth = bits_per_pixel(image->format);
    if (!depth) return IMG_ST_NOCODEC; // Kept: img_flip_horizontal answers a depth of 0 with IMG_ST_NOCODEC.
    Mirror *mirror = mirror_of(depth);
    if (!mirror) return IMG_ST_BADFMT;
    for (uint32_t y = 0; y < image->height; y++) mirror(row_at(*image, y), image->width);
    return IMG_ST_OK;
}

img_status img_flip(const img_record *src, img_record *dst, uint32_t direction) {
    if (!has_all(*src, shape_flags)) return IMG_ST_BADARG;
    RectCopier copier{*src, *dst};
    take_format(*dst, *src); // Kept: What a destination takes before a later step fails stays.
    if (direction > IMG_FLIP_VERTICAL) return IMG_ST_BADFMT;
    imgcpy(*dst, *src, size_flags);
    if (const img_status status = copier.prepare(IMG_F_PAL_ALPHA)) return status;
    // A smaller destination receives the right and bottom part.
    const uint32_t width = smaller(src->width, dst->width), height = smaller(src->height, dst->height);
    const bool vertical = direction == IMG_FLIP_VERTICAL;
    // Kept: img_flip calls an access function from the bottom row up in either direction.
    return copier.copy_rows({src->width - width, src->height - height, width, height}, {!vertical, vertical, true});
}
