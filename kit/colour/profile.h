// SPDX-License-Identifier: MIT
//
// Colour profiles (ISO 15076-1) as files have them: anything may be in there. What is checked here bounds the time and the
// memory that a profile can cost.
#pragma once

#include "core/owned.h"
#include "pictra/kit.h"

namespace img::kit {

struct Profile {
    Owned<uint8_t> bytes; // a profile with the tags alone that a conversion from it needs
    uint32_t size = 0;
    uint32_t channels = 0; // 1, 3 or 4
};

// IMG_ST_DAMAGED, IMG_ST_BADFMT for kinds of profiles that are not for pictures, IMG_ST_LIMIT, IMG_ST_NOMEM.
img_status read_profile(const uint8_t *data, size_t size, Profile &profile);

} // namespace img::kit
