// SPDX-License-Identifier: MIT
#include "tests/models/resample.h"

#include <algorithm>
#include <cmath>

namespace models {

namespace {

double sinc(double x) { return x == 0 ? 1 : std::sin(M_PI * x) / (M_PI * x); }

double filter(uint32_t kind, double x) {
    x = std::abs(x);
    switch (kind) {
    case PICTRA_FILTER_BILINEAR:
        return std::max(1 - x, 0.0);
    case PICTRA_FILTER_BICUBIC: {
        const double a = -0.5;
        if (x < 1) return (a + 2) * x * x * x - (a + 3) * x * x + 1;
        return x < 2 ? a * (x * x * x - 5 * x * x + 8 * x - 4) : 0;
    }
    default:
        return x < 3 ? sinc(x) * sinc(x / 3) : 0;
    }
}

// How much of each source position is in position i of the result.
std::vector<double> weights(uint32_t source, double from, double length, uint32_t result, uint32_t i, uint32_t kind) {
    if (length == 0) length = source - from;
    const double ratio = length / result, centre = from + (i + 0.5) * ratio, wide = std::max(ratio, 1.0);
    std::vector<double> w(source);
    if (kind == PICTRA_FILTER_NEAREST) {
        w[std::min(static_cast<uint32_t>(centre), source - 1)] = 1;
        return w;
    }
    double sum = 0;
    for (double x = std::floor(centre - 3 * wide) - 1; x <= centre + 3 * wide + 1; x++) {
        const double low = centre - ratio / 2, high = centre + ratio / 2;
        const double value = kind == PICTRA_FILTER_AREA ? std::max(std::min(x + 1, high) - std::max(x, low), 0.0)
                                                        : filter(kind, (x + 0.5 - centre) / wide);
        if (x < 0 || x >= source) continue; // the filter is cut at the edges
        w[static_cast<size_t>(x)] = value;
        sum += value;
    }
    for (double &value : w) value /= sum;
    return w;
}

double to_light(double v) { return v <= 0.04045 * 255 ? v / 12.92 : 255 * std::pow((v / 255 + 0.055) / 1.055, 2.4); }
double to_level(double v) {
    return v <= 0.0031308 * 255 ? v * 12.92 : 255 * (1.055 * std::pow(v / 255, 1 / 2.4) - 0.055);
}

} // namespace

Picture resample(const Picture &source, uint32_t width, uint32_t height, const pictra_resample_options &options) {
    const bool linear = options.flags & PICTRA_RESAMPLE_LINEAR;
    std::vector<Pixel> across(size_t{width} * source.height); // weighted by alpha
    for (uint32_t x = 0; x < width; x++) {
        const auto w = weights(source.width, options.x, options.width, width, x, options.filter);
        for (uint32_t y = 0; y < source.height; y++)
            for (uint32_t k = 0; k < source.width; k++) {
                if (w[k] == 0) continue;
                const Pixel &pixel = source.at(k, y);
                Pixel &sum = across[size_t{y} * width + x];
                for (size_t c = 0; c < 3; c++) sum[c] += w[k] * (linear ? to_light(pixel[c]) : pixel[c]) * pixel[3];
                sum[3] += w[k] * pixel[3];
            }
    }
    Picture result{width, height, std::vector<Pixel>(size_t{width} * height)};
    for (uint32_t y = 0; y < height; y++) {
        const auto w = weights(source.height, options.y, options.height, height, y, options.filter);
        for (uint32_t x = 0; x < width; x++) {
            Pixel &sum = result.pixels[size_t{y} * width + x];
            for (uint32_t k = 0; k < source.height; k++)
                for (size_t c = 0; c < 4; c++) sum[c] += w[k] * across[size_t{k} * width + x][c];
            for (size_t c = 0; c < 3; c++) {
                const double value = sum[3] > 0 ? std::clamp(sum[c] / sum[3], 0.0, 255.0) : 0;
                sum[c] = linear ? to_level(value) : value;
            }
            sum[3] = std::clamp(sum[3], 0.0, 255.0);
        }
    }
    return result;
}

} // namespace models
