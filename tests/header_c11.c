/* SPDX-License-Identifier: MIT */
/* The public headers as a C11 program sees them: they compile alone, and the layouts are the ones modules rely on. */
#include "pictra/backend.h"
#include "pictra/codec.h"
#include "pictra/image.h"
#include "pictra/kit.h"
#include "pictra/pictra.h"
#include "pictra/routines.h"
#include "pictra/stream.h"
#include "pictra/values.h"

#include <assert.h>

static_assert(sizeof(img_record) == 56 && offsetof(img_record, transparency8) == 44, "record");
static_assert(offsetof(img_record, access) == 0 && offsetof(img_record, access_arg) == 8, "storage");
static_assert(offsetof(img_record, palette) == 32 && offsetof(img_record, user) == 48, "record");
static_assert(sizeof(img_codec_funcs) == 56 && offsetof(img_codec_funcs, encode_finish) == 48, "seven slots");
static_assert(sizeof(img_decode_callouts) == 72 && offsetof(img_decode_callouts, set_value) == 56, "nine slots");
static_assert(sizeof(img_encode_callouts) == 64 && offsetof(img_encode_callouts, frame) == 48, "eight slots");
static_assert(sizeof(io_handle) == 48 && offsetof(io_handle, unskip) == 40, "handle");
static_assert(sizeof(io_stream) == 160 && offsetof(io_stream, face) == 96, "stream");
static_assert(offsetof(io_mem_block, bytes) == 12, "the bytes follow the length");

/* Every operation has the type that its slot holds. */
img_decode_callouts none;
io_handle reading = {.self = 0,
                     .ctl = io_stream_ctl,
                     .read = io_stream_read,
                     .skip = io_stream_skip,
                     .unread = io_stream_unread,
                     .unskip = io_stream_unskip};
io_handle writing = {
    .ctl = io_stream_ctl, .write = io_ostream_write, .seek = io_ostream_seek, .read_back = io_ostream_read};
img_cvt_func routine = img_cvt_argb8888he_rgb565he;
