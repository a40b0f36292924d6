// SPDX-License-Identifier: MIT
//
// Resampling in double precision, straight from its definition: each pixel of the result is a weighted mean of the whole
// source, made in one step. For being right, not for speed.
#pragma once

#include "pictra/kit.h"

#include <array>
#include <vector>

namespace models {

// Blue, green, red, alpha, 0 to 255, not rounded. Colours are not weighted by alpha; where alpha is 0 they are 0.
using Pixel = std::array<double, 4>;

struct Picture {
    uint32_t width = 0, height = 0;
    std::vector<Pixel> pixels;
    const Pixel &at(uint32_t x, uint32_t y) const { return pixels[size_t{y} * width + x]; }
};

Picture resample(const Picture &source, uint32_t width, uint32_t height, const pictra_resample_options &options);

} // namespace models
