// SPDX-License-Identifier: MIT
//
// pictra formats: the pixel formats and their layouts.
#include "tools/text.h"
#include "tools/verbs/verbs.h"

#include <CLI/CLI.hpp>
#include <iomanip>
#include <iostream>

namespace tool {

namespace {

// The fields of a word from the top bit down, or bytes in memory order.
const char *layout_of(img_format format) {
    const bool alternative = format & IMG_FMT_ALT, alpha = format & IMG_FMT_ALPHA;
    switch (format & IMG_FMT_BPP_MASK) {
    case 1:
        return "index, 8 pixels a byte, the leftmost in the top bit";
    case 4:
        return "index, 2 pixels a byte, the left one in the high half";
    case 8:
        return format & IMG_FMT_PAL ? "index" : alpha ? "alpha" : "grey";
    case 16:
        return alternative ? "red 5, green 6, blue 5"
               : alpha     ? "alpha 1, red 5, green 5, blue 5"
                           : "unused 1, red 5, green 5, blue 5";
    case 24:
        return alternative ? "bytes red, green, blue" : "bytes blue, green, red";
    default:
        if (alternative) return alpha ? "alpha 8, blue 8, green 8, red 8" : "unused 8, blue 8, green 8, red 8";
        return alpha ? "alpha 8, red 8, green 8, blue 8" : "unused 8, red 8, green 8, blue 8";
    }
}

const char *order_of(img_format format) {
    return format & IMG_FMT_HE ? ", word in host order" : format & IMG_FMT_OE ? ", word in the other byte order" : "";
}

int formats() {
    for (const img_format format : all_formats())
        std::cout << std::left << std::setw(11) << format_name(format) << std::right << " 0x" << std::hex
                  << std::setw(7) << std::setfill('0') << format << std::dec << std::setfill(' ') << std::setw(4)
                  << (format & IMG_FMT_BPP_MASK) << " bits  " << layout_of(format) << order_of(format) << '\n';
    return done;
}

} // namespace

Verb add_formats(CLI::App &app) { return {app.add_subcommand("formats", "List the pixel formats"), formats}; }

} // namespace tool
