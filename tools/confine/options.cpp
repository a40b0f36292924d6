// SPDX-License-Identifier: MIT
#include "tools/confine/options.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace confine {

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

std::optional<int32_t> value_of(const KnownOption &option, const std::string &text) {
    if (option.type == IMG_OPTION_SWITCH) return switch_in(text);
    if (option.type == IMG_OPTION_CHOICE) return choice_in(option.choices, text);
    const std::optional<int32_t> value = number_in(text);
    return value && *value >= option.lowest && *value <= option.highest ? value : std::nullopt;
}

std::string text_of(const char *text) { return text ? std::string(text).substr(0, most_option_text) : std::string(); }

} // namespace

std::string KnownOption::values() const {
    if (type == IMG_OPTION_SWITCH) return "on or off";
    if (type != IMG_OPTION_CHOICE) return std::to_string(lowest) + " to " + std::to_string(highest);
    std::string names = choices;
    std::replace(names.begin(), names.end(), ':', '|');
    return names;
}

img_status Options::answer(img_option &asked) {
    const KnownOption option{text_of(asked.name), text_of(asked.meaning), text_of(asked.choices),
                             asked.type,          asked.lowest,           asked.highest};
    const auto same = [&](const KnownOption &known) { return known.name == option.name; };
    if (known_.size() < most_options && std::none_of(known_.begin(), known_.end(), same)) known_.push_back(option);
    for (const GivenOption &given : *given_) {
        if (given.name != option.name) continue;
        const std::optional<int32_t> value = value_of(option, given.value);
        if (!value) {
            wrong_ = static_cast<uint32_t>(&given - given_->data());
            return IMG_ST_BADARG;
        }
        asked.value = *value;
    }
    return IMG_ST_OK;
}

} // namespace confine
