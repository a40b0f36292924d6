// SPDX-License-Identifier: MIT
//
// The inner loops of resampling, per variant; every variant gives the same bits. A pixel has four channels, in memory order
// blue, green, red, alpha.
//
// Opaque rows are made of levels: 16-bit fixed point, the channels of two neighbouring pixels side by side before they are
// scaled across, pixel by pixel after. All others are made of weighted values: floats, colours times alpha, so 0 to 255 * 255,
// and alpha times 255 to go with them.
#pragma once

#include "core/cpu.h"
#include "kit/resample/axis.h"

namespace img::kit {

constexpr int level_bits = 6; // of the fraction of levels that were scaled across

// How colours are weighted and taken back.
struct Tone {
    const float *light = nullptr;      // 256 entries, 0 to 255: what a level stands for
    const uint8_t *level = nullptr;    // 65536 entries: the level of a value * 257; null if levels stand for themselves
    const float *background = nullptr; // null, or four channels as light
};

struct ResampleKernels {
    bool (*opaque)(const uint8_t *pixels, size_t count);

    void (*spread_levels)(const uint8_t *pixels, size_t count, int16_t *row);
    void (*across_levels)(const int16_t *row, const Axis<int16_t> &axis, int16_t *out);
    // Of count channels, from as many rows as there are taps; an even number.
    void (*down_levels)(const int16_t *const *rows, const int16_t *weights, uint32_t taps, size_t count, uint8_t *out);

    void (*weigh)(const uint8_t *pixels, size_t count, const Tone &tone, float *row);
    void (*across_weighted)(const float *row, const Axis<float> &axis, float *out);
    void (*down_weighted)(const float *const *rows, const float *weights, uint32_t taps, size_t count, float *out);
    void (*weigh_levels)(const int16_t *levels, size_t count, float *row); // of count channels, after across_levels
    void (*finish)(const float *sums, size_t count, const Tone &tone, uint8_t *pixels);
};

IMG_PER_VARIANT(ResampleKernels, resample_kernels)

} // namespace img::kit
