// SPDX-License-Identifier: MIT
#include "tools/target.h"

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

// The temporary file of the moment, for the signal handler: a plain array, since the handler may come at any time.
char to_remove[4096];

void remove_and_die(int signal_number) {
    unlink(to_remove);
    signal(signal_number, SIG_DFL);
    raise(signal_number);
}

void remove_on_signals(const std::string &path) {
    if (path.size() >= sizeof to_remove) return;
    memcpy(to_remove, path.c_str(), path.size() + 1);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, remove_and_die);
}

void forget_signals() {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, SIG_DFL);
}

mode_t current_umask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

[[noreturn]] void fail(const std::string &path, const char *remedy) {
    throw Failure(path + ": " + strerror(errno) + "; " + remedy);
}

} // namespace

Target::Target(const std::string &path) : path_(path) {
    signal(SIGXFSZ, SIG_IGN); // a file size limit is an error like a full disk
    if (path == "-") {
        if (isatty(STDOUT_FILENO))
            throw Failure("standard output: a picture would garble the terminal; send it to a file or a pipe", usage);
        descriptor_ = STDOUT_FILENO;
        return;
    }
    struct stat about;
    const bool exists = stat(path.c_str(), &about) == 0;
    if (exists && S_ISDIR(about.st_mode)) throw Failure(path + ": it is a directory; name a file in it");
    if (exists && access(path.c_str(), W_OK) != 0) fail(path, "write to another file");
    if (exists && !S_ISREG(about.st_mode)) {
        descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) fail(path, "write to another file");
        return;
    }
    open_temporary(exists, exists ? about.st_mode & 0777 : 0666 & ~current_umask());
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
    remove_on_signals(temporary_);
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
    forget_signals();
}

Target::~Target() {
    if (descriptor_ > STDOUT_FILENO) close(descriptor_);
    if (temporary_.empty()) return;
    unlink(temporary_.c_str());
    forget_signals();
}

} // namespace tool
