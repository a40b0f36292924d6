// SPDX-License-Identifier: MIT
//
// Words, pixels and lines one after the other. Part of kernels.cpp.
#pragma once

#include "scale/family.h"
#include "scale/params.h"

#include <stddef.h>
#include <string.h>

namespace img::IMG_TARGET {
namespace {

template <uint32_t bytes> struct WordOf;
template <> struct WordOf<1> { using Type = uint8_t; };
template <> struct WordOf<2> { using Type = uint16_t; };
template <> struct WordOf<4> { using Type = uint32_t; };
template <Family F> using Word = typename WordOf<F.bytes>::Type;

template <Family F> Word<F> in_order(Word<F> word) {
    if constexpr (F.swapped) return __builtin_bswap16(word);
    return word;
}

template <Family F> Word<F> mean(Word<F> a, Word<F> b) {
    const Word<F> x = in_order<F>(a), y = in_order<F>(b);
    return in_order<F>(Word<F>((x & y) + (((x ^ y) & F.mask) >> 1)));
}

// One pixel at an address of any alignment.
template <Family F> struct Pixel {
    Word<F> words[F.elements];

    static Pixel load(const uint8_t *at) {
        Pixel pixel;
        memcpy(pixel.words, at, sizeof pixel.words);
        return pixel;
    }
    void store(uint8_t *at) const {
        Pixel pixel = *this;
        for (Word<F> &word : pixel.words) word |= Word<F>(F.forced);
        memcpy(at, pixel.words, sizeof pixel.words);
    }
};

template <Family F> Pixel<F> mean(const Pixel<F> &a, const Pixel<F> &b) {
    Pixel<F> result;
    for (uint32_t i = 0; i < F.elements; i++) result.words[i] = mean<F>(a.words[i], b.words[i]);
    return result;
}

// Pixel i of the result is the mean of pixels 2 i and 2 i + 1. In place as well: a block is read before it is written.
template <Family F> void halve_pixels(const uint8_t *src, uint8_t *dst, size_t count) {
    constexpr size_t pixel_bytes = F.elements * F.bytes, block = 32;
    Word<F> in[2 * block * F.elements], out[block * F.elements];
    while (count) {
        const size_t n = count < block ? count : block;
        memcpy(in, src, 2 * n * pixel_bytes);
        for (size_t i = 0; i < n; i++)
            for (size_t k = 0; k < F.elements; k++)
                out[i * F.elements + k] = mean<F>(in[2 * i * F.elements + k], in[(2 * i + 1) * F.elements + k]);
        memcpy(dst, out, n * pixel_bytes);
        src += 2 * n * pixel_bytes;
        dst += n * pixel_bytes;
        count -= n;
    }
}

// Every second pixel.
template <Family F> void thin_pixels(const uint8_t *src, uint8_t *dst, size_t count) {
    constexpr size_t pixel_bytes = F.elements * F.bytes;
    for (size_t i = 0; i < count; i++) Pixel<F>::load(src + 2 * i * pixel_bytes).store(dst + i * pixel_bytes);
}

} // namespace
} // namespace img::IMG_TARGET
