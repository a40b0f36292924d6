// SPDX-License-Identifier: MIT
//
// The two parts of the WebP module.
#pragma once

#include "modules/common/module.h"

namespace module {

img_status webp_encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state);

} // namespace module
