// SPDX-License-Identifier: MIT
//
// The statuses of codec modules, as docs/codec-modules.md explains them, and the limits of every picture.
#pragma once

#include "pictra/pictra.h"
#include "pictra/values.h"

namespace codec {

inline constexpr img_status ok = IMG_ST_OK;
inline constexpr img_status wrong_format = IMG_ST_RESERVED1;
inline constexpr img_status no_common_format = IMG_ST_NOCONV;
inline constexpr img_status damaged = IMG_ST_RESERVED4;
inline constexpr img_status unsupported = IMG_ST_BADFMT;
inline constexpr img_status no_memory = IMG_ST_NOMEM;
inline constexpr img_status write_failed = IMG_ST_FILE;
inline constexpr img_status over_limit = IMG_ST_RESERVED10;
inline constexpr img_status bad_record = IMG_ST_BADARG;

// Tested before anything of an image's size is allocated.
inline constexpr uint32_t max_side = 1'000'000;
inline constexpr uint64_t max_pixels = uint64_t{1} << 28;

// The limit that a size exceeds; its name is null if none.
constexpr img_limit exceeded_limit(uint64_t width, uint64_t height) {
    const uint64_t side = width > height ? width : height;
    if (side > max_side) return {"side", side, max_side};
    if (width * height > max_pixels) return {"pixels", width * height, max_pixels};
    return {};
}

} // namespace codec
