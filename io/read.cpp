// SPDX-License-Identifier: MIT
//
// Reading: bytes come from the pushback first, then from the buffer, then from the backend.
#include "io/buffer.h"

#include <stdlib.h>
#include <string.h>

using namespace img;

namespace {

void drop_pushback(io_stream &stream, uint32_t count) {
    stream.pushback_count -= count;
    memmove(stream.pushback, stream.pushback + count, stream.pushback_count);
}

uint32_t take_pushback(io_stream &stream, uint8_t *dst, uint32_t length) {
    const uint32_t taken = smaller(stream.pushback_count, length);
    if (!taken) return 0;
    memcpy(dst, stream.pushback, taken);
    drop_pushback(stream, taken);
    return taken;
}

uint32_t take_buffered(io_stream &stream, uint8_t *dst, uint32_t length) {
    const uint32_t taken = smaller(stream.count, length);
    if (!taken) return 0;
    memcpy(dst, stream.buffer + stream.position, taken);
    stream.position += taken;
    stream.count -= taken;
    return taken;
}

// Skips by reading, for backends without a skip operation.
int skip_by_reading(io_stream &stream, uint32_t count) {
    if (!have_buffer(stream)) return -1;
    stream.count = 0;
    stream.pushback_count = 0;
    uint32_t got;
    do {
        got = transfer(stream, stream.buffer, smaller(stream.buffer_size, stream.limit));
        if (!got) break;
        count -= got;
        stream.count = got; // Kept: A skip by reading shows the backend a count that the buffer may not hold.
        // Kept: A skip by reading compares each chunk with what is left after it. The remainder can wrap below 0.
    } while (got < count);
    if (got && count) {
        stream.position = count;
        stream.count = got - count;
    } else { // the position is still the old one, and the buffer may hold fewer bytes after it than were read
        stream.count =
            stream.position < stream.buffer_size ? smaller(stream.count, stream.buffer_size - stream.position) : 0;
    }
    return got ? 0 : -1;
}

// Goes back over bytes in the buffer. Kept: Going back after a skip or a large read finds old bytes.
bool rewind_buffer(io_stream &stream, uint32_t count) {
    if (count > stream.position || (count && !stream.buffer)) return false;
    stream.position -= count;
    stream.count += count;
    return true;
}

// Appends bytes to those that were pushed back before.
int push_back(io_stream &stream, const void *bytes, uint32_t count) {
    const uint64_t need = uint64_t{stream.pushback_count} + count;
    if (need > UINT32_MAX) return -1;
    if (need > stream.pushback_capacity) {
        auto *grown = static_cast<uint8_t *>(realloc(stream.pushback, need));
        if (!grown) return -1;
        stream.pushback = grown;
        stream.pushback_capacity = static_cast<uint32_t>(need);
    }
    memcpy(stream.pushback + stream.pushback_count, bytes, count);
    stream.pushback_count = static_cast<uint32_t>(need);
    // Kept: Unread may deliver bytes twice. The whole buffer becomes readable again, even what came after these bytes.
    stream.count = stream.buffer ? stream.count + stream.position : 0;
    stream.position = 0;
    return 0;
}

} // namespace

uint32_t io_stream_read(io_stream *self, void *dst, uint32_t length) {
    if (!has_mode(*self, IO_READ)) return 0;
    auto *out = static_cast<uint8_t *>(dst);
    uint32_t total = take_pushback(*self, out, length);
    total += take_buffered(*self, out + total, length - total);
    uint32_t rest = length - total;
    if (!rest) return total;

    if (rest < self->buffer_size && have_buffer(*self)) {
        self->count = smaller(self->buffer_size, self->limit);
        if (!self->count) return total;
        self->count = transfer(*self, self->buffer, self->count);
        self->position = 0;
        return total + take_buffered(*self, out + total, rest);
    }
    if (rest > self->limit) {
        if (!self->limit) return total;
        rest = self->limit;
    }
    return total + transfer(*self, out + total, rest);
}

int io_stream_skip(io_stream *self, uint32_t count) {
    if (!has_mode(*self, IO_READ)) return -1;
    if (count <= self->count) {
        self->position += count;
        self->count -= count;
        return 0;
    }
    uint32_t rest = count - self->count;
    if (rest > self->limit) return -1;
    if (rest <= self->pushback_count) {
        drop_pushback(*self, rest); // Kept: Skip leaves the buffer's bytes when pushed-back bytes suffice.
        return 0;
    }
    rest -= self->pushback_count;
    if (!self->backend_skip) return skip_by_reading(*self, rest);
    if (self->backend_skip(self->handle, rest) != 0) return -1;
    self->limit -= rest;
    self->transferred += rest;
    self->pushback_count = 0;
    self->count = 0;
    self->position = self->buffer_size;
    return 0;
}

int io_stream_unread(io_stream *self, const void *bytes, uint32_t count) {
    if (!has_mode(*self, IO_READ)) return -1;
    if (rewind_buffer(*self, count)) return 0;
    if (count > self->transferred) return -1;
    if (!self->backend_unread) return push_back(*self, bytes, count);
    if (self->count) {
        if (self->backend_unread(self->handle, self->buffer + self->position, self->count) != 0) return -1;
        count_back(*self, self->count);
        self->count = 0;
    }
    if (self->backend_unread(self->handle, bytes, count) != 0) return -1;
    count_back(*self, count);
    self->position = 0;
    return 0;
}

int io_stream_unskip(io_stream *self, uint32_t count) {
    if (rewind_buffer(*self, count)) return 0;
    if (count > self->transferred) return -1;
    self->pushback_count = 0;
    if (!self->backend_unskip) return -1;
    if (self->count) {
        if (self->backend_unskip(self->handle, self->count) != 0) return -1;
        count_back(*self, self->count);
        self->count = 0;
    }
    if (self->backend_unskip(self->handle, count) != 0) return -1;
    count_back(*self, count);
    self->position = 0;
    return 0;
}
