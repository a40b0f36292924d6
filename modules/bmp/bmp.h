// SPDX-License-Identifier: MIT
//
// The two halves of the BMP module.
#pragma once

#include "modules/common/picture.h"

inline constexpr size_t bmp_file_header_size = 14;

img_status encode_bmp(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state);
