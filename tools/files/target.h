// SPDX-License-Identifier: MIT
//
// The file that a picture is written to. It appears under its name only when it is complete.
#pragma once

#include "tools/confine/descriptor.h"
#include "tools/interrupt.h"

#include <string>
#include <sys/stat.h>
#include <utility>

namespace tool {

using confine::Descriptor;

struct TargetOptions {
    bool for_owner_only = false; // no access for others, whatever the umask says
    bool sync = false;           // commit() returns when file and name have reached the disk
};

// "-" is standard output. Devices and pipes are written to as they are. A file is written without a name if the file
// system supports that, else under a temporary one, in the folder of its final name. That folder is opened once, so
// that nothing done to the path meanwhile can lead the file elsewhere. A symbolic link to a file stays, and the file is
// replaced. A new file gets the permissions of the file that it replaces, or the usual ones.
class Target {
public:
    explicit Target(const std::string &path, const TargetOptions &options = {});
    ~Target(); // removes what was not committed
    Target(const Target &) = delete;
    Target &operator=(const Target &) = delete;

    int descriptor() const; // open for writing until commit()
    void commit();          // fails if the file cannot be completed; the one that was there before is then untouched

private:
    void find(bool exists);
    void replace(const struct stat &about);
    void open_special();
    void open_new(unsigned mode, bool exactly); // exactly: regardless of the umask
    bool open_unnamed(unsigned mode);
    void open_temporary(unsigned mode);
    bool give_name();
    void remove_temporary();
    void sync_folder() const;

    std::string path_, name_;      // name_ in folder_
    std::string temporary_{};      // in folder_; empty if the file has no name yet
    Descriptor folder_{}, file_{}; // no folder: written as it is
    TargetOptions options_;
    RemovedWhenStopped if_stopped_;
};

} // namespace tool
