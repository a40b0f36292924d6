// SPDX-License-Identifier: MIT
//
// Whether a codec module works.
#pragma once

#include <string>

namespace tool {

// What was found out about a module. error is empty if it works.
struct Outcome {
    bool opens = false, entry = false, reads = false, writes = false;
    std::string error{};
};

// Opens a module, whose code runs, and closes it again.
Outcome try_module(const std::string &path);

} // namespace tool
