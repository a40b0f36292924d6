// SPDX-License-Identifier: MIT
//
// The command line of the program pictra.
#include "tools/interrupt.h"
#include "tools/text.h"
#include "tools/verbs.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <map>

namespace {

constexpr const char *footer =
    "'-' is standard input or output. Exit codes: 0 done, 1 failed, 2 wrong usage, 130 interrupted.\n"
    "PICTRA_CFGFILE names the file that lists the codec modules.";

struct Common {
    tool::Files files{};
    std::string to{};
    std::vector<std::string> options{};
};

void add_common(CLI::App &verb, Common &common) {
    auto &[files, to, options] = common;
    verb.add_option("FILE", files.names, "IN OUT, or with -o one input or several")->required();
    verb.add_option("-o,--output", files.pattern, "The names to write, with {stem} and {ext} of the input in them");
    verb.add_option("-j,--jobs", files.jobs, "How many pictures at once")->check(CLI::Range(1, 256));
    verb.add_option("--to", to, "Extension whose codec writes, instead of that of the output");
    verb.add_option("--option", options, "NAME=VALUE for the codecs, such as quality=90; may come several times")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("NAME=VALUE");
}

std::vector<tool::GivenOption> parsed_options(const Common &common) {
    std::vector<tool::GivenOption> given;
    for (const std::string &text : common.options) given.push_back(tool::parse_option(text));
    return given;
}

// An operation as an option: how to read it. Options may come several times, and their order counts.
struct OperationOption {
    const char *name, *type, *help;
    tool::Operation (*parse)(const std::string &);
};
constexpr OperationOption operation_options[] = {
    {"--resize", "WxH", "Change the size; Wx or xH keeps the proportions", tool::parse_resize},
    {"--crop", "WxH+X+Y", "Cut out a rectangle, given by its size and its top left pixel", tool::parse_crop},
    {"--rotate", "90|180|270", "Turn clockwise", tool::parse_rotate},
    {"--flip", "horizontal|vertical", "Mirror left to right, or top to bottom", tool::parse_flip},
};

void add_operations(CLI::App &verb) {
    for (const OperationOption &option : operation_options)
        verb.add_option(option.name, option.help)
            ->type_name(option.type)
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->group("Operations, done in the order given");
}

std::vector<tool::Operation> parsed_operations(const CLI::App &verb) {
    std::vector<tool::Operation> operations;
    std::map<const CLI::Option *, size_t> seen;
    for (const CLI::Option *given : verb.parse_order())
        for (const OperationOption &option : operation_options)
            if (given->get_name() == option.name)
                operations.push_back(option.parse(given->results().at(seen[given]++)));
    return operations;
}

// A verb that is one operation, which one option of its own describes.
struct Verb {
    const char *name, *help;
    OperationOption operation;
};
constexpr Verb verbs[] = {
    {"resize",
     "Changes the size of pictures",
     {"--size", "WxH", "Width and height in pixels; Wx or xH keeps the proportions", tool::parse_resize}},
    {"crop",
     "Cuts a rectangle out of pictures",
     {"--rect", "WxH+X+Y", "Size of the rectangle, and its top left pixel", tool::parse_crop}},
    {"rotate", "Turns pictures clockwise", {"--by", "90|180|270", "Degrees", tool::parse_rotate}},
};

int run(int argc, char **argv) {
    CLI::App app("Shows, converts and transforms pictures.", "pictra");
    app.set_version_flag("--version", "pictra " PICTRA_VERSION);
    app.require_subcommand(1);
    app.footer(footer);

    std::vector<std::string> files;
    CLI::App *info = app.add_subcommand("info", "Tells size, format, palette and transparency of pictures");
    info->add_option("FILE", files, "Pictures")->required();

    Common common;
    tool::ConvertOptions options;
    CLI::App *convert = app.add_subcommand(
        "convert", "Writes pictures in another format, chosen by the target's name, transformed if asked");
    add_common(*convert, common);
    convert->add_option("--format", options.format, "Pixel format to load pictures in, such as rgb888 or argb8888he");
    std::string damage = "fail";
    convert->add_option("--on-damage", damage, "What to do with a damaged picture: fail, or keep what arrived of it")
        ->check(CLI::IsMember({"fail", "keep"}))
        ->type_name("fail|keep");
    add_operations(*convert);

    std::string argument;
    std::vector<std::pair<CLI::App *, const Verb *>> operation_verbs;
    for (const Verb &verb : verbs) {
        CLI::App *command = app.add_subcommand(verb.name, verb.help);
        add_common(*command, common);
        command->add_option(verb.operation.name, argument, verb.operation.help)
            ->type_name(verb.operation.type)
            ->required();
        operation_verbs.emplace_back(command, &verb);
    }

    CLI::App *flip = app.add_subcommand("flip", "Mirrors pictures");
    add_common(*flip, common);
    CLI::Option_group *directions = flip->add_option_group("Direction");
    bool horizontal = false, vertical = false;
    directions->add_flag("--horizontal", horizontal, "Left to right");
    directions->add_flag("--vertical", vertical, "Top to bottom");
    directions->require_option(1);

    tool::ThumbnailOptions thumbnails;
    CLI::App *thumbnail = app.add_subcommand("thumbnail", "Makes small pictures, in little memory");
    add_common(*thumbnail, common);
    thumbnail->add_option("--size", thumbnails.size, "The most pixels a side; smaller pictures stay as they are")
        ->required()
        ->type_name("N")
        ->check(CLI::Range(1, 1000000));

    bool check = false;
    CLI::App *codecs = app.add_subcommand("codecs", "Lists the codec modules and whether they open");
    codecs->add_flag("--check", check, "Fail if one does not work");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? tool::done : tool::usage;
    }
    for (const auto &[command, verb] : operation_verbs)
        if (*command) options.operations = {verb->operation.parse(argument)};
    if (*flip) options.operations = {tool::parse_flip(horizontal ? "horizontal" : "vertical")};
    if (*convert) options.operations = parsed_operations(*convert);
    options.files = thumbnails.files = common.files;
    options.to = thumbnails.to = common.to;
    options.given = thumbnails.given = parsed_options(common);
    if (damage == "keep") options.damage = tool::Picture::Damage::kept;
    if (*info) return tool::info(files);
    if (*codecs) return tool::codecs(check);
    if (*thumbnail) return tool::thumbnail(thumbnails);
    return tool::convert(options);
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
