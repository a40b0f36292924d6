// SPDX-License-Identifier: MIT
//
// Colour profiles for tests, made by the colour library.
#pragma once

#include <stdint.h>

#include <vector>

namespace profiles {

using Bytes = std::vector<uint8_t>;

// Spaces like those that cameras, screens and image editors use.
Bytes srgb();
Bytes wide_gamut();   // larger greens, gamma 2.2
Bytes screen_p3();    // larger reds, the curve of sRGB
Bytes photographic(); // primaries that are no colours, gamma 1.8, white of 5000 K
Bytes grey(double gamma);
Bytes rgb_by_table(); // no matrix: a table from RGB to Lab
Bytes printing();     // CMYK, tables both ways

} // namespace profiles
