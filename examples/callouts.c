/* SPDX-License-Identifier: MIT */
/* Takes over steps of decoding: prints the share of dark, middle and light pixels of a picture of any size in the memory of
 * one row, and listens to what the file says beside its pixels.
 * Usage: callouts PICTURE [MOST_ROWS] */
#include <pictra/pictra.h>
#include <pictra/values.h>
#include <stdio.h>
#include <stdlib.h>

struct survey {
    uint64_t shades[3];
    uint32_t most_rows;
};

enum { STOPPED = 1000 }; /* a status of our own; it comes back from img_load_file */

/* Instead of storage the record gets this function, which sees each run of grey pixels. */
static int count_shades(void *arg, uint32_t x, uint32_t y, uint32_t count, void *scanline) {
    struct survey *survey = arg;
    const uint8_t *grey = scanline;
    (void)x, (void)y;
    for (uint32_t i = 0; i < count; i++) survey->shades[grey[i] * 3 / 256]++;
    return 0;
}

/* An index below nformats would take one of the codec's formats; any other means the record's, if it is set. */
static uint32_t want_grey(void *data, img_record *record, const img_format *formats, uint32_t nformats) {
    (void)data;
    printf("the codec offers %u formats, the first of %u bits\n", (unsigned)nformats,
           nformats ? (unsigned)(formats[0] & IMG_FMT_BPP_MASK) : 0);
    record->format = FMT_G8;
    record->flags |= IMG_F_FORMAT;
    return nformats;
}

/* The size is known now, and storage would be allocated next. */
static img_status bring_function(void *data, img_record *record, uint32_t setup_flags) {
    printf("%u x %u, rows %s\n", (unsigned)record->width, (unsigned)record->height,
           setup_flags & IMG_SETUP_TOPDOWN ? "from the top" : "in another order");
    record->access = count_shades;
    record->access_arg = data;
    record->flags |= IMG_F_ACCESS;
    return IMG_ST_OK;
}

static img_status watch(void *data, img_record *record, uintptr_t done, uintptr_t all, uintptr_t c, uintptr_t d) {
    const struct survey *survey = data;
    (void)record, (void)all, (void)c, (void)d;
    return done <= survey->most_rows ? (img_status)IMG_ST_OK : (img_status)STOPPED;
}

static img_status listen(void *data, img_record *record, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t d) {
    (void)data, (void)record, (void)size, (void)d;
    if (key == IMG_VALUE_DEPTH) printf("%u bits a sample in the file\n", (unsigned)*(const uint32_t *)value);
    return IMG_ST_OK; /* also for what is not known here */
}

int main(int argc, char **argv) {
    struct survey survey = {{0, 0, 0}, argc > 2 ? (uint32_t)atoi(argv[2]) : UINT32_MAX};
    const img_decode_callouts callouts = {
        .choose_format = want_grey, .setup = bring_function, .scanline = watch, .set_value = listen, .data = &survey};
    img_lib_handle *lib = NULL;
    img_record record = {0};
    img_status status;

    if (argc < 2) return fprintf(stderr, "Usage: callouts PICTURE [MOST_ROWS]\n"), 2;
    status = img_lib_attach(&lib);
    if (status == IMG_ST_OK) status = img_load_file(lib, argv[1], &callouts, &record);
    img_lib_detach(lib);
    if (status == STOPPED)
        printf("stopped after %u rows\n", (unsigned)survey.most_rows);
    else if (status != IMG_ST_OK)
        return fprintf(stderr, "%s: status %u\n", argv[1], (unsigned)status), 1;
    printf("dark %llu, middle %llu, light %llu\n", (unsigned long long)survey.shades[0],
           (unsigned long long)survey.shades[1], (unsigned long long)survey.shades[2]);
    return 0;
}
