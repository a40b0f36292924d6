// SPDX-License-Identifier: MIT
//
// The mean of two words of a family, and of runs of them. Part of the sources that are compiled once per variant.
#pragma once

#include "scale/family.h"

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

// Words that are loaded together before any is stored: lines may be the same one, and the loops become vectors.
constexpr size_t block_bytes = 128;
template <Family F> constexpr size_t block_words = block_bytes / F.bytes;

} // namespace
} // namespace img::IMG_TARGET
