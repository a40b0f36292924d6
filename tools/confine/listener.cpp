// SPDX-License-Identifier: MIT
#include "tools/confine/listener.h"

#include <string.h>
#include <utility>

namespace confine {

namespace {

constexpr img_status header_told = 0x100; // stops a codec that has told all that is wanted; no codec's own status

int drop_row(void *, uint32_t, uint32_t, uint32_t, void *) { return 0; }

uint32_t key_of(const img_record &record) {
    const uint32_t depth = record.format & IMG_FMT_BPP_MASK;
    return depth > 16 ? record.transparency : depth == 16 ? record.transparency16 : record.transparency8;
}

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

} // namespace

Listener::Listener(const Task &task, Storage storage, bool (*stopped)())
    : task_(task), storage_(std::move(storage)), stopped_(stopped), options_(task.options) {}

img_decode_callouts Listener::begin() {
    report_ = {};
    bytes_noted_ = warnings_ = 0;
    picture_bytes_ = 0;
    header_done_ = left_out_ = false;
    palette_ = {};
    began_ = std::chrono::steady_clock::now();
    img_decode_callouts callouts{};
    callouts.setup = set_up;
    callouts.scanline = progress;
    callouts.set_value = hear;
    callouts.data = this;
    return callouts;
}

Report Listener::finish(img_status status, const img_record &record) {
    if (header_done_ || (status == IMG_ST_OK && task_.header_only)) status = IMG_ST_OK;
    constexpr img_flags shaped = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
    const bool seen = (record.flags & shaped) == shaped && (record.flags & (IMG_F_DIRECT | IMG_F_ACCESS));
    if (seen && !header_done_) report_.picture = shape_of(record);
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

img_status Listener::answer(uintptr_t key, uintptr_t size, uintptr_t value) {
    const auto *bytes = reinterpret_cast<const char *>(value);
    switch (key) {
    case IMG_VALUE_OPTION: {
        const img_status status = options_.answer(*reinterpret_cast<img_option *>(value));
        if (status) {
            report_.wrong_option = options_.wrong();
            report_.refusal = Refusal::option;
        }
        return status;
    }
    case IMG_VALUE_MAX_MEMORY:
        // 0 would be no limit.
        if (const uint64_t all = task_.limits.memory)
            *reinterpret_cast<uint64_t *>(value) = all > picture_bytes_ ? all - picture_bytes_ : 1;
        return IMG_ST_OK;
    case IMG_VALUE_LIMIT: {
        const auto &met = *reinterpret_cast<const img_limit *>(bytes);
        report_.limit = {std::string(met.name, strnlen(met.name, most_name)), met.needed, met.allowed};
        return IMG_ST_OK;
    }
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
    if (self.task_.header_only) {
        self.report_.picture = shape_of(*record);
        self.header_done_ = true;
        return header_told;
    }
    return self.check_time();
}

img_status Listener::check_time() {
    const auto seconds = std::chrono::seconds(task_.limits.seconds);
    if (seconds.count() && std::chrono::steady_clock::now() - began_ > seconds)
        report_.refusal = Refusal::time;
    else if (stopped_ && stopped_())
        report_.refusal = Refusal::stopped;
    return report_.refusal == Refusal::none ? IMG_ST_OK : IMG_ST_LIMIT;
}

} // namespace confine
