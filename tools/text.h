// SPDX-License-Identifier: MIT
//
// What the program tells its user: exit codes, failures, texts for statuses, names of pixel formats.
#pragma once

#include "pictra/pictra.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tool {

// Exit codes beside the library's statuses, which a single file that failed ends with.
enum Exit { done = 0, failed = 1, usage = 2 };

// Why something could not be done, and what to do about it. main() prints it.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string &message, uint32_t code = failed) : std::runtime_error(message), code_(code) {}
    uint32_t code() const { return code_; }

private:
    uint32_t code_;
};

// "NAME: REASON; REMEDY" for a status of reading or writing a picture.
std::string explain(const std::string &name, img_status status);
inline Failure failure_of(const std::string &name, img_status status) { return Failure(explain(name, status), status); }

bool is_format(img_format format);
std::string format_name(img_format format); // as users write it: "argb8888he"
std::optional<img_format> format_of(const std::string &name);
std::vector<img_format> all_formats();
std::string all_format_names();

// Prints "pictra: MESSAGE" as an error or a warning, both to standard error.
void complain(const std::string &message);

} // namespace tool
