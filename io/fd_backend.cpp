// SPDX-License-Identifier: MIT
//
// Streams over a file descriptor, which belongs to the caller.
#include "pictra/backend.h"

#include <errno.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

constexpr uint32_t default_buffer_size = 2048;

int descriptor(intptr_t handle) { return static_cast<int>(handle); }

// Repeats the operation while signals interrupt it. Returns 0 on an error, with errno set; otherwise errno is left
// alone, because the stream uses it to tell the end of the data from an error.
template <typename Operation> uint32_t uninterrupted(Operation operation) {
    const int before = errno;
    for (;;) {
        const ssize_t moved = operation();
        if (moved >= 0) return static_cast<uint32_t>(moved);
        if (errno != EINTR) return 0;
        errno = before;
    }
}

uint32_t io_fd_read(intptr_t handle, void *dst, uint32_t length) {
    return uninterrupted([=] { return read(descriptor(handle), dst, length); });
}

// A short write does not mean a full disk: writes the rest until a call writes nothing.
uint32_t io_fd_write(intptr_t handle, const void *src, uint32_t length) {
    uint32_t written = 0;
    while (written < length) {
        const auto *rest = static_cast<const uint8_t *>(src) + written;
        const uint32_t moved = uninterrupted([=] { return write(descriptor(handle), rest, length - written); });
        if (!moved) break;
        written += moved;
    }
    return written;
}

int64_t io_fd_seek(intptr_t handle, int32_t offset, int whence) { return lseek(descriptor(handle), offset, whence); }

int move(intptr_t handle, off_t distance) { return lseek(descriptor(handle), distance, SEEK_CUR) < 0 ? -1 : 0; }

int io_fd_skip(intptr_t handle, uint32_t count) { return move(handle, off_t{count}); }

int io_fd_unskip(intptr_t handle, uint32_t count) { return move(handle, -off_t{count}); }

// The bytes are ignored: they are still in the file.
int io_fd_unread(intptr_t handle, const void *, uint32_t count) { return io_fd_unskip(handle, count); }

} // namespace

int IO_FD(io_stream *stream, va_list *args) {
    const int fd = va_arg(*args, int);
    stream->handle = fd;
    stream->buffer_size = default_buffer_size;
    if (!(stream->mode & IO_READ)) {
        stream->backend_write = io_fd_write;
        stream->backend_seek = io_fd_seek;
        stream->backend_read_back = io_fd_read;
        return 0;
    }
    stream->backend_read = io_fd_read;
    const off_t offset = lseek(fd, 0, SEEK_CUR);
    if (offset < 0) return 0; // a pipe or a terminal: no known end, and no way back
    struct stat status;
    if (fstat(fd, &status) != 0) return -1;
    const int64_t remaining = status.st_size - offset;
    if (remaining > int64_t{UINT32_MAX}) {
        errno = EFBIG;
        return -1;
    }
    stream->limit = static_cast<uint32_t>(remaining);
    stream->backend_skip = io_fd_skip;
    stream->backend_unread = io_fd_unread;
    stream->backend_unskip = io_fd_unskip;
    return 0;
}
