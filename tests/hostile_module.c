/* SPDX-License-Identifier: MIT */
/*
 * A codec module that a file has taken over: what it tries is the file's first letter, with what follows, or the first pixel
 * of the picture that it writes. It ends with 42 if it gets anywhere.
 */
#define _GNU_SOURCE
#include "pictra/pictra.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum { got_through = 42, most_descriptors = 1024, most_forged = 1 << 20 };

static img_status validate(io_handle *stream) {
    (void)stream;
    return IMG_ST_OK;
}

/* Whether anything outside the process can be reached, or made into code. */
static int escapes(void) {
    char *const arguments[] = {(char *)"/bin/true", NULL};
    void *page = mmap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return open("escaped", O_WRONLY | O_CREAT, 0600) >= 0 || open("/etc/passwd", O_RDONLY) >= 0 ||
           unlink("precious") == 0 || socket(AF_INET, SOCK_STREAM, 0) >= 0 || kill(getppid(), 0) == 0 || fork() >= 0 ||
           execv(arguments[0], arguments) == 0 || page == MAP_FAILED || madvise(page, 4096, MADV_MERGEABLE) == 0 ||
           mprotect(page, 4096, PROT_READ | PROT_EXEC) == 0;
}

/* Whether it sees more than its file, its channel and its picture. */
static int sees_more(void) {
    int count = 0;
    for (int i = 0; i < most_descriptors; i++) count += lseek(i, 0, SEEK_CUR) >= 0 || errno != EBADF;
    return count != 3 || getenv("PATH") || getenv("HOME");
}

/* The memory of pictures is a file that is larger than any other here. */
static int is_memory(int descriptor) { return lseek(descriptor, 0, SEEK_END) > 32768; }

static int writes_to_its_file(void) {
    for (int i = 0; i < most_descriptors; i++)
        if (lseek(i, 0, SEEK_SET) == 0 && !is_memory(i) &&
            (write(i, "taken over", 10) > 0 ||
             mmap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, i, 0) != MAP_FAILED))
            return 1;
    return 0;
}

static void *volatile seen;

static img_status take_memory(void) {
    for (int blocks = 0; blocks < 4096; blocks++) { /* 4 GiB */
        void *block = malloc(1 << 20);
        if (!block) return IMG_ST_NOMEM;
        memset(block, 1, 1 << 20);
        seen = block; /* else a compiler may do without */
    }
    return got_through;
}

static void sleep_for_ever(void) {
    const struct timespec hour = {3600, 0};
    for (;;) nanosleep(&hour, NULL);
}

/* Sends the file's bytes as they are in the place of an answer, with every byte of its picture 255. close_after: then
 * closes its end. */
static void forge(io_handle *stream, int close_after) {
    static char answer[most_forged];
    uint32_t size = 0, got;
    while (size < most_forged && (got = stream->read(stream->self, answer + size, most_forged - size))) size += got;
    for (int i = 0; i < most_descriptors; i++) {
        void *pixels = is_memory(i) ? mmap(NULL, 32768, PROT_READ | PROT_WRITE, MAP_SHARED, i, 0) : MAP_FAILED;
        if (pixels != MAP_FAILED) memset(pixels, 255, 32768);
    }
    for (int i = 0; i < most_descriptors; i++) {
        uint32_t sent = 0;
        for (ssize_t now; sent < size && (now = send(i, answer + sent, size - sent, MSG_NOSIGNAL)) > 0;)
            sent += (uint32_t)now;
        if (sent && close_after) close(i);
    }
    sleep_for_ever();
}

static int64_t milliseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* Honest pictures of one pixel without end; slow ones take most of a second of processor time each. */
static img_status go_on(const img_decode_callouts *callouts, img_record *record, int slow) {
    static const img_format grey = FMT_G8;
    record->width = record->height = 1;
    record->flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
    callouts->choose_format(callouts->data, record, &grey, 1);
    record->format = grey;
    record->flags |= IMG_F_FORMAT;
    for (const int64_t start = milliseconds(); slow && milliseconds() < start + 700;) {
    }
    return callouts->setup(callouts->data, record, IMG_SETUP_TOPDOWN);
}

/* Works for ever, but tells how it gets on. */
static img_status work(const img_decode_callouts *callouts, img_record *record) {
    img_status status = IMG_ST_OK;
    while (!status) status = callouts->scanline(callouts->data, record, 0, 1, 0, 0);
    return status;
}

/* What both directions try. */
static img_status attempt(char letter) {
    volatile char *nowhere = NULL;
    switch (letter) {
    case 'e':
        return escapes() ? got_through : IMG_ST_BADFMT;
    case 'd':
        return sees_more() ? got_through : IMG_ST_BADFMT;
    case 'm':
        return take_memory();
    case 'c':
        *nowhere = letter;
        return got_through;
    case 'z':
        return 256; /* which the system would cut to 0, success */
    default:
        for (volatile int forever = 1; forever;) {
        }
        return got_through;
    }
}

static img_status decode(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **state) {
    static char letter;
    (void)state;
    if (!letter) stream->read(stream->self, &letter, 1);
    switch (letter) {
    case 'w':
        return writes_to_its_file() ? got_through : IMG_ST_BADFMT;
    case 'f':
        forge(stream, 0);
        return got_through;
    case 'q':
        forge(stream, 1);
        return got_through;
    case 'p':
        return work(callouts, record);
    case 'a':
    case 'l':
        return go_on(callouts, record, letter == 'l');
    default:
        return attempt(letter);
    }
}

/* Here the letter is the first pixel. */
static img_status encode(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state) {
    static const img_format grey = FMT_G8;
    char letter = 0;
    (void)state;
    if (callouts->choose_format(callouts->data, image, &grey, 1) != 0) return IMG_ST_NOCONV;
    image->format = grey;
    const img_status status = callouts->setup(callouts->data, image, IMG_SETUP_TOPDOWN);
    if (status) return status;
    if (image->flags & IMG_F_DIRECT)
        letter = *(const char *)image->data;
    else
        image->access(image->access_arg, 0, 0, 1, &letter);
    stream->write(stream->self, "half a picture", 14);
    return attempt(letter);
}

__attribute__((visibility("default"))) img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    const img_codec_funcs functions = {.decode_validate = validate, .decode_frame = decode, .encode_frame = encode};
    if (size < sizeof functions) return IMG_ST_BADFMT;
    *table = functions;
    return IMG_ST_OK;
}
