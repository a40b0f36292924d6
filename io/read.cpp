// SPDX-License-Identifier: MIT
//
// Reading: bytes come from the pushback buffer first, then from the buffer, then from the backend.
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

// Skips count bytes of a backend that cannot, by reading them.
int skip_by_reading(io_stream &stream, uint32_t count) {
    if (!have_buffer(stream)) return -1;
    stream.count = 0;
    stream.pushback_count = 0;
    uint32_t got;
    do {
        got = transfer(stream, stream.buffer, smaller(stream.buffer_size, stream.limit));
        if (!got) break;
        count -= got;
        stream.count = got;
        // Kept: what was read is compared with what is then left, not with what was wanted; a remainder below 0 wraps.
    } while (got < count);
    if (got && count) {
        stream.position = count;
        stream.count = got - count;
    } else { // The position is still the one before: behind it there may be less than was read.
        stream.count =
            stream.position < stream.buffer_size ? smaller(stream.count, stream.buffer_size - stream.position) : 0;
    }
    return got ? 0 : -1;
}

// Goes back over bytes that the buffer still holds.
bool rewind_buffer(io_stream &stream, uint32_t count) {
    if (count > stream.position || (count && !stream.buffer)) return false;
    stream.position -= count;
    stream.count += count;
    return true;
}

// Puts bytes behind those pushed back already.
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
    // Kept: all of the buffer becomes readable again, also what followed the bytes given back.
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
        drop_pushback(*self, rest); // Kept: the buffer's bytes stay although they were counted as skipped.
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
