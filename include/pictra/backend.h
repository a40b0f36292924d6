/* SPDX-License-Identifier: MIT */
/*
 * The stream record, for authors of stream backends. Callers and codecs use io_handle (pictra.h) and never need this.
 *
 * A backend is a constructor: a function of the type io_backend_ctor that io_open calls with a new record. The record
 * is zero except for mode and for limit, which is 0xFFFFFFFF (none). The constructor takes its arguments from the list
 * and fills handle, the operations of the stream's mode, and buffer_size; 0 there means unbuffered. If it fails, it
 * releases what it acquired: the record is freed without a call of backend_close. Operations run on the thread that
 * uses the stream.
 *
 * A read or write operation moves at most length bytes and returns how many it moved. It must refuse a null address, as
 * read() and write() do: IO_CTL_GETBUF passes one if the buffer was not allocated yet. An error sets errno and returns
 * what was moved, 0 if nothing; the end of the data leaves errno alone. The stream takes a short count for the end or
 * an error and does not call again, so an operation that a signal interrupts is for the backend to repeat.
 */
#ifndef PICTRA_BACKEND_H
#define PICTRA_BACKEND_H

#include "pictra.h"

#ifdef __cplusplus
extern "C" {
#endif

struct io_stream {
    intptr_t handle; /* the backend's own value, handed to each of its operations */

    /* Null, or asked first by io_stream_ctl: 0 means handled, and nothing else is done. */
    int (*backend_ctl)(intptr_t handle, uint32_t code, void *arg);
    /* As in io_handle: the first name is for IO_READ, the second for IO_WRITE. Only these operations are required. */
    union {
        uint32_t (*backend_read)(intptr_t handle, void *dst, uint32_t length); /* 0 at the end or on an error */
        uint32_t (*backend_write)(intptr_t handle, const void *src, uint32_t length);
    };
    union {
        int (*backend_skip)(intptr_t handle, uint32_t count);
        int64_t (*backend_seek)(intptr_t handle, int32_t offset, int whence);
    };
    union {
        int (*backend_unread)(intptr_t handle, const void *bytes, uint32_t count);
        uint32_t (*backend_read_back)(intptr_t handle, void *dst, uint32_t length); /* never called by the stream */
    };
    int (*backend_unskip)(intptr_t handle, uint32_t count);

    uint32_t mode;   /* IO_READ or IO_WRITE */
    uint8_t *buffer; /* from malloc, allocated when first needed, or the backend's own, which its close sets to null */
    uint32_t buffer_size; /* bytes that the buffer has, or will have */
    uint32_t position;    /* reading: bytes of the buffer consumed; writing: bytes waiting in it */
    uint32_t count;       /* reading: bytes at buffer + position to be consumed; writing: room after position */
    uint32_t transferred; /* bytes moved to or from the backend, modulo 2^32 */
    uint32_t limit;       /* bytes that may still be moved; 0xFFFFFFFF for no limit */
    void (*backend_close)(io_stream *stream); /* null, or called by io_close before the buffer is freed */

    io_handle face; /* filled by io_open */

    uint8_t *pushback; /* bytes given back that the backend could not take; delivered before the buffer */
    uint32_t pushback_capacity;
    uint32_t pushback_count;
};

#ifdef __cplusplus
}
#endif

#endif
