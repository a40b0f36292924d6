// SPDX-License-Identifier: MIT
//
// A named file with a stream over it.
#pragma once

#include "core/owned.h"
#include "pictra/pictra.h"

#include <fcntl.h>

namespace img {

// Opens the file for reading, or creates it for writing. The stream closes before the descriptor, so what it still holds
// is written.
class FileStream {
public:
    FileStream(const char *path, uint32_t mode)
        : fd_(mode == IO_READ ? open(path, O_RDONLY | O_CLOEXEC)
                              : open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)),
          stream_(fd_ ? io_open(IO_FD, mode, fd_.get()) : nullptr) {}
    ~FileStream() { io_close(stream_); }
    FileStream(const FileStream &) = delete;
    FileStream &operator=(const FileStream &) = delete;

    bool opened() const { return bool{fd_}; }
    io_handle *stream() const { return stream_; } // null when memory lacks or the file is too large

private:
    Descriptor fd_;
    io_handle *stream_;
};

} // namespace img
