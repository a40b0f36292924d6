/* SPDX-License-Identifier: MIT */
/*
 * Streams: buffered bytes over interchangeable backends, handed to codecs. Included by pictra.h; backend.h adds the
 * stream record, for authors of backends. A stream is used by one thread at a time. All lengths are in bytes.
 */
#ifndef PICTRA_STREAM_H
#define PICTRA_STREAM_H

#include "image.h"

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Streams -------------------------------------------------------------------------------------------------- */

/* A buffered byte stream over a backend. Its record is private but for backend authors (backend.h). */
typedef struct io_stream io_stream;

/* Modes of io_open. */
enum { IO_READ = 1, IO_WRITE = 2 };

/* Control codes of ctl and io_stream_ctl. */
enum {
    IO_CTL_SETBUF = 1,   /* arg: uint32_t * with the new buffer size; receives the old one if they differ */
    IO_CTL_SETLIMIT = 2, /* arg: the limit itself as a value: bytes that may still be moved; once, before any were */
    IO_CTL_GETBUF = 3 /* reading; arg: io_ctl_buf *, receives bytes in place, valid until the next call; 0 at the end */
};

typedef struct io_ctl_buf {
    uint8_t *data; /* borrowed from the stream */
    uint32_t length;
} io_ctl_buf;

/*
 * A stream as io_open returns it and codecs receive it. Every operation takes self as its first argument:
 * h->read(h->self, buffer, 512). In each union the first name is for streams opened with IO_READ, the second for
 * IO_WRITE. The slots hold the functions io_stream_* and io_ostream_* below.
 */
typedef struct io_handle {
    io_stream *self;
    int (*ctl)(io_stream *self, uint32_t code, void *arg);
    union {
        uint32_t (*read)(io_stream *self, void *dst, uint32_t length);
        uint32_t (*write)(io_stream *self, const void *src, uint32_t length);
    };
    union {
        int (*skip)(io_stream *self, uint32_t count);
        int64_t (*seek)(io_stream *self, int32_t offset, int whence);
    };
    union {
        int (*unread)(io_stream *self, const void *bytes, uint32_t count);
        uint32_t (*read_back)(io_stream *self, void *dst, uint32_t length);
    };
    int (*unskip)(io_stream *self, uint32_t count); /* null for IO_WRITE */
} io_handle;

/*
 * Prepares a new stream for one kind of source or sink, and takes its own arguments from args. Returns 0, or -1 with
 * errno set; io_open then fails.
 */
typedef int io_backend_ctor(io_stream *stream, va_list *args);

/*
 * A backend over an open file descriptor. Argument: int fd. The descriptor stays the caller's and is not closed. A
 * seekable one may be read to the size that the file has at this moment, at most 4 GiB - 1 bytes ahead. A call that a
 * signal interrupts is made again, and a short write is continued until a call moves nothing.
 */
IMG_API io_backend_ctor IO_FD;

/*
 * A backend over memory, for reading only (IO_WRITE: ENOTSUP). Arguments: uint32_t length and the address of that many
 * bytes, or 0 and the address of an io_mem_block. The memory is kept until io_close and stays the caller's. A chain
 * delivers its first block only, because a memory stream never asks its backend for more.
 */
IMG_API io_backend_ctor IO_MEM;

/* One block of a chain in memory. The bytes follow the length directly, as many as it says. */
typedef struct io_mem_block {
    struct io_mem_block *next; /* null ends the chain */
    uint32_t length;
    uint8_t bytes[4]; /* the first of them */
} io_mem_block;

/*
 * Opens a stream over the backend that ctor makes from the arguments after mode, for instance
 * io_open(IO_FD, IO_READ, fd). The stream is the caller's until io_close. Null on failure: EINVAL for a null ctor or
 * another mode, else what calloc or the backend left in errno.
 */
IMG_API io_handle *io_open(io_backend_ctor *ctor, uint32_t mode, ...);

/* Flushes (the result is not inspected), lets the backend close, and frees the stream. Null is ignored. */
IMG_API void io_close(io_handle *handle);

/*
 * Reads up to length bytes: those pushed back, those in the buffer, then what one call of the backend delivers. A short
 * count means that the backend delivered less, the limit, or the end. EBADF and 0 for a stream opened for writing.
 */
IMG_API uint32_t io_stream_read(io_stream *self, void *dst, uint32_t length);

/* Skips count bytes. 0, or -1 if the limit or the data ends before that. EBADF for a stream opened for writing. */
IMG_API int io_stream_skip(io_stream *self, uint32_t count);

/*
 * Gives back the count bytes that were read last. bytes is borrowed. 0, or -1 if that is more than was read, when out
 * of memory, or if the backend refuses. EBADF for a stream opened for writing.
 *
 * Give back what one read of less than the buffer size delivered, before anything else is done: the stream then goes
 * back in its buffer. After a skip or a larger read it would go back over older bytes. If the backend cannot take bytes
 * back, the stream keeps a copy; if only part of the bytes is still in the buffer, everything that was consumed from
 * the buffer is then delivered again after them.
 */
IMG_API int io_stream_unread(io_stream *self, const void *bytes, uint32_t count);

/*
 * Goes back over count bytes without passing them, within the limits of io_stream_unread. Unless the buffer suffices,
 * bytes that were pushed back are lost and the backend must support it. 0, or -1 if it does not or refuses. The mode of
 * the stream is not checked: on a stream opened for writing it takes back bytes that wait in the buffer.
 */
IMG_API int io_stream_unskip(io_stream *self, uint32_t count);

/*
 * Writes length bytes, through the buffer if they fit. Returns how many were accepted; fewer mean that the backend or
 * the limit took no more. EBADF and 0 for a stream opened for reading.
 */
IMG_API uint32_t io_ostream_write(io_stream *self, const void *src, uint32_t length);

/*
 * Flushes and moves the backend's position, offset and whence as for lseek. Returns the backend's result, or -1 if the
 * flush or the seek failed. EBADF for a stream opened for reading, ESPIPE if the backend cannot seek.
 */
IMG_API int64_t io_ostream_seek(io_stream *self, int32_t offset, int whence);

/*
 * Flushes, then calls the backend's *write* operation with (dst, length): it does not read. It exists for backends that
 * give their write operation that meaning. Returns the operation's result, or 0 if the flush failed. EBADF and 0 for a
 * stream opened for reading.
 */
IMG_API uint32_t io_ostream_read(io_stream *self, void *dst, uint32_t length);

/*
 * Hands the bytes that wait in the buffer to the backend. Returns 0, or -1 with EFBIG when the backend or the limit did
 * not take all of them (the rest stays buffered) and when there is no buffer yet although bytes count as consumed.
 */
IMG_API int io_ostream_flush(io_stream *self);

/*
 * Runs a control code (IO_CTL_*). 0 or -1: EPERM for a second limit, EINVAL for an unknown code, the backend's errno
 * for a read that failed. Do not shrink the buffer of a reading stream below what was consumed: it is then filled
 * again.
 */
IMG_API int io_stream_ctl(io_stream *self, uint32_t code, void *arg);

#ifdef __cplusplus
}
#endif

#endif
