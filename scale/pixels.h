// SPDX-License-Identifier: MIT
//
// Pixels averaged and picked one after the other. Part of kernels.cpp.
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

template <Kind K> Word<K> in_host_order(Word<K> word) {
    if constexpr (K.swapped) return __builtin_bswap16(word);
    return word;
}

template <Kind K> Word<K> mean(Word<K> a, Word<K> b, const MeanRule &rule) {
    const Word<K> x = in_host_order<K>(a), y = in_host_order<K>(b);
    return in_host_order<K>(Word<K>((x & y) + (((x ^ y) & Word<K>(rule.mask)) >> 1)));
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

// Pixel i of the result is the mean of pixels 2 i and 2 i + 1, which are means of two lines if there is one below. dst
// may equal src: a block is read before it is written.
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

// The stepper in the manner of Bresenham, from the first pixel to the last, and the edge.
template <Kind K> [[gnu::noinline]] void step_pixels(const uint8_t *line, uint8_t *dst, const img_scl_parms &p) {
    const ptrdiff_t dir = p.dir * ptrdiff_t{K.bytes}, step = p.int_step * ptrdiff_t{K.bytes};
    const uint8_t *at = line + p.src_start * size_t{K.bytes};
    uint8_t *out = dst + p.dst_start * size_t{K.bytes};
    // Kept: the neighbour of a line that was halved to one pixel is the second pixel that the halving before left after
    // it. A line that was one pixel to begin with has none.
    const ptrdiff_t neighbour = p.src_width > 1 ? dir : 0;
    uint32_t fraction = 0;
    for (uint32_t i = 0; i < p.main_count; i++) {
        Pixel<K> pixel = Pixel<K>::load(at);
        if (fraction >= p.half) pixel = mean(pixel, Pixel<K>::load(at + neighbour), p.rule);
        pixel.store(out, p.rule);
        at += step;
        out += dir;
        fraction += p.frac_step;
        if (fraction >= p.dst_width) {
            fraction -= p.dst_width;
            at += dir;
        }
    }
    if (!p.edge_count) return;
    const Pixel<K> edge = Pixel<K>::load(at);
    for (uint32_t i = 0; i < p.edge_count; i++, out += dir) edge.store(out, p.rule);
}

} // namespace
} // namespace img::IMG_TARGET
