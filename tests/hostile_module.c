/* SPDX-License-Identifier: MIT */
/* A codec module that a file has taken over: what it tries is the file's first letter. It ends with 42 if it gets anywhere. */
#define _GNU_SOURCE
#include "pictra/pictra.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static img_status validate(io_handle *stream) {
    (void)stream;
    return IMG_ST_OK;
}

/* Whether anything outside the process can be reached. */
static int escapes(void) {
    char *const arguments[] = {(char *)"/bin/true", NULL};
    return open("escaped", O_WRONLY | O_CREAT, 0600) >= 0 || open("/etc/passwd", O_RDONLY) >= 0 ||
           unlink("precious") == 0 || socket(AF_INET, SOCK_STREAM, 0) >= 0 || kill(getppid(), 0) == 0 || fork() >= 0 ||
           execv(arguments[0], arguments) == 0;
}

static void *volatile seen;

static img_status take_memory(void) {
    for (int blocks = 0; blocks < 4096; blocks++) { /* 4 GiB */
        void *block = malloc(1 << 20);
        if (!block) return IMG_ST_NOMEM;
        memset(block, 1, 1 << 20);
        seen = block; /* else a compiler may do without */
    }
    return 42;
}

static img_status decode(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **state) {
    char letter = 0;
    volatile char *nowhere = NULL;
    (void)callouts, (void)record, (void)state;
    stream->read(stream->self, &letter, 1);
    switch (letter) {
    case 'e':
        return escapes() ? 42 : IMG_ST_BADFMT;
    case 'm':
        return take_memory();
    case 'c':
        *nowhere = letter;
        return 42;
    case 'z':
        return 256; /* which the system would cut to 0, success */
    default:
        for (volatile int forever = 1; forever;) {
        }
        return 42;
    }
}

__attribute__((visibility("default"))) img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    const img_codec_funcs functions = {.decode_validate = validate, .decode_frame = decode};
    if (size < sizeof functions) return IMG_ST_BADFMT;
    *table = functions;
    return IMG_ST_OK;
}
