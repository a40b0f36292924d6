// SPDX-License-Identifier: MIT
#include "tools/confine/task.h"

#include "tools/confine/wire.h"

namespace confine {

namespace {

constexpr uint32_t protocol = 1; // of which the other side may be of another build
constexpr size_t most_items = 4096, most_text = 65536, most_metadata = 64 << 20; // more is a mistake

} // namespace

std::string packed(const Task &task) {
    Writer out;
    out.fixed(protocol);
    out.fixed(task.format);
    out.fixed(task.thumbnail);
    for (const bool flag : {task.header_only, task.keep_damaged, task.confined}) out.fixed(uint8_t{flag});
    out.fixed(task.limits.pixels);
    out.fixed(task.limits.memory);
    out.fixed(task.limits.seconds);
    out.list(task.options, [&](const GivenOption &option) {
        out.text(option.name);
        out.text(option.value);
    });
    out.list(task.modules, [&](const std::string &path) { out.text(path); });
    out.fixed(uint8_t{task.writing.has_value()});
    if (!task.writing) return out.bytes();
    put(out, task.writing->picture);
    out.list(task.writing->values, [&](const Value &value) { put(out, value); });
    out.list(task.writing->asked, [&](const std::string &name) { out.text(name); });
    return out.bytes();
}

std::optional<Task> unpacked(std::string_view bytes) {
    Reader in(bytes);
    if (in.fixed<uint32_t>() != protocol) return std::nullopt;
    Task task;
    task.format = in.fixed<uint32_t>();
    task.thumbnail = in.fixed<uint32_t>();
    for (bool *flag : {&task.header_only, &task.keep_damaged, &task.confined}) *flag = in.flag();
    task.limits.pixels = in.fixed<uint64_t>();
    task.limits.memory = in.fixed<uint64_t>();
    task.limits.seconds = in.fixed<uint32_t>();
    in.list(task.options, most_items, [&] {
        std::string name = in.text(most_text);
        return GivenOption{std::move(name), in.text(most_text)};
    });
    in.list(task.modules, most_items, [&] { return in.text(most_text); });
    if (in.flag()) {
        Writing &writing = task.writing.emplace();
        writing.picture = shape_in(in);
        in.list(writing.values, most_items, [&] { return value_in(in, most_metadata); });
        in.list(writing.asked, most_items, [&] { return in.text(most_text); });
    }
    return in.complete() ? std::optional(std::move(task)) : std::nullopt;
}

} // namespace confine
