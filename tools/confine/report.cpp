// SPDX-License-Identifier: MIT
#include "tools/confine/report.h"

#include "tools/confine/wire.h"

#include <errno.h>
#include <iterator>
#include <string.h>

namespace confine {

namespace {

constexpr size_t most_block = 16 << 20, most_entry = 1 << 20; // bytes

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

uint32_t entries_of(img_format format) { return format & IMG_FMT_PAL ? 1u << (format & IMG_FMT_BPP_MASK) : 0; }

const char *flaw_of(const Shape &shape, const Task &task) {
    if (!is_format(shape.format)) return "its pixel format";
    if (!shape.width || !shape.height || shape.width > max_side || shape.height > max_side) return "its size";
    const uint64_t pixels = uint64_t{shape.width} * shape.height;
    if (pixels > (task.header_only ? max_pixels : task.limits.most_pixels())) return "its size";
    if (!task.header_only && shape.bytes() > task.limits.most_bytes()) return "its size";
    if (task.thumbnail && (shape.width > task.thumbnail || shape.height > task.thumbnail)) return "its size";
    constexpr img_flags known = IMG_F_TRANSP | IMG_F_PAL_ALPHA;
    if (shape.flags & ~known) return "its flags";
    const uint32_t entries = entries_of(shape.format);
    if (shape.ncolors > entries || !shape.ncolors != !entries) return "its palette";
    if (!entries && (shape.flags & IMG_F_PAL_ALPHA)) return "its flags";
    if (entries && (shape.flags & IMG_F_TRANSP) && shape.transparency >= entries) return "its colour key";
    return nullptr;
}

} // namespace

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

std::string Trouble::text() const { return call + ": " + strerror(error); }

std::string packed(const Report &report, const Trouble &trouble) {
    Writer out;
    uint8_t step = 0;
    for (uint8_t i = 0; i < std::size(confining_calls); i++)
        if (trouble.call == confining_calls[i]) step = i;
    out.fixed(step);
    out.fixed(int32_t{trouble.error});
    out.fixed(report.status);
    out.fixed(static_cast<uint8_t>(report.refusal));
    out.fixed(uint8_t{report.limit.has_value()});
    if (report.limit) {
        out.text(report.limit->name);
        out.fixed(report.limit->needed);
        out.fixed(report.limit->allowed);
    }
    for (const uint32_t number :
         {report.wrong_option, report.codec, report.rows_done, report.full_width, report.full_height})
        out.fixed(number);
    out.fixed(uint8_t{report.picture.has_value()});
    if (report.picture) for_each_number(*report.picture, [&](uint32_t number) { out.fixed(number); });
    out.list(report.values, [&](const Value &value) {
        out.fixed(value.key);
        out.text(value.bytes);
    });
    out.list(report.options, [&](const KnownOption &option) {
        for (const std::string *text : {&option.name, &option.meaning, &option.choices}) out.text(*text);
        out.fixed(option.type);
        out.fixed(option.lowest);
        out.fixed(option.highest);
    });
    return out.bytes();
}

std::optional<Report> report_in(std::string_view bytes, Trouble &trouble) {
    Reader in(bytes);
    const auto step = in.fixed<uint8_t>();
    if (step >= std::size(confining_calls)) return std::nullopt;
    trouble = {confining_calls[step], in.fixed<int32_t>()};
    Report report;
    report.status = in.fixed<uint32_t>();
    const auto refusal = in.fixed<uint8_t>();
    if (refusal > static_cast<uint8_t>(Refusal::option)) return std::nullopt; // stopped is not for a worker to say
    report.refusal = static_cast<Refusal>(refusal);
    if (in.flag()) {
        Limit &limit = report.limit.emplace();
        limit.name = in.text(most_name);
        limit.needed = in.fixed<uint64_t>();
        limit.allowed = in.fixed<uint64_t>();
    }
    for (uint32_t *number :
         {&report.wrong_option, &report.codec, &report.rows_done, &report.full_width, &report.full_height})
        *number = in.fixed<uint32_t>();
    if (in.flag()) for_each_number(report.picture.emplace(), [&](uint32_t &number) { number = in.fixed<uint32_t>(); });
    in.list(report.values, most_values, [&] {
        const auto key = in.fixed<uint32_t>();
        return Value{key, in.text(most_block)};
    });
    in.list(report.options, most_options, [&] {
        KnownOption option;
        for (std::string *text : {&option.name, &option.meaning, &option.choices}) *text = in.text(most_option_text);
        option.type = in.fixed<uint32_t>();
        option.lowest = in.fixed<int32_t>();
        option.highest = in.fixed<int32_t>();
        return option;
    });
    if (!in.complete()) return std::nullopt;
    return report;
}

const char *flaw_of(const Report &report, const Task &task) {
    if (report.picture)
        if (const char *flaw = flaw_of(*report.picture, task)) return flaw;
    if (!report.status && (!report.picture || report.refusal != Refusal::none || report.limit)) return "its status";
    if (report.refusal == Refusal::option && report.wrong_option >= task.options.size()) return "its options";
    if (report.full_width > max_side || report.full_height > max_side) return "its size";
    size_t warnings = 0;
    for (const Value &value : report.values) {
        if (!is_sound(value)) return "its values";
        warnings += value.key == IMG_VALUE_WARNING;
    }
    return warnings > most_warnings ? "its warnings" : nullptr;
}

} // namespace confine
