// SPDX-License-Identifier: MIT
//
// What the kit needs to know of formats and records, and the format that it works on.
#pragma once

#include "pictra/kit.h"

#include <bit>

namespace img::kit {

// The bytes blue, green, red, alpha in memory.
constexpr img_format work_format = std::endian::native == std::endian::little ? FMT_ARGB8888HE : FMT_ARGB8888OE;

constexpr bool is_palette(img_format format) { return format & IMG_FMT_PAL; }
constexpr uint32_t bits_per_pixel(img_format format) { return format & IMG_FMT_BPP_MASK; }
constexpr bool has(const img_record &record, img_flags flag) { return record.flags & flag; }

} // namespace img::kit
