// SPDX-License-Identifier: MIT
//
// A file to read, or standard input.
#pragma once

#include <stdint.h>
#include <string>

namespace tool {

// An open file; closed when it goes.
class Input {
public:
    explicit Input(const std::string &path); // "-" is standard input; fails with a message
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    const std::string &name() const { return name_; } // for messages
    const std::string &path() const { return path_; }
    int descriptor() const { return descriptor_; }
    bool rewind() const;                    // to where it began; false where that is impossible
    uint64_t size() const { return size_; } // 0 if unknown

private:
    std::string path_, name_;
    int descriptor_; // which cannot be written to, if the system allows that
    int64_t start_ = 0;
    uint64_t size_ = 0;
};

} // namespace tool
