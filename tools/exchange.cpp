// SPDX-License-Identifier: MIT
#include "tools/exchange.h"

#include "tools/confine/bytes.h"
#include "tools/interrupt.h"
#include "tools/text.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string.h>

namespace tool {

namespace {

std::optional<int32_t> number_in(const std::string &text) {
    int32_t value;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

// The index of a name in names joined by ":".
std::optional<int32_t> choice_in(const std::string &names, const std::string &name) {
    int32_t index = 0;
    for (size_t at = 0; at <= names.size(); index++) {
        const size_t end = std::min(names.find(':', at), names.size());
        if (names.compare(at, end - at, name) == 0) return index;
        at = end + 1;
    }
    return std::nullopt;
}

std::optional<int32_t> switch_in(const std::string &text) {
    for (const char *word : {"on", "yes", "true", "1"})
        if (text == word) return 1;
    for (const char *word : {"off", "no", "false", "0"})
        if (text == word) return 0;
    return std::nullopt;
}

std::string values_of(const img_option &option) {
    if (option.type == IMG_OPTION_SWITCH) return "on or off";
    if (option.type == IMG_OPTION_CHOICE) {
        std::string names = option.choices;
        std::replace(names.begin(), names.end(), ':', '|');
        return names;
    }
    return std::to_string(option.lowest) + " to " + std::to_string(option.highest);
}

std::optional<int32_t> value_of(const img_option &option, const std::string &text) {
    if (option.type == IMG_OPTION_SWITCH) return switch_in(text);
    if (option.type == IMG_OPTION_CHOICE) return choice_in(option.choices, text);
    const std::optional<int32_t> value = number_in(text);
    return value && *value >= option.lowest && *value <= option.highest ? value : std::nullopt;
}

} // namespace

// The palette comes first and is always whole, so that no index leads out of it.
img_status place(img_record &record, const Arena &arena) {
    constexpr size_t palette_bytes = 256 * sizeof(uint32_t);
    const uint64_t stride = ((uint64_t{record.width} * (record.format & IMG_FMT_BPP_MASK) + 7) / 8 + 3) & ~uint64_t{3};
    if (stride > UINT32_MAX || palette_bytes + stride * record.height > arena.size) return IMG_ST_NOMEM;
    record.palette = reinterpret_cast<uint32_t *>(arena.begin);
    record.data = arena.begin + palette_bytes;
    record.stride = static_cast<uint32_t>(stride);
    record.flags |= IMG_F_DIRECT | (record.format & IMG_FMT_PAL ? img_flags{IMG_F_PALETTE} : 0);
    return IMG_ST_OK;
}

GivenOption parse_option(const std::string &text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
        throw Failure("--option " + text + ": write a name and a value, such as quality=90", usage);
    return {text.substr(0, equals), text.substr(equals + 1)};
}

img_decode_callouts Exchange::reading() {
    began_ = std::chrono::steady_clock::now();
    img_decode_callouts callouts{};
    callouts.setup = set_up;
    callouts.scanline = progress;
    callouts.set_value = hear;
    callouts.data = this;
    return callouts;
}

img_encode_callouts Exchange::writing() {
    limits_.seconds = 0;
    img_encode_callouts callouts{};
    callouts.choose_format = note_formats;
    callouts.setup = check_asked;
    callouts.scanline = progress;
    callouts.data = this;
    return callouts;
}

void Exchange::check(const std::string &name) const {
    if (!wrong_.empty()) throw Failure(name + ": " + wrong_, wrong_code_);
}

img_status Exchange::refuse(const std::string &why, uint32_t code, img_status status) {
    wrong_ = why;
    wrong_code_ = code;
    return status;
}

img_status Exchange::set_up(void *data, img_record *record, uint32_t) {
    auto &self = *static_cast<Exchange *>(data);
    const uint64_t pixels = uint64_t{record->width} * record->height;
    if (self.limits_.pixels && pixels > self.limits_.pixels)
        return self.refuse("it has " + std::to_string(pixels) + " pixels, more than --max-pixels " +
                               std::to_string(self.limits_.pixels) + "; raise that, or reduce the picture",
                           IMG_ST_RESERVED10, IMG_ST_RESERVED10);
    if ((record->flags & IMG_F_ACCESS) || !(self.arena || self.zeroed)) return IMG_ST_OK;
    img_alloc_result made = 0;
    const img_status status = self.arena ? place(*record, *self.arena) : img_alloc(record, &made);
    if (status == IMG_ST_OK && self.zeroed) memset(record->data, 0, size_t{record->stride} * record->height);
    return status;
}

// Both codecs have asked by now, and nothing is written yet.
img_status Exchange::check_asked(void *data, img_record *, uint32_t) {
    auto &self = *static_cast<Exchange *>(data);
    for (size_t i = 0; i < self.options_.size(); i++)
        if (!self.asked_[i])
            return self.refuse("--option " + self.options_[i].name +
                                   ": no codec of this conversion has such an option; " +
                                   (self.known_.empty() ? "they have none" : "there are: " + self.known_),
                               usage, IMG_ST_BADARG);
    return IMG_ST_OK;
}

img_status Exchange::answer(img_option &option) {
    known_ +=
        (known_.empty() ? "" : "; ") + std::string(option.name) + " (" + values_of(option) + "), " + option.meaning;
    for (size_t i = 0; i < options_.size(); i++) {
        if (options_[i].name != option.name) continue;
        asked_[i] = true;
        const std::optional<int32_t> value = value_of(option, options_[i].value);
        if (!value)
            return refuse("--option " + options_[i].name + "=" + options_[i].value + ": it takes " + values_of(option),
                          usage, IMG_ST_BADARG);
        option.value = *value;
    }
    return IMG_ST_OK;
}

img_status Exchange::hear(void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t) {
    auto &self = *static_cast<Exchange *>(data);
    const auto *pointer = reinterpret_cast<void *>(value);
    if (key == IMG_VALUE_OPTION) return self.answer(*reinterpret_cast<img_option *>(value));
    if (key == IMG_VALUE_WARNING)
        self.warnings.emplace_back(static_cast<const char *>(pointer), size);
    else
        self.metadata.hear(static_cast<uint32_t>(key), pointer, size);
    return IMG_ST_OK;
}

img_status Exchange::progress(void *data, img_record *, uintptr_t done, uintptr_t, uintptr_t key, uintptr_t value) {
    auto &self = *static_cast<Exchange *>(data);
    auto *pointer = reinterpret_cast<void *>(value);
    if (key == IMG_VALUE_OPTION) return self.answer(*static_cast<img_option *>(pointer));
    if (key) {
        self.metadata.answer(static_cast<uint32_t>(key), pointer);
        return IMG_ST_OK;
    }
    self.rows_done = done;
    if (self.limits_.seconds &&
        std::chrono::steady_clock::now() - self.began_ > std::chrono::seconds(self.limits_.seconds))
        return self.refuse("it took longer than --timeout " + std::to_string(self.limits_.seconds) +
                               " seconds; raise that, or reduce the picture",
                           IMG_ST_RESERVED10, IMG_ST_RESERVED10);
    return stop_signal() ? img_status{IMG_ST_FILE} : img_status{IMG_ST_OK};
}

// Lets the library choose.
uint32_t Exchange::note_formats(void *data, img_record *, const img_format *formats, uint32_t count) {
    auto &self = *static_cast<Exchange *>(data);
    for (uint32_t i = 0; i < count; i++) self.offered += (i ? ", " : "") + format_name(formats[i]);
    return count;
}

std::string Exchange::packed() const {
    ByteWriter out;
    for (const uint32_t number : {metadata.orientation, metadata.frames, metadata.depth, metadata.delay, metadata.loops,
                                  full_width, full_height, wrong_code_})
        out.number(number);
    out.number(rows_done);
    out.real(metadata.resolution.x);
    out.real(metadata.resolution.y);
    for (const std::string *text : {&metadata.icc, &metadata.exif, &metadata.xmp, &metadata.texts, &known_, &wrong_})
        out.text(*text);
    out.texts(warnings);
    for (const bool asked : asked_) out.number(asked);
    return out.bytes();
}

void Exchange::unpack(const std::string &bytes) {
    ByteReader in(bytes);
    for (uint32_t *number : {&metadata.orientation, &metadata.frames, &metadata.depth, &metadata.delay, &metadata.loops,
                             &full_width, &full_height, &wrong_code_})
        *number = static_cast<uint32_t>(in.number());
    rows_done = in.number();
    metadata.resolution.x = in.real();
    metadata.resolution.y = in.real();
    for (std::string *text : {&metadata.icc, &metadata.exif, &metadata.xmp, &metadata.texts, &known_, &wrong_})
        *text = in.text();
    warnings = in.texts();
    for (size_t i = 0; i < asked_.size(); i++) asked_[i] = in.number() != 0;
}

} // namespace tool
