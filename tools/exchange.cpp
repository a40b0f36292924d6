// SPDX-License-Identifier: MIT
#include "tools/exchange.h"

#include "tools/interrupt.h"
#include "tools/text.h"

#include <algorithm>
#include <charconv>
#include <optional>

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

GivenOption parse_option(const std::string &text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
        throw Failure("--option " + text + ": write a name and a value, such as quality=90", usage);
    return {text.substr(0, equals), text.substr(equals + 1)};
}

img_decode_callouts Exchange::reading() {
    img_decode_callouts callouts{};
    callouts.scanline = progress;
    callouts.set_value = hear;
    callouts.data = this;
    return callouts;
}

img_encode_callouts Exchange::writing() {
    img_encode_callouts callouts{};
    callouts.choose_format = note_formats;
    callouts.setup = check_asked;
    callouts.scanline = progress;
    callouts.data = this;
    return callouts;
}

void Exchange::check() const {
    if (!wrong_.empty()) throw Failure(wrong_, usage);
}

// Both codecs have asked by now, and nothing is written yet.
img_status Exchange::check_asked(void *data, img_record *, uint32_t) {
    auto &self = *static_cast<Exchange *>(data);
    for (size_t i = 0; i < self.options_.size(); i++)
        if (!self.asked_[i])
            self.wrong_ = "--option " + self.options_[i].name + ": no codec of this conversion has such an option; " +
                          (self.known_.empty() ? "they have none" : "there are: " + self.known_);
    return self.wrong_.empty() ? img_status{IMG_ST_OK} : img_status{IMG_ST_BADARG};
}

img_status Exchange::answer(img_option &option) {
    known_ +=
        (known_.empty() ? "" : "; ") + std::string(option.name) + " (" + values_of(option) + "), " + option.meaning;
    for (size_t i = 0; i < options_.size(); i++) {
        if (options_[i].name != option.name) continue;
        asked_[i] = true;
        const std::optional<int32_t> value = value_of(option, options_[i].value);
        if (!value) {
            wrong_ = "--option " + options_[i].name + "=" + options_[i].value + ": it takes " + values_of(option);
            return IMG_ST_BADARG;
        }
        option.value = *value;
    }
    return IMG_ST_OK;
}

img_status Exchange::hear(void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t) {
    auto &self = *static_cast<Exchange *>(data);
    if (key == IMG_VALUE_OPTION) return self.answer(*reinterpret_cast<img_option *>(value));
    if (key == IMG_VALUE_WARNING) self.warnings.emplace_back(reinterpret_cast<const char *>(value), size);
    return IMG_ST_OK;
}

img_status Exchange::progress(void *data, img_record *, uintptr_t done, uintptr_t, uintptr_t key, uintptr_t value) {
    auto &self = *static_cast<Exchange *>(data);
    if (key == IMG_VALUE_OPTION) return self.answer(*reinterpret_cast<img_option *>(value));
    if (!key) self.rows_done = done;
    return stop_signal() ? img_status{IMG_ST_FILE} : img_status{IMG_ST_OK};
}

// Lets the library choose.
uint32_t Exchange::note_formats(void *data, img_record *, const img_format *formats, uint32_t count) {
    auto &self = *static_cast<Exchange *>(data);
    for (uint32_t i = 0; i < count; i++) self.offered += (i ? ", " : "") + format_name(formats[i]);
    return count;
}

} // namespace tool
