// SPDX-License-Identifier: MIT
//
// A file of its own name that goes with the test.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

class TempFile {
public:
    explicit TempFile(const std::string &content = {}, const std::string &suffix = {}) {
        path_ = testing::TempDir() + "pictraXXXXXX" + suffix;
        const int fd = mkstemps(path_.data(), static_cast<int>(suffix.size()));
        EXPECT_GE(fd, 0);
        close(fd);
        std::ofstream{path_, std::ios::binary} << content;
    }
    ~TempFile() { unlink(path_.c_str()); }
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;

    const char *path() const { return path_.c_str(); }
    bool exists() const { return access(path(), F_OK) == 0; }
    std::string content() const {
        std::ifstream file{path_, std::ios::binary};
        return {std::istreambuf_iterator<char>{file}, {}};
    }

private:
    std::string path_;
};
