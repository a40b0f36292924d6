// SPDX-License-Identifier: MIT
//
// A block of pixels in plain C++, for every CPU: words are loaded, the rule is applied, words are stored. Part of
// run.h.
#pragma once

#include "convert/indices.h"
#include "convert/repack.h"
#include "simd/simd.h"

#include <stddef.h>
#include <string.h>

namespace img::IMG_TARGET {
namespace {

using namespace simd;

constexpr size_t block = 32;

template <Layout S> INLINE uint32_t load_pixel(const uint8_t *p) {
    if constexpr (S.bytes == 1) {
        return *p;
    } else if constexpr (S.bytes == 2) {
        uint16_t w;
        memcpy(&w, p, sizeof w);
        return S.swapped ? __builtin_bswap16(w) : w;
    } else if constexpr (S.bytes == 3) {
        return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16;
    } else {
        uint32_t w;
        memcpy(&w, p, sizeof w);
        return w;
    }
}

template <Layout D> INLINE void store_pixel(uint8_t *p, uint32_t word) {
    if constexpr (D.bytes == 1) {
        *p = uint8_t(word);
    } else if constexpr (D.bytes == 2) {
        const auto half = uint16_t(word);
        const uint16_t w = D.swapped ? __builtin_bswap16(half) : half;
        memcpy(p, &w, sizeof w);
    } else if constexpr (D.bytes == 3) {
        p[0] = uint8_t(word);
        p[1] = uint8_t(word >> 8);
        p[2] = uint8_t(word >> 16);
    } else {
        memcpy(p, &word, sizeof word);
    }
}

template <Field F> INLINE uint32_t field(uint32_t word) { return (word & field_mask(F)) >> F.shift; }

template <Layout S, Weights W> INLINE uint32_t luma(uint32_t word) {
    return (field<S.r>(word) * raw_weight(S.r, W.r) + field<S.g>(word) * raw_weight(S.g, W.g) +
            field<S.b>(word) * raw_weight(S.b, W.b)) >>
           8;
}

// Reads all of the block before it writes any of it.
template <Layout S, Layout D, Rule R> INLINE void convert_block(const uint8_t *src, uint8_t *dst) {
    uint32_t words[block];
    for (size_t i = 0; i < block; i++) words[i] = load_pixel<S>(src + i * S.bytes);
    for (uint32_t &word : words) {
        if constexpr (R == Rule::repack)
            word = repack<S, D, uint32_t>(word);
        else
            word = luma<S, weights(R)>(word);
    }
    for (size_t i = 0; i < block; i++) store_pixel<D>(dst + i * D.bytes, words[i]);
}

template <uint32_t bits> void unpack_indices(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *) {
    unpack_singly<bits>(src, dst, count);
}

template <uint32_t bits, uint32_t bytes>
void expand_indices(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette) {
    expand_singly<bits, bytes>(src, dst, count, palette);
}

} // namespace
} // namespace img::IMG_TARGET
