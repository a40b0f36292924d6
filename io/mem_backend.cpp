// SPDX-License-Identifier: MIT
//
// Streams over the caller's memory: one area, or a chain of blocks. The memory serves as the stream's buffer.
#include "core/owned.h"
#include "pictra/backend.h"

#include <errno.h>

using namespace img;

namespace {

struct io_mem_cursor {
    io_mem_block *block; // null after the last one
    io_stream *owner;
};
static_assert(sizeof(io_mem_cursor) == 16);

io_mem_cursor *cursor_of(intptr_t handle) { return reinterpret_cast<io_mem_cursor *>(handle); }

void show_block(io_stream &stream, io_mem_block &block) {
    stream.buffer = block.bytes;
    stream.buffer_size = block.length;
    stream.count = block.length;
}

// Advances to the next block of the chain.
uint32_t io_mem_read(intptr_t handle, void *, uint32_t) {
    io_mem_cursor &cursor = *cursor_of(handle);
    if (cursor.block) cursor.block = cursor.block->next;
    if (!cursor.block) return 0;
    show_block(*cursor.owner, *cursor.block);
    cursor.owner->limit = cursor.block->length;
    return cursor.block->length;
}

// Kept: A memory stream accepts a new buffer size and limit, and keeps the old ones.
int io_mem_ctl(intptr_t, uint32_t code, void *) { return code == IO_CTL_SETBUF || code == IO_CTL_SETLIMIT ? 0 : -1; }

void io_mem_close(io_stream *stream) {
    free(cursor_of(stream->handle));
    stream->buffer = nullptr;
}

} // namespace

int IO_MEM(io_stream *stream, va_list *args) {
    const uint32_t length = va_arg(*args, uint32_t);
    if (stream->mode & IO_WRITE) {
        errno = ENOTSUP;
        return -1;
    }
    if (length) {
        stream->buffer = va_arg(*args, uint8_t *);
        stream->buffer_size = length;
        stream->count = length;
    } else {
        Owned<io_mem_cursor> cursor = allocate<io_mem_cursor>(1);
        if (!cursor) return -1;
        cursor->block = va_arg(*args, io_mem_block *);
        cursor->owner = stream;
        if (cursor->block) show_block(*stream, *cursor->block);
        stream->backend_read = io_mem_read;
        stream->handle = reinterpret_cast<intptr_t>(cursor.release());
    }
    stream->limit = 0; // Kept: A chain of blocks delivers its first block only.
    stream->backend_ctl = io_mem_ctl;
    stream->backend_close = io_mem_close;
    return 0;
}
