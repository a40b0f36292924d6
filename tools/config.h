// SPDX-License-Identifier: MIT
//
// The configuration file as the program sees it before the library reads it, and the library attached with it.
#pragma once

#include "pictra/pictra.h"

#include <memory>
#include <string>
#include <vector>

namespace tool {

struct Section {
    std::string path, extensions, mime_types; // lists are joined by ":"
};

struct Config {
    std::string path;
    std::vector<Section> sections;
    unsigned warnings = 0; // lines that the library will not take
};

// Finds the file by the library's rule or, where that gives none, beside the program (and has the library do so, too).
// Lines that the library will not take are complained about.
//
// Fails for a file that cannot be read, has no section, or begins with a key: the library would never return from it.
Config find_config();

// The sections of the modules that come with the program, as text, in the order that suits them: those that recognise
// their format only weakly stand first, because they are asked last. Paths are file names alone.
extern const char known_sections[];

// Takes a configuration's lines in, one at a time, as the library's reader does. place is for messages.
void parse(const std::string &line, const std::string &place, Config &config);

// The directory that the program's own is in, or nothing.
std::string installation();

struct Detach {
    void operator()(img_lib_handle *handle) const { img_lib_detach(handle); }
};

// The library with its codecs, and what the configuration says of them.
struct Library {
    Config config;
    std::unique_ptr<img_lib_handle, Detach> handle;

    std::vector<img_codec *> codecs() const;                            // newest first
    std::vector<img_codec *> codecs_for(const std::string &path) const; // of its extension
    const Section *section_of(img_codec *codec) const;                  // null if the configuration was odd
};
Library attach();

} // namespace tool
