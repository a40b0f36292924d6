// SPDX-License-Identifier: MIT
//
// A file, opened by name, with a stream over it.
#pragma once

#include "core/owned.h"
#include "pictra/pictra.h"

#include <errno.h>
#include <fcntl.h>

namespace img {

// Repeats the call while signals interrupt it, which can happen with a named pipe.
inline int open_uninterrupted(const char *path, int flags) {
    int fd;
    do fd = open(path, flags | O_CLOEXEC, 0666);
    while (fd < 0 && errno == EINTR);
    return fd;
}

// Opens the file for reading, or creates it for writing. The stream is closed before the descriptor, so what its buffer
// still holds is written.
class FileStream {
public:
    FileStream(const char *path, uint32_t mode)
        : fd_(open_uninterrupted(path, mode == IO_READ ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC)),
          stream_(fd_ ? io_open(IO_FD, mode, fd_.get()) : nullptr) {}
    ~FileStream() { io_close(stream_); }
    FileStream(const FileStream &) = delete;
    FileStream &operator=(const FileStream &) = delete;

    bool opened() const { return bool{fd_}; }
    io_handle *stream() const { return stream_; } // null when out of memory or if the file is too large

private:
    Descriptor fd_;
    io_handle *stream_;
};

} // namespace img
