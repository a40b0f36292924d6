// SPDX-License-Identifier: MIT
//
// pictra info: what pictures are, a line each.
#include "tools/config.h"
#include "tools/picture.h"
#include "tools/text.h"
#include "tools/verbs.h"

#include <iomanip>
#include <iostream>

namespace tool {

namespace {

void print(const std::string &file, Picture &picture) {
    const img_record &record = picture.record();
    const uint32_t bits = record.format & IMG_FMT_BPP_MASK;
    std::cout << file << ": " << record.width << " x " << record.height << ", " << format_name(record.format);
    if (picture.has(IMG_F_PALETTE)) std::cout << ", palette of " << record.ncolors;
    if (picture.has(IMG_F_PAL_ALPHA))
        std::cout << " with alpha";
    else if (record.format & IMG_FMT_ALPHA)
        std::cout << ", alpha";
    if (picture.has(IMG_F_TRANSP)) {
        std::cout << ", colour key ";
        if (bits > 16)
            std::cout << '#' << std::hex << std::setfill('0') << std::setw(6) << (record.transparency & 0xffffff)
                      << std::dec;
        else
            std::cout << unsigned{record.transparency8};
    }
    std::cout << '\n';
}

} // namespace

int info(const std::vector<std::string> &files) {
    const Library library = attach();
    int result = done;
    for (const std::string &file : files) {
        try {
            Exchange exchange;
            Picture picture(*library, file, exchange);
            print(file, picture);
        } catch (const Failure &failure) {
            complain(failure.what());
            result = failed;
        }
    }
    return result;
}

} // namespace tool
