// SPDX-License-Identifier: MIT
//
// What the library's own log calls share. Each names its function and a fixed line, which scripts that read logs rely on.
#pragma once

#include "pictra/pictra.h"

namespace img {

inline constexpr uint32_t log_error = 2; // the severity of everything that the library logs
inline constexpr uint64_t log_code = 0x28f0;

} // namespace img
