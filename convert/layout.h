// SPDX-License-Identifier: MIT
//
// The pixel layouts as values, and what follows from a pair of them. The functions are static, because this header is
// compiled for several instruction sets and one with linkage could be linked from one into another.
#pragma once

#include <stdint.h>

namespace img {

// Where a channel is in the word of a pixel. It has no bits if the layout has no such channel.
struct Field {
    uint8_t shift, bits;
};

static constexpr uint32_t field_mask(Field f) { return ((uint32_t{1} << f.bits) - 1) << f.shift; }

// A pixel is a word in host byte order, except that the first byte of a 24-bit pixel in memory is always the lowest.
struct Layout {
    uint8_t bytes; // of a pixel in memory, 1 to 4
    bool swapped;  // 16 bits: stored in the other byte order
    Field r, g, b, a;
};

// The layout in the other byte order. Channels of 32-bit pixels are whole bytes, so there the fields just move.
static constexpr Layout other_order(Layout l) {
    if (l.bytes == 2) return {2, !l.swapped, l.r, l.g, l.b, l.a};
    const auto mirrored = [](Field f) { return Field{f.bits ? uint8_t(24 - f.shift) : uint8_t(0), f.bits}; };
    return {4, false, mirrored(l.r), mirrored(l.g), mirrored(l.b), mirrored(l.a)};
}

static constexpr Layout without_alpha(Layout l) { return {l.bytes, l.swapped, l.r, l.g, l.b, {}}; }
static constexpr Layout red_as_blue(Layout l) { return {l.bytes, l.swapped, l.b, l.g, l.r, l.a}; }

namespace layout {

// Grey is three channels in one place.
inline constexpr Layout g8{1, false, {0, 8}, {0, 8}, {0, 8}, {}};
inline constexpr Layout a8{1, false, {}, {}, {}, {0, 8}};
inline constexpr Layout argb1555he{2, false, {10, 5}, {5, 5}, {0, 5}, {15, 1}};
inline constexpr Layout argb1555oe = other_order(argb1555he);
inline constexpr Layout xrgb1555he = without_alpha(argb1555he);
inline constexpr Layout xrgb1555oe = without_alpha(argb1555oe);
inline constexpr Layout rgb565he{2, false, {11, 5}, {5, 6}, {0, 5}, {}};
inline constexpr Layout rgb565oe = other_order(rgb565he);
inline constexpr Layout bgr888{3, false, {16, 8}, {8, 8}, {0, 8}, {}};
inline constexpr Layout rgb888{3, false, {0, 8}, {8, 8}, {16, 8}, {}};
inline constexpr Layout argb8888he{4, false, {16, 8}, {8, 8}, {0, 8}, {24, 8}};
inline constexpr Layout argb8888oe = other_order(argb8888he);
inline constexpr Layout xrgb8888he = without_alpha(argb8888he);
inline constexpr Layout xrgb8888oe = without_alpha(argb8888oe);
inline constexpr Layout abgr8888he{4, false, {0, 8}, {8, 8}, {16, 8}, {24, 8}};
inline constexpr Layout abgr8888oe = other_order(abgr8888he);
inline constexpr Layout xbgr8888he = without_alpha(abgr8888he);
inline constexpr Layout xbgr8888oe = without_alpha(abgr8888oe);

} // namespace layout

// What a routine does with a pixel. Grey is the sum of the channels times their weights, which are in 256ths.
enum class Rule : uint8_t { repack, luma, green_luma };

struct Weights {
    uint8_t r, g, b;
};

static constexpr Weights weights(Rule rule) {
    // Kept: Grey of ABGR sources is computed from green alone. White gives 150.
    return rule == Rule::green_luma ? Weights{0, 151, 0} : Weights{77, 151, 28};
}

// The weight of a raw field: fields of 5 and 6 bits are not widened for grey, their weights are scaled instead.
static constexpr uint16_t raw_weight(Field f, uint8_t weight) { return uint16_t(weight << (8 - f.bits)); }

// How a word is repacked: which bits move by which distance, and which are set.
struct Moves {
    struct Move {
        int distance;  // up; negative: down
        uint32_t bits; // of the result
    } move[32];
    uint32_t count;
    uint32_t set; // alpha, if the source has none

    constexpr void add(int distance, uint32_t bit) {
        uint32_t i = 0;
        while (i < count && move[i].distance != distance) i++;
        if (i == count) move[count++] = {distance, 0};
        move[i].bits |= bit;
    }
};

// Channels are widened by repeating their top bits and narrowed by dropping low ones: counted from the top, bit i of a
// channel of the result is bit i mod n of a channel of n bits.
static constexpr Moves moves(Layout src, Layout dst) {
    Moves m{};
    const Field from[] = {src.r, src.g, src.b, src.a}, to[] = {dst.r, dst.g, dst.b, dst.a};
    for (int channel = 0; channel < 4; channel++) {
        const Field f = from[channel], t = to[channel];
        if (!f.bits) m.set |= field_mask(t);
        for (int i = 0; f.bits && i < t.bits; i++) {
            const int source = f.shift + f.bits - 1 - i % f.bits, result = t.shift + t.bits - 1 - i;
            m.add(result - source, uint32_t{1} << result);
        }
    }
    return m;
}

} // namespace img
