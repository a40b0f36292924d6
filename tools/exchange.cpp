// SPDX-License-Identifier: MIT
#include "tools/exchange.h"

#include "tools/interrupt.h"
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
    warnings.clear();
    for (const auto &[key, bytes] : report.values)
        if (key == IMG_VALUE_WARNING)
            warnings.push_back(bytes);
        else
            metadata.hear(key, bytes.data(), bytes.size());
    rows_done = report.rows_done;
    full_width = report.full_width;
    full_height = report.full_height;
    limit = report.limit;
    known_ = report.options;
    if (report.refusal == confine::Refusal::option) note_wrong(report.wrong_option);
}

img_encode_callouts Exchange::writing() {
    img_encode_callouts callouts{};
    callouts.choose_format = note_formats;
    callouts.setup = check_asked;
    callouts.scanline = progress;
    callouts.data = this;
    return callouts;
}

void Exchange::check(const std::string &name) const {
    if (!wrong_.empty()) throw Failure(name + ": " + wrong_, usage);
}

void Exchange::note_wrong(size_t given) {
    const auto &[name, value] = options_[given];
    const auto asked =
        std::find_if(known_.begin(), known_.end(), [&](const auto &known) { return known.name == name; });
    wrong_ = "--option " + name + "=" + value + ": it takes " + (asked == known_.end() ? "less" : asked->values());
}

// Both codecs have asked by now, and nothing is written yet.
img_status Exchange::check_asked(void *data, img_record *, uint32_t) {
    auto &self = *static_cast<Exchange *>(data);
    std::string all;
    for (const confine::KnownOption &known : self.known_)
        all += (all.empty() ? "" : "; ") + known.name + " (" + known.values() + "), " + known.meaning;
    for (const auto &[name, value] : self.options_) {
        if (std::any_of(self.known_.begin(), self.known_.end(), [&](const auto &known) { return known.name == name; }))
            continue;
        self.wrong_ = "--option " + name + ": no codec of this conversion has such an option; " +
                      (all.empty() ? "they have none" : "there are: " + all);
        return IMG_ST_BADARG;
    }
    return IMG_ST_OK;
}

img_status Exchange::answer(img_option &option) {
    confine::Options answers(options_);
    const img_status status = answers.answer(option);
    known_.insert(known_.end(), answers.known().begin(), answers.known().end());
    if (status) note_wrong(answers.wrong());
    return status;
}

img_status Exchange::progress(void *data, img_record *, uintptr_t, uintptr_t, uintptr_t key, uintptr_t value) {
    auto &self = *static_cast<Exchange *>(data);
    auto *pointer = reinterpret_cast<void *>(value);
    if (key == IMG_VALUE_OPTION) return self.answer(*static_cast<img_option *>(pointer));
    if (key == IMG_VALUE_LIMIT) {
        const auto &met = *static_cast<img_limit *>(pointer);
        self.limit = {met.name, met.needed, met.allowed};
        return IMG_ST_OK;
    }
    if (key) {
        self.metadata.answer(static_cast<uint32_t>(key), pointer);
        return IMG_ST_OK;
    }
    return stop_signal() ? img_status{IMG_ST_FILE} : img_status{IMG_ST_OK};
}

// Lets the library choose.
uint32_t Exchange::note_formats(void *data, img_record *, const img_format *formats, uint32_t count) {
    auto &self = *static_cast<Exchange *>(data);
    for (uint32_t i = 0; i < count; i++) self.offered += (i ? ", " : "") + format_name(formats[i]);
    return count;
}

} // namespace tool
