// SPDX-License-Identifier: MIT
#include "tools/config.h"

#include "tools/text.h"

#include <algorithm>
#include <errno.h>
#include <filesystem>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace tool {

namespace {

constexpr const char *variable = "PICTRA_CFGFILE", *default_path = "/etc/system/config/img.conf";

std::string strip(const std::string &text) {
    constexpr const char *blanks = " \t\n\v\f\r";
    const size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string choose_path() {
    if (const char *named = getenv(variable)) return named;
    if (access(default_path, F_OK) == 0) return default_path;
    if (installation().empty()) return default_path;
    const std::string beside = installation() + "/etc/pictra/img.conf";
    setenv(variable, beside.c_str(), 1);
    return beside;
}

} // namespace

std::string installation() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? "" : program.parent_path().parent_path().string();
}

void parse(const std::string &given, const std::string &place, Config &config) {
    const std::string line = strip(given);
    if (line.empty()) return;
    if (line[0] == '[') {
        config.sections.push_back({strip(line.substr(1, line.rfind(']') - 1)), "", ""});
        return;
    }
    const size_t equals = line.find('=');
    if (equals == std::string::npos) {
        config.warnings++;
        complain(place + ": warning: neither a section nor a key, skipped (there are no comments): " + line);
        return;
    }
    if (config.sections.empty())
        throw Failure(place + ": a key stands before the first section; put a line like [/path/to/codec.so] before it",
                      IMG_ST_CONFIG);
    const std::string key = strip(line.substr(0, equals)), value = strip(line.substr(equals + 1));
    if (key == "ext") {
        config.sections.back().extensions = value;
    } else if (key == "mime") {
        config.sections.back().mime_types = value;
    } else {
        config.warnings++;
        complain(place + ": warning: unknown key '" + key + "'; known are ext and mime");
    }
}

Config find_config() {
    Config config{choose_path(), {}, 0};
    const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(config.path.c_str(), "r"), fclose);
    if (!file)
        throw Failure("configuration " + config.path + ": " + strerror(errno) + "; set " + variable +
                          " to the file that lists the codec modules",
                      IMG_ST_CONFIG);
    char line[1024]; // the library cuts longer lines here, too
    for (int number = 1; fgets(line, sizeof line, file.get()); number++)
        parse(line, "configuration " + config.path + ":" + std::to_string(number), config);
    if (config.sections.empty())
        throw Failure("configuration " + config.path +
                          ": it lists no codec module; add a line like [/path/to/codec.so]",
                      IMG_ST_CONFIG);
    return config;
}

std::vector<img_codec *> Library::codecs() const {
    std::vector<img_codec *> list(img_codec_list(handle.get(), nullptr, 0, nullptr, 0));
    img_codec_list(handle.get(), list.data(), static_cast<uint32_t>(list.size()), nullptr, 0);
    return list;
}

std::vector<img_codec *> Library::codecs_for(const std::string &path) const {
    std::vector<img_codec *> list(img_codec_list_byext(handle.get(), path.c_str(), nullptr, 0));
    img_codec_list_byext(handle.get(), path.c_str(), list.data(), static_cast<uint32_t>(list.size()));
    return list;
}

// The registry holds the sections in reverse order.
const Section *Library::section_of(img_codec *codec) const {
    const std::vector<img_codec *> list = codecs();
    const auto found = std::find(list.begin(), list.end(), codec);
    if (list.size() != config.sections.size() || found == list.end()) return nullptr;
    return &config.sections[static_cast<size_t>(list.end() - found) - 1];
}

Library attach() {
    Library library{find_config(), {}};
    img_lib_handle *handle = nullptr;
    const img_status status = img_lib_attach(&handle);
    library.handle.reset(handle);
    if (!handle) throw Failure("starting", status);
    return library; // errors in single lines were complained about; the codecs are there
}

} // namespace tool
