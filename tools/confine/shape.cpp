// SPDX-License-Identifier: MIT
#include "tools/confine/shape.h"

#include <algorithm>
#include <iterator>
#include <string.h>

namespace confine {

namespace {

// How many bytes a value has: between these.
struct Sizes {
    uint32_t key;
    size_t least, most;
};
constexpr Sizes value_sizes[] = {
    {IMG_VALUE_ORIENTATION, sizeof(uint32_t), sizeof(uint32_t)},
    {IMG_VALUE_RESOLUTION, sizeof(img_resolution), sizeof(img_resolution)},
    {IMG_VALUE_ICC, 0, most_block},
    {IMG_VALUE_EXIF, 0, most_block},
    {IMG_VALUE_XMP, 0, most_block},
    {IMG_VALUE_TEXT, 0, most_entry},
    {IMG_VALUE_FRAMES, sizeof(uint32_t), sizeof(uint32_t)},
    {IMG_VALUE_DELAY, sizeof(uint32_t), sizeof(uint32_t)},
    {IMG_VALUE_LOOPS, sizeof(uint32_t), sizeof(uint32_t)},
    {IMG_VALUE_DEPTH, sizeof(uint32_t), sizeof(uint32_t)},
    {IMG_VALUE_WARNING, 0, most_warning},
};

template <typename T> T value_of(const Value &value) {
    T result;
    memcpy(&result, value.bytes.data(), sizeof result);
    return result;
}

bool is_resolution(const img_resolution &resolution) {
    constexpr double most = 1e9;                                                                   // pixels a metre
    return resolution.x >= 0 && resolution.x <= most && resolution.y >= 0 && resolution.y <= most; // false for a nan
}

// Every number of a shape in the order of the wire, for both directions.
template <typename Visit> void for_each_number(auto &shape, const Visit &visit) {
    for (auto *number : {&shape.format, &shape.width, &shape.height, &shape.ncolors, &shape.flags, &shape.transparency})
        visit(*number);
    for (auto &entry : shape.palette) visit(entry);
}

uint32_t key_of(const img_record &record) {
    const uint32_t depth = record.format & IMG_FMT_BPP_MASK;
    return depth > 16 ? record.transparency : depth == 16 ? record.transparency16 : record.transparency8;
}

} // namespace

Shape shape_of(const img_record &record) {
    Shape shape{.format = record.format, .width = record.width, .height = record.height};
    shape.flags = record.flags & IMG_F_TRANSP;
    shape.transparency = shape.flags ? key_of(record) : 0;
    if (!(record.format & IMG_FMT_PAL)) return shape;
    shape.flags |= record.flags & IMG_F_PAL_ALPHA;
    shape.ncolors = std::min(record.ncolors, 1u << (record.format & IMG_FMT_BPP_MASK));
    if (record.flags & IMG_F_PALETTE) std::copy_n(record.palette, shape.ncolors, shape.palette.begin());
    if (shape.transparency >> (record.format & IMG_FMT_BPP_MASK)) shape.flags &= ~img_flags{IMG_F_TRANSP};
    return shape;
}

img_record record_of(Shape &shape, uint8_t *pixels) {
    img_record record{};
    record.data = pixels;
    record.stride = static_cast<uint32_t>(shape.stride());
    record.width = shape.width;
    record.height = shape.height;
    record.format = shape.format;
    record.flags = shape.flags | IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | (pixels ? IMG_F_DIRECT : 0);
    record.transparency = shape.transparency;
    const uint32_t depth = shape.format & IMG_FMT_BPP_MASK;
    if (depth == 16) record.transparency16 = static_cast<uint16_t>(shape.transparency);
    if (depth < 16) record.transparency8 = static_cast<uint8_t>(shape.transparency);
    if (!shape.ncolors) return record;
    record.ncolors = shape.ncolors;
    record.palette = shape.palette.data();
    record.flags |= IMG_F_PALETTE;
    return record;
}

bool is_format(img_format format) {
    if (format == FMT_PAL1 || format == FMT_PAL4 || format == FMT_A8) return true;
    return img_convert_getfunc(format, format); // every other one can be copied
}

bool is_known_value(uint32_t key) {
    return std::any_of(std::begin(value_sizes), std::end(value_sizes), [key](const Sizes &s) { return s.key == key; });
}

bool is_sound(const Value &value) {
    for (const auto &[key, least, most] : value_sizes) {
        if (key != value.key) continue;
        if (value.bytes.size() < least || value.bytes.size() > most) return false;
        if (key == IMG_VALUE_RESOLUTION) return is_resolution(value_of<img_resolution>(value));
        if (key != IMG_VALUE_ORIENTATION) return true;
        const auto orientation = value_of<uint32_t>(value);
        return orientation >= 1 && orientation <= 8;
    }
    return false;
}

bool is_block(uint32_t key) {
    return key == IMG_VALUE_ICC || key == IMG_VALUE_EXIF || key == IMG_VALUE_XMP || key == IMG_VALUE_TEXT;
}

void put(Writer &out, const Shape &shape) {
    for_each_number(shape, [&](uint32_t number) { out.fixed(number); });
}

void put(Writer &out, const Value &value) {
    out.fixed(value.key);
    out.text(value.bytes);
}

Shape shape_in(Reader &in) {
    Shape shape;
    for_each_number(shape, [&](uint32_t &number) { number = in.fixed<uint32_t>(); });
    return shape;
}

Value value_in(Reader &in, size_t most) {
    const auto key = in.fixed<uint32_t>();
    return {key, in.text(most)};
}

} // namespace confine
