// SPDX-License-Identifier: MIT
//
// Scaling in plain C++, for every CPU. Part of kernels.cpp.
#pragma once

#include "scale/mean.h"

namespace img::IMG_TARGET {
namespace {

// Words that are loaded together before any is stored: lines may be the same one, and the loops become vectors.
constexpr size_t block_bytes = 128;
template <Family F> constexpr size_t block_words = block_bytes / F.bytes;

template <Family F> void average_block(const Word<F> *a, const Word<F> *b, Word<F> *out) {
    for (size_t i = 0; i < block_words<F>; i++) out[i] = mean<F>(a[i], b[i]) | Word<F>(F.forced);
}

template <Family F> void average(const void *a, const void *b, void *dst, uint32_t count) {
    const auto *x = static_cast<const uint8_t *>(a), *y = static_cast<const uint8_t *>(b);
    auto *out = static_cast<uint8_t *>(dst);
    Word<F> first[block_words<F>], second[block_words<F>];
    size_t bytes = size_t{count} * F.elements * F.bytes;
    for (; bytes >= block_bytes; bytes -= block_bytes, x += block_bytes, y += block_bytes, out += block_bytes) {
        memcpy(first, x, block_bytes);
        memcpy(second, y, block_bytes);
        average_block<F>(first, second, first);
        memcpy(out, first, block_bytes);
    }
    if (!bytes) return;
    memset(first, 0, block_bytes);
    memset(second, 0, block_bytes);
    memcpy(first, x, bytes);
    memcpy(second, y, bytes);
    average_block<F>(first, second, first);
    memcpy(out, first, bytes);
}

} // namespace
} // namespace img::IMG_TARGET
