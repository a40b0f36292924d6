/* SPDX-License-Identifier: MIT */
/*
 * The conversion routines by name: img_cvt_<source>_<destination>, he for host and oe for the other byte order.
 * img_convert_getfunc chooses among them; a program that knows its formats may call one directly.
 *
 * Channels widen by repeating their top bits, narrow by dropping low bits. Alpha of one bit is that of eight bits by
 * its top bit. A source without alpha, the X routines' among them, gives opaque pixels, also in a destination that
 * ignores its alpha field.
 */
#ifndef PICTRA_ROUTINES_H
#define PICTRA_ROUTINES_H

#include "image.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Converts count pixels. src and dst may be the same address: runs that grow are converted from the last pixel to the
 * first. Other overlaps are not allowed. A count of 0 does nothing, but img_cvt_pal1_pal8 and img_cvt_pal4_pal8 must
 * not be called with it. All routines of this section are pure functions of their arguments: any thread may call them.
 */
typedef void img_cvt_routine(const void *src, void *dst, uint32_t count);
typedef img_cvt_routine *img_cvt_func;

/* To FMT_G8: (77 R + 151 G + 28 B) >> 8, on the fields as they are for 16 bits; ABGR sources count green only. */
IMG_API img_cvt_routine img_cvt_argb1555he_g8, img_cvt_argb1555oe_g8, img_cvt_rgb565he_g8, img_cvt_rgb565oe_g8,
    img_cvt_bgr888_g8, img_cvt_rgb888_g8, img_cvt_argb8888he_g8, img_cvt_argb8888oe_g8, img_cvt_abgr8888he_g8,
    img_cvt_abgr8888oe_g8;

/* To FMT_ARGB1555HE and FMT_XRGB1555HE. */
IMG_API img_cvt_routine img_cvt_g8_argb1555he, img_cvt_xrgb1555he_argb1555he, img_cvt_xrgb1555oe_argb1555he,
    img_cvt_rgb565he_argb1555he, img_cvt_rgb565oe_argb1555he, img_cvt_bgr888_argb1555he, img_cvt_rgb888_argb1555he,
    img_cvt_xrgb8888he_argb1555he, img_cvt_xrgb8888oe_argb1555he, img_cvt_argb8888he_argb1555he,
    img_cvt_argb8888oe_argb1555he, img_cvt_xbgr8888he_argb1555he, img_cvt_xbgr8888oe_argb1555he,
    img_cvt_abgr8888he_argb1555he, img_cvt_abgr8888oe_argb1555he;

/* To FMT_ARGB1555OE and FMT_XRGB1555OE. */
IMG_API img_cvt_routine img_cvt_g8_argb1555oe, img_cvt_xrgb1555he_argb1555oe, img_cvt_xrgb1555oe_argb1555oe,
    img_cvt_rgb565he_argb1555oe, img_cvt_rgb565oe_argb1555oe, img_cvt_bgr888_argb1555oe, img_cvt_rgb888_argb1555oe,
    img_cvt_xrgb8888he_argb1555oe, img_cvt_xrgb8888oe_argb1555oe, img_cvt_argb8888he_argb1555oe,
    img_cvt_argb8888oe_argb1555oe, img_cvt_xbgr8888he_argb1555oe, img_cvt_xbgr8888oe_argb1555oe,
    img_cvt_abgr8888he_argb1555oe, img_cvt_abgr8888oe_argb1555oe;

/* To FMT_RGB565HE. */
IMG_API img_cvt_routine img_cvt_g8_rgb565he, img_cvt_argb1555he_rgb565he, img_cvt_argb1555oe_rgb565he,
    img_cvt_bgr888_rgb565he, img_cvt_rgb888_rgb565he, img_cvt_argb8888he_rgb565he, img_cvt_argb8888oe_rgb565he,
    img_cvt_abgr8888he_rgb565he, img_cvt_abgr8888oe_rgb565he;

/* To FMT_RGB565OE. */
IMG_API img_cvt_routine img_cvt_g8_rgb565oe, img_cvt_argb1555he_rgb565oe, img_cvt_argb1555oe_rgb565oe,
    img_cvt_bgr888_rgb565oe, img_cvt_rgb888_rgb565oe, img_cvt_argb8888he_rgb565oe, img_cvt_argb8888oe_rgb565oe,
    img_cvt_abgr8888he_rgb565oe, img_cvt_abgr8888oe_rgb565oe;

/* To FMT_BGR888. */
IMG_API img_cvt_routine img_cvt_g8_bgr888, img_cvt_argb1555he_bgr888, img_cvt_argb1555oe_bgr888,
    img_cvt_rgb565he_bgr888, img_cvt_rgb565oe_bgr888, img_cvt_argb8888he_bgr888, img_cvt_argb8888oe_bgr888,
    img_cvt_abgr8888he_bgr888, img_cvt_abgr8888oe_bgr888;

/* To FMT_RGB888. */
IMG_API img_cvt_routine img_cvt_g8_rgb888, img_cvt_argb1555he_rgb888, img_cvt_argb1555oe_rgb888,
    img_cvt_rgb565he_rgb888, img_cvt_rgb565oe_rgb888, img_cvt_argb8888he_rgb888, img_cvt_argb8888oe_rgb888,
    img_cvt_abgr8888he_rgb888, img_cvt_abgr8888oe_rgb888;

/* To FMT_ARGB8888HE and FMT_XRGB8888HE. */
IMG_API img_cvt_routine img_cvt_g8_argb8888he, img_cvt_xrgb1555he_argb8888he, img_cvt_xrgb1555oe_argb8888he,
    img_cvt_argb1555he_argb8888he, img_cvt_argb1555oe_argb8888he, img_cvt_rgb565he_argb8888he,
    img_cvt_rgb565oe_argb8888he, img_cvt_bgr888_argb8888he, img_cvt_rgb888_argb8888he, img_cvt_xrgb8888oe_argb8888he,
    img_cvt_xbgr8888he_argb8888he, img_cvt_xbgr8888oe_argb8888he, img_cvt_abgr8888he_argb8888he,
    img_cvt_abgr8888oe_argb8888he;

/* To FMT_ARGB8888OE and FMT_XRGB8888OE. */
IMG_API img_cvt_routine img_cvt_g8_argb8888oe, img_cvt_xrgb1555he_argb8888oe, img_cvt_xrgb1555oe_argb8888oe,
    img_cvt_argb1555he_argb8888oe, img_cvt_argb1555oe_argb8888oe, img_cvt_rgb565he_argb8888oe,
    img_cvt_rgb565oe_argb8888oe, img_cvt_bgr888_argb8888oe, img_cvt_rgb888_argb8888oe, img_cvt_xrgb8888he_argb8888oe,
    img_cvt_xbgr8888he_argb8888oe, img_cvt_xbgr8888oe_argb8888oe, img_cvt_abgr8888he_argb8888oe,
    img_cvt_abgr8888oe_argb8888oe;

/* To FMT_ABGR8888HE and FMT_XBGR8888HE. */
IMG_API img_cvt_routine img_cvt_g8_abgr8888he, img_cvt_xrgb1555he_abgr8888he, img_cvt_xrgb1555oe_abgr8888he,
    img_cvt_argb1555he_abgr8888he, img_cvt_argb1555oe_abgr8888he, img_cvt_rgb565he_abgr8888he,
    img_cvt_rgb565oe_abgr8888he, img_cvt_bgr888_abgr8888he, img_cvt_rgb888_abgr8888he, img_cvt_xrgb8888he_abgr8888he,
    img_cvt_xrgb8888oe_abgr8888he, img_cvt_argb8888he_abgr8888he, img_cvt_argb8888oe_abgr8888he,
    img_cvt_xbgr8888oe_abgr8888he;

/* To FMT_ABGR8888OE and FMT_XBGR8888OE. */
IMG_API img_cvt_routine img_cvt_g8_abgr8888oe, img_cvt_xrgb1555he_abgr8888oe, img_cvt_xrgb1555oe_abgr8888oe,
    img_cvt_argb1555he_abgr8888oe, img_cvt_argb1555oe_abgr8888oe, img_cvt_rgb565he_abgr8888oe,
    img_cvt_rgb565oe_abgr8888oe, img_cvt_bgr888_abgr8888oe, img_cvt_rgb888_abgr8888oe, img_cvt_xrgb8888he_abgr8888oe,
    img_cvt_xrgb8888oe_abgr8888oe, img_cvt_argb8888he_abgr8888oe, img_cvt_argb8888oe_abgr8888oe,
    img_cvt_xbgr8888he_abgr8888oe;

/* To FMT_A8, the alpha of the source; an ABGR source is served by the ARGB routine of its order. */
IMG_API img_cvt_routine img_cvt_argb1555he_a8, img_cvt_argb1555oe_a8, img_cvt_argb8888he_a8, img_cvt_argb8888oe_a8;

/* Palette indices unpacked to FMT_PAL8. The count must not be 0. */
IMG_API img_cvt_routine img_cvt_pal1_pal8, img_cvt_pal4_pal8;

/* Copies pixels of 8 to 32 bits. Nothing happens when source and destination are one. */
IMG_API img_cvt_routine img_cvt_copy8, img_cvt_copy16, img_cvt_copy24, img_cvt_copy32;

/* Reverses the bytes of each pixel of 16 to 32 bits. */
IMG_API img_cvt_routine img_cvt_swab16, img_cvt_swab24, img_cvt_swab32;

/* Sets the top, or the bottom, byte of each 32-bit word to 0xff: opaque alpha in host order, or in the other order. */
IMG_API img_cvt_routine img_cvt_msb32, img_cvt_lsb32;

#ifdef __cplusplus
}
#endif

#endif
