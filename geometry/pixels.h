// SPDX-License-Identifier: MIT
//
// Pixels mirrored and transposed one by one, for every CPU and for what is too small for registers. Part of
// kernels.cpp.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace img::IMG_TARGET {
namespace {

template <size_t bytes> void mirror_pixels(const uint8_t *src, uint8_t *dst, size_t count) {
    for (size_t i = 0; i < count; i++) memcpy(dst + (count - 1 - i) * bytes, src + i * bytes, bytes);
}

// A band of rows is transposed together: enough to fill the cache lines that a column touches.
template <size_t bytes>
void transpose_pixels(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, uint32_t width,
                      uint32_t height) {
    constexpr uint32_t band = 32;
    for (uint32_t y0 = 0; y0 < height; y0 += band) {
        const uint32_t end = height - y0 < band ? height : y0 + band;
        for (uint32_t x = 0; x < width; x++)
            for (uint32_t y = y0; y < end; y++)
                memcpy(dst + x * dst_step + y * bytes, src + y * src_step + x * bytes, bytes);
    }
}

inline void copy_each_row(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t bytes,
                          uint32_t rows) {
    for (; rows; rows--, src += src_step, dst += dst_step) memcpy(dst, src, bytes);
}

} // namespace
} // namespace img::IMG_TARGET
