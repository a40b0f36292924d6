// SPDX-License-Identifier: MIT
//
// Allocates and releases the storage of image records, and copies fields between them.
#include "core/record.h"

#include <stdlib.h>
#include <string.h>

using namespace img;

img_status img_alloc(img_record *record, img_alloc_result *result) {
    *result = 0;
    const bool wants_palette = is_palette(record->format) && !has(*record, IMG_F_PALETTE);
    uint64_t pixel_bytes = 0;
    uint32_t stride = 0;
    if (!has(*record, storage_flags)) {
        // Kept: The size of a row wraps at 32 bits in img_alloc. Only the product with the height is checked.
        stride = (((bits_per_pixel(record->format) * record->width + 7) >> 3) + 3) & ~uint32_t{3};
        pixel_bytes = uint64_t{record->height} * stride;
    }
    const uint64_t palette_bytes = wants_palette ? record->ncolors * uint32_t{sizeof(uint32_t)} : 0;
    if (pixel_bytes > UINT32_MAX || pixel_bytes + palette_bytes > UINT32_MAX) return IMG_ST_NOMEM;
    if (pixel_bytes + palette_bytes == 0) return IMG_ST_OK;

    auto *block = static_cast<uint8_t *>(malloc(pixel_bytes + palette_bytes));
    if (!block) return IMG_ST_NOMEM;
    if (pixel_bytes) {
        *result |= IMG_ALLOC_PIXELS;
        record->flags |= IMG_F_DIRECT;
        record->data = block;
        record->stride = stride;
    }
    if (palette_bytes) {
        *result |= IMG_ALLOC_PALETTE;
        record->flags |= IMG_F_PALETTE;
        record->palette = reinterpret_cast<uint32_t *>(block + pixel_bytes);
    }
    return IMG_ST_OK;
}

namespace img {

void Storage::release(img_record &record, img_alloc_result made) {
    if (made & IMG_ALLOC_PIXELS) {
        free(record.data);
        record.data = nullptr;
        record.flags &= ~img_flags{IMG_F_DIRECT};
    } else if (made & IMG_ALLOC_PALETTE) {
        free(record.palette);
    }
    if (made & IMG_ALLOC_PALETTE) {
        record.palette = nullptr;
        record.flags &= ~img_flags{IMG_F_PALETTE};
    }
}

void imgcpy(img_record &dst, const img_record &src, img_flags mask) {
    const img_flags wanted = mask & src.flags & ~dst.flags;
    if (wanted & IMG_F_WIDTH) dst.width = src.width;
    if (wanted & IMG_F_HEIGHT) dst.height = src.height;
    if (wanted & IMG_F_FORMAT) dst.format = src.format;
    dst.flags |= wanted & (shape_flags | IMG_F_CODEC_MARK);
    if ((wanted & storage_flags) && !has(dst, storage_flags)) {
        memcpy(&dst.data, &src.data, sizeof src.data);
        memcpy(&dst.access_arg, &src.access_arg, sizeof src.access_arg);
        dst.flags |= wanted & storage_flags;
    }
}

void take_format(img_record &dst, const img_record &src) {
    if (!has(dst, IMG_F_FORMAT) && is_palette(src.format)) dst.ncolors = src.ncolors;
    imgcpy(dst, src, IMG_F_FORMAT);
}

void copy_palette(img_record &dst, const img_record &src) {
    const uint32_t count = has(src, IMG_F_PALETTE) ? smaller(src.ncolors, dst.ncolors) : 0;
    for (uint32_t i = 0; i < count; i++) dst.palette[i] = src.palette[i];
    for (uint32_t i = count; i < dst.ncolors; i++) dst.palette[i] = 0;
}

const uint8_t *padded_run(const uint8_t *run, uint64_t there, uint64_t needed, uint8_t *scratch) {
    if (needed <= there) return run;
    memcpy(scratch, run, there);
    memset(scratch + there, 0, needed - there);
    return scratch;
}

uint32_t stored_key(const img_record &record) {
    const uint32_t bits = bits_per_pixel(record.format);
    return bits > 16 ? record.transparency : bits == 16 ? record.transparency16 : record.transparency8;
}

KeyPixel key_pixel(img_format format, uint32_t key) {
    KeyPixel pixel;
    const uint32_t bits = bits_per_pixel(format);
    memcpy(pixel.bytes, &key, sizeof key);
    const auto half = static_cast<uint16_t>(key);
    if (bits == 16) memcpy(pixel.bytes, &half, sizeof half);
    if (bits <= 8) pixel.bytes[0] = static_cast<uint8_t>(key << (8 - bits));
    return pixel;
}

img_status allocate_storage(img_record &record, img_alloc_result &made) {
    const bool row_wraps = run_bits(record.format, record.width) > UINT32_MAX - 7;
    if (row_wraps && record.height && !has(record, storage_flags)) {
        made = 0;
        return IMG_ST_NOMEM;
    }
    return img_alloc(&record, &made);
}

} // namespace img
