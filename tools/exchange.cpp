// SPDX-License-Identifier: MIT
#include "tools/exchange.h"

#include "tools/text.h"

#include <algorithm>

namespace tool {

GivenOption parse_option(const std::string &text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
        throw Failure("--option " + text + ": write a name and a value, such as quality=90", usage);
    return {text.substr(0, equals), text.substr(equals + 1)};
}

void Exchange::take(const confine::Report &report) {
    metadata = {};
    for (const auto &[key, bytes] : report.values) pictra::take_value(metadata, key, bytes.data(), bytes.size());
    rows_done = report.rows_done;
    full_width = report.full_width;
    full_height = report.full_height;
    known_.clear();
    note_options(report);
}

void Exchange::take_written(const confine::Report &report) { note_options(report); }

std::vector<std::string> Exchange::asked() const {
    std::vector<std::string> names;
    for (const confine::KnownOption &known : known_) names.push_back(known.name);
    return names;
}

void Exchange::note_options(const confine::Report &report) {
    known_.insert(known_.end(), report.options.begin(), report.options.end());
    const bool unknown = report.refusal == confine::Refusal::unknown_option;
    if (!unknown && report.refusal != confine::Refusal::option) return;
    const auto &[name, value] = options_[report.wrong_option];
    std::string all, values;
    for (const confine::KnownOption &known : known_) {
        all += (all.empty() ? "" : "; ") + known.name + " (" + known.values() + "), " + known.meaning;
        if (known.name == name) values = known.values();
    }
    wrong_ = unknown ? "--option " + name + ": no codec of this conversion has such an option; " +
                           (all.empty() ? "they have none" : "there are: " + all)
                     : "--option " + name + "=" + value + ": it takes " + values;
}

void Exchange::check(const std::string &name) const {
    if (!wrong_.empty()) throw Failure(name + ": " + wrong_, usage);
}

} // namespace tool
