// SPDX-License-Identifier: MIT
//
// Pictures made small while they are decoded, so that memory does not grow with them.
#pragma once

#include "tools/exchange.h"

namespace tool {

// Loads at most so many pixels a side; smaller pictures stay as they are. Transparency becomes alpha.
img_status decode_thumbnail(img_lib_handle &library, io_handle *stream, uint32_t most, Exchange &exchange,
                            img_record &record);

} // namespace tool
