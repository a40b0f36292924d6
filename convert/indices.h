// SPDX-License-Identifier: MIT
//
// Palette indices: unpacked to bytes, and looked up. Part of kernels.cpp.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace img::IMG_TARGET {
namespace {

// Indices lie from the top bit of a byte down.
template <uint32_t bits> uint8_t index_at(const uint8_t *packed, size_t i) {
    constexpr size_t per_byte = 8 / bits;
    return uint8_t(packed[i / per_byte] >> (8 - bits - i % per_byte * bits)) & ((1 << bits) - 1);
}

template <uint32_t bits> void unpack_indices(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *) {
    for (size_t i = 0; i < count; i++) dst[i] = index_at<bits>(src, i);
}

// Only entries that an index names are read: a short palette may end where memory ends.
template <uint32_t bits, uint32_t bytes>
void expand_indices(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette) {
    for (size_t i = 0; i < count; i++) memcpy(dst + i * bytes, palette + index_at<bits>(src, i) * bytes, bytes);
}

} // namespace
} // namespace img::IMG_TARGET
