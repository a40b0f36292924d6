// SPDX-License-Identifier: MIT
#include "kit/resample/tone.h"

#include <math.h>
#include <string.h>

namespace img::kit {

namespace {

constexpr uint32_t fine_levels = 65536; // of light, which level_ tells the level of

// Light from 0 to 1 of a stored value from 0 to 1, by the curve of sRGB (IEC 61966-2-1).
double light_of(double stored) { return stored <= 0.04045 ? stored / 12.92 : pow((stored + 0.055) / 1.055, 2.4); }

// Fills the table from the points where the nearest level changes.
void fill_levels(uint8_t *level) {
    uint32_t i = 0;
    for (int l = 0; l < 255; l++) {
        const double end = light_of((l + 0.5) / 255) * (fine_levels - 1);
        for (; i < end; i++) level[i] = static_cast<uint8_t>(l);
    }
    memset(level + i, 255, fine_levels - i);
}

} // namespace

img_status Tones::make(bool linear, const uint8_t *background) {
    light_ = allocate<float>(256);
    if (!light_) return IMG_ST_NOMEM;
    float *light = light_.get();
    for (int l = 0; l < 256; l++) light[l] = static_cast<float>(linear ? 255 * light_of(l / 255.0) : l);
    tone_.light = light;
    if (linear) {
        level_ = allocate<uint8_t>(fine_levels);
        if (!level_) return IMG_ST_NOMEM;
        fill_levels(level_.get());
        tone_.level = level_.get();
    }
    if (background) {
        for (int c = 0; c < 4; c++) background_[c] = light_[background[c]];
        tone_.background = background_;
    }
    return IMG_ST_OK;
}

} // namespace img::kit
