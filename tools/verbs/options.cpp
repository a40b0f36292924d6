// SPDX-License-Identifier: MIT
#include "tools/verbs/options.h"

#include "tools/text.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace tool {

void ReadingOptions::add_to(CLI::App &verb) {
    const char *group = "Reading";
    verb.add_option("--option", options_, "Set an option of a codec, such as quality=90; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("NAME=VALUE");
    verb.add_option("--max-pixels", limits_.pixels, "Refuse pictures with more pixels")->type_name("N")->group(group);
    const auto set_memory = [this](uint64_t megabytes) { limits_.memory = megabytes * 1'000'000; };
    verb.add_option_function<uint64_t>(
            "--max-memory", set_memory,
            "Most memory that a picture and its decoding may take, in MB (default 1074); 0 for no limit")
        ->check(CLI::Range(uint64_t{0}, uint64_t{1'000'000'000}))
        ->type_name("N")
        ->group(group);
    verb.add_option("--timeout", limits_.seconds,
                    "Most time that decoding one picture may take (default 60 for thumbnails); 0 for no limit")
        ->type_name("SECONDS")
        ->group(group);
    verb.add_option("--orient", orient_, "Whether pictures are turned upright as their files say")
        ->check(CLI::IsMember({"auto", "off"}))
        ->type_name("auto|off")
        ->group(group);
    verb.add_option("--sandbox", sandbox_, "Decode in a confined process; auto: if the system allows it")
        ->check(CLI::IsMember({"auto", "on", "off"}))
        ->type_name("auto|on|off")
        ->group(group);
}

void ReadingOptions::add_max_pictures(CLI::App &verb) {
    verb.add_option("--max-pictures", most_pictures_, "Refuse files with more pictures")
        ->capture_default_str()
        ->type_name("N")
        ->group("Reading");
}

Reading ReadingOptions::reading() const {
    Reading reading;
    reading.most_pictures = most_pictures_;
    reading.limits = limits_;
    reading.upright = orient_ == "auto";
    reading.confinement = parse_confinement(sandbox_);
    for (const std::string &text : options_) reading.options.push_back(parse_option(text));
    return reading;
}

void add_sync(CLI::App &verb, bool &sync) {
    verb.add_flag("--fsync", sync, "Wait until each written file has reached the disk");
}

void add_output_codec(CLI::App &verb, std::string &to) {
    verb.add_option("--to", to, "Write with the codec of this extension rather than the output's");
}

void WritingOptions::add_to(CLI::App &verb) {
    verb.add_option("FILE", files.names, "IN OUT, or with -o one or more inputs")->required();
    verb.add_option("-o,--output", files.pattern,
                    "Names of the outputs; {stem} and {ext} stand for parts of the input's");
    verb.add_option("-j,--jobs", files.jobs, "Convert up to N pictures at once")
        ->check(CLI::Range(1, 256))
        ->type_name("N");
    add_output_codec(verb, to);
    verb.add_option("--quality", quality, "Short for --option quality=N")->type_name("N");
    verb.add_option("--keep", keep, "Metadata to write: all, none, or some of icc,exif,xmp,resolution,text");
    add_sync(verb, sync);
    reading_options.add_to(verb);
}

Reading WritingOptions::reading() const {
    Reading reading = reading_options.reading();
    if (!quality.empty()) reading.options.push_back({"quality", quality});
    return reading;
}

Verb add_operation(CLI::App &app, const char *name, const char *help, const OperationOption &option) {
    struct Options : WritingOptions {
        std::string argument{};
    };
    CLI::App *verb = app.add_subcommand(name, help);
    const auto options = std::make_shared<Options>();
    options->add_to(*verb);
    verb->add_option(option.name, options->argument, option.help)->type_name(option.type)->required();
    return {verb, [options, parse = option.parse] {
                return convert({*options, options->reading(), {parse(options->argument)}});
            }};
}

} // namespace tool
