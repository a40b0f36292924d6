// SPDX-License-Identifier: MIT
//
// Scaling without registers: pixel by pixel, but for the mean of two lines. Part of kernels.cpp.
#pragma once

#include "scale/pixels.h"

namespace img::IMG_TARGET {
namespace {

// Words that are loaded together before any is stored: lines may be the same one, and the loops become vectors.
constexpr size_t block_bytes = 128;
template <Kind K> constexpr size_t block_words = block_bytes / K.bytes;

template <Kind K> void average_block(const Word<K> *a, const Word<K> *b, Word<K> *out, const MeanRule &rule) {
    for (size_t i = 0; i < block_words<K>; i++) out[i] = mean<K>(a[i], b[i], rule) | Word<K>(rule.forced);
}

template <Kind K>
[[gnu::noinline]] void average(const void *a, const void *b, void *dst, size_t bytes, const MeanRule &rule) {
    const auto *x = static_cast<const uint8_t *>(a), *y = static_cast<const uint8_t *>(b);
    auto *out = static_cast<uint8_t *>(dst);
    Word<K> first[block_words<K>], second[block_words<K>];
    for (; bytes >= block_bytes; bytes -= block_bytes, x += block_bytes, y += block_bytes, out += block_bytes) {
        memcpy(first, x, block_bytes);
        memcpy(second, y, block_bytes);
        average_block<K>(first, second, first, rule);
        memcpy(out, first, block_bytes);
    }
    if (!bytes) return;
    memset(first, 0, block_bytes);
    memset(second, 0, block_bytes);
    memcpy(first, x, bytes);
    memcpy(second, y, bytes);
    average_block<K>(first, second, first, rule);
    memcpy(out, first, bytes);
}

template <Kind K> constexpr auto halve = halve_pixels<K>;
template <Kind K> constexpr auto thin = thin_pixels<K>;
template <Kind K> constexpr auto step = step_pixels<K>;
template <Kind K> constexpr img_scl_planner planner = nullptr;
template <Kind K> constexpr uint32_t least_quartered = 0;
template <Kind K> constexpr auto quarter = nullptr;

} // namespace
} // namespace img::IMG_TARGET
