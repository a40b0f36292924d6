// SPDX-License-Identifier: MIT
//
// What goes from one process to another: pictures but for their pixels, and the values that codecs report and ask for.
#pragma once

#include "pictra/pictra.h"
#include "pictra/values.h"
#include "tools/confine/wire.h"

#include <array>
#include <string>

namespace confine {

inline constexpr uint32_t max_side = 1'000'000; // the codecs' own limits
inline constexpr uint64_t max_pixels = uint64_t{1} << 28;

// A picture but for its pixels. Rows are padded to a multiple of four bytes, and the palette has an entry for every index
// that there can be, so that no index leads out of it.
struct Shape {
    img_format format = 0;
    uint32_t width = 0, height = 0, ncolors = 0;
    img_flags flags = 0; // IMG_F_TRANSP, IMG_F_PAL_ALPHA
    uint32_t transparency = 0;
    std::array<uint32_t, 256> palette{};

    uint64_t stride() const { return ((uint64_t{width} * (format & IMG_FMT_BPP_MASK) + 7) / 8 + 3) & ~uint64_t{3}; }
    uint64_t bytes() const { return stride() * height; }
};

Shape shape_of(const img_record &record);

// The record of a picture whose pixels are there already, or null. Its palette is the shape's.
img_record record_of(Shape &shape, uint8_t *pixels);

bool is_format(img_format format); // one of the 21

// A value that a codec reports or asks for, of pictra/values.h.
struct Value {
    uint32_t key;
    std::string bytes;
};

bool is_known_value(uint32_t key);
// Whether a value is what its key promises: of the right size, and no longer than any honest one.
bool is_sound(const Value &value);
bool is_block(uint32_t key); // asked for as an img_bytes
inline constexpr size_t most_values = 4096;
inline constexpr size_t most_block = 16 << 20, most_entry = 1 << 20, most_warning = 1024; // bytes

void put(Writer &out, const Shape &shape);
void put(Writer &out, const Value &value);
Shape shape_in(Reader &in);
Value value_in(Reader &in, size_t most = most_block);

} // namespace confine
