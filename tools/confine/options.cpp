// SPDX-License-Identifier: MIT
#include "tools/confine/options.h"

#include "pictra/pictra.hpp"

#include <algorithm>
#include <optional>

namespace confine {

namespace {

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
        const std::optional<int32_t> value = pictra::option_value(asked, given.value);
        if (!value) {
            wrong_ = static_cast<uint32_t>(&given - given_->data());
            return IMG_ST_BADARG;
        }
        asked.value = *value;
    }
    return IMG_ST_OK;
}

} // namespace confine
