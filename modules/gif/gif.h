// SPDX-License-Identifier: MIT
//
// The two halves of the GIF codec module.
#pragma once

#include "pictra/pictra.h"

namespace gif {

inline constexpr uint32_t max_side = UINT16_MAX; // the file has 16 bits for a size

img_status encode_begin(io_handle *stream, void **state);
img_status encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state);
img_status encode_finish(io_handle *stream, void **state);

} // namespace gif
