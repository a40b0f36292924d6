// SPDX-License-Identifier: MIT
//
// The loops of kernels.cpp in registers of two parts, each of which holds four channels of 32 bits, or those of two
// pixels of 16 bits.
#pragma once

#include "kit/resample/plain.h"
#include "simd/simd.h"

namespace img::kit::IMG_TARGET {
namespace {

using namespace simd;

typedef int32_t Signed32 __attribute__((vector_size(32)));
typedef float Floats __attribute__((vector_size(32)));

constexpr uint32_t part_channels = 4;

typedef int32_t WideSigned32 __attribute__((vector_size(wide_bytes)));
typedef float WideFloats __attribute__((vector_size(wide_bytes)));

// Every second part of a, then of b.
template <class V> INLINE V even_parts(V a, V b) {
    if constexpr (sizeof(V) == vector_bytes)
        return __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
    else
        return __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 24, 25, 26, 27);
}
template <class V> INLINE V odd_parts(V a, V b) {
    if constexpr (sizeof(V) == vector_bytes)
        return __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
    else
        return __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15, 20, 21, 22, 23, 28, 29, 30, 31);
}

template <size_t channel> INLINE Floats in_all_channels(Floats v) {
    return __builtin_shufflevector(v, v, channel, channel, channel, channel, channel + 4, channel + 4, channel + 4,
                                   channel + 4);
}

// ---- Levels ---------------------------------------------------------------------------------------------------------

bool opaque(const uint8_t *pixels, size_t count) {
    constexpr size_t block = vector_bytes / 4;
    if (count < block) return plain::opaque(pixels, count);
    Words32 all = load<Words32>(pixels + (count - block) * 4);
    for (size_t i = 0; i + block <= count; i += block) all &= load<Words32>(pixels + i * 4);
    uint8_t bytes[vector_bytes];
    store(bytes, all);
    return plain::opaque(bytes, block);
}

// The channels of two pixels of 16 bits side by side, in each part.
constexpr Pattern<> side_by_side = [] {
    Pattern<> result{};
    for (size_t i = 0; i < vector_bytes; i++) result.at[i] = uint8_t(i % 16 / 4 * 2 + i % 4 / 2 * 8 + i % 2);
    return result;
}();

void spread_levels(const uint8_t *row, const uint8_t *below, size_t count, int16_t *spread) {
    const Bytes order = load(side_by_side.at);
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        store(spread + i * 8, shuffle(Bytes(load_widened(row + i * 4)), order));
        store(spread + i * 8 + 16, shuffle(Bytes(load_widened(below + i * 4)), order));
    }
    plain::spread_levels(row, below, i, count, spread);
}

INLINE Words16 weigh_four(const uint8_t *pixels) {
    static constexpr Pattern<> alphas = [] { // of two pixels, in all channels
        Pattern<> result{};
        for (size_t i = 0; i < vector_bytes; i++) result.at[i] = uint8_t(12 + i % 4);
        return result;
    }();
    const Bytes v = shuffle(Bytes(load_widened(pixels)), load(side_by_side.at));
    const auto alpha = Words16(shuffle(v, load(alphas.at)));
    return ((Words16(v) | load<Words16>(plain::opaque_alpha)) * alpha) ^ uint16_t { 0x8000 };
}

void spread_weighted(const uint8_t *row, const uint8_t *below, size_t count, int16_t *spread) {
    size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        store(spread + i * 8, weigh_four(row + i * 4));
        store(spread + i * 8 + 16, weigh_four(below + i * 4));
    }
    plain::spread_weighted(row, below, i, count, spread);
}

// Four weights in every two parts: in each of them its two, four times.
template <size_t size>
constexpr Pattern<size> weights_of_parts = [] {
    Pattern<size> result{};
    for (size_t i = 0; i < size; i++) result.at[i] = uint8_t(i / 16 % 2 * 4 + i % 4);
    return result;
}();

// Result positions that are made at once, and the registers that their sums take, for either row.
constexpr size_t at_once = 4, sum_registers = at_once * part_bytes / wide_bytes;

struct PairSums {
    WideSigned32 row[sum_registers], below[sum_registers];
};

// Sums are in pairs of parts, whether a register holds one pair or those of both rows.
template <class V> INLINE PairSums fold(const V (&rows)[at_once], const V (&below)[at_once]) {
    const auto add = [](const V &a, const V &b) { return WideSigned32(even_parts(a, b) + odd_parts(a, b)); };
    if constexpr (sizeof(V) == vector_bytes) {
        return {{add(rows[0], rows[1]), add(rows[2], rows[3])}, {add(below[0], below[1]), add(below[2], below[3])}};
    } else {
        const WideSigned32 first = add(rows[0], rows[1]), last = add(rows[2], rows[3]);
        return {{even_parts(first, last)}, {odd_parts(first, last)}};
    }
}

INLINE PairSums sum_taps(const int16_t *spread, const Axis<int16_t> &axis, uint32_t i) {
    typedef uint64_t Wide64 __attribute__((vector_size(wide_bytes)));
    const auto order = load<WideBytes>(weights_of_parts<wide_bytes>.at);
    const int16_t *weights = axis.of(i), *at[at_once];
    for (uint32_t j = 0; j < at_once; j++) at[j] = spread + size_t{axis.first[i + j]} * 8;
    const size_t taps = axis.taps;
    WideWords32 rows[at_once] = {}, below[at_once] = {};
    for (size_t k = 0; k < taps; k += 4)
        for (size_t j = 0; j < at_once; j++) {
            const auto four = WideWords16(shuffle(WideBytes(Wide64{} + load<uint64_t>(weights + j * taps + k)), order));
            rows[j] = add_products(rows[j], load<WideWords16>(at[j] + k * 8), four);
            if constexpr (wide_bytes == vector_bytes)
                below[j] = add_products(below[j], load<WideWords16>(at[j] + k * 8 + 16), four);
        }
    return fold(rows, below);
}

void across_levels(const int16_t *spread, const Axis<int16_t> &axis, Range range, int16_t *pair) {
    constexpr auto level = [](WideSigned32 sum) { return (sum + plain::across_offset) >> plain::across_shift; };
    uint32_t i = range.begin;
    for (; i + at_once <= range.end; i += at_once) {
        const PairSums sums = sum_taps(spread, axis, i);
        for (size_t r = 0; r < sum_registers; r++)
            store(pair + i * 8 + r * (wide_bytes / 2), level(sums.row[r]) | level(sums.below[r]) << 16);
    }
    plain::across_levels(spread, axis, {i, range.end}, pair);
}

void across_spread(const int16_t *spread, const Axis<int16_t> &axis, Range range, float *row, float *below) {
    constexpr auto value = [](WideSigned32 sum) {
        return __builtin_convertvector(sum, WideFloats) * plain::spread_unit + plain::spread_zero;
    };
    uint32_t i = range.begin;
    for (; i + at_once <= range.end; i += at_once) {
        const PairSums sums = sum_taps(spread, axis, i);
        for (size_t r = 0; r < sum_registers; r++) {
            store(row + i * 4 + r * (wide_bytes / 4), value(sums.row[r]));
            store(below + i * 4 + r * (wide_bytes / 4), value(sums.below[r]));
        }
    }
    plain::across_spread(spread, axis, {i, range.end}, row, below);
}

void down_levels(const int16_t *const *pairs, const int16_t *weights, uint32_t count_pairs, size_t count,
                 uint8_t *out) {
    constexpr size_t block = vector_bytes, registers = block * 4 / wide_bytes;
    size_t i = 0;
    for (; i + block <= count; i += block) {
        WideWords32 sums[registers];
        for (WideWords32 &sum : sums) sum = WideWords32{} + static_cast<uint32_t>(plain::down_offset);
        for (size_t k = 0; k < count_pairs; k++) {
            const auto two = WideWords16(WideWords32{} + load<uint32_t>(weights + k * 2));
            const int16_t *at = pairs[k] + i * 2;
            for (size_t r = 0; r < registers; r++)
                sums[r] = add_products(sums[r], load<WideWords16>(at + r * (wide_bytes / 2)), two);
        }
        for (WideWords32 &sum : sums) sum = WideWords32(WideSigned32(sum) >> plain::down_shift);
        Words32 parts[4];
        memcpy(parts, sums, sizeof parts);
        store(out + i, interleave_parts<4>(narrow(narrow(parts[0], parts[1]), narrow(parts[2], parts[3]))));
    }
    plain::down_levels(pairs, weights, count_pairs, i, count, out);
}

// ---- Weighted values ------------------------------------------------------------------------------------------------

INLINE Floats to_floats(const uint8_t *p) { return __builtin_convertvector(Signed32(load_widened_twice(p)), Floats); }

void weigh(const uint8_t *pixels, size_t count, const Tone &tone, float *row) {
    if (tone.level) return plain::weigh(pixels, count, tone, row);
    size_t i = 0;
    for (; i + 2 <= count; i += 2) {
        const Floats v = to_floats(pixels + i * 4);
        const Floats opaque = Floats{} + 255.0f;
        const Floats colours = __builtin_shufflevector(v, opaque, 0, 1, 2, 8, 4, 5, 6, 8);
        store(row + i * 4, colours * in_all_channels<3>(v));
    }
    plain::weigh(pixels + i * 4, count - i, tone, row + i * 4);
}

void across_weighted(const float *row, const Axis<float> &axis, float *out) {
    for (uint32_t i = 0; i < axis.result; i++, out += part_channels) {
        const float *at = row + size_t{axis.first[i]} * 4, *weights = axis.of(i);
        Floats even{}, odd{};
        for (size_t k = 0; k < axis.taps; k += 4, at += 16) {
            const auto w = Floats(repeat_half(weights + k));
            even += load<Floats>(at) * __builtin_shufflevector(w, w, 0, 0, 0, 0, 5, 5, 5, 5);
            odd += load<Floats>(at + 8) * __builtin_shufflevector(w, w, 2, 2, 2, 2, 7, 7, 7, 7);
        }
        const Floats sum = even + odd;
        const auto four = __builtin_shufflevector(sum, sum, 0, 1, 2, 3) + __builtin_shufflevector(sum, sum, 4, 5, 6, 7);
        memcpy(out, &four, sizeof four);
    }
}

void down_weighted(const float *const *rows, const float *weights, uint32_t taps, size_t count, float *out) {
    constexpr size_t lanes_of = wide_bytes / sizeof(float), registers = 4, block = lanes_of * registers;
    size_t i = 0;
    for (; i + block <= count; i += block) {
        WideFloats sums[registers] = {};
        for (size_t k = 0; k < taps; k++)
            for (size_t r = 0; r < registers; r++) sums[r] += load<WideFloats>(rows[k] + i + r * lanes_of) * weights[k];
        for (size_t r = 0; r < registers; r++) store(out + i + r * lanes_of, sums[r]);
    }
    plain::down_weighted(rows, weights, taps, i, count, out);
}

INLINE Floats limit(Floats v) { // 0 to 255
    const Floats zero{}, most = Floats{} + 255.0f;
    v = v < zero ? zero : v;
    return v > most ? most : v;
}

void finish(const float *sums, size_t count, const Tone &tone, uint8_t *pixels) {
    if (tone.level || tone.background) return plain::finish(sums, count, tone, pixels);
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        Words32 parts[4];
        for (size_t p = 0; p < 4; p++) {
            const Floats v = load<Floats>(sums + (i + p * 2) * 4), alpha = in_all_channels<3>(v), zero{};
            const Floats scale = alpha > zero ? 255.0f / alpha : zero;
            const Floats stored = limit(alpha * (1 / 255.0f)) + 0.5f, colours = limit(v * scale) + 0.5f;
            const Floats visible = stored >= 1.0f ? colours : zero;
            parts[p] = Words32(
                __builtin_convertvector(__builtin_shufflevector(visible, stored, 0, 1, 2, 8, 4, 5, 6, 12), Signed32));
        }
        const Bytes v = narrow(narrow(parts[0], parts[1]), narrow(parts[2], parts[3]));
        store(pixels + i * 4, interleave_parts<4>(v));
    }
    plain::finish(sums + i * 4, count - i, tone, pixels + i * 4);
}

} // namespace
} // namespace img::kit::IMG_TARGET
