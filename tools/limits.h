// SPDX-License-Identifier: MIT
//
// Explaining limits: which one was met, and how to raise it.
#pragma once

#include "tools/confine/report.h"

#include <string>

namespace tool {

// "REASON; REMEDY": which limit a picture exceeds, by how much, and the option that raises it if there is one.
std::string explain(const confine::Limit &limit);

} // namespace tool
