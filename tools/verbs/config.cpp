// SPDX-License-Identifier: MIT
//
// pictra config: the configuration that lists the codec modules; shown, tested, or made.
#include "tools/config.h"
#include "tools/text.h"
#include "tools/verbs/trial.h"
#include "tools/verbs/verbs.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>

namespace tool {

namespace {

void print(const Section &section) {
    std::cout << '[' << section.path << "]\n";
    if (!section.extensions.empty()) std::cout << "ext = " << section.extensions << '\n';
    if (!section.mime_types.empty()) std::cout << "mime = " << section.mime_types << '\n';
}

// The directory of the modules, in an installation or in the build tree that the program is in.
std::filesystem::path own_modules() {
    const std::string installed = installation() + "/" PICTRA_CODEC_DIR;
    return std::filesystem::is_directory(installed) ? installed : installation() + "/lib/pictra";
}

// The modules in a directory. A module that did not come with the program gets the name of its file as its extension.
std::vector<Section> sections_of(const std::filesystem::path &directory) {
    Config known;
    std::istringstream lines(known_sections);
    for (std::string line; std::getline(lines, line);) parse(line, "", known);
    std::vector<Section> sections;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        const auto &path = entry.path();
        const auto is_it = [&](const Section &section) { return section.path == path.filename(); };
        if (path.extension() != ".so" || std::any_of(known.sections.begin(), known.sections.end(), is_it)) continue;
        sections.push_back({path.string(), path.stem().string(), ""});
    }
    std::sort(sections.begin(), sections.end(), [](const Section &a, const Section &b) { return a.path < b.path; });
    for (Section section : known.sections) {
        section.path = (directory / section.path).string();
        if (std::filesystem::exists(section.path)) sections.push_back(section);
    }
    return sections;
}

int show_config() {
    const Config config = find_config();
    std::cout << "# " << visible(config.path) << '\n';
    for (const Section &section : config.sections) print(section);
    return done;
}

int check_config() {
    const Config config = find_config();
    int result = config.warnings ? failed : done;
    for (const Section &section : config.sections) {
        const Outcome outcome = try_module(section.path);
        if (outcome.error.empty()) continue;
        complain(config.path + ": " + outcome.error + "; correct the path or install the module");
        result = failed;
    }
    if (result == done)
        std::cout << visible(config.path) << ": " << config.sections.size() << " modules, all in order\n";
    return result;
}

int generate_config(const std::string &given) {
    std::error_code error;
    const std::filesystem::path directory =
        std::filesystem::absolute(given.empty() ? own_modules() : std::filesystem::path(given), error);
    if (!std::filesystem::is_directory(directory, error))
        throw Failure(directory.string() + ": no such directory; name the one that the codec modules are in", usage);
    int result = done;
    for (const Section &section : sections_of(directory)) {
        Outcome outcome = try_module(section.path);
        if (visible(section.path) != section.path) outcome.error = "its name cannot stand in a configuration";
        if (outcome.error.empty()) {
            print(section);
            continue;
        }
        complain(section.path + ": left out: " + outcome.error);
        result = failed;
    }
    return result;
}

} // namespace

Verb add_config(CLI::App &app) {
    CLI::App *verb = app.add_subcommand("config", "Tell which configuration file is read, and what is in it");
    verb->require_subcommand(1);
    verb->add_subcommand("show", "Print it as the library reads it, and where it is");
    const auto directory = std::make_shared<std::string>();
    CLI::App *generate = verb->add_subcommand("generate", "Print one for the modules in a directory");
    generate->add_option("DIRECTORY", *directory, "Where they are, if not in the installation");
    const CLI::App *check = verb->add_subcommand("check", "Fail if a line of it or a module does not work");
    return {verb, [=] { return *generate ? generate_config(*directory) : *check ? check_config() : show_config(); }};
}

} // namespace tool
