// SPDX-License-Identifier: MIT
//
// One direction of a resampling: which source positions make each position of the result, and how much each counts.
#pragma once

#include "core/owned.h"
#include "pictra/kit.h"

namespace img::kit {

// A part of source pixels, from `from` on, `length` long, becomes `result` pixels.
struct Span {
    uint32_t source;
    double from, length;
    uint32_t result;

    double ratio() const { return length / result; }
    bool is_identity() const { return from == 0 && length == source && result == source; }
};

// Weights are whole numbers of 2^-fraction_bits that sum to exactly one, so that flat stays flat. Every result position
// has as many, from source position first[i] on, a multiple of `step`, of which those up to last[i] count and the
// others are 0; they may reach past the end of the source. PICTRA_FILTER_NEAREST has positions only, of any step.
//
// Weight is int16_t, or float for values of the same kind but of more bits.
template <typename Weight> class Axis {
public:
    bool make(const Span &span, uint32_t filter,
              uint32_t step); // false if memory lacks, or if there are too many weights

    const Weight *of(uint32_t i) const { return weights.get() + size_t{i} * taps; }

    uint32_t result = 0;
    uint32_t taps = 0; // a multiple of tap_group
    uint32_t rows = 0; // the most positions that count for one
    Owned<uint32_t> first, last;
    Owned<Weight> weights;

    static constexpr uint32_t fraction_bits = sizeof(Weight) == sizeof(int16_t) ? 14 : 22;
    static constexpr uint32_t tap_group = 4;
};

} // namespace img::kit
