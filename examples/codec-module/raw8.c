/* SPDX-License-Identifier: MIT */
/* A codec module: grey pictures of 8 bits behind a header of "RAW8", width and height, big-endian. Built with
 * cc -shared -fPIC raw8.c -o raw8.so, and listed in img.conf. docs/codec-modules.md explains every step. */
#include <pictra/pictra.h>
#include <stdlib.h>
#include <string.h>

enum { NOT_OURS = IMG_ST_RESERVED1, DAMAGED = IMG_ST_RESERVED4, OVER_LIMIT = IMG_ST_RESERVED10, HEADER = 12 };
static const img_format offer[] = {FMT_G8};

static uint32_t read_up_to(io_handle *s, uint8_t *dst, uint32_t length) { /* reads may be short */
    uint32_t total = 0, got;
    while (total < length && (got = s->read(s->self, dst + total, length - total))) total += got;
    return total;
}

static uint32_t number(const uint8_t *p) {
    return (uint32_t)p[0] << 24 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 8 | p[3];
}

static img_status validate(io_handle *s) {
    uint8_t head[4];
    uint32_t n = read_up_to(s, head, sizeof head);
    if (n && s->unread(s->self, head, n)) return IMG_ST_NOMEM;
    return n == 4 && memcmp(head, "RAW8", 4) == 0 ? IMG_ST_OK : NOT_OURS;
}

static img_status decode(io_handle *s, const img_decode_callouts *call, img_record *r, void **state) {
    uint8_t head[HEADER], *line = NULL;
    (void)state;
    if (read_up_to(s, head, HEADER) < HEADER || memcmp(head, "RAW8", 4)) return NOT_OURS;
    const uint32_t width = number(head + 4), height = number(head + 8);
    if (!width || !height) return DAMAGED;
    if (width > 1000000 || height > 1000000 || (uint64_t)width * height > 1 << 28) return OVER_LIMIT;

    r->flags = (r->flags & ~(img_flags)(IMG_F_TRANSP | IMG_F_PALETTE | IMG_F_PAL_ALPHA)) | IMG_F_WIDTH | IMG_F_HEIGHT;
    r->width = width, r->height = height, r->ncolors = 0;
    if (call->choose_format(call->data, r, offer, 1) >= 1) return IMG_ST_NOCONV;
    r->format = offer[0], r->flags |= IMG_F_FORMAT;
    r->width = width, r->height = height; /* whatever size the caller wished for */
    img_status status = call->setup(call->data, r, IMG_SETUP_TOPDOWN);
    if (!status && !(r->flags & IMG_F_DIRECT) && !(line = malloc(width))) status = IMG_ST_NOMEM;
    for (uint32_t y = 0; !status && y < height; y++) {
        uint8_t *row = line ? line : (uint8_t *)r->data + (size_t)y * r->stride;
        if (read_up_to(s, row, width) < width)
            status = DAMAGED;
        else if (line)
            r->access(r->access_arg, 0, y, width, row);
        if (!status && call->scanline) status = call->scanline(call->data, r, y + 1, height, 0, 0);
    }
    free(line);
    return status;
}

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    if (size < sizeof *table) return IMG_ST_NOTSUP;
    memset(table, 0, sizeof *table); /* what stays null is not implemented: this module does not write */
    table->decode_validate = validate;
    table->decode_frame = decode;
    return IMG_ST_OK;
}
