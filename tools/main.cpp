// SPDX-License-Identifier: MIT
//
// The command line of the program pictra.
#include "tools/completion.h"
#include "tools/interrupt.h"
#include "tools/text.h"
#include "tools/verbs/verbs.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <map>

namespace {

constexpr const char *footer =
    "'-' is standard input or output. Exit codes: 0 done, 1 some of several failed, 2 wrong usage, 130\n"
    "interrupted; otherwise the status of the library for a single file.\n"
    "PICTRA_CFGFILE names the file that lists the codec modules.";

struct Common {
    tool::Files files{};
    std::string to{}, keep = "all", format{}, damage = "fail", orient = "auto", sandbox = "auto", quality{};
    std::vector<std::string> options{};
    uint64_t megabytes = 1074; // 1 GiB
    std::optional<uint32_t> seconds{};
    bool sync = false;
    tool::Reading reading{};
};

// How files are read.
void add_reading(CLI::App &verb, Common &common) {
    const char *group = "Reading";
    verb.add_option("--option", common.options, "For the codecs, such as quality=90; may come several times")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("NAME=VALUE");
    verb.add_option("--max-pixels", common.reading.limits.pixels, "Refuse larger pictures")
        ->type_name("N")
        ->group(group);
    verb.add_option("--max-memory", common.megabytes,
                    "The most memory that a picture and its decoding may take, in MB; 0 is no limit")
        ->check(CLI::Range(uint64_t{0}, uint64_t{1'000'000'000}))
        ->capture_default_str()
        ->type_name("N")
        ->group(group);
    verb.add_option("--timeout", common.seconds,
                    "The most time that decoding one picture may take; by default 60 for thumbnails, else no limit")
        ->type_name("SECONDS")
        ->group(group);
    verb.add_option("--orient", common.orient, "Whether pictures are turned as their files say")
        ->check(CLI::IsMember({"auto", "off"}))
        ->type_name("auto|off")
        ->group(group);
    verb.add_option("--sandbox", common.sandbox, "Decode in a confined process: auto where the system allows it")
        ->check(CLI::IsMember({"auto", "on", "off"}))
        ->type_name("auto|on|off")
        ->group(group);
}

void add_sync(CLI::App &verb, Common &common) {
    verb.add_flag("--fsync", common.sync, "Wait until each written file is on the disk");
}

// Which files become which, and how they are written.
void add_writing(CLI::App &verb, Common &common) {
    verb.add_option("FILE", common.files.names, "IN OUT, or with -o one input or several")->required();
    verb.add_option("-o,--output", common.files.pattern,
                    "The names to write, with {stem} and {ext} of the input in them");
    verb.add_option("-j,--jobs", common.files.jobs, "How many pictures at once")
        ->check(CLI::Range(1, 256))
        ->type_name("N");
    verb.add_option("--to", common.to, "Extension whose codec writes, instead of that of the output");
    verb.add_option("--quality", common.quality, "The same as --option quality=N")->type_name("N");
    add_sync(verb, common);
    verb.add_option("--keep", common.keep, "Metadata to write: all, none, or some of icc,exif,xmp,resolution,text");
    add_reading(verb, common);
}

std::optional<img_format> wanted_format(const std::string &name) {
    if (name.empty()) return {};
    if (const std::optional<img_format> format = tool::format_of(name)) return format;
    throw tool::Failure("--format " + name + ": no such pixel format; there are " + tool::all_format_names(),
                        tool::usage);
}

tool::Reading reading_of(const Common &common) {
    tool::Reading reading = common.reading;
    reading.format = wanted_format(common.format);
    reading.keep_damaged = common.damage == "keep";
    reading.upright = common.orient == "auto";
    reading.confinement = tool::parse_confinement(common.sandbox);
    reading.limits.memory = common.megabytes * 1'000'000;
    reading.limits.seconds = common.seconds.value_or(0);
    for (const std::string &text : common.options) reading.options.push_back(tool::parse_option(text));
    if (!common.quality.empty()) reading.options.push_back({"quality", common.quality});
    return reading;
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

// The verbs that write pictures, each a way to fill in what convert() takes.
class Writers {
public:
    Writers(CLI::App &app, Common &common) : common_(common) {
        convert_ = &add(app, "convert",
                        "Writes pictures in another format, chosen by the target's name, transformed if asked");
        convert_->add_option("--format", common.format,
                             "Pixel format to load pictures in, such as rgb888 or argb8888he");
        convert_
            ->add_option("--on-damage", common.damage, "What to do with a damaged picture: fail, or keep what arrived")
            ->check(CLI::IsMember({"fail", "keep"}))
            ->type_name("fail|keep");
        add_operations(*convert_);
        for (const Verb &verb : verbs) {
            operation_verbs_.emplace_back(&add(app, verb.name, verb.help), &verb);
            operation_verbs_.back()
                .first->add_option(verb.operation.name, argument_, verb.operation.help)
                ->type_name(verb.operation.type)
                ->required();
        }
        flip_ = &add(app, "flip", "Mirrors pictures");
        CLI::Option_group *directions = flip_->add_option_group("Direction");
        directions->add_flag("--horizontal", horizontal_, "Left to right");
        directions->add_flag("--vertical", vertical_, "Top to bottom");
        directions->require_option(1);
        thumbnail_ = &add(app, "thumbnail", "Makes small pictures, in little memory");
        thumbnail_->add_option("--size", thumbnail_size_, "The most pixels a side; smaller pictures stay as they are")
            ->type_name("N")
            ->check(CLI::Range(1, 1000000));
        thumbnail_
            ->add_flag("--xdg", for_desktop_, "Puts them where desktops look, and prints where; 128 is their size")
            ->excludes("--output", "--to", "--keep");
    }

    // What the verb that was parsed asks for.
    tool::ConvertOptions options() const {
        tool::ConvertOptions options{common_.files, common_.to, reading_of(common_), {}, common_.keep, common_.sync};
        for (const auto &[command, verb] : operation_verbs_)
            if (*command) options.operations = {verb->operation.parse(argument_)};
        if (*flip_) options.operations = {tool::parse_flip(horizontal_ ? "horizontal" : "vertical")};
        if (*convert_) options.operations = parsed_operations(*convert_);
        if (*thumbnail_) {
            constexpr uint32_t patience = 60; // seconds; nobody watches while desktops make thumbnails
            options.reading.thumbnail = thumbnail_size();
            options.reading.limits.seconds = common_.seconds.value_or(patience);
        }
        return options;
    }
    bool for_desktop() const { return for_desktop_; }

private:
    uint32_t thumbnail_size() const {
        if (thumbnail_size_ || for_desktop_) return thumbnail_size_ ? thumbnail_size_ : 128;
        throw tool::Failure("--size is required: the most pixels a side of the thumbnails", tool::usage);
    }
    CLI::App &add(CLI::App &app, const char *name, const char *help) {
        CLI::App *verb = app.add_subcommand(name, help);
        add_writing(*verb, common_);
        return *verb;
    }

    Common &common_;
    CLI::App *convert_, *flip_, *thumbnail_;
    std::vector<std::pair<CLI::App *, const Verb *>> operation_verbs_{};
    std::string argument_{};
    bool horizontal_ = false, vertical_ = false, for_desktop_ = false;
    uint32_t thumbnail_size_ = 0;
};

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
    Common common;

    CLI::App *info = app.add_subcommand("info", "Tells what pictures are, and whether they can be read");
    bool json = false;
    info->add_option("FILE", common.files.names, "Pictures")->required();
    info->add_flag("--json", json, "An object per file, each on a line");
    add_reading(*info, common);

    const Writers writers(app, common);

    CLI::App *compare = app.add_subcommand("compare", "Tells how much two pictures differ");
    compare->add_option("FILE", common.files.names, "The two pictures")->required()->expected(2);
    add_reading(*compare, common);

    CLI::App *frames =
        app.add_subcommand("frames", "Lists the pictures of a file, or writes each to a file of its own");
    std::string file;
    frames->add_option("FILE", file, "The file")->required();
    frames->add_option("-o,--output", common.files.pattern, "The names to write, with {stem} and {n} in them");
    frames->add_option("--to", common.to, "Extension whose codec writes, instead of that of the output");
    add_sync(*frames, common);
    add_reading(*frames, common);
    frames->add_option("--max-pictures", common.reading.most_pictures, "Refuse files with more pictures")
        ->capture_default_str()
        ->type_name("N")
        ->group("Reading");

    CLI::App *show = app.add_subcommand("show", "Shows pictures in the terminal");
    std::string way;
    show->add_option("FILE", common.files.names, "Pictures")->required();
    show->add_option("--as", way, "How: kitty, sixel, blocks, 256 (colours) or text; else as the terminal can");
    add_reading(*show, common);

    CLI::App *formats = app.add_subcommand("formats", "Lists the pixel formats");

    bool check = false;
    CLI::App *codecs = app.add_subcommand("codecs", "Lists the codec modules and whether they open");
    codecs->add_flag("--check", check, "Fail if one does not work");

    CLI::App *config = app.add_subcommand("config", "Tells which configuration file is read, and what is in it");
    config->require_subcommand(1);
    config->add_subcommand("show", "Prints it as the library reads it, and where it is");
    std::string directory;
    CLI::App *generate = config->add_subcommand("generate", "Prints one for the modules in a directory");
    generate->add_option("DIRECTORY", directory, "Instead of that of the installation");
    const CLI::App *config_check = config->add_subcommand("check", "Fails if a line of it or a module does not work");

    std::string shell;
    CLI::App *completion =
        app.add_subcommand("completion", "Prints a script that completes this command line in a shell");
    completion->add_option("SHELL", shell, "bash, zsh or fish")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return explain_usage(app, error);
    }
    if (*info) return tool::info({common.files.names, reading_of(common), json});
    if (*compare) return tool::compare({common.files.names, reading_of(common)});
    if (*frames) return tool::frames({file, common.files.pattern, common.to, reading_of(common), common.sync});
    if (*show) return tool::show({common.files.names, way, reading_of(common)});
    if (*formats) return tool::formats();
    if (*completion) {
        std::cout << tool::completion(app, shell);
        return tool::done;
    }
    if (*generate) return tool::generate_config(directory);
    if (*config) return tool::config(*config_check ? tool::ConfigTask::check : tool::ConfigTask::show);
    if (*codecs) return tool::codecs(check);
    return writers.for_desktop() ? tool::store_thumbnails(writers.options()) : tool::convert(writers.options());
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
