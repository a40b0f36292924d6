// SPDX-License-Identifier: MIT
#include "tools/files/target.h"

#include "tools/text.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

[[noreturn]] void fail(const std::string &path, const char *remedy) {
    throw Failure(path + ": " + strerror(errno) + "; " + remedy, IMG_ST_FILE);
}
[[noreturn]] void fail_changed(const std::string &path) {
    throw Failure(path + ": it changed while it was opened; try again", IMG_ST_FILE);
}

// A name that cannot be guessed before the file has it.
std::string fresh_name() {
    uint64_t random = 0;
    if (getrandom(&random, sizeof random, 0) != sizeof random) random = static_cast<uint64_t>(getpid());
    char name[32];
    snprintf(name, sizeof name, ".pictra-%016" PRIx64, random);
    return name;
}

std::string own_path(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

// A pipe or a terminal has nothing to sync.
bool reaches_disk(int descriptor) { return fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP; }

// Some file systems report failed writes only at close. Closing a duplicate asks them while the file can still be given
// up.
bool all_arrived(int descriptor) { return Descriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, 0)).close(); }

} // namespace

Target::Target(const std::string &path, const TargetOptions &options) : path_(path), options_(options) {
    signal(SIGXFSZ, SIG_IGN); // a file size limit is an error like a full disk
    if (path == "-") {
        if (isatty(STDOUT_FILENO))
            throw Failure("standard output: a picture would garble the terminal; send it to a file or a pipe", usage);
        return;
    }
    struct stat about;
    const bool exists = stat(path.c_str(), &about) == 0;
    if (!exists) {
        find(false);
        open_new(0666, false);
    } else if (S_ISREG(about.st_mode)) {
        find(true);
        replace(about);
    } else if (S_ISDIR(about.st_mode)) {
        throw Failure(path + ": it is a directory; name a file in it", IMG_ST_FILE);
    } else {
        open_special();
    }
}

Target::~Target() { remove_temporary(); }

void Target::remove_temporary() {
    if (!temporary_.empty()) unlinkat(folder_.number(), temporary_.c_str(), 0);
}

// Opens the folder of the target; if the target exists, the folder that its links lead to.
void Target::find(bool exists) {
    constexpr int most_links = 40; // as in the kernel
    std::string path = path_;
    for (int links = 0; links <= most_links; links++) {
        const size_t slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        name_ = path.substr(slash + 1); // npos + 1 is 0
        const int from = folder_ ? folder_.number() : AT_FDCWD;
        folder_ = Descriptor(openat(from, folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!folder_) fail(path_, "check that its directory exists and can be written to");
        if (!exists) return;
        char link[PATH_MAX];
        const ssize_t length = readlinkat(folder_.number(), name_.c_str(), link, sizeof link);
        if (length < 0) return;
        path.assign(link, static_cast<size_t>(length));
    }
    fail_changed(path_);
}

// about: what the path led to before its folder was opened.
void Target::replace(const struct stat &about) {
    struct stat found;
    if (fstatat(folder_.number(), name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0 || found.st_dev != about.st_dev ||
        found.st_ino != about.st_ino)
        fail_changed(path_);
    if (faccessat(folder_.number(), name_.c_str(), W_OK, 0) != 0) fail(path_, "write to another file");
    open_new(about.st_mode & 0777, true);
}

void Target::open_special() {
    file_ = Descriptor(open(path_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
    struct stat about;
    if (!file_ || fstat(file_.number(), &about) != 0) fail(path_, "write to another file");
    if (S_ISREG(about.st_mode)) fail_changed(path_);
}

void Target::open_new(unsigned mode, bool exactly) {
    if (options_.for_owner_only) mode = 0600;
    if (!open_unnamed(exactly ? 0600 : mode)) open_temporary(exactly ? 0600 : mode);
    if (!exactly || fchmod(file_.number(), mode) == 0) return;
    const int error = errno;
    remove_temporary(); // no destructor runs after a failed constructor
    errno = error;
    fail(path_, "write to another file");
}

bool Target::open_unnamed(unsigned mode) {
    file_ = Descriptor(openat(folder_.number(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    return file_ && access(own_path(file_.number()).c_str(), F_OK) == 0; // through which give_name() links it
}

void Target::open_temporary(unsigned mode) {
    const std::string name = fresh_name();
    constexpr int how = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    file_ = Descriptor(openat(folder_.number(), name.c_str(), how, mode));
    if (!file_) fail(path_, "check that its directory exists and can be written to");
    temporary_ = name;
    if_stopped_.remember(folder_.number(), name);
}

int Target::descriptor() const { return path_ == "-" ? STDOUT_FILENO : file_.number(); }

// linkat() cannot replace a file, so an existing one is replaced by a rename.
bool Target::give_name() {
    const int folder = folder_.number();
    if (temporary_.empty()) {
        const std::string self = own_path(file_.number());
        if (linkat(AT_FDCWD, self.c_str(), folder, name_.c_str(), AT_SYMLINK_FOLLOW) == 0) return true;
        const std::string name = fresh_name();
        if (errno != EEXIST || linkat(AT_FDCWD, self.c_str(), folder, name.c_str(), AT_SYMLINK_FOLLOW) != 0)
            return false;
        temporary_ = name;
        if_stopped_.remember(folder, name);
    }
    if (renameat(folder, temporary_.c_str(), folder, name_.c_str()) != 0) return false;
    temporary_.clear();
    if_stopped_.forget();
    return true;
}

void Target::commit() {
    if (options_.sync && !reaches_disk(descriptor())) fail(path_, "check the disk");
    if (path_ == "-") return;
    if (!all_arrived(file_.number())) fail(path_, "check free space");
    if (folder_ && !give_name()) fail(path_, "check the rights of its directory");
    file_ = Descriptor();
    if (folder_ && options_.sync) sync_folder();
}

void Target::sync_folder() const {
    const Descriptor readable(openat(folder_.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!readable || !reaches_disk(readable.number()))
        fail(path_, "it is written, but its name may be lost if the system stops now; check the disk");
}

} // namespace tool
