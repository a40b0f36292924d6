// SPDX-License-Identifier: MIT
//
// pictra completion: scripts for shells, made from the same description that the command line is parsed by.
#include "tools/text.h"
#include "tools/verbs/verbs.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

namespace tool {

namespace {

struct Option {
    std::string name, help; // name with its dashes
    bool takes_value;
};

std::vector<Option> options_of(const CLI::App &verb) {
    std::vector<Option> options;
    const auto add = [&](const CLI::App &app) {
        for (const CLI::Option *option : app.get_options()) {
            for (const std::string &name : option->get_snames())
                options.push_back({"-" + name, option->get_description(), option->get_items_expected_max() > 0});
            for (const std::string &name : option->get_lnames())
                options.push_back({"--" + name, option->get_description(), option->get_items_expected_max() > 0});
        }
    };
    add(verb);
    for (const CLI::App *group : verb.get_subcommands([](const CLI::App *app) { return app->get_name().empty(); }))
        add(*group);
    return options;
}

std::vector<const CLI::App *> verbs_of(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *verb) { return !verb->get_name().empty(); });
}

// The text, fit for single quotes in a shell; brackets and colons have a meaning of their own in zsh.
std::string bare(std::string text) {
    std::erase_if(text, [](char c) { return c == '\'' || c == '[' || c == ']' || c == ':'; });
    return text;
}

std::string for_bash(const CLI::App &app) {
    std::string verbs, cases;
    for (const CLI::App *verb : verbs_of(app)) {
        verbs += (verbs.empty() ? "" : " ") + verb->get_name();
        cases += "        " + verb->get_name() + ") words='";
        for (const Option &option : options_of(*verb)) cases += option.name + " ";
        for (const CLI::App *task : verbs_of(*verb)) cases += task->get_name() + " ";
        cases += "' ;;\n";
    }
    return "_pictra() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} words=\n"
           "    if [ \"$COMP_CWORD\" = 1 ]; then\n"
           "        words='" +
           verbs +
           "'\n"
           "    else\n"
           "        case ${COMP_WORDS[1]} in\n" +
           cases +
           "        esac\n"
           "        [[ $word != -* && ${COMP_WORDS[1]} != config ]] && words=\n"
           "    fi\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
           "}\n"
           "complete -o bashdefault -o default -F _pictra pictra\n";
}

std::string for_zsh(const CLI::App &app) {
    std::string verbs, cases;
    for (const CLI::App *verb : verbs_of(app)) {
        verbs += "        '" + verb->get_name() + ":" + bare(verb->get_description()) + "'\n";
        cases += "    " + verb->get_name() + ") _arguments";
        for (const Option &option : options_of(*verb))
            cases +=
                " '" + option.name + "[" + bare(option.help) + "]" + (option.takes_value ? ":value:_files" : "") + "'";
        for (const CLI::App *task : verbs_of(*verb)) cases += " '2:task:(" + task->get_name() + ")'";
        cases += " '*:file:_files' ;;\n";
    }
    return "#compdef pictra\nif (( CURRENT == 2 )); then\n    local -a verbs=(\n" + verbs +
           "    )\n    _describe verb verbs\nelse\n    shift words; (( CURRENT-- ))\n    case $words[1] in\n" + cases +
           "    esac\nfi\n";
}

std::string for_fish(const CLI::App &app) {
    std::string script;
    for (const CLI::App *verb : verbs_of(app)) {
        script += "complete -c pictra -n __fish_use_subcommand -a " + verb->get_name() + " -d '" +
                  bare(verb->get_description()) + "'\n";
        const std::string within = "complete -c pictra -n '__fish_seen_subcommand_from " + verb->get_name() + "' ";
        for (const Option &option : options_of(*verb)) {
            const bool is_long = option.name.starts_with("--");
            script += within + (is_long ? "-l " : "-s ") + option.name.substr(is_long ? 2 : 1) +
                      (option.takes_value ? " -r" : "") + " -d '" + bare(option.help) + "'\n";
        }
        for (const CLI::App *task : verbs_of(*verb)) script += within + "-a " + task->get_name() + "\n";
    }
    return script;
}

std::string script_for(const std::string &shell, const CLI::App &app) {
    if (shell == "bash") return for_bash(app);
    if (shell == "zsh") return for_zsh(app);
    if (shell == "fish") return for_fish(app);
    throw Failure("completion " + shell + ": there are scripts for bash, zsh and fish", usage);
}

} // namespace

Verb add_completion(CLI::App &app) {
    CLI::App *verb = app.add_subcommand("completion", "Print a script that completes this command line in a shell");
    const auto shell = std::make_shared<std::string>();
    verb->add_option("SHELL", *shell, "bash, zsh or fish")->required();
    return {verb, [&app, shell] {
                std::cout << script_for(*shell, app);
                return int{done};
            }};
}

} // namespace tool
