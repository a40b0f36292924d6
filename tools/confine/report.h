// SPDX-License-Identifier: MIT
//
// What came of a picture that was to be read or written. A worker's report is an enemy's word: report_in() and flaw_of()
// are all that stands between it and the program.
#pragma once

#include "pictra/values.h"
#include "tools/confine/options.h"
#include "tools/confine/task.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace confine {

// Why there is no picture, if the status does not say it: a wish of the user's other than a limit with a number, or a
// file without a byte.
enum class Refusal : uint8_t { none, time, option, unknown_option, empty, stopped };

// The limit that ended it, as img_limit has it.
struct Limit {
    std::string name;
    uint64_t needed = 0, allowed = 0;
};

struct Report {
    static constexpr uint32_t no_codec = ~0u;

    img_status status = IMG_ST_OK;
    Refusal refusal = Refusal::none;
    std::optional<Limit> limit{};
    uint32_t wrong_option = 0; // Refusal::option, unknown_option: its place among those given
    uint32_t codec = no_codec; // its place among those asked
    uint32_t rows_done = 0;
    uint32_t full_width = 0, full_height = 0; // of the picture that a thumbnail is of, as stored
    std::optional<Shape> picture{};
    std::vector<Value> values{};
    std::vector<KnownOption> options{}; // that the codec asked for
    std::vector<img_format> offered{};  // that it can write
};

inline constexpr size_t most_warnings = 64, most_formats = 64;
inline constexpr size_t most_name = 64, most_report = 64 << 20; // bytes of a limit's name, and of a report

// How far a process could be confined: the first call that the system refused, if any.
struct Trouble {
    std::string call{}; // empty: none
    int error = 0;
    explicit operator bool() const { return !call.empty(); }
    std::string text() const; // "close_range: Operation not permitted"
};
inline constexpr const char *confining_calls[] = {"", "close_range", "prctl", "open", "setrlimit", "seccomp"};

// What a worker says once, before it sees the first byte of a stranger's, in so many bytes.
std::string packed(const Trouble &trouble);
inline constexpr size_t trouble_size = 1 + sizeof(int32_t);
std::optional<Trouble> trouble_in(std::string_view bytes);

std::string packed(const Report &report);
// Nothing if the bytes are not a report.
std::optional<Report> report_in(std::string_view bytes);

// What of the report goes beyond what the task allows, or null. It may be believed only if it is null.
const char *flaw_of(const Report &report, const Task &task);

} // namespace confine
