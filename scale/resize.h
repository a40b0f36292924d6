// SPDX-License-Identifier: MIT
//
// Resize for users inside the library.
#pragma once

#include "pictra/pictra.h"

namespace img {

// img_resize_fs and img_resize_fsbu. in_order: rows of an access function can be fetched from the first to the last only.
img_status resize(const img_record &src, img_record &dst, bool upside_down, bool in_order);

} // namespace img
