// SPDX-License-Identifier: MIT
//
// Palette indices unpacked to bytes, and looked up, one by one. Part of palette_kernels.cpp.
//
// Only entries up to the highest index of a run are read, because a short palette may be all that there is.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace img::IMG_TARGET {
namespace {

// The first index of a byte is in its top bits.
template <uint32_t bits> uint8_t index_at(const uint8_t *packed, size_t i) {
    constexpr size_t per_byte = 8 / bits;
    return uint8_t(packed[i / per_byte] >> (8 - bits - i % per_byte * bits)) & ((1 << bits) - 1);
}

template <uint32_t bits> void unpack_singly(const uint8_t *src, uint8_t *dst, size_t count) {
    for (size_t i = 0; i < count; i++) dst[i] = index_at<bits>(src, i);
}

template <uint32_t bits, uint32_t bytes>
void expand_singly(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette) {
    size_t i = 0;
    if constexpr (bits == 8) { // eight indices from one load, since loads are what limits this
        for (; i + 8 <= count; i += 8) {
            uint64_t indices;
            memcpy(&indices, src + i, sizeof indices);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
            indices = __builtin_bswap64(indices);
#endif
            for (size_t k = 0; k < 8; k++)
                memcpy(dst + (i + k) * bytes, palette + (indices >> 8 * k & 0xff) * bytes, bytes);
        }
    }
    for (; i < count; i++) memcpy(dst + i * bytes, palette + index_at<bits>(src, i) * bytes, bytes);
}

} // namespace
} // namespace img::IMG_TARGET
