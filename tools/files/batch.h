// SPDX-License-Identifier: MIT
//
// Working on pictures one after another or several at once: which file becomes which, progress, and what failed.
#pragma once

#include "tools/config.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tool {

struct Files {
    std::vector<std::string> names;                            // IN OUT, or with a pattern the inputs alone
    std::string pattern;                                       // of the outputs, with {stem} and {ext} of the input
    std::function<std::string(const std::string &in)> place{}; // names each output instead of the pattern
    unsigned jobs = 1;
};

// The pattern with {stem} and {ext} of the input, and the names in more, filled in. Fails for other names in braces,
// and for an output that would leave the folder that the pattern puts it in.
std::string name_by(const std::string &pattern, const std::string &in,
                    const std::map<std::string, std::string> &more = {});

// Does the work for each pair of input and output. The failure of a single pair is thrown; those of several are printed
// at the end. Returns an exit code.
int for_each_pair(const Library &library, const Files &files,
                  const std::function<void(const std::string &in, const std::string &out)> &work);

} // namespace tool
