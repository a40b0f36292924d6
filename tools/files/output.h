// SPDX-License-Identifier: MIT
//
// Writing a picture with the codec that the name of its target chooses, completely or not at all.
#pragma once

#include "tools/decoder.h"

#include <string>

namespace tool {

struct Output {
    std::string path; // "-" is standard output
    std::string to;   // the extension whose codec writes, if not that of path
    bool drops_key;   // the user asked for a pixel format, which may cost the colour key
    bool for_owner_only = false;
    bool sync = false; // wait until it is on the disk
};

// Fails if no codec is registered, before any work is done.
img_codec *codec_for(img_lib_handle &library, const Output &output);

// Confined as the reading says.
void write(const Library &library, Picture &picture, const Output &output, const Reading &reading, Exchange &exchange);

} // namespace tool
