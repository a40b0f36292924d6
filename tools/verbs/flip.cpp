// SPDX-License-Identifier: MIT
//
// pictra flip: mirrored pictures.
#include "tools/verbs/options.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace tool {

Verb add_flip(CLI::App &app) {
    struct Options : WritingOptions {
        bool horizontal = false, vertical = false;
    };
    CLI::App *verb = app.add_subcommand("flip", "Mirror pictures");
    const auto options = std::make_shared<Options>();
    options->add_to(*verb);
    CLI::Option_group *directions = verb->add_option_group("Direction");
    directions->add_flag("--horizontal", options->horizontal, "Left to right");
    directions->add_flag("--vertical", options->vertical, "Top to bottom");
    directions->require_option(1);
    return {verb, [options] {
                const Operation flip = parse_flip(options->horizontal ? "horizontal" : "vertical");
                return convert({*options, options->reading(), {flip}});
            }};
}

} // namespace tool
