// SPDX-License-Identifier: MIT
//
// The thumbnails that programs of a desktop share.
#pragma once

#include "tools/decoder.h"
#include "tools/files/batch.h"

namespace tool {

// Makes the thumbnails that are missing or out of date, of the size that reading says, and prints where they are.
// Returns an exit code.
int store_thumbnails(const Files &pictures, const Reading &reading, bool sync);

} // namespace tool
