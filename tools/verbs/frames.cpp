// SPDX-License-Identifier: MIT
//
// pictra frames: the pictures of a file (an animation, pages, icons), listed or each written to a file of its own.
#include "tools/decoder.h"
#include "tools/files/batch.h"
#include "tools/files/output.h"
#include "tools/interrupt.h"
#include "tools/text.h"
#include "tools/verbs/options.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

namespace tool {

namespace {

struct Options {
    std::string file{};
    std::string pattern{}; // of the files to write, or empty: list only
    std::string to{};
    bool sync = false;
    ReadingOptions reading{};
};

void print(uint32_t number, const img_record &record, const pictra::values &metadata) {
    std::cout << number << ": " << record.width << " x " << record.height << ", " << format_name(record.format);
    if (metadata.delay) std::cout << ", " << metadata.delay << " ms";
    std::cout << '\n';
}

int frames(const Options &options) {
    const Reading reading = options.reading.reading();
    const Library library = attach();
    watch_for_signals();
    Decoder decoder(library, options.file, reading);
    for (uint32_t number = 0; const std::unique_ptr<Picture> picture = decoder.next(); number++) {
        if (options.pattern.empty()) {
            print(number, picture->record(), decoder.exchange.metadata);
            continue;
        }
        const Output output{name_by(options.pattern, options.file, {{"n", std::to_string(number)}}), options.to, false,
                            false, options.sync};
        if (number == 1 && output.path == name_by(options.pattern, options.file, {{"n", "0"}}))
            throw Failure("-o " + options.pattern + ": every picture would have this name; put {n} into it", usage);
        write(library, *picture, output, reading, decoder.exchange);
    }
    return done;
}

} // namespace

Verb add_frames(CLI::App &app) {
    CLI::App *verb = app.add_subcommand("frames", "List the pictures of a file, or write each to a file of its own");
    const auto options = std::make_shared<Options>();
    verb->add_option("FILE", options->file, "The file")->required();
    verb->add_option("-o,--output", options->pattern, "Names of the outputs, with {n} for the number of the picture");
    add_output_codec(*verb, options->to);
    add_sync(*verb, options->sync);
    options->reading.add_to(*verb);
    options->reading.add_max_pictures(*verb);
    return {verb, [options] { return frames(*options); }};
}

} // namespace tool
