// SPDX-License-Identifier: MIT
//
// pictra codecs: the modules of the configuration, and whether they open.
#include "tools/config.h"
#include "tools/text.h"
#include "tools/verbs/trial.h"
#include "tools/verbs/verbs.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

namespace tool {

namespace {

std::string listed(std::string names) {
    std::replace(names.begin(), names.end(), ':', ' ');
    return names.empty() ? "none" : visible(names);
}

const char *yes_or_no(bool yes) { return yes ? "yes" : "no"; }

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

} // namespace

Verb add_codecs(CLI::App &app) {
    CLI::App *verb = app.add_subcommand("codecs", "List the codec modules and whether they open");
    const auto check = std::make_shared<bool>(false);
    verb->add_flag("--check", *check, "Fail if one does not work");
    return {verb, [check] { return codecs(*check); }};
}

} // namespace tool
