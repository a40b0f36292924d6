// SPDX-License-Identifier: MIT
#include "tools/files/target.h"

#include "tools/text.h"

#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

// Asked for once: reading it means setting it, which no other thread may see.
mode_t current_umask() {
    static const mode_t mask = [] {
        const mode_t now = umask(0);
        umask(now);
        return now;
    }();
    return mask;
}

[[noreturn]] void fail(const std::string &path, const char *remedy) {
    throw Failure(path + ": " + strerror(errno) + "; " + remedy, IMG_ST_FILE);
}

} // namespace

Target::Target(const std::string &path, bool for_owner_only) : path_(path) {
    signal(SIGXFSZ, SIG_IGN); // a file size limit is an error like a full disk
    if (path == "-") {
        if (isatty(STDOUT_FILENO))
            throw Failure("standard output: a picture would garble the terminal; send it to a file or a pipe", usage);
        descriptor_ = STDOUT_FILENO;
        return;
    }
    struct stat about;
    const bool exists = stat(path.c_str(), &about) == 0;
    if (exists && S_ISDIR(about.st_mode)) throw Failure(path + ": it is a directory; name a file in it", IMG_ST_FILE);
    if (exists && access(path.c_str(), W_OK) != 0) fail(path, "write to another file");
    if (exists && !S_ISREG(about.st_mode)) {
        descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) fail(path, "write to another file");
        return;
    }
    open_temporary(exists, for_owner_only ? 0600 : exists ? about.st_mode & 0777 : 0666 & ~current_umask());
}

void Target::open_temporary(bool exists, unsigned mode) {
    // A link stays, and what it leads to is replaced.
    if (exists) path_ = std::filesystem::canonical(path_).string();
    const size_t slash = path_.rfind('/');
    temporary_ = path_.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".pictra-XXXXXX";
    descriptor_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        temporary_.clear();
        fail(path_, "check that its directory exists and can be written to");
    }
    if_stopped_.remember(temporary_);
    if (fchmod(descriptor_, mode) != 0) {
        const int error = errno;
        close(descriptor_);
        unlink(temporary_.c_str());
        errno = error;
        fail(path_, "write to another file");
    }
}

void Target::commit() {
    if (path_ == "-") return;
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (close(descriptor) != 0) fail(path_, "check free space");
    if (temporary_.empty()) return;
    if (rename(temporary_.c_str(), path_.c_str()) != 0) fail(path_, "check the rights of its directory");
    temporary_.clear();
    if_stopped_.forget();
}

Target::~Target() {
    if (descriptor_ > STDOUT_FILENO) close(descriptor_);
    if (temporary_.empty()) return;
    unlink(temporary_.c_str());
}

} // namespace tool
