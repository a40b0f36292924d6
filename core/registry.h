// SPDX-License-Identifier: MIT
//
// The records behind a handle's codec registry.
#pragma once

#include "pictra/pictra.h"

// A codec: a module that is opened when first needed, or functions of the program. Lists and path are owned.
struct img_codec {
    uint32_t state;   // img::codec_initialised
    char *extensions; // strings that an empty one ends, or null
    char *mime_types; // the same
    char *path;       // of the module; null for functions of the program
    void *module;     // what dlopen gave; null while not open
    img_codec_funcs funcs;
    img_codec *next;
};

struct img_lib_handle {
    img_codec *head; // the newest
};

namespace img {

// Initialisation was attempted, whatever came of it.
inline constexpr uint32_t codec_initialised = 0x1;

} // namespace img
