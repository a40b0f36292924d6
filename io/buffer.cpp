// SPDX-License-Identifier: MIT
//
// The buffer of a stream and the calls of its backend, for both directions.
#include "io/buffer.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

using namespace img;

namespace img {

bool has_mode(const io_stream &stream, uint32_t mode) {
    if (stream.mode & mode) return true;
    errno = EBADF;
    return false;
}

bool have_buffer(io_stream &stream) {
    if (stream.buffer) return true;
    if (!stream.buffer_size) return false;
    stream.buffer = static_cast<uint8_t *>(malloc(stream.buffer_size));
    if (!stream.buffer) return false;
    memset(stream.buffer, 0, stream.buffer_size); // unread can go back into bytes that were never written
    stream.position = smaller(stream.position, stream.buffer_size);
    stream.count = 0;
    return true;
}

uint32_t transfer(io_stream &stream, void *bytes, uint32_t length) {
    uint32_t moved = 0;
    if (stream.mode & IO_WRITE)
        moved = stream.backend_write(stream.handle, bytes, length);
    else if (stream.backend_read) // a memory stream has none
        moved = stream.backend_read(stream.handle, bytes, length);
    stream.limit -= moved;
    stream.transferred += moved;
    return moved;
}

} // namespace img

// Kept: io_ostream_flush works on reading streams, too. It then reads over the bytes that were consumed.
int io_ostream_flush(io_stream *self) {
    if (!self->position) return 0;
    if (!self->buffer) { // a skip counted bytes as consumed before the buffer was allocated
        errno = EFBIG;
        return -1;
    }
    const uint32_t waiting = self->position;
    const uint32_t moved = smaller(transfer(*self, self->buffer, smaller(self->limit, waiting)), waiting);
    self->count += moved;
    self->position -= moved;
    if (!self->position) return 0;
    if (moved) memmove(self->buffer, self->buffer + moved, self->position);
    errno = EFBIG;
    return -1;
}
