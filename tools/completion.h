// SPDX-License-Identifier: MIT
//
// Completion of the command line, made of the very description that the command line is parsed by.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace tool {

// A script for bash, zsh or fish; fails for another shell.
std::string completion(const CLI::App &app, const std::string &shell);

} // namespace tool
