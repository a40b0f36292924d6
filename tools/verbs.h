// SPDX-License-Identifier: MIT
//
// The verbs of the program, a file each. They return an exit code or throw a Failure.
#pragma once

#include "tools/batch.h"
#include "tools/operations.h"

#include <string>
#include <vector>

namespace tool {

int info(const std::vector<std::string> &files);

struct ConvertOptions {
    Files files;
    std::string format, to;            // may be empty
    std::vector<Operation> operations; // in the order in which they are done
    std::vector<GivenOption> given;
    Picture::Damage damage = Picture::Damage::refused;
};
int convert(const ConvertOptions &options);

struct ThumbnailOptions {
    Files files;
    std::string to; // may be empty
    std::vector<GivenOption> given;
    uint32_t size = 0; // of the longer side; smaller pictures stay as they are
};
int thumbnail(const ThumbnailOptions &options);

int codecs(bool check);

} // namespace tool
