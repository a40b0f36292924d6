// SPDX-License-Identifier: MIT
#include "tools/files/source.h"

#include "tools/text.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

// What can be written to as well, as the shell's <> gives it, is opened anew, because its reader may be taken over by
// what it reads. Where that is impossible, as with sockets, it stays as it is.
int for_reading_only(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY) return descriptor;
    const int own = open(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), O_RDONLY | O_CLOEXEC);
    if (own < 0) return descriptor;
    const off_t place = lseek(descriptor, 0, SEEK_CUR);
    if (place > 0) lseek(own, place, SEEK_SET);
    return own;
}

} // namespace

Input::Input(const std::string &path)
    : path_(path), name_(path == "-" ? "standard input" : path),
      descriptor_(path == "-" ? for_reading_only(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0)
        throw Failure(path + ": " + strerror(errno) + (errno == EACCES ? "; check its rights" : "; check the name"),
                      IMG_ST_FILE);
    start_ = lseek(descriptor_, 0, SEEK_CUR);
    struct stat about;
    if (fstat(descriptor_, &about) != 0) return;
    const bool is_directory = S_ISDIR(about.st_mode), is_empty = S_ISREG(about.st_mode) && about.st_size == 0;
    if (S_ISREG(about.st_mode)) size_ = static_cast<uint64_t>(about.st_size);
    if (!is_directory && !is_empty) return;
    if (descriptor_ != STDIN_FILENO) close(descriptor_);
    if (is_directory) throw Failure(name_ + ": it is a directory; name a picture in it", IMG_ST_FILE);
    throw empty_failure(name_);
}

Input::~Input() {
    if (descriptor_ != STDIN_FILENO) close(descriptor_);
}

bool Input::rewind() const { return start_ >= 0 && lseek(descriptor_, start_, SEEK_SET) == start_; }

} // namespace tool
