// SPDX-License-Identifier: MIT
//
// Pictures made small while they are decoded, so that memory does not grow with them.
#pragma once

#include "tools/confine/listener.h"

namespace confine {

// Loads at most so many pixels a side as the task says; smaller pictures stay as they are. Transparency becomes alpha. The
// callouts are a Listener's.
img_status decode_thumbnail(img_lib_handle &library, io_handle *stream, img_decode_callouts callouts,
                            img_record &record);

} // namespace confine
