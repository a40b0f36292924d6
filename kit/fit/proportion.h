// SPDX-License-Identifier: MIT
//
// The one rule by which sides follow each other.
#pragma once

#include <math.h>
#include <stdint.h>

namespace img::kit {

// side * to / from, to the nearest whole number, halves up; at least 1. 0 if it is too large for a side.
inline uint32_t in_proportion(double side, double to, double from) {
    const double exact = floor(side * to / from + 0.5);
    return exact > UINT32_MAX ? 0 : exact < 1 ? 1 : static_cast<uint32_t>(exact);
}

} // namespace img::kit
