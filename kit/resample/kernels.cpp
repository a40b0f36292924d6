// SPDX-License-Identifier: MIT
//
// The inner loops of resampling. Compiled once per variant, with IMG_TARGET naming its namespace; everything but the
// table has internal linkage.
#include "kit/resample/kernels.h"

#if IMG_VECTORS
#include "kit/resample/vector.h"
#else
#include "kit/resample/plain.h"
#endif

namespace img::kit::IMG_TARGET {
namespace {

#if !IMG_VECTORS
using plain::opaque, plain::across_levels, plain::across_spread, plain::weigh, plain::across_weighted, plain::finish;

void spread_levels(const uint8_t *row, const uint8_t *below, size_t count, int16_t *spread) {
    plain::spread_levels(row, below, 0, count, spread);
}
void spread_weighted(const uint8_t *row, const uint8_t *below, size_t count, int16_t *spread) {
    plain::spread_weighted(row, below, 0, count, spread);
}
void down_levels(const int16_t *const *pairs, const int16_t *weights, uint32_t count_pairs, size_t count,
                 uint8_t *out) {
    plain::down_levels(pairs, weights, count_pairs, 0, count, out);
}
void down_weighted(const float *const *rows, const float *weights, uint32_t taps, size_t count, float *out) {
    plain::down_weighted(rows, weights, taps, 0, count, out);
}
#endif

void weigh_levels(const int16_t *pair, size_t count, float *row, float *below) {
    constexpr float unit = 255.0f / (1 << level_bits);
    for (size_t i = 0; i < count; i++) {
        row[i] = static_cast<float>(pair[i * 2] - level_zero) * unit;
        below[i] = static_cast<float>(pair[i * 2 + 1] - level_zero) * unit;
    }
}

} // namespace

const ResampleKernels resample_kernels{opaque,          spread_levels, across_levels, down_levels,
                                       spread_weighted, across_spread, weigh,         across_weighted,
                                       down_weighted,   weigh_levels,  finish};

} // namespace img::kit::IMG_TARGET
