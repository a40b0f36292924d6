// SPDX-License-Identifier: MIT
//
// What levels stand for while they are mixed: themselves, or light by the curve of sRGB.
#pragma once

#include "kit/resample/kernels.h"

namespace img::kit {

// The tables of a Tone. Its background, a working pixel, is kept as light.
class Tones {
public:
    img_status make(bool linear, const uint8_t *background); // null: none
    const Tone &tone() const { return tone_; }

private:
    Tone tone_;
    float background_[4] = {};
    Owned<float> light_;
    Owned<uint8_t> level_;
};

} // namespace img::kit
