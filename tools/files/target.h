// SPDX-License-Identifier: MIT
//
// The file that a picture is written to. It appears under its name only when it is complete.
#pragma once

#include "tools/interrupt.h"

#include <string>

namespace tool {

class Target {
public:
    // "-" is standard output. Devices and pipes are written as they are; a file is written beside its place first. It is
    // for its owner's eyes, or keeps the rights of the file that it replaces, or gets the usual ones.
    explicit Target(const std::string &path, bool for_owner_only = false);
    ~Target(); // removes what was not committed
    Target(const Target &) = delete;
    Target &operator=(const Target &) = delete;

    int descriptor() const { return descriptor_; }
    void commit(); // fails if the file cannot be completed; then the one that was there before is untouched

private:
    void open_temporary(bool exists, unsigned mode);

    std::string path_, temporary_;
    int descriptor_ = -1;
    RemovedWhenStopped if_stopped_;
};

} // namespace tool
