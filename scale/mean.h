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
template <Kind K> using Word = typename WordOf<K.bytes>::Type;

template <Kind K> Word<K> in_order(Word<K> word) {
    if constexpr (K.swapped) return __builtin_bswap16(word);
    return word;
}

template <Kind K> Word<K> mean(Word<K> a, Word<K> b, const MeanRule &rule) {
    const Word<K> x = in_order<K>(a), y = in_order<K>(b);
    return in_order<K>(Word<K>((x & y) + (((x ^ y) & Word<K>(rule.mask)) >> 1)));
}

// One pixel at an address of any alignment.
template <Kind K> struct Pixel {
    Word<K> words[K.elements];

    static Pixel load(const uint8_t *at) {
        Pixel pixel;
        memcpy(pixel.words, at, sizeof pixel.words);
        return pixel;
    }
    void store(uint8_t *at, const MeanRule &rule) const {
        Pixel pixel = *this;
        for (Word<K> &word : pixel.words) word |= Word<K>(rule.forced);
        memcpy(at, pixel.words, sizeof pixel.words);
    }
};

template <Kind K> Pixel<K> mean(const Pixel<K> &a, const Pixel<K> &b, const MeanRule &rule) {
    Pixel<K> result;
    for (uint32_t i = 0; i < K.elements; i++) result.words[i] = mean<K>(a.words[i], b.words[i], rule);
    return result;
}

// Pixel i of the result is the mean of pixels 2 i and 2 i + 1, which are means of two lines if there is one below. In
// place as well: a block is read before it is written.
template <Kind K>
[[gnu::noinline]] void halve_pixels(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count,
                                    const MeanRule &rule) {
    constexpr size_t pixel_bytes = K.elements * K.bytes, block = 32, words = 2 * block * K.elements;
    Word<K> in[words] = {}, other[words] = {}, out[block * K.elements];
    while (count) {
        const size_t n = count < block ? count : block;
        memcpy(in, src, 2 * n * pixel_bytes);
        if (below) {
            memcpy(other, below, 2 * n * pixel_bytes);
            for (size_t i = 0; i < words; i++) in[i] = mean<K>(in[i], other[i], rule);
            below += 2 * n * pixel_bytes;
        }
        for (size_t i = 0; i < n; i++)
            for (size_t k = 0; k < K.elements; k++)
                out[i * K.elements + k] = mean<K>(in[2 * i * K.elements + k], in[(2 * i + 1) * K.elements + k], rule);
        memcpy(dst, out, n * pixel_bytes);
        src += 2 * n * pixel_bytes;
        dst += n * pixel_bytes;
        count -= n;
    }
}

// Every second pixel.
template <Kind K>
[[gnu::noinline]] void thin_pixels(const uint8_t *src, uint8_t *dst, size_t count, const MeanRule &rule) {
    constexpr size_t pixel_bytes = K.elements * K.bytes;
    for (size_t i = 0; i < count; i++) Pixel<K>::load(src + 2 * i * pixel_bytes).store(dst + i * pixel_bytes, rule);
}

} // namespace
} // namespace img::IMG_TARGET
