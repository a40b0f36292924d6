// SPDX-License-Identifier: MIT
//
// The verbs of the program, a file each. They return an exit code or throw a Failure.
#pragma once

#include <string>
#include <vector>

namespace tool {

int info(const std::vector<std::string> &files);

struct ConvertOptions {
    std::string in, out, format, to; // format and to may be empty
};
int convert(const ConvertOptions &options);

int codecs(bool check);

} // namespace tool
