// SPDX-License-Identifier: MIT
//
// The configuration file, checked by the program before the library reads it, and the library attached with it.
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
    unsigned warnings = 0; // lines that the library will ignore
};

// Finds the file by the library's rule or, if that finds none, beside the program; the library is then made to use that
// one, too. Warns about lines that the library will ignore.
//
// Fails for a file that cannot be read, has no section, or begins with a key: the library would never return from it.
Config find_config();

// The sections of the modules that come with the program, as text. Modules that recognise their format only weakly come
// first, because the library asks them last. Paths are file names alone.
extern const char known_sections[];

// Adds one line of a configuration, as the library's reader does. place is for messages.
void parse(const std::string &line, const std::string &place, Config &config);

// The directory above the program's, or empty if unknown.
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
    const Section *
    section_of(img_codec *codec) const; // null if the library and the program disagree about the configuration
};
Library attach();

} // namespace tool
