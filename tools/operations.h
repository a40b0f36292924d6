// SPDX-License-Identifier: MIT
//
// Operations between reading and writing a picture: resize, crop, rotate, flip.
#pragma once

#include "tools/picture.h"

#include <functional>
#include <string>

namespace tool {

// Makes a new picture from one, whose name is for messages.
using Operation =
    std::function<pictra::result<pictra::image>(const pictra::image_view &picture, const std::string &name)>;

// Parse words of the command line; fail for anything else.
Operation parse_resize(const std::string &size); // WxH, Wx or xH
Operation parse_crop(const std::string &rect);   // WxH+X+Y
Operation parse_rotate(const std::string &by);   // 90, 180, 270: degrees clockwise
Operation parse_flip(const std::string &across); // horizontal, vertical

// Replaces the picture by the result of the operation, or fails.
void apply(const Operation &operation, Picture &picture, const std::string &name);

} // namespace tool
