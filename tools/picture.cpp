// SPDX-License-Identifier: MIT
#include "tools/picture.h"

#include "tools/text.h"

#include <algorithm>
#include <new>
#include <stdlib.h>
#include <string.h>

namespace tool {

namespace {

[[noreturn]] void out_of_memory() { throw std::bad_alloc(); }

} // namespace

void Picture::adopt(const img_record &given) {
    record_ = given;
    palette_ = {};
    if (!(given.flags & IMG_F_PALETTE)) return;
    record_.ncolors = std::min(given.ncolors, static_cast<uint32_t>(palette_.size()));
    std::copy_n(given.palette, record_.ncolors, palette_.begin());
    record_.palette = palette_.data();
}

img_status Picture::convert(img_format format) {
    const img_format before = record_.format;
    if (before == format) return IMG_ST_OK;
    const img_status status = replace([&](img_record &converted) {
        converted.format = format;
        return img_dtransform(&record_, &converted);
    });
    // Indices keep their key and the palette's alpha; colours of 24 and 32 bits have keys of one kind.
    const auto is_large = [](img_format f) { return (f & IMG_FMT_BPP_MASK) > 16; };
    if (status == IMG_ST_OK && !(format & IMG_FMT_PAL)) {
        record_.flags &= ~img_flags{IMG_F_PAL_ALPHA};
        if ((before & IMG_FMT_PAL) || is_large(before) != is_large(format)) drop_key();
    }
    return status;
}

void Picture::key_to_alpha() {
    const bool indexed = record_.format & IMG_FMT_PAL, keyed = has(IMG_F_TRANSP);
    uint32_t key = record_.transparency;
    if (indexed) {
        for (uint32_t i = 0; i < record_.ncolors && !has(IMG_F_PAL_ALPHA); i++) record_.palette[i] |= 0xff000000;
        if (keyed && record_.transparency8 < record_.ncolors) record_.palette[record_.transparency8] &= 0xffffff;
    } else if ((record_.format & IMG_FMT_BPP_MASK) <= 16) {
        img_convert_data(record_.format, &record_.transparency, FMT_ARGB8888HE, &key, 1);
    }
    if (const img_status status = convert(FMT_ARGB8888HE)) throw failure_of("the picture", status);
    if (!indexed && keyed) clear_key(key);
    drop_key();
}

void Picture::clear_key(uint32_t key) {
    for (uint32_t y = 0; y < record_.height; y++) {
        auto *row = reinterpret_cast<uint32_t *>(static_cast<uint8_t *>(record_.data) + size_t{y} * record_.stride);
        for (uint32_t x = 0; x < record_.width; x++)
            if (((row[x] ^ key) & 0xffffff) == 0) row[x] &= 0xffffff;
    }
}

void Picture::pack(img_format format) {
    const uint32_t bits = format & IMG_FMT_BPP_MASK, mask = (1u << bits) - 1;
    if (record_.format != FMT_PAL8 || bits == 8) return;
    const img_status status = replace([&](img_record &packed) -> img_status {
        img_alloc_result made;
        packed.format = format;
        packed.width = record_.width;
        packed.height = record_.height;
        packed.flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
        if (const img_status failure = img_alloc(&packed, &made)) return failure;
        memcpy(packed.palette, record_.palette, record_.ncolors * sizeof *record_.palette);
        memset(packed.data, 0, size_t{packed.stride} * packed.height);
        for (uint32_t y = 0; y < record_.height; y++) {
            const auto *from = static_cast<const uint8_t *>(record_.data) + size_t{y} * record_.stride;
            auto *to = static_cast<uint8_t *>(packed.data) + size_t{y} * packed.stride;
            for (uint32_t x = 0; x < record_.width; x++) {
                const uint32_t bit = x * bits;
                to[bit / 8] = static_cast<uint8_t>(to[bit / 8] | (from[x] & mask) << (8 - bits - bit % 8));
            }
        }
        return IMG_ST_OK;
    });
    if (status != IMG_ST_OK) out_of_memory();
}

// The library makes pixels and palette in one block.
void Picture::release() {
    if ((record_.flags & IMG_F_DIRECT) && !shared_) free(record_.data);
    shared_ = nullptr;
}

} // namespace tool
