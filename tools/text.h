// SPDX-License-Identifier: MIT
//
// What the program tells its user: exit codes, failures, texts for statuses, names of pixel formats.
#pragma once

#include "pictra/cxx/result.hpp"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tool {

// Exit codes of the program's own. A single file that fails ends with the library's status instead.
enum Exit { done = 0, failed = 1, usage = 2 };

// The exit code for a result: only 0 is success. A status that the system would cut to 8 bits, or that a shell takes
// for a signal, becomes `failed`; the message tells its number.
constexpr int exit_code(uint32_t result) {
    constexpr uint32_t highest = 125;
    return static_cast<int>(result <= highest ? result : uint32_t{failed});
}

// Why something failed, and what to do about it. main() prints it.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string &message, uint32_t code = failed) : std::runtime_error(message), code_(code) {}
    uint32_t code() const { return code_; }

private:
    uint32_t code_;
};

// "NAME: REASON; REMEDY" for a status of reading or writing a picture.
std::string explain(const std::string &name, img_status status);
// The failure for a file without a byte, whether it has a name or comes through a pipe.
inline Failure empty_failure(const std::string &name) {
    return Failure(name + ": it is empty; get it again", IMG_ST_DAMAGED);
}
inline Failure failure_of(const std::string &name, img_status status) { return Failure(explain(name, status), status); }

std::string format_name(img_format format); // as users write it: "argb8888he"
std::optional<img_format> format_of(const std::string &name);
std::vector<img_format> all_formats();
std::string all_format_names();

// The text as a single line for a terminal. Control characters, line separators, marks that change the direction of
// writing, and bytes that are not UTF-8 become escapes (\n, \x1b, \u{202e}), so that a name or a text from a file can
// neither drive the terminal nor forge a row. Everything else is unchanged.
std::string visible(const std::string &text);

// Columns that a visible text takes, counting each character as one.
size_t columns_of(const std::string &text);

// A JSON string: valid UTF-8 for any bytes. Each byte that belongs to no character becomes U+FFFD.
std::string json(const std::string &text);
// A JSON number; null for infinities and NaN, which JSON cannot express.
std::string json(double number);

// Prints "pictra: MESSAGE" as an error or a warning, both to standard error. The message is made visible here.
void complain(const std::string &message);

} // namespace tool
