// SPDX-License-Identifier: MIT
#include "tools/confine/listener.h"

#include <algorithm>
#include <new>
#include <string.h>
#include <utility>

namespace confine {

namespace {

constexpr img_status header_told = 0x100; // stops a codec that has told all that is wanted; no codec's own status

int drop_row(void *, uint32_t, uint32_t, uint32_t, void *) { return 0; }

} // namespace

Listener::Listener(const Task &task, Storage storage, bool (*stopped)())
    : task_(task), storage_(std::move(storage)), stopped_(stopped), options_(task.options) {}

void Listener::begin_report() {
    report_ = {};
    began_ = std::chrono::steady_clock::now();
}

img_decode_callouts Listener::begin() {
    begin_report();
    bytes_noted_ = warnings_ = 0;
    picture_bytes_ = 0;
    header_done_ = left_out_ = false;
    palette_ = {};
    img_decode_callouts callouts{};
    callouts.setup = set_up;
    if (task_.header_only) callouts.abort = give_up;
    callouts.scanline = progress;
    callouts.set_value = hear;
    callouts.data = this;
    return callouts;
}

Report Listener::finish(img_status status, const img_record &record) {
    if (header_done_ && report_.refusal == Refusal::none) {
        status = IMG_ST_OK;
        report_.limit.reset();
    }
    constexpr img_flags shaped = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
    const bool seen = (record.flags & shaped) == shaped && (record.flags & (IMG_F_DIRECT | IMG_F_ACCESS));
    if (seen && !header_done_) report_.picture = shape_of(record);
    return finish(status);
}

Report Listener::finish(img_status status) {
    report_.status = status;
    report_.options = options_.known();
    return std::move(report_);
}

void Listener::set_full_size(uint32_t width, uint32_t height) {
    report_.full_width = width;
    report_.full_height = height;
}

img_status Listener::exceed(const char *name, uint64_t needed, uint64_t allowed) {
    report_.limit = {name, needed, allowed};
    return IMG_ST_LIMIT;
}

img_status Listener::set_up(void *data, img_record *record, uint32_t) {
    auto &self = *static_cast<Listener *>(data);
    const uint64_t pixels = uint64_t{record->width} * record->height;
    if (self.task_.limits.pixels && pixels > self.task_.limits.pixels)
        return self.exceed("pixels", pixels, self.task_.limits.pixels);
    return self.make_storage(*record);
}

img_status Listener::make_storage(img_record &record) {
    if (task_.thumbnail || (record.flags & IMG_F_ACCESS)) return IMG_ST_OK; // rows go on as they come
    if (storage_ || task_.header_only) {
        record.palette = palette_.data();
        if (record.format & IMG_FMT_PAL) record.flags |= IMG_F_PALETTE;
    }
    if (task_.header_only) {
        record.access = drop_row;
        record.access_arg = nullptr;
        record.flags |= IMG_F_ACCESS;
        return IMG_ST_OK;
    }
    const uint64_t bytes = Shape{record.format, record.width, record.height}.bytes();
    if (bytes > task_.limits.most_bytes()) return exceed("memory", bytes, task_.limits.most_bytes());
    picture_bytes_ = bytes;
    if (storage_) return storage_(record);
    if (!task_.keep_damaged) return IMG_ST_OK; // the library allocates
    img_alloc_result made = 0;
    const img_status status = img_alloc(&record, &made);
    if (status == IMG_ST_OK) memset(record.data, 0, size_t{record.stride} * record.height);
    return status;
}

// What an honest codec reports beyond what can be passed on is left out, with a warning.
img_status Listener::note(Value value) {
    const bool is_warning = value.key == IMG_VALUE_WARNING;
    if (is_warning && value.bytes.size() > most_warning) value.bytes.resize(most_warning);
    const bool fits = bytes_noted_ + value.bytes.size() < most_report / 2 && report_.values.size() + 1 < most_values &&
                      warnings_ + 1 < most_warnings;
    if (fits && is_sound(value)) {
        bytes_noted_ += value.bytes.size();
        warnings_ += is_warning;
        report_.values.push_back(std::move(value));
    } else if (!left_out_) {
        left_out_ = true;
        report_.values.push_back({IMG_VALUE_WARNING, "metadata left out: too much of it, or values that cannot be"});
    }
    return IMG_ST_OK;
}

void Listener::note_limit(const img_limit &met) {
    report_.limit = {std::string(met.name, strnlen(met.name, most_name)), met.needed, met.allowed};
}

img_status Listener::refuse(Refusal refusal, size_t given) {
    report_.refusal = refusal;
    report_.wrong_option = static_cast<uint32_t>(given);
    return IMG_ST_BADARG;
}

img_status Listener::answer(img_option &option) {
    return options_.answer(option) == IMG_ST_OK ? img_status{IMG_ST_OK} : refuse(Refusal::option, options_.wrong());
}

img_status Listener::answer(uintptr_t key, uintptr_t size, uintptr_t value) {
    const auto *bytes = reinterpret_cast<const char *>(value);
    switch (key) {
    case IMG_VALUE_OPTION:
        return answer(*reinterpret_cast<img_option *>(value));
    case IMG_VALUE_MAX_MEMORY:
        // 0 would be no limit.
        if (const uint64_t all = task_.limits.memory)
            *reinterpret_cast<uint64_t *>(value) = all > picture_bytes_ ? all - picture_bytes_ : 1;
        return IMG_ST_OK;
    case IMG_VALUE_LIMIT:
        note_limit(*reinterpret_cast<const img_limit *>(value));
        return IMG_ST_OK;
    default:
        if (!is_known_value(static_cast<uint32_t>(key))) return IMG_ST_OK;
        return note({static_cast<uint32_t>(key), std::string(bytes, size)});
    }
}

img_status Listener::hear(void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t) {
    auto &self = *static_cast<Listener *>(data);
    try {
        if (const img_status status = self.answer(key, size, value)) return status;
    } catch (const std::bad_alloc &) { // codecs are C
        return IMG_ST_NOMEM;
    }
    return self.check_time();
}

img_status Listener::progress(void *data, img_record *record, uintptr_t done, uintptr_t, uintptr_t, uintptr_t) {
    auto &self = *static_cast<Listener *>(data);
    self.report_.rows_done = static_cast<uint32_t>(done);
    if (!self.task_.header_only) return self.check_time();
    self.take_header(*record);
    return header_told;
}

// A picture that turns out to be damaged after its header is no concern of those who want the header.
void Listener::give_up(void *data, img_record *record) {
    auto &self = *static_cast<Listener *>(data);
    if (!self.header_done_) self.take_header(*record);
}

void Listener::take_header(const img_record &record) {
    report_.picture = shape_of(record);
    header_done_ = true;
}

img_status Listener::check_time() {
    const auto seconds = std::chrono::seconds(task_.limits.seconds);
    if (seconds.count() && std::chrono::steady_clock::now() - began_ > seconds)
        report_.refusal = Refusal::time;
    else if (stopped_ && stopped_())
        report_.refusal = Refusal::stopped;
    return report_.refusal == Refusal::none ? IMG_ST_OK : IMG_ST_LIMIT;
}

// ---- Writing ---------------------------------------------------------------------------------------------------------

img_encode_callouts Listener::begin_writing() {
    begin_report();
    img_encode_callouts callouts{};
    callouts.choose_format = note_formats;
    callouts.setup = check_asked;
    callouts.scanline = answer_writer;
    callouts.data = this;
    return callouts;
}

// Lets the library choose.
uint32_t Listener::note_formats(void *data, img_record *, const img_format *formats, uint32_t count) {
    auto &offered = static_cast<Listener *>(data)->report_.offered;
    try {
        offered.assign(formats, formats + std::min<size_t>(count, most_formats));
    } catch (const std::bad_alloc &) { // what is offered is for a message only
    }
    return count;
}

// Both codecs have asked by now, and nothing is written yet.
img_status Listener::check_asked(void *data, img_record *, uint32_t) {
    auto &self = *static_cast<Listener *>(data);
    const std::vector<KnownOption> &known = self.options_.known();
    const std::vector<std::string> &asked = self.task_.writing->asked;
    for (size_t i = 0; i < self.task_.options.size(); i++) {
        const std::string &name = self.task_.options[i].name;
        if (std::none_of(known.begin(), known.end(), [&](const KnownOption &option) { return option.name == name; }) &&
            std::find(asked.begin(), asked.end(), name) == asked.end())
            return self.refuse(Refusal::unknown_option, i);
    }
    return IMG_ST_OK;
}

// What the writing has no value of stays at the codec's default.
void Listener::tell(uint32_t key, void *value) const {
    for (const auto &[known, bytes] : task_.writing->values) {
        if (known != key) continue;
        const img_bytes block{bytes.data(), bytes.size()};
        if (is_block(key))
            memcpy(value, &block, sizeof block);
        else
            memcpy(value, bytes.data(), bytes.size());
    }
}

img_status Listener::answer_writer(void *data, img_record *, uintptr_t, uintptr_t, uintptr_t key, uintptr_t value) {
    auto &self = *static_cast<Listener *>(data);
    auto *pointer = reinterpret_cast<void *>(value);
    try {
        if (key == IMG_VALUE_OPTION) return self.answer(*static_cast<img_option *>(pointer));
        if (key == IMG_VALUE_LIMIT)
            self.note_limit(*static_cast<const img_limit *>(pointer));
        else if (key)
            self.tell(static_cast<uint32_t>(key), pointer);
    } catch (const std::bad_alloc &) { // codecs are C
        return IMG_ST_NOMEM;
    }
    return self.check_time();
}

} // namespace confine
