// SPDX-License-Identifier: MIT
//
// Compiled once per variant, with IMG_TARGET naming its namespace; everything but the table has internal linkage.
#include "kit/resample/kernels.h"

#include <string.h>

namespace img::kit::IMG_TARGET {
namespace {

using Four = float __attribute__((vector_size(16)));

Four load(const float *at) {
    Four four;
    memcpy(&four, at, sizeof four);
    return four;
}

void store(float *at, Four four) { memcpy(at, &four, sizeof four); }

int32_t clamp(int32_t value, int32_t low, int32_t high) { return value < low ? low : value > high ? high : value; }

bool opaque(const uint8_t *pixels, size_t count) {
    uint8_t all = 0xff;
    for (size_t i = 0; i < count; i++) all &= pixels[i * 4 + 3];
    return all == 0xff;
}

// ---- Levels ----------------------------------------------------------------------------------------------------------

void spread_levels(const uint8_t *pixels, size_t count, int16_t *row) {
    for (size_t i = 0; i < count; i++)
        for (size_t c = 0; c < 4; c++) row[(i / 2 * 4 + c) * 2 + i % 2] = pixels[i * 4 + c];
}

void across_levels(const int16_t *row, const Axis<int16_t> &axis, int16_t *out) {
    constexpr int shift = axis.fraction_bits - level_bits;
    for (uint32_t i = 0; i < axis.result; i++, out += 4) {
        const int16_t *at = row + size_t{axis.first[i]} * 4, *weights = axis.of(i);
        int32_t sums[4] = {};
        for (uint32_t k = 0; k < axis.taps; k += 2, at += 8)
            for (size_t c = 0; c < 4; c++) sums[c] += at[c * 2] * weights[k] + at[c * 2 + 1] * weights[k + 1];
        for (size_t c = 0; c < 4; c++)
            out[c] = static_cast<int16_t>(clamp((sums[c] + (1 << (shift - 1))) >> shift, INT16_MIN, INT16_MAX));
    }
}

void down_levels(const int16_t *const *rows, const int16_t *weights, uint32_t taps, size_t count, uint8_t *out) {
    constexpr int shift = Axis<int16_t>::fraction_bits + level_bits;
    constexpr size_t block = 16;
    for (size_t i = 0; i < count; i += block) {
        const size_t width = count - i < block ? count - i : block;
        int32_t sums[block];
        for (int32_t &sum : sums) sum = 1 << (shift - 1);
        for (uint32_t k = 0; k < taps; k++)
            for (size_t c = 0; c < width; c++) sums[c] += rows[k][i + c] * weights[k];
        for (size_t c = 0; c < width; c++) out[i + c] = static_cast<uint8_t>(clamp(sums[c] >> shift, 0, 255));
    }
}

// ---- Weighted values -------------------------------------------------------------------------------------------------

void weigh(const uint8_t *pixels, size_t count, const Tone &tone, float *row) {
    for (size_t i = 0; i < count; i++, pixels += 4, row += 4) {
        const float alpha = pixels[3];
        const Four colours{tone.light[pixels[0]], tone.light[pixels[1]], tone.light[pixels[2]], 255};
        store(row, colours * alpha);
    }
}

// The order of the sums is part of the result: four of every fourth tap each, added crosswise.
void across_weighted(const float *row, const Axis<float> &axis, float *out) {
    for (uint32_t i = 0; i < axis.result; i++) {
        const float *at = row + size_t{axis.first[i]} * 4, *weights = axis.of(i);
        Four sums[4] = {};
        for (uint32_t k = 0; k < axis.taps; k += 4)
            for (uint32_t j = 0; j < 4; j++) sums[j] += load(at + (k + j) * size_t{4}) * weights[k + j];
        store(out + i * size_t{4}, (sums[0] + sums[2]) + (sums[1] + sums[3]));
    }
}

void down_weighted(const float *const *rows, const float *weights, uint32_t taps, size_t count, float *out) {
    for (size_t i = 0; i < count; i += 4) {
        Four sum{};
        for (uint32_t k = 0; k < taps; k++) sum += load(rows[k] + i) * weights[k];
        store(out + i, sum);
    }
}

void weigh_levels(const int16_t *levels, size_t count, float *row) {
    for (size_t i = 0; i < count; i++) row[i] = static_cast<float>(levels[i]) * (255.0f / (1 << level_bits));
}

uint8_t rounded(float value) { return static_cast<uint8_t>(value < 0 ? 0.0f : value > 255 ? 255.0f : value + 0.5f); }

uint8_t level_of(float value, const Tone &tone) {
    if (!tone.level) return rounded(value);
    return tone.level[static_cast<uint32_t>(value * 257 + 0.5f)];
}

void finish(const float *sums, size_t count, const Tone &tone, uint8_t *pixels) {
    for (size_t i = 0; i < count; i++, sums += 4, pixels += 4) {
        const float scale = sums[3] > 0 ? 255 / sums[3] : 0;
        const float alpha = sums[3] * (1 / 255.0f);
        const uint8_t stored = tone.background ? 255 : rounded(alpha);
        for (size_t c = 0; c < 3; c++) {
            float value = sums[c] * scale;
            value = value < 0 ? 0 : value > 255 ? 255 : value;
            if (tone.background) {
                const float share = alpha < 0 ? 0 : alpha > 255 ? 255 : alpha;
                value = (value * share + tone.background[c] * (255 - share)) * (1 / 255.0f);
            }
            pixels[c] = stored ? level_of(value, tone) : 0;
        }
        pixels[3] = stored;
    }
}

} // namespace

const ResampleKernels resample_kernels{opaque,          spread_levels, across_levels, down_levels, weigh,
                                       across_weighted, down_weighted, weigh_levels,  finish};

} // namespace img::kit::IMG_TARGET
