// SPDX-License-Identifier: MIT
//
// Which metadata a picture keeps when it is written again, and how its writer learns them.
#pragma once

#include "pictra/pictra.hpp"
#include "tools/confine/shape.h"

#include <string>
#include <vector>

namespace tool {

// Kinds of metadata: "all", "none", or names joined by commas.
class Keep {
public:
    explicit Keep(const std::string &names); // fails for an unknown one
    pictra::values of(const pictra::values &metadata) const;

private:
    bool has(const char *name) const;
    std::vector<std::string> names_;
};

// What there is to answer to a codec that writes, one value of each kind.
std::vector<confine::Value> values_of(const pictra::values &metadata);

} // namespace tool
