// SPDX-License-Identifier: MIT
//
// The inner loops of resampling, per variant; every variant gives the same bits. A pixel has four channels, in memory
// order blue, green, red, alpha.
//
// Source rows are scaled across in pairs: an even one and the one below. Opaque pairs are made of levels, in 16-bit
// fixed point. All others are made of weighted values: floats, colours times alpha, so 0 to 255 * 255, and alpha times
// 255 to go with them.
//
// Before: *spread*, 32 values for four pixels, 16 of either row; of these 8 for two pixels, their channels side by
// side. After: levels have the two rows side by side, channel by channel; weighted values are rows of their own.
#pragma once

#include "core/cpu.h"
#include "kit/resample/axis.h"

namespace img::kit {

// Levels that were scaled across: the bits of their fraction, and what stands for 0, so that filters that swing below
// and above what there is stay above 0 and below 2^15.
constexpr int level_bits = 6;
constexpr int32_t level_zero = 8192;

// How colours are weighted and taken back.
struct Tone {
    const float *light = nullptr;      // 256 entries, 0 to 255: what a level stands for
    const uint8_t *level = nullptr;    // 65536 entries: the level of a value * 257; null if levels stand for themselves
    const float *background = nullptr; // null, or four channels as light
};

// Result positions.
struct Range {
    uint32_t begin, end;
};

struct ResampleKernels {
    bool (*opaque)(const uint8_t *pixels, size_t count);

    void (*spread_levels)(const uint8_t *row, const uint8_t *below, size_t count, int16_t *spread);
    void (*across_levels)(const int16_t *spread, const Axis<int16_t> &axis, Range range, int16_t *pair);
    // Of count channels, from pairs; weights for either row of each.
    void (*down_levels)(const int16_t *const *pairs, const int16_t *weights, uint32_t count_pairs, size_t count,
                        uint8_t *out);

    // Weighted values less 2^15 by the weights of levels: faster than the exact way below, and good enough where so
    // many pixels are mixed that none counts alone.
    void (*spread_weighted)(const uint8_t *row, const uint8_t *below, size_t count, int16_t *spread);
    void (*across_spread)(const int16_t *spread, const Axis<int16_t> &axis, Range range, float *row, float *below);

    void (*weigh)(const uint8_t *pixels, size_t count, const Tone &tone, float *row);
    void (*across_weighted)(const float *row, const Axis<float> &axis, float *out);
    void (*down_weighted)(const float *const *rows, const float *weights, uint32_t taps, size_t count, float *out);
    void (*weigh_levels)(const int16_t *pair, size_t count, float *row,
                         float *below); // of count channels
    void (*finish)(const float *sums, size_t count, const Tone &tone, uint8_t *pixels);
};

IMG_PER_VARIANT(ResampleKernels, resample_kernels)

} // namespace img::kit
