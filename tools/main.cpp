// SPDX-License-Identifier: MIT
//
// The command line of the program pictra.
#include "tools/text.h"
#include "tools/verbs.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace {

int run(int argc, char **argv) {
    CLI::App app("Shows and converts pictures.", "pictra");
    app.set_version_flag("--version", "pictra " PICTRA_VERSION);
    app.require_subcommand(1);
    app.footer("'-' is standard input or output. Exit codes: 0 done, 1 failed, 2 wrong usage.\n"
               "PICTRA_CFGFILE names the file that lists the codec modules.");

    std::vector<std::string> files;
    CLI::App *info = app.add_subcommand("info", "Tells size, format, palette and transparency of pictures");
    info->add_option("FILE", files, "Pictures")->required();

    tool::ConvertOptions options;
    CLI::App *convert =
        app.add_subcommand("convert", "Writes a picture in another format, chosen by the target's name");
    convert->add_option("IN", options.in, "The picture")->required();
    convert->add_option("OUT", options.out, "The file to write; kept as it was if anything fails")->required();
    convert->add_option("--format", options.format,
                        "Pixel format to load the picture in, such as rgb888 or argb8888he");
    convert->add_option("--to", options.to, "Extension whose codec writes, instead of the one of OUT");

    bool check = false;
    CLI::App *codecs = app.add_subcommand("codecs", "Lists the codec modules and whether they open");
    codecs->add_flag("--check", check, "Fail if one does not work");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? tool::done : tool::usage;
    }
    if (*info) return tool::info(files);
    if (*convert) return tool::convert(options);
    return tool::codecs(check);
}

} // namespace

int main(int argc, char **argv) {
    try {
        const int result = run(argc, argv);
        std::cout.flush();
        if (std::cout) return result;
        tool::complain("standard output: not all could be written; check free space");
    } catch (const tool::Failure &failure) {
        tool::complain(failure.what());
        return failure.code();
    } catch (const std::bad_alloc &) {
        std::cerr << "pictra: memory ran out; free some and try again\n";
    } catch (const std::exception &error) {
        tool::complain(error.what());
    }
    return tool::failed;
}
