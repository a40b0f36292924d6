// SPDX-License-Identifier: MIT
//
// Options whose first member is their size: those of another release may be shorter or longer.
#pragma once

#include <stdint.h>
#include <string.h>

namespace img::kit {

// Members that the caller's struct does not have are 0; it may be null. False if it has members that are not 0 and that we do
// not know, because they would ask for something.
template <typename Options> bool read_options(const Options *given, Options &options) {
    memset(&options, 0, sizeof options);
    if (!given) return true;
    const uint32_t size = given->size;
    if (size < sizeof size) return false;
    memcpy(&options, given, size < sizeof options ? size : sizeof options);
    const auto *bytes = reinterpret_cast<const uint8_t *>(given);
    for (uint32_t i = sizeof options; i < size; i++)
        if (bytes[i]) return false;
    return true;
}

} // namespace img::kit
