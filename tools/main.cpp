// SPDX-License-Identifier: MIT
//
// The command line of the program pictra.
#include "tools/interrupt.h"
#include "tools/text.h"
#include "tools/verbs/verbs.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <vector>

namespace {

constexpr const char *footer =
    "'-' is standard input or output. Exit codes: 0 done, 1 some of several failed, 2 wrong usage, 130\n"
    "interrupted; otherwise the status of the library for a single file.\n"
    "PICTRA_CFGFILE names the file that lists the codec modules.";

// In the order of the help.
constexpr tool::Verb (*verbs[])(CLI::App &) = {
    tool::add_info,    tool::add_convert,   tool::add_resize,  tool::add_crop,      tool::add_rotate,
    tool::add_flip,    tool::add_thumbnail, tool::add_compare, tool::add_frames,    tool::add_show,
    tool::add_formats, tool::add_codecs,    tool::add_config,  tool::add_completion};

// What is wrong with the command line, whose words may be names of files; or help, which comes as an exception, too.
int explain_usage(const CLI::App &app, const CLI::ParseError &error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    tool::complain(std::string(error.what()) + "; --help tells how to use it");
    return tool::usage;
}

int run(int argc, char **argv) {
    CLI::App app("Shows, converts and transforms pictures.", "pictra");
    app.set_version_flag("--version", "pictra " PICTRA_VERSION);
    app.require_subcommand(1);
    app.footer(footer);
    std::vector<tool::Verb> added;
    for (const auto add : verbs) added.push_back(add(app));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return explain_usage(app, error);
    }
    for (const tool::Verb &verb : added)
        if (*verb.command) return verb.run();
    return tool::usage;
}

} // namespace

int main(int argc, char **argv) {
    try {
        const int result = run(argc, argv);
        std::cout.flush();
        if (std::cout) return tool::exit_code(static_cast<uint32_t>(result));
        tool::complain("standard output: not all could be written; check free space");
    } catch (const tool::Failure &failure) {
        tool::complain(failure.what());
        return failure.code() ? tool::exit_code(failure.code()) : tool::failed; // a failure is never success
    } catch (const tool::Interrupted &) {
        std::cerr << "pictra: interrupted\n";
        return 128 + tool::stop_signal();
    } catch (const std::bad_alloc &) {
        std::cerr << "pictra: memory ran out; free some and try again\n";
    } catch (const std::exception &error) {
        tool::complain(error.what());
    }
    return tool::failed;
}
