// SPDX-License-Identifier: MIT
//
// pictra convert: from one file to another, with operations in between; also the work of the verbs that are one
// operation.
#include "tools/decoder.h"
#include "tools/files/output.h"
#include "tools/metadata.h"
#include "tools/text.h"
#include "tools/verbs/options.h"

#include <CLI/CLI.hpp>
#include <map>
#include <memory>

namespace tool {

namespace {

// Options may come several times, and their order counts.
constexpr OperationOption operation_options[] = {
    {"--resize", "WxH", "Change the size; with Wx or xH the proportions stay", parse_resize},
    {"--crop", "WxH+X+Y", "Cut out a rectangle, given by its size and its top left pixel", parse_crop},
    {"--rotate", "90|180|270", "Rotate clockwise", parse_rotate},
    {"--flip", "horizontal|vertical", "Mirror left to right, or top to bottom", parse_flip},
};

void add_operations(CLI::App &verb) {
    for (const OperationOption &option : operation_options)
        verb.add_option(option.name, option.help)
            ->type_name(option.type)
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->group("Operations, done in the order given");
}

std::vector<Operation> parsed_operations(const CLI::App &verb) {
    std::vector<Operation> operations;
    std::map<const CLI::Option *, size_t> seen;
    for (const CLI::Option *given : verb.parse_order())
        for (const OperationOption &option : operation_options)
            if (given->get_name() == option.name)
                operations.push_back(option.parse(given->results().at(seen[given]++)));
    return operations;
}

img_format parse_format(const std::string &name) {
    if (const std::optional<img_format> format = format_of(name)) return *format;
    throw Failure("--format " + name + ": no such pixel format; there are " + all_format_names(), usage);
}

struct Options : WritingOptions {
    std::string format{}, damage = "fail";
};

Reading reading_of(const Options &options) {
    Reading reading = options.reading();
    if (!options.format.empty()) reading.format = parse_format(options.format);
    reading.keep_damaged = options.damage == "keep";
    return reading;
}

} // namespace

int convert(const Conversion &conversion) {
    const auto &writing = conversion.writing;
    const auto &reading = conversion.reading;
    const Library library = attach();
    const Keep keep(writing.keep);
    return for_each_pair(library, writing.files, [&](const std::string &in, const std::string &out) {
        const Output output{out, writing.to, reading.format.has_value(), false, writing.sync};
        codec_for(*library.handle, output); // before any work is done
        auto [picture, exchange] = load(library, in, reading);
        for (const Operation &operation : conversion.operations) apply(operation, *picture, in);
        exchange.metadata = keep.of(exchange.metadata);
        write(library, *picture, output, reading, exchange);
    });
}

Verb add_convert(CLI::App &app) {
    CLI::App *verb = app.add_subcommand(
        "convert", "Write pictures in another format, which the output's name chooses, and transform them");
    const auto options = std::make_shared<Options>();
    options->add_to(*verb);
    verb->add_option("--format", options->format, "Pixel format to load pictures in, such as rgb888 or argb8888he");
    verb->add_option("--on-damage", options->damage, "What to do with a damaged picture: fail, or keep what arrived")
        ->check(CLI::IsMember({"fail", "keep"}))
        ->type_name("fail|keep");
    add_operations(*verb);
    return {verb, [verb, options] { return convert({*options, reading_of(*options), parsed_operations(*verb)}); }};
}

} // namespace tool
