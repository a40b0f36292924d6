// SPDX-License-Identifier: MIT
//
// pictra compare: how much two pictures differ in colours and alpha, whatever formats they are stored in.
#include "tools/decoder.h"
#include "tools/text.h"
#include "tools/verbs/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iomanip>
#include <iostream>
#include <math.h>
#include <memory>
#include <stdlib.h>

namespace tool {

namespace {

std::unique_ptr<Picture> load_colours(const Library &library, const std::string &path, const Reading &reading) {
    std::unique_ptr<Picture> picture = load(library, path, reading).picture;
    if (const img_status status = picture->convert(FMT_ARGB8888HE)) throw failure_of(path, status);
    return picture;
}

struct Difference {
    uint64_t pixels = 0, squares = 0;
    uint32_t largest = 0; // of a channel
};

Difference difference_of(const img_record &a, const img_record &b) {
    Difference difference;
    for (uint32_t y = 0; y < a.height; y++) {
        const uint8_t *row_a = static_cast<const uint8_t *>(a.data) + size_t{y} * a.stride;
        const uint8_t *row_b = static_cast<const uint8_t *>(b.data) + size_t{y} * b.stride;
        for (uint32_t x = 0; x < a.width; x++) {
            uint32_t most = 0;
            for (uint32_t i = 4 * x; i < 4 * x + 4; i++) {
                const auto apart = static_cast<uint32_t>(abs(row_a[i] - row_b[i]));
                most = std::max(most, apart);
                difference.squares += apart * apart;
            }
            difference.pixels += most != 0;
            difference.largest = std::max(difference.largest, most);
        }
    }
    return difference;
}

int compare(const std::vector<std::string> &files, const Reading &reading) {
    const Library library = attach();
    const std::unique_ptr<Picture> first = load_colours(library, files[0], reading),
                                   second = load_colours(library, files[1], reading);
    const img_record &a = first->record(), &b = second->record();
    if (a.width != b.width || a.height != b.height) {
        std::cout << "sizes differ: " << a.width << " x " << a.height << " and " << b.width << " x " << b.height
                  << '\n';
        return failed;
    }
    const Difference difference = difference_of(a, b);
    if (!difference.largest) {
        std::cout << "equal\n";
        return done;
    }
    const double samples = 4.0 * a.width * a.height, mean = static_cast<double>(difference.squares) / samples;
    std::cout << difference.pixels << " of " << uint64_t{a.width} * a.height << " pixels differ, by at most "
              << difference.largest << ", PSNR " << std::fixed << std::setprecision(2) << 10 * log10(255 * 255 / mean)
              << " dB\n";
    return failed;
}

} // namespace

Verb add_compare(CLI::App &app) {
    struct Options {
        std::vector<std::string> files;
        ReadingOptions reading;
    };
    CLI::App *verb = app.add_subcommand("compare", "Tell how much two pictures differ");
    const auto options = std::make_shared<Options>();
    verb->add_option("FILE", options->files, "The two pictures")->required()->expected(2);
    options->reading.add_to(*verb);
    return {verb, [options] { return compare(options->files, options->reading.reading()); }};
}

} // namespace tool
