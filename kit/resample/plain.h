// SPDX-License-Identifier: MIT
//
// The loops of kernels.cpp pixel by pixel: what they compute, and what is left of a run after whole registers.
#pragma once

#include "kit/resample/kernels.h"

#include <string.h>

#include <initializer_list>

namespace img::kit::IMG_TARGET {
namespace {
namespace plain {

typedef float Four __attribute__((vector_size(16)));

inline Four load(const float *at) {
    Four four;
    memcpy(&four, at, sizeof four);
    return four;
}
inline void store(float *at, Four four) { memcpy(at, &four, sizeof four); }

inline bool opaque(const uint8_t *pixels, size_t count) {
    uint8_t all = 0xff;
    for (size_t i = 0; i < count; i++) all &= pixels[i * 4 + 3];
    return all == 0xff;
}

// ---- Levels: fixed point with rounding, by shifts -------------------------------------------------------------------

constexpr int across_shift = Axis<int16_t>::fraction_bits - level_bits;
constexpr int32_t across_offset = (1 << (across_shift - 1)) + (level_zero << across_shift);
constexpr int down_shift = Axis<int16_t>::fraction_bits + level_bits;
constexpr int32_t down_offset = (1 << (down_shift - 1)) - (level_zero << Axis<int16_t>::fraction_bits);

// Calls value(pixel, channel) for each channel of both rows, and puts the result where it belongs.
template <class Value>
void spread(const uint8_t *row, const uint8_t *below, size_t begin, size_t count, int16_t *to, Value value) {
    for (size_t i = begin; i < count; i++)
        for (size_t c = 0; c < 4; c++) {
            int16_t *at = to + i / 4 * 32 + i % 4 / 2 * 8 + c * 2 + i % 2;
            at[0] = value(row + i * 4, c);
            at[16] = value(below + i * 4, c);
        }
}

inline void spread_levels(const uint8_t *row, const uint8_t *below, size_t begin, size_t count, int16_t *to) {
    spread(row, below, begin, count, to, [](const uint8_t *pixel, size_t c) { return int16_t{pixel[c]}; });
}

// Weighted values less 2^15, so that they are signed.
constexpr uint16_t opaque_alpha[16] = {0, 0, 0, 0, 0, 0, 255, 255, 0, 0, 0, 0, 0, 0, 255, 255};
constexpr float spread_unit = 1.0f / (1 << Axis<int16_t>::fraction_bits), spread_zero = 32768;

inline void spread_weighted(const uint8_t *row, const uint8_t *below, size_t begin, size_t count, int16_t *to) {
    spread(row, below, begin, count, to, [](const uint8_t *pixel, size_t c) {
        return static_cast<int16_t>((c == 3 ? 255 : pixel[c]) * pixel[3] - 32768);
    });
}

struct Sum {
    int32_t of[4];
};

// Of one result position, from one row of the pair.
inline Sum sum_taps(const int16_t *spread, const Axis<int16_t> &axis, uint32_t i) {
    const int16_t *at = spread + size_t{axis.first[i]} * 8, *weights = axis.of(i);
    Sum sum{};
    for (uint32_t k = 0; k < axis.taps; k += 4, at += 32, weights += 4)
        for (size_t c = 0; c < 4; c++)
            sum.of[c] += at[c * 2] * weights[0] + at[c * 2 + 1] * weights[1] + at[c * 2 + 8] * weights[2] +
                         at[c * 2 + 9] * weights[3];
    return sum;
}

inline void across_levels(const int16_t *spread, const Axis<int16_t> &axis, Range range, int16_t *pair) {
    for (uint32_t i = range.begin; i < range.end; i++)
        for (size_t row = 0; row < 2; row++) {
            const Sum sum = sum_taps(spread + row * 16, axis, i);
            for (size_t c = 0; c < 4; c++)
                pair[i * size_t{8} + c * 2 + row] = static_cast<int16_t>((sum.of[c] + across_offset) >> across_shift);
        }
}

inline void across_spread(const int16_t *spread, const Axis<int16_t> &axis, Range range, float *row, float *below) {
    for (uint32_t i = range.begin; i < range.end; i++)
        for (float *out : {row, below}) {
            const Sum sum = sum_taps(spread + (out == row ? 0 : 16), axis, i);
            for (size_t c = 0; c < 4; c++)
                out[i * size_t{4} + c] = static_cast<float>(sum.of[c]) * spread_unit + spread_zero;
        }
}

inline void down_levels(const int16_t *const *pairs, const int16_t *weights, uint32_t count_pairs, size_t begin,
                        size_t count, uint8_t *out) {
    constexpr size_t block = 8;
    for (size_t i = begin; i < count; i += block) {
        const size_t width = count - i < block ? count - i : block;
        int32_t sums[block];
        for (int32_t &sum : sums) sum = down_offset;
        for (uint32_t k = 0; k < count_pairs; k++) {
            const int16_t *at = pairs[k] + i * 2;
            for (size_t c = 0; c < width; c++)
                sums[c] += at[c * 2] * weights[k * 2] + at[c * 2 + 1] * weights[k * 2 + 1];
        }
        for (size_t c = 0; c < width; c++) {
            const int32_t level = sums[c] >> down_shift;
            out[i + c] = static_cast<uint8_t>(level < 0 ? 0 : level > 255 ? 255 : level);
        }
    }
}

// ---- Weighted values: floats, every operation of which is rounded alike ---------------------------------------------
// everywhere -----------------------------------

inline void weigh(const uint8_t *pixels, size_t count, const Tone &tone, float *row) {
    for (size_t i = 0; i < count; i++, pixels += 4, row += 4) {
        const float alpha = pixels[3];
        const Four colours{tone.light[pixels[0]], tone.light[pixels[1]], tone.light[pixels[2]], 255};
        store(row, colours * alpha);
    }
}

// The order of the sums is part of the result: four of every fourth tap each, added crosswise.
inline void across_weighted(const float *row, const Axis<float> &axis, float *out) {
    for (uint32_t i = 0; i < axis.result; i++) {
        const float *at = row + size_t{axis.first[i]} * 4, *weights = axis.of(i);
        Four sums[4] = {};
        for (uint32_t k = 0; k < axis.taps; k += 4)
            for (uint32_t j = 0; j < 4; j++) sums[j] += load(at + (k + j) * size_t{4}) * weights[k + j];
        store(out + i * size_t{4}, (sums[0] + sums[2]) + (sums[1] + sums[3]));
    }
}

inline void down_weighted(const float *const *rows, const float *weights, uint32_t taps, size_t begin, size_t count,
                          float *out) {
    for (size_t i = begin; i < count; i += 4) {
        Four sum{};
        for (uint32_t k = 0; k < taps; k++) sum += load(rows[k] + i) * weights[k];
        store(out + i, sum);
    }
}

inline float limit(float value) { return value < 0 ? 0 : value > 255 ? 255 : value; }
inline uint8_t rounded(float limited) { return static_cast<uint8_t>(limited + 0.5f); }

inline void finish(const float *sums, size_t count, const Tone &tone, uint8_t *pixels) {
    for (size_t i = 0; i < count; i++, sums += 4, pixels += 4) {
        const float scale = sums[3] > 0 ? 255 / sums[3] : 0, alpha = limit(sums[3] * (1 / 255.0f));
        pixels[3] = tone.background ? 255 : rounded(alpha);
        for (size_t c = 0; c < 3; c++) {
            float value = limit(sums[c] * scale);
            if (tone.background) value = (value * alpha + tone.background[c] * (255 - alpha)) * (1 / 255.0f);
            const uint8_t level = tone.level ? tone.level[static_cast<uint32_t>(value * 257 + 0.5f)] : rounded(value);
            pixels[c] = pixels[3] ? level : 0;
        }
    }
}

} // namespace plain
} // namespace
} // namespace img::kit::IMG_TARGET
