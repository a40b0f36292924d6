// SPDX-License-Identifier: MIT
//
// The conversions pixel by pixel, written for being checked against the description of the formats and not for speed.
// Shares nothing with the library but the public header.
#pragma once

#include "pictra/pictra.h"

#include <stddef.h>

#include <string>
#include <vector>

namespace reference {

struct Format {
    std::string name; // as in the names of routines
    img_format code;
};
extern const std::vector<Format> formats; // in the order of the public header

uint32_t bits(img_format format);

// What img_cvt_<name> is: its formats (one pixel size stands for all for copies and swaps) and its effect.
struct Conversion {
    img_format src, dst;
    void run(const uint8_t *from, uint8_t *to, size_t count) const;

    std::string name;
};
Conversion conversion(const std::string &name);

// Index number i of a run.
uint32_t index_at(uint32_t index_bits, const uint8_t *packed, size_t i);

} // namespace reference
