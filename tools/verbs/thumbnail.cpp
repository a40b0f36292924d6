// SPDX-License-Identifier: MIT
//
// pictra thumbnail: small pictures, in files or in the desktop's cache of them.
#include "tools/files/xdg_cache.h"
#include "tools/text.h"
#include "tools/verbs/options.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace tool {

namespace {

constexpr uint32_t desktop_size = 128;
constexpr uint32_t patience = 60; // seconds; thumbnails are mostly made where nobody watches

struct Options : WritingOptions {
    uint32_t size = 0;
    bool for_desktop = false;
};

int make_thumbnails(const Options &options) {
    Reading reading = options.reading();
    if (!options.size && !options.for_desktop)
        throw Failure("--size is required: the most pixels a side of the thumbnails", usage);
    reading.thumbnail = options.size ? options.size : desktop_size;
    return options.for_desktop ? store_thumbnails(options.files, reading, options.sync) : convert({options, reading});
}

} // namespace

Verb add_thumbnail(CLI::App &app) {
    CLI::App *verb = app.add_subcommand("thumbnail", "Make small pictures, in little memory");
    const auto options = std::make_shared<Options>();
    options->reading_options.set_timeout(patience);
    options->add_to(*verb);
    verb->add_option("--size", options->size, "Most pixels a side; smaller pictures keep their size")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000));
    verb->add_flag("--xdg", options->for_desktop,
                   "Store them in the desktop's thumbnail cache and print the paths (default size: 128)")
        ->excludes("--output", "--to", "--keep");
    return {verb, [options] { return make_thumbnails(*options); }};
}

} // namespace tool
