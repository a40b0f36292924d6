// SPDX-License-Identifier: MIT
//
// What the program tells its user: exit codes, failures, texts for statuses, names of pixel formats.
#pragma once

#include "pictra/pictra.h"

#include <optional>
#include <stdexcept>
#include <string>

namespace tool {

enum Exit { done = 0, failed = 1, usage = 2 };

// Why something could not be done, and what to do about it. main() prints it.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string &message, Exit code = failed) : std::runtime_error(message), code_(code) {}
    Exit code() const { return code_; }

private:
    Exit code_;
};

// "NAME: REASON; REMEDY" for a status of reading or writing a picture.
std::string explain(const std::string &name, img_status status);

std::string format_name(img_format format); // as users write it: "argb8888he"
std::optional<img_format> format_of(const std::string &name);
std::string all_format_names();

// Prints "pictra: MESSAGE" as an error or a warning, both to standard error.
void complain(const std::string &message);

} // namespace tool
