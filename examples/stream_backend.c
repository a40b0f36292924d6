/* SPDX-License-Identifier: MIT */
/* A stream backend: a picture that lies inside another file, such as an archive without compression.
 * Usage: stream_backend FILE OFFSET LENGTH */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <fcntl.h>
#include <pictra/backend.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

struct part {
    int fd;
    off_t at;
};

static uint32_t part_read(intptr_t handle, void *dst, uint32_t length) {
    struct part *part = (struct part *)handle;
    ssize_t got;
    if (!dst) return errno = EFAULT, 0; /* a stream that has no buffer yet passes none */
    got = pread(part->fd, dst, length, part->at);
    if (got < 0) return 0; /* errno tells */
    part->at += got;
    return (uint32_t)got;
}

/* Going to and fro is moving the place. The stream keeps within the limit. */
static int part_skip(intptr_t handle, uint32_t count) { return ((struct part *)handle)->at += count, 0; }
static int part_unskip(intptr_t handle, uint32_t count) { return ((struct part *)handle)->at -= count, 0; }
static int part_unread(intptr_t handle, const void *bytes, uint32_t count) {
    (void)bytes; /* the file still has them */
    return part_unskip(handle, count);
}

static void part_close(io_stream *stream) {
    struct part *part = (struct part *)stream->handle;
    close(part->fd);
    free(part);
}

/* The constructor: io_open(part_of_file, IO_READ, path, offset, length). */
static int part_of_file(io_stream *stream, va_list *args) {
    const char *path = va_arg(*args, const char *);
    const long offset = va_arg(*args, long);
    const uint32_t length = va_arg(*args, uint32_t);
    struct part *part;
    if (stream->mode != IO_READ) return errno = ENOTSUP, -1;
    part = malloc(sizeof *part);
    if (!part) return -1;
    part->at = offset;
    part->fd = open(path, O_RDONLY | O_CLOEXEC);
    if (part->fd < 0) return free(part), -1;

    stream->handle = (intptr_t)part;
    stream->buffer_size = 16384;
    stream->limit = length;
    stream->backend_read = part_read;
    stream->backend_skip = part_skip;
    stream->backend_unread = part_unread;
    stream->backend_unskip = part_unskip;
    stream->backend_close = part_close;
    return 0;
}

int main(int argc, char **argv) {
    img_lib_handle *lib = NULL;
    img_record image = {0};
    io_handle *stream;
    img_status status;

    if (argc != 4) return fprintf(stderr, "Usage: stream_backend FILE OFFSET LENGTH\n"), 2;
    stream = io_open(part_of_file, IO_READ, argv[1], atol(argv[2]), (uint32_t)atol(argv[3]));
    if (!stream) return perror(argv[1]), 1;
    status = img_lib_attach(&lib);
    if (status == IMG_ST_OK) status = img_load(lib, stream, NULL, &image);
    io_close(stream);
    if (status == IMG_ST_OK)
        printf("%u x %u pixels\n", (unsigned)image.width, (unsigned)image.height);
    else
        fprintf(stderr, "%s: status %u\n", argv[1], (unsigned)status);
    if (image.flags & IMG_F_DIRECT) free(image.data);
    img_lib_detach(lib);
    return status != IMG_ST_OK;
}
