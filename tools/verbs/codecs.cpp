// SPDX-License-Identifier: MIT
//
// pictra codecs: the modules of the configuration, and whether they open. pictra config: the configuration itself.
#include "tools/config.h"
#include "tools/text.h"
#include "tools/verbs/verbs.h"

#include <algorithm>
#include <dlfcn.h>
#include <filesystem>
#include <iostream>
#include <sstream>

namespace tool {

namespace {

// What a module turned out to be. error is empty for one that works.
struct Outcome {
    bool opens = false, entry = false, reads = false, writes = false;
    std::string error;
};

Outcome try_module(const std::string &path) {
    Outcome outcome;
    const std::unique_ptr<void, int (*)(void *)> module(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), dlclose);
    outcome.opens = module != nullptr;
    if (!outcome.opens) {
        outcome.error = dlerror();
        return outcome;
    }
    const auto entry = reinterpret_cast<img_getfuncs_func *>(dlsym(module.get(), "img_codec_getfuncs"));
    outcome.entry = entry != nullptr;
    if (!outcome.entry) {
        outcome.error = dlerror();
        return outcome;
    }
    img_codec_funcs functions{};
    if (const img_status status = entry(&functions, sizeof functions))
        outcome.error = "img_codec_getfuncs gives status " + std::to_string(status);
    outcome.reads = functions.decode_frame != nullptr;
    outcome.writes = functions.encode_frame != nullptr;
    return outcome;
}

std::string listed(std::string names) {
    std::replace(names.begin(), names.end(), ':', ' ');
    return names.empty() ? "none" : visible(names);
}

const char *yes_or_no(bool yes) { return yes ? "yes" : "no"; }

void print(const Section &section) {
    std::cout << '[' << section.path << "]\n";
    if (!section.extensions.empty()) std::cout << "ext = " << section.extensions << '\n';
    if (!section.mime_types.empty()) std::cout << "mime = " << section.mime_types << '\n';
}

// Where the modules are beside the program, in an installation or in the tree that it was built in.
std::filesystem::path own_modules() {
    const std::string installed = installation() + "/" PICTRA_CODEC_DIR;
    return std::filesystem::is_directory(installed) ? installed : installation() + "/lib/pictra";
}

// The modules of a directory. Of those that did not come with the program the name of the file is all that is known.
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

} // namespace

int codecs(bool check) {
    const Config config = find_config();
    std::cout << "configuration " << visible(config.path) << '\n';
    int result = done;
    for (const Section &section : config.sections) {
        const Outcome outcome = try_module(section.path);
        std::cout << '\n'
                  << visible(section.path) << '\n'
                  << "  opens       " << yes_or_no(outcome.opens) << '\n'
                  << "  entry       " << yes_or_no(outcome.entry) << '\n'
                  << "  reads       " << yes_or_no(outcome.reads) << '\n'
                  << "  writes      " << yes_or_no(outcome.writes) << '\n'
                  << "  extensions  " << listed(section.extensions) << '\n'
                  << "  MIME types  " << listed(section.mime_types) << '\n';
        if (outcome.error.empty()) continue;
        std::cout << "  error       " << visible(outcome.error) << '\n';
        if (!check) continue;
        complain(section.path + ": " + outcome.error + "; correct the path in the configuration or install the module");
        result = failed;
    }
    return result;
}

int config(ConfigTask task) {
    const Config config = find_config();
    if (task == ConfigTask::show) {
        std::cout << "# " << visible(config.path) << '\n';
        for (const Section &section : config.sections) print(section);
        return done;
    }
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

} // namespace tool
