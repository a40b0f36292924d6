// SPDX-License-Identifier: MIT
//
// Opening, closing and controlling streams. read.cpp and write.cpp hold the two directions, buffer.cpp what they share.
#include "io/buffer.h"

#include "core/owned.h"

#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>

using namespace img;

namespace {

int set_buffer_size(io_stream &stream, uint32_t &size) {
    const uint32_t wanted = size;
    if (wanted == stream.buffer_size) return 0;
    size = stream.buffer_size;
    if (stream.buffer) {
        // Kept: A reading stream is flushed when its buffer shrinks below the consumed bytes.
        if (wanted < stream.position && io_ostream_flush(&stream) != 0) return -1;
        // The allocation always covers position + count: unread bytes stay, and so does room that a writer was
        // promised.
        const uint64_t reach = uint64_t{stream.position} + stream.count;
        if (!wanted && (!(stream.mode & IO_READ) || !stream.count)) {
            free(stream.buffer);
            stream.buffer = nullptr;
        } else {
            auto *buffer = static_cast<uint8_t *>(realloc(stream.buffer, larger(wanted, reach)));
            if (!buffer) return -1;
            stream.buffer = buffer;
        }
    }
    stream.buffer_size = wanted;
    return 0;
}

int set_limit(io_stream &stream, uint32_t limit) {
    if (stream.limit != no_limit) {
        errno = EPERM;
        return -1;
    }
    stream.limit = limit;
    return 0;
}

int lend_buffer(io_stream &stream, io_ctl_buf &lent) {
    if (stream.buffer && stream.count) {
        lent = {stream.buffer + stream.position, stream.count};
        stream.position += stream.count;
        stream.count = 0;
        return 0;
    }
    const uint32_t length = smaller(stream.limit, stream.buffer_size);
    if (!length) {
        lent.length = 0;
        return 0;
    }
    errno = 0;
    // Kept: IO_CTL_GETBUF does not allocate the buffer. The backend is given null and refuses it.
    const uint32_t moved = transfer(stream, stream.buffer, length);
    if (!moved) {
        if (errno) return -1;
        lent.length = 0;
        return 0;
    }
    lent = {stream.buffer, moved};
    stream.position = moved;
    stream.count = 0;
    return 0;
}

} // namespace

io_handle *io_open(io_backend_ctor *ctor, uint32_t mode, ...) {
    if (!ctor || (mode != IO_READ && mode != IO_WRITE)) {
        errno = EINVAL;
        return nullptr;
    }
    Owned<io_stream> stream = allocate_zeroed<io_stream>();
    if (!stream) return nullptr;
    stream->limit = no_limit;
    stream->mode = mode;
    va_list args;
    va_start(args, mode);
    const int failed = ctor(stream.get(), &args);
    va_end(args);
    if (failed) return nullptr;

    io_handle &face = stream->face;
    face.self = stream.get();
    face.ctl = io_stream_ctl;
    if (mode == IO_READ) {
        face.read = io_stream_read;
        face.skip = io_stream_skip;
        face.unread = io_stream_unread;
        face.unskip = io_stream_unskip;
    } else {
        face.write = io_ostream_write;
        face.seek = io_ostream_seek;
        face.read_back = io_ostream_read;
    }
    return &stream.release()->face;
}

void io_close(io_handle *handle) {
    if (!handle) return;
    const Owned<io_stream> stream{handle->self};
    if (stream->mode & IO_WRITE) io_ostream_flush(stream.get());
    if (stream->backend_close) stream->backend_close(stream.get());
    free(stream->pushback);
    free(stream->buffer);
}

int io_stream_ctl(io_stream *self, uint32_t code, void *arg) {
    if (self->backend_ctl && self->backend_ctl(self->handle, code, arg) == 0) return 0;
    switch (code) {
    case IO_CTL_SETBUF:
        return set_buffer_size(*self, *static_cast<uint32_t *>(arg));
    case IO_CTL_SETLIMIT:
        return set_limit(*self, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arg)));
    case IO_CTL_GETBUF:
        return lend_buffer(*self, *static_cast<io_ctl_buf *>(arg));
    }
    errno = EINVAL;
    return -1;
}
