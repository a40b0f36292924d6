// SPDX-License-Identifier: MIT
//
// The verbs of the program, one file each: the options that a verb takes, and what it does with them.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace tool {

struct Verb {
    CLI::App *command;
    std::function<int()> run; // once the command line is parsed; returns an exit code or throws a Failure
};

// Each adds its command to the command line.
Verb add_info(CLI::App &app);
Verb add_convert(CLI::App &app);
Verb add_resize(CLI::App &app);
Verb add_crop(CLI::App &app);
Verb add_rotate(CLI::App &app);
Verb add_flip(CLI::App &app);
Verb add_thumbnail(CLI::App &app);
Verb add_compare(CLI::App &app);
Verb add_frames(CLI::App &app);
Verb add_show(CLI::App &app);
Verb add_formats(CLI::App &app);
Verb add_codecs(CLI::App &app);
Verb add_config(CLI::App &app);
Verb add_completion(CLI::App &app);

} // namespace tool
