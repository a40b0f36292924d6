// SPDX-License-Identifier: MIT
//
// For every CPU: kernels run their plain loops, and need only this.
#pragma once

#include "simd/registers.h"

namespace simd {
namespace {

constexpr bool permutes_bytes = false, looks_up_256 = false;

// Copies at least `size` bytes, in two moves of that size if they suffice.
template <size_t size> INLINE void copy_overlapping(uint8_t *dst, const uint8_t *src, size_t bytes) {
    struct Piece {
        uint8_t bytes[size];
    } first, last;
    memcpy(&first, src, size);
    memcpy(&last, src + bytes - size, size);
    for (size_t i = size; i + size < bytes; i += size) memcpy(dst + i, src + i, size);
    memcpy(dst, &first, size);
    memcpy(dst + bytes - size, &last, size);
}

// The call of memcpy would take longer than the rest of a short run.
inline void copy_short(uint8_t *dst, const uint8_t *src, size_t bytes) {
    if (bytes >= 16) return copy_overlapping<16>(dst, src, bytes);
    if (bytes >= 8) return copy_overlapping<8>(dst, src, bytes);
    if (bytes >= 4) return copy_overlapping<4>(dst, src, bytes);
    if (bytes >= 2) return copy_overlapping<2>(dst, src, bytes);
    if (bytes) *dst = *src;
}

// Copies a run that is shorter than a block into a buffer, padded with zeros up to `size`, and out of one.
INLINE void read_padded(uint8_t *buffer, const uint8_t *src, size_t bytes, size_t size) {
    memset(buffer, 0, size);
    copy_short(buffer, src, bytes);
}
INLINE void write_part(uint8_t *dst, const uint8_t *buffer, size_t bytes) { copy_short(dst, buffer, bytes); }

// There are no portable stores past the caches, so that is never worth it.
constexpr size_t worth_streaming = ~size_t{0};
INLINE void stream(uint8_t *dst, const uint8_t *src, size_t bytes) { memcpy(dst, src, bytes); }
INLINE void end_streaming() {}

} // namespace
} // namespace simd
