/* SPDX-License-Identifier: MIT */
/*
 * A program with functions of its own that are called like functions of the library: the library must not call them. The
 * addresses that the library returns are the ones that the program sees. Usage: own_names FILE
 */
#define _POSIX_C_SOURCE 200809L
#include "pictra/pictra.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Of another type than the library's, so the headers must not declare them here. */
#define OWN(name)                                                                                                      \
    __attribute__((visibility("default"))) void own_##name(void) __asm__(#name);                                       \
    void own_##name(void) {                                                                                            \
        fputs("the library called the program's " #name "\n", stderr);                                                 \
        abort();                                                                                                       \
    }
OWN(codec_init)
OWN(codec_release)
OWN(img_alloc)
OWN(img_avg_getfunc)
OWN(img_cfg_read)
OWN(img_codec_list)
OWN(img_codec_list_byext)
OWN(img_convert_data)
OWN(img_copy_getfunc)
OWN(img_decode_begin)
OWN(img_decode_finish)
OWN(img_decode_frame)
OWN(img_decode_validate)
OWN(img_dtransform_apply)
OWN(img_dtransform_create)
OWN(img_dtransform_free)
OWN(img_encode_begin)
OWN(img_encode_finish)
OWN(img_encode_frame)
OWN(img_expand_getfunc)
OWN(img_load_file)
OWN(img_resize_fs)
OWN(img_write)
OWN(imglog)
OWN(io_close)
OWN(io_open)
OWN(io_ostream_flush)
OWN(io_ostream_write)
OWN(io_stream_read)
OWN(IO_FD)

enum { SIDE = 4 };

static img_status accept(io_handle *stream) {
    (void)stream;
    return IMG_ST_OK;
}

static img_status decode(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **state) {
    const img_format format = FMT_PAL8;
    const uint32_t black = 0xff000000;
    uint8_t row[SIDE];
    (void)state;
    if (stream->read(stream->self, row, SIDE) != SIDE) return IMG_ST_DAMAGED;
    record->width = record->height = SIDE;
    record->ncolors = 1;
    record->flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
    callouts->choose_format(callouts->data, record, &format, 1);
    record->format = format;
    record->flags |= IMG_F_FORMAT;
    const img_status status = callouts->setup(callouts->data, record, IMG_SETUP_TOPDOWN);
    if (status != IMG_ST_OK) return status;
    callouts->set_palette(callouts->data, record, &black, FMT_ARGB8888HE);
    for (uint32_t y = 0; y < SIDE; y++) record->access(record->access_arg, 0, y, SIDE, row);
    return IMG_ST_OK;
}

static img_status encode(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state) {
    const img_format format = FMT_PAL8;
    (void)state;
    callouts->choose_format(callouts->data, image, &format, 1);
    const img_status status = callouts->setup(callouts->data, image, IMG_SETUP_TOPDOWN);
    if (status != IMG_ST_OK) return status;
    return stream->write(stream->self, image->data, SIDE) == SIDE ? IMG_ST_OK : IMG_ST_FILE;
}

static img_status codec(img_codec_funcs *table, size_t size) {
    (void)size;
    table->decode_validate = accept;
    table->decode_frame = decode;
    table->encode_frame = encode;
    return IMG_ST_OK;
}

static void must(int right, const char *what) {
    if (right) return;
    fprintf(stderr, "wrong: %s\n", what);
    exit(1);
}

int main(int count, char **arguments) {
    must(count == 2, "usage");
    img_lib_handle *library;
    setenv("PICTRA_CFGFILE", "/dev/null", 1);
    img_lib_attach(&library);
    must(img_codec_register(library, codec, "own", NULL) != NULL, "register");

    uint8_t pixels[SIDE] = {0};
    uint32_t palette = 0xff000000;
    img_record image;
    memset(&image, 0, sizeof image);
    image.data = pixels;
    image.stride = image.width = SIDE;
    image.height = 1;
    image.format = FMT_PAL8;
    image.palette = &palette;
    image.ncolors = 1;
    image.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT | IMG_F_PALETTE;
    must(img_write_file(library, arguments[1], NULL, &image) == IMG_ST_OK, "write");

    img_record loaded, turned;
    memset(&loaded, 0, sizeof loaded);
    memset(&turned, 0, sizeof turned);
    loaded.format = FMT_RGB888;
    loaded.width = loaded.height = 2 * SIDE;
    loaded.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
    must(img_load_resize_file(library, arguments[1], NULL, &loaded) == IMG_ST_OK, "load with resize");
    turned.format = FMT_RGB565HE;
    turned.flags = IMG_F_FORMAT;
    must(img_rotate_ortho(&loaded, &turned, IMG_ANGLE_90) == IMG_ST_OK, "rotate");
    free(loaded.data);
    free(turned.data);
    img_lib_detach(library);
    remove(arguments[1]);

    must(img_convert_getfunc(FMT_RGB888, FMT_RGB565HE) == img_cvt_rgb888_rgb565he, "address of a conversion");
    must(img_convert_getfunc(FMT_G8, FMT_G8) == img_cvt_copy8, "address of a copy");
    must(img_convert_getfunc(FMT_PAL4, FMT_PAL8) == img_cvt_pal4_pal8, "address of an unpacking");
    imglog_flags = 1; /* the one that the library reads */
    must(enable_output == 1 && imglog_verbose == 8, "variables");
    img_lib_attach(&library); /* logs, to standard error as well */
    img_lib_detach(library);
    return 0;
}
