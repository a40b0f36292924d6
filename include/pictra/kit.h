/* SPDX-License-Identifier: MIT */
/*
 * What an application needs around pictra and the core does not carry: libpictra-kit. C11 and C++17 or later; link
 * pictra-kit, which brings pictra.
 *
 * Results are img_status, as in pictra.h, whose words (borrowed, kept, given) are used here, too. Options are structs whose
 * first member is their size: set it to sizeof the struct and everything else that you do not need to 0. Members that a
 * later release adds are 0 for programs that were built before it. A null pointer to options stands for all zeros.
 *
 * There is no global state. Any number of threads may call at once, each with handles of its own.
 */
#ifndef PICTRA_KIT_H
#define PICTRA_KIT_H

#include "pictra.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Resampling ------------------------------------------------------------------------------------------------ */

/*
 * Scaling by separable convolution. A filter is as wide as a pixel of the result when the picture becomes smaller, so that
 * nothing finer than the result can hold remains (antialiasing), and as wide as a pixel of the source when it becomes larger.
 * Beyond the edges of the source its outermost pixels are repeated.
 *
 * Colours are weighted by their alpha: what is transparent leaves no rim. Palettes and colour keys are turned into colours
 * with alpha first. A flat picture stays flat, and one at its own size stays as it is. Results are the same on every CPU.
 */
enum {
    PICTRA_FILTER_LANCZOS3 = 0, /* three lobes; the sharpest */
    PICTRA_FILTER_NEAREST = 1,  /* the pixel at the centre, unchanged */
    PICTRA_FILTER_AREA = 2,     /* the mean of the area under the pixel */
    PICTRA_FILTER_BILINEAR = 3, /* triangle */
    PICTRA_FILTER_BICUBIC = 4   /* Catmull-Rom */
};

/* Flags of pictra_resample_options. */
enum {
    PICTRA_RESAMPLE_LINEAR = 0x1,     /* mix light, not stored values: pixels are taken as sRGB */
    PICTRA_RESAMPLE_BACKGROUND = 0x2, /* put the result on the background, so that it is opaque */
    PICTRA_RESAMPLE_UPWARD = 0x4      /* pictra_resampler_*: rows come from the bottom to the top, and leave so */
};

typedef struct pictra_resample_options {
    uint32_t size;       /* of this struct */
    uint32_t filter;     /* PICTRA_FILTER_* */
    uint32_t flags;      /* PICTRA_RESAMPLE_* */
    uint32_t background; /* FMT_ARGB8888HE; its alpha is ignored */
    /*
     * The part of the source that is scaled, in its pixels, from its top left corner; it must lie within the source. A width or
     * height of 0 is all from x or y on. Pixels around the part count as far as the filter reaches.
     */
    double x, y, width, height;
} pictra_resample_options;

/* A picture being scaled, row by row. */
typedef struct pictra_resampler pictra_resampler;

/*
 * Prepares scaling of an image of source's format and size to target's. Memory is some rows of the result: as many as the
 * filter is high in the source.
 *
 * source needs format, width and height; its storage is not used. It is kept until the resampler is freed: its palette and
 * its colour key are read when the first row comes, so both may be filled in after this call, as a load does.
 * target needs format, width, height and storage: a pixel buffer, or an access function that gets every row of the result
 * whole, from column 0, in order, as soon as it is complete. It is copied; the storage is used until the last row. The
 * colour key of the target is ignored.
 *
 * IMG_ST_OK      *resampler is given, to be released with pictra_resampler_free
 * IMG_ST_BADFMT  target's format is a palette format, or source's does not convert to it (img_convert_getfunc)
 * IMG_ST_NOMEM   no memory
 * IMG_ST_BADARG  a record lacks what it needs, a side is 0, the part of the source is not in it, or options are unknown
 */
IMG_API img_status pictra_resampler_create(const img_record *source, const img_record *target,
                                           const pictra_resample_options *options, pictra_resampler **resampler);

/*
 * Takes the next row of the source: width pixels in its format, borrowed. Rows of the result that are complete with it are
 * stored or handed over before it returns.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADARG  all rows were taken before, or indices came without a palette
 */
IMG_API img_status pictra_resampler_row(pictra_resampler *resampler, const void *pixels);

/*
 * The same as an access function (img_access_func): resampler is the access_arg of a record that is the target of a load.
 * Rows must come in order; they may come in runs from left to right. Whatever is wrong is kept for pictra_resampler_end.
 */
IMG_API int pictra_resampler_access(void *resampler, uint32_t x, uint32_t y, uint32_t count, void *scanline);

/*
 * Says whether the whole result was made.
 *
 * IMG_ST_OK      it was
 * IMG_ST_BADARG  rows are missing, came out of order, or were refused
 */
IMG_API img_status pictra_resampler_end(const pictra_resampler *resampler);

/* Releases a resampler. Null is ignored. */
IMG_API void pictra_resampler_free(pictra_resampler *resampler);

/*
 * Scales an image into another record. What target lacks of format, width and height is source's, a palette excepted: then it
 * is FMT_ARGB8888HE where entries or pixels may be transparent, else FMT_RGB888. Storage that target lacks is allocated and
 * given to the caller; after a failure it has none that it did not have before. source is borrowed; its access function, if
 * that is its storage, is asked for each row once, whole, from the top. The buffers must not overlap. PICTRA_RESAMPLE_UPWARD
 * is refused. Results as for pictra_resampler_create.
 */
IMG_API img_status pictra_resample(const img_record *source, img_record *target,
                                   const pictra_resample_options *options);

/*
 * Loads an image at another size, decoding, scaling and handing over row by row in the calling thread; a codec that does not
 * deliver rows in order loads the whole picture first. Unlike img_load_resize_file it leaves other loads of the process alone.
 *
 * target and its storage are as for pictra_resample; a format that it lacks is the codec's first, FMT_ARGB8888HE for indices.
 * Of its width and height, one that is missing follows the other in the picture's proportions. IMG_F_WANT_ALPHA is passed on.
 * callouts may be null. choose_format of the caller sees target, with the picture's width and height where it lacks its own, and
 * may set them and the format; then the codec is asked to decode at a size that is twice as large, if it can. setup,
 * set_palette, set_transparency, frame and abort see the record of the load, set_value sees target. options->x, y, width
 * and height are in pixels of the picture as the codec announces it. PICTRA_RESAMPLE_UPWARD is refused.
 *
 * Results are those of img_load_file and pictra_resample. After a failure target has no storage that it did not have before.
 */
IMG_API img_status pictra_load_resampled_file(img_lib_handle *handle, const char *path,
                                              const img_decode_callouts *callouts, img_record *target,
                                              const pictra_resample_options *options);

/* The same from a stream, which stays the caller's. */
IMG_API img_status pictra_load_resampled(img_lib_handle *handle, io_handle *stream, const img_decode_callouts *callouts,
                                         img_record *target, const pictra_resample_options *options);

#ifdef __cplusplus
}
#endif

#endif
