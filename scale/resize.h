// SPDX-License-Identifier: MIT
//
// Resizing, as the rest of the library calls it.
#pragma once

#include "pictra/pictra.h"

namespace img {

// A source whose rows can only be fetched from the first to the last. It is told which rows will be fetched next,
// before anything else happens, so that it can prepare several of them at once.
struct Sequence {
    void (*expect)(void *source, uint32_t first_row, uint32_t count);
    void *source;
};

// img_resize_fs and img_resize_fsbu. sequence belongs to the source's access function and may be null.
img_status resize(const img_record &src, img_record &dst, bool upside_down, const Sequence *sequence);

} // namespace img
