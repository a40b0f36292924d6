// SPDX-License-Identifier: MIT
//
// Resize for users inside the library.
#pragma once

#include "pictra/pictra.h"

namespace img {

// A source whose rows can be fetched from the first to the last only. It is told which rows will be fetched next, before
// anything else happens, so that it can have several of them ready.
struct Sequence {
    void (*expect)(void *source, uint32_t first_row, uint32_t count);
    void *source;
};

// img_resize_fs and img_resize_fsbu. sequence: of the source's access function, or null.
img_status resize(const img_record &src, img_record &dst, bool upside_down, const Sequence *sequence);

} // namespace img
