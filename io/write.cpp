// SPDX-License-Identifier: MIT
//
// Writing: small pieces are collected in the buffer, large ones go straight to the backend.
#include "io/buffer.h"

#include <errno.h>
#include <string.h>

using namespace img;

uint32_t io_ostream_write(io_stream *self, const void *src, uint32_t length) {
    if (!has_mode(*self, IO_WRITE)) return 0;
    const auto *in = static_cast<const uint8_t *>(src);
    uint32_t accepted = 0;
    if (self->buffer && self->count) {
        accepted = smaller(self->count, length);
        if (accepted)
            memmove(self->buffer + self->position, in, accepted); // src may be the buffer itself, from IO_CTL_GETBUF
        self->count -= accepted;
        self->position += accepted;
    }
    const uint32_t rest = length - accepted;
    if (!rest) return accepted;
    if (io_ostream_flush(self) != 0) return accepted;

    in += accepted;
    if (rest < self->buffer_size && have_buffer(*self)) {
        memcpy(self->buffer, in, rest);
        self->position = rest;
        self->count = self->buffer_size - rest;
        return accepted + rest;
    }
    // A backend's write operation does not change the bytes.
    return accepted + transfer(*self, const_cast<uint8_t *>(in), smaller(self->limit, rest));
}

int64_t io_ostream_seek(io_stream *self, int32_t offset, int whence) {
    if (!has_mode(*self, IO_WRITE) || io_ostream_flush(self) != 0) return -1;
    if (!self->backend_seek) {
        errno = ESPIPE;
        return -1;
    }
    return self->backend_seek(self->handle, offset, whence);
}

uint32_t io_ostream_read(io_stream *self, void *dst, uint32_t length) {
    if (!has_mode(*self, IO_WRITE) || io_ostream_flush(self) != 0) return 0;
    // Kept: io_ostream_read calls the backend's write operation. The limit is neither checked nor counted down.
    const uint32_t moved = self->backend_write(self->handle, dst, length);
    self->transferred += moved;
    return moved;
}
