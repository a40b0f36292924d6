// SPDX-License-Identifier: MIT
//
// What came of a picture. A worker's report is an enemy's word: report_in() and flaw_of() are all that stands between it
// and the program.
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

// Which wish of the user's ended the work, but for limits that have numbers.
enum class Refusal : uint8_t { none, time, option, stopped };

// The limit that ended it, as img_limit has it.
struct Limit {
    std::string name;
    uint64_t needed = 0, allowed = 0;
};

// A value that a codec reported, of pictra/values.h.
struct Value {
    uint32_t key;
    std::string bytes;
};

// A picture but for its pixels. Rows are padded to a multiple of four bytes, and the palette has an entry for every index
// that there can be, so that no index leads out of it.
struct Shape {
    img_format format = 0;
    uint32_t width = 0, height = 0, ncolors = 0;
    img_flags flags = 0; // IMG_F_TRANSP, IMG_F_PAL_ALPHA
    uint32_t transparency = 0;
    std::array<uint32_t, 256> palette{};

    uint64_t stride() const { return ((uint64_t{width} * (format & IMG_FMT_BPP_MASK) + 7) / 8 + 3) & ~uint64_t{3}; }
    uint64_t bytes() const { return stride() * height; }
};

// The record of a picture whose pixels are there already, or null. Its palette is the shape's.
img_record record_of(Shape &shape, uint8_t *pixels);

struct Report {
    static constexpr uint32_t no_codec = ~0u;

    img_status status = IMG_ST_OK;
    Refusal refusal = Refusal::none;
    std::optional<Limit> limit{};
    uint32_t wrong_option = 0; // Refusal::option: its place among those given
    uint32_t codec = no_codec; // its place among those asked
    uint32_t rows_done = 0;
    uint32_t full_width = 0, full_height = 0; // of the picture that a thumbnail is of, as stored
    std::optional<Shape> picture{};
    std::vector<Value> values{};
    std::vector<KnownOption> options{}; // that the codec asked for
};

bool is_format(img_format format); // one of the 21

// Whether a value is what its key promises: of the right size, and no longer than any honest one.
bool is_sound(const Value &value);
bool is_known_value(uint32_t key);
inline constexpr size_t most_values = 4096, most_warnings = 64;
inline constexpr size_t most_warning = 1024, most_name = 64,
                        most_report = 64 << 20; // bytes of a warning, a limit's name, a report

// How far a process could be confined: the first call that the system refused, if any.
struct Trouble {
    std::string call{}; // empty: none
    int error = 0;
    explicit operator bool() const { return !call.empty(); }
    std::string text() const; // "close_range: Operation not permitted"
};
inline constexpr const char *confining_calls[] = {"", "close_range", "prctl", "open", "setrlimit", "seccomp"};

std::string packed(const Report &report, const Trouble &trouble);
// Nothing if the bytes are not a report.
std::optional<Report> report_in(std::string_view bytes, Trouble &trouble);

// What of the report goes beyond what the task allows, or null. It may be believed only if it is null.
const char *flaw_of(const Report &report, const Task &task);

} // namespace confine
