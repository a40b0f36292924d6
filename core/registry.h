// SPDX-License-Identifier: MIT
//
// The records of a handle's codec registry.
#pragma once

#include "pictra/pictra.h"

// A codec: a module that is opened when it is first needed, or functions of the program. The record owns lists and
// path.
struct img_codec {
    uint32_t state;   // img::codec_initialised
    char *extensions; // a sequence of strings, ended by an empty one; or null
    char *mime_types; // the same
    char *path;       // of the module; null if the functions are the program's
    void *module;     // from dlopen; null while it is not open
    img_codec_funcs funcs;
    img_codec *next;
};

struct img_lib_handle {
    img_codec *head; // the newest
};

namespace img {

// Initialisation was attempted, successfully or not.
inline constexpr uint32_t codec_initialised = 0x1;

} // namespace img
