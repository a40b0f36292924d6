// SPDX-License-Identifier: MIT
//
// What the library's log calls have in common. Kept: Log messages carry fixed line numbers. Scripts that read logs rely
// on them, so they are not the lines of the calls.
#pragma once

#include "pictra/pictra.h"

namespace img {

inline constexpr uint32_t log_error = 2; // the severity of every message of the library
inline constexpr uint64_t log_code = 0x28f0;

} // namespace img
