// SPDX-License-Identifier: MIT
//
// The verbs of the program, a file each. They return an exit code or throw a Failure.
#pragma once

#include "tools/decoder.h"
#include "tools/files/batch.h"
#include "tools/operations.h"

#include <string>
#include <vector>

namespace tool {

struct InfoOptions {
    std::vector<std::string> files;
    Reading reading;
    bool json = false;
};
int info(const InfoOptions &options);

struct ConvertOptions {
    Files files;
    std::string to; // may be empty
    Reading reading;
    std::vector<Operation> operations; // in the order in which they are done
    std::string keep = "all";          // kinds of metadata
    bool sync = false;                 // wait until what is written is on the disk
};
int convert(const ConvertOptions &options);
int store_thumbnails(const ConvertOptions &options); // where desktops look for them; prints where

struct CompareOptions {
    std::vector<std::string> files; // two
    Reading reading;
};
int compare(const CompareOptions &options);

struct FramesOptions {
    std::string file;
    std::string pattern; // of the files to write, or empty: list only
    std::string to;
    Reading reading;
    bool sync = false;
};
int frames(const FramesOptions &options);

struct ShowOptions {
    std::vector<std::string> files;
    std::string way; // empty: what the terminal can
    Reading reading;
};
int show(const ShowOptions &options);

enum class ConfigTask { check, show };
int config(ConfigTask task);
int generate_config(const std::string &directory); // of the modules in it; empty: those beside the program

int formats();
int codecs(bool check);

} // namespace tool
