// SPDX-License-Identifier: MIT
#include "tools/confine/report.h"

#include "tools/confine/wire.h"

#include <errno.h>
#include <iterator>
#include <string.h>

namespace confine {

namespace {

uint32_t entries_of(img_format format) { return format & IMG_FMT_PAL ? 1u << (format & IMG_FMT_BPP_MASK) : 0; }

const char *flaw_of(const Shape &shape, const Task &task) {
    if (!is_format(shape.format)) return "its pixel format";
    if (!shape.width || !shape.height || shape.width > max_side || shape.height > max_side) return "its size";
    if (uint64_t{shape.width} * shape.height > task.limits.most_pixels()) return "its size";
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

std::string Trouble::text() const { return call + ": " + strerror(error); }

std::string packed(const Trouble &trouble) {
    Writer out;
    uint8_t step = 0;
    for (uint8_t i = 0; i < std::size(confining_calls); i++)
        if (trouble.call == confining_calls[i]) step = i;
    out.fixed(step);
    out.fixed(int32_t{trouble.error});
    return out.bytes();
}

std::optional<Trouble> trouble_in(std::string_view bytes) {
    Reader in(bytes);
    const auto step = in.fixed<uint8_t>();
    const auto error = in.fixed<int32_t>();
    if (!in.complete() || step >= std::size(confining_calls)) return std::nullopt;
    return Trouble{confining_calls[step], error};
}

std::string packed(const Report &report) {
    Writer out;
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
    if (report.picture) put(out, *report.picture);
    out.list(report.values, [&](const Value &value) { put(out, value); });
    out.list(report.offered, [&](img_format format) { out.fixed(format); });
    out.list(report.options, [&](const KnownOption &option) {
        for (const std::string *text : {&option.name, &option.meaning, &option.choices}) out.text(*text);
        out.fixed(option.type);
        out.fixed(option.lowest);
        out.fixed(option.highest);
    });
    return out.bytes();
}

std::optional<Report> report_in(std::string_view bytes) {
    Reader in(bytes);
    Report report;
    report.status = in.fixed<uint32_t>();
    const auto refusal = in.fixed<uint8_t>();
    if (refusal > static_cast<uint8_t>(Refusal::empty)) return std::nullopt; // stopped is not for a worker to say
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
    if (in.flag()) report.picture = shape_in(in);
    in.list(report.values, most_values, [&] { return value_in(in); });
    in.list(report.offered, most_formats, [&] { return in.fixed<uint32_t>(); });
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
    const bool writes = task.writing.has_value();
    if (report.picture && writes) return "its picture";
    if (report.picture)
        if (const char *flaw = flaw_of(*report.picture, task)) return flaw;
    const bool refused = report.refusal != Refusal::none || report.limit;
    if (!report.status && (refused || report.picture.has_value() == writes)) return "its status";
    const bool of_option = report.refusal == Refusal::option || report.refusal == Refusal::unknown_option;
    if (of_option && report.wrong_option >= task.options.size()) return "its options";
    if (report.full_width > max_side || report.full_height > max_side) return "its size";
    if (!std::all_of(report.offered.begin(), report.offered.end(), is_format)) return "its formats";
    if (!std::all_of(report.values.begin(), report.values.end(), is_sound)) return "its values";
    const auto is_warning = [](const Value &value) { return value.key == IMG_VALUE_WARNING; };
    const auto warnings = std::count_if(report.values.begin(), report.values.end(), is_warning);
    return static_cast<size_t>(warnings) > most_warnings ? "its warnings" : nullptr;
}

} // namespace confine
