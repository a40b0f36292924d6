// SPDX-License-Identifier: MIT
//
// Asserts the layouts that separately built programs and modules rely on.
#include "core/registry.h"
#include "pictra/backend.h"

#include <stddef.h>

#define FIELD(type, member, offset) static_assert(offsetof(type, member) == (offset))

FIELD(img_record, data, 0);
FIELD(img_record, access, 0);
FIELD(img_record, stride, 8);
FIELD(img_record, access_arg, 8);
FIELD(img_record, width, 16);
FIELD(img_record, height, 20);
FIELD(img_record, format, 24);
FIELD(img_record, ncolors, 28);
FIELD(img_record, palette, 32);
FIELD(img_record, flags, 40);
FIELD(img_record, transparency, 44);
FIELD(img_record, transparency16, 44);
FIELD(img_record, transparency8, 44);
FIELD(img_record, user, 48);
static_assert(sizeof(img_record) == 56);

FIELD(img_codec_funcs, decode_validate, 0);
FIELD(img_codec_funcs, decode_begin, 8);
FIELD(img_codec_funcs, decode_frame, 16);
FIELD(img_codec_funcs, decode_finish, 24);
FIELD(img_codec_funcs, encode_begin, 32);
FIELD(img_codec_funcs, encode_frame, 40);
FIELD(img_codec_funcs, encode_finish, 48);
static_assert(sizeof(img_codec_funcs) == 56);

FIELD(img_decode_callouts, choose_format, 0);
FIELD(img_decode_callouts, setup, 8);
FIELD(img_decode_callouts, abort, 16);
FIELD(img_decode_callouts, scanline, 24);
FIELD(img_decode_callouts, set_palette, 32);
FIELD(img_decode_callouts, set_transparency, 40);
FIELD(img_decode_callouts, frame, 48);
FIELD(img_decode_callouts, set_value, 56);
FIELD(img_decode_callouts, data, 64);
static_assert(sizeof(img_decode_callouts) == 72);

FIELD(img_encode_callouts, choose_format, 0);
FIELD(img_encode_callouts, setup, 8);
FIELD(img_encode_callouts, abort, 16);
FIELD(img_encode_callouts, scanline, 24);
FIELD(img_encode_callouts, get_palette, 32);
FIELD(img_encode_callouts, get_transparency, 40);
FIELD(img_encode_callouts, frame, 48);
FIELD(img_encode_callouts, data, 56);
static_assert(sizeof(img_encode_callouts) == 64);

FIELD(io_handle, self, 0);
FIELD(io_handle, ctl, 8);
FIELD(io_handle, read, 16);
FIELD(io_handle, write, 16);
FIELD(io_handle, skip, 24);
FIELD(io_handle, seek, 24);
FIELD(io_handle, unread, 32);
FIELD(io_handle, read_back, 32);
FIELD(io_handle, unskip, 40);
static_assert(sizeof(io_handle) == 48);

FIELD(io_ctl_buf, data, 0);
FIELD(io_ctl_buf, length, 8);
FIELD(io_mem_block, next, 0);
FIELD(io_mem_block, length, 8);
FIELD(io_mem_block, bytes, 12);

FIELD(io_stream, handle, 0);
FIELD(io_stream, backend_ctl, 8);
FIELD(io_stream, backend_read, 16);
FIELD(io_stream, backend_skip, 24);
FIELD(io_stream, backend_unread, 32);
FIELD(io_stream, backend_unskip, 40);
FIELD(io_stream, mode, 48);
FIELD(io_stream, buffer, 56);
FIELD(io_stream, buffer_size, 64);
FIELD(io_stream, position, 68);
FIELD(io_stream, count, 72);
FIELD(io_stream, transferred, 76);
FIELD(io_stream, limit, 80);
FIELD(io_stream, backend_close, 88);
FIELD(io_stream, face, 96);
FIELD(io_stream, pushback, 144);
FIELD(io_stream, pushback_capacity, 152);
FIELD(io_stream, pushback_count, 156);
static_assert(sizeof(io_stream) == 160);

FIELD(img_codec, state, 0);
FIELD(img_codec, extensions, 8);
FIELD(img_codec, mime_types, 16);
FIELD(img_codec, path, 24);
FIELD(img_codec, module, 32);
FIELD(img_codec, funcs, 40);
FIELD(img_codec, next, 96);
static_assert(sizeof(img_codec) == 104);
