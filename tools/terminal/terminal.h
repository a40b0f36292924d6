// SPDX-License-Identifier: MIT
//
// What the terminal can show, and pictures in the form that it takes.
#pragma once

#include "pictra/pictra.h"

#include <string>

namespace tool {

struct Screen {
    enum class Way {
        kitty,  // the kitty graphics protocol
        sixel,  // DEC sixel graphics
        blocks, // half blocks in 24-bit colours
        few,    // half blocks in the 256 colours of xterm
        text    // shades of characters: no colours wanted, or no terminal
    };
    Way way;
    uint32_t columns, lines, cell_width, cell_height;
};

// Asks the environment and the terminal. The way is text if NO_COLOR is set or the output is not a terminal.
Screen find_screen();
Screen::Way way_of(const std::string &name); // kitty, sixel, blocks, 256 or text

// The picture, of FMT_ARGB8888HE, as what is to be written to the terminal.
std::string drawn(const img_record &picture, Screen::Way way);

} // namespace tool
