// SPDX-License-Identifier: MIT
//
// One picture after the other, or several at once: which file becomes which, progress, and what failed.
#pragma once

#include "pictra/pictra.h"

#include <functional>
#include <string>
#include <vector>

namespace tool {

struct Files {
    std::vector<std::string> names; // IN OUT, or with a pattern the inputs alone
    std::string pattern;            // of the outputs, with {stem} and {ext} of the input
    unsigned jobs = 1;
};

// Does the work for each pair of input and output. A single failure is thrown; those of several are told at the end.
// Returns an exit code.
int for_each_pair(img_lib_handle &library, const Files &files,
                  const std::function<void(const std::string &in, const std::string &out)> &work);

} // namespace tool
