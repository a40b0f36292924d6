// SPDX-License-Identifier: MIT
//
// The orientation in an EXIF block, which begins with its TIFF header.
#pragma once

#include <array>
#include <stddef.h>
#include <stdint.h>

namespace module {

inline constexpr uint32_t upright = 1;
inline constexpr uint16_t exif_orientation_tag = 0x112, exif_short = 3;

// 1 to 8, or 0 if the block holds none.
inline uint32_t exif_orientation(const uint8_t *exif, size_t size) {
    if (size < 8 || exif[0] != exif[1] || (exif[0] != 'I' && exif[0] != 'M')) return 0;
    const bool big = exif[0] == 'M';
    const auto u16 = [&](size_t at) { return uint32_t{exif[at + !big]} << 8 | exif[at + big]; };
    const auto u32 = [&](size_t at) { return size_t{u16(at + (big ? 0 : 2))} << 16 | u16(at + (big ? 2 : 0)); };
    const size_t directory = u32(4);
    if (directory > size - 2) return 0;
    const size_t entries = u16(directory);
    for (size_t i = 0, at = directory + 2; i < entries && at + 12 <= size; i++, at += 12)
        if (u16(at) == exif_orientation_tag) {
            const uint32_t value = u16(at + 8);
            return u16(at + 2) == exif_short && value >= 1 && value <= 8 ? value : 0;
        }
    return 0;
}

// A block that holds nothing else.
constexpr std::array<uint8_t, 26> exif_of_orientation(uint32_t orientation) {
    return {'M',  'M',  0, 42,         0, 0, 0, 8, 0, 1,
            0x01, 0x12, 0, exif_short, 0, 0, 0, 1, 0, static_cast<uint8_t>(orientation)};
}

} // namespace module
