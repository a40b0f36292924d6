// SPDX-License-Identifier: MIT
//
// What can be done to a picture on its way: resize, crop, quarter turns, flips.
#pragma once

#include "tools/picture.h"

#include <string>

namespace tool {

struct Operation {
    enum Kind { resize, crop, rotate, flip } kind;
    uint32_t width = 0, height = 0; // resize: 0 follows the other side; crop: of the rectangle
    uint32_t x = 0, y = 0;          // crop: its top left pixel
    uint32_t how = 0;               // rotate: IMG_ANGLE_*; flip: IMG_FLIP_*
};

// From the words of the command line; fail for others.
Operation parse_resize(const std::string &size); // WxH, Wx or xH
Operation parse_crop(const std::string &rect);   // WxH+X+Y
Operation parse_rotate(const std::string &by);   // 90, 180, 270: degrees clockwise
Operation parse_flip(const std::string &across); // horizontal, vertical

// name is the picture's, for messages.
void apply(const Operation &operation, Picture &picture, const std::string &name);

// Turns and mirrors a picture that is stored in one of the eight orientations of EXIF.
void turn_upright(Picture &picture, uint32_t orientation, const std::string &name);

} // namespace tool
