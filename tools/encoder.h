// SPDX-License-Identifier: MIT
//
// Pictures into a file, encoded in a process of its own that can do nothing else, or in this one.
#pragma once

#include "tools/decoder.h"

#include <string>

namespace tool {

// Writes a picture to an open file, whose name is for messages, with what the exchange has of it. Fails if not all of it
// was written.
void encode(const Library &library, img_codec *codec, const Picture &picture, int file, const std::string &name,
            const Reading &reading, Exchange &exchange);

} // namespace tool
