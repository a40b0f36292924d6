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
 * At the edges of the source it is cut, and what is left of it counts for all.
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

/* ---- Fitting --------------------------------------------------------------------------------------------------- */

/* How a picture and a box become a size. */
enum {
    PICTRA_FIT_INSIDE = 0, /* the whole picture, as large as the box holds */
    PICTRA_FIT_FILL = 1,   /* the whole box, showing as much of the picture's middle as there is room for */
    PICTRA_FIT_STRETCH = 2 /* the whole picture in the whole box, whatever becomes of its proportions */
};

enum { PICTRA_FIT_ENLARGE = 0x1 }; /* flag: results may be larger than the picture, which they otherwise never are */

typedef struct pictra_fit_options {
    uint32_t size; /* of this struct */
    uint32_t mode; /* PICTRA_FIT_* */
    uint32_t flags;
    uint32_t
        orientation; /* 1 to 8 as in EXIF: how the picture will be turned; from 5 on its sides are exchanged. 0 is 1 */
    uint32_t width, height; /* of the box, for the picture as it is seen; a 0 is no limit, for PICTRA_FIT_INSIDE only */
} pictra_fit_options;

/* What comes of it, for the picture as it is stored, that is, before it is turned. */
typedef struct pictra_fitted {
    uint32_t width, height;               /* to scale to */
    double x, y, part_width, part_height; /* what to scale, for pictra_resample_options */
} pictra_fitted;

/*
 * Fits a picture of width x height. Sides that follow the other are rounded to the nearest whole number, halves up, and are at
 * least 1. PICTRA_FIT_FILL that may not enlarge keeps the proportions of the box and makes it smaller.
 *
 * IMG_ST_OK      *fitted is filled
 * IMG_ST_BADARG  a side is 0 or would be too large, or options are unknown
 */
IMG_API img_status pictra_fit(uint32_t width, uint32_t height, const pictra_fit_options *options,
                              pictra_fitted *fitted);

/* ---- Colour ---------------------------------------------------------------------------------------------------- */

/* How colours that sRGB does not have are brought into it. */
enum {
    PICTRA_INTENT_PERCEPTUAL = 0, /* as the maker of the profile thought best */
    PICTRA_INTENT_RELATIVE = 1    /* those that sRGB has stay exact */
};

/* Flags of pictra_colour_options. */
enum {
    PICTRA_COLOUR_BLACK_POINT = 0x1, /* the darkest that the profile has becomes black */
    PICTRA_COLOUR_FAST =
        0x2 /* five times as fast for CMYK, profiles with tables and samples of 16 bits, and off by up to
                                a dozen levels where sRGB does not have a colour */
};

typedef struct pictra_colour_options {
    uint32_t size;   /* of this struct */
    uint32_t intent; /* PICTRA_INTENT_* */
    uint32_t flags;
} pictra_colour_options;

/* Samples as they are in a file, the channels of the profile's space in its order: grey; red, green, blue; CMYK. */
typedef struct pictra_samples {
    uint32_t size;  /* of this struct */
    uint32_t bits;  /* of a sample: 8, or 16 in host byte order */
    uint32_t extra; /* samples of a pixel after its colour, which are passed over; at most 7 */
    uint32_t flags;
} pictra_samples;

enum { PICTRA_SAMPLES_INVERTED = 0x1 }; /* flag: the highest value is no ink, as CMYK is stored in JPEG */

/*
 * Conversion from the space of a colour profile to sRGB. It keeps what it has worked out, so keep it for pictures of the
 * same profile; it serves one thread at a time.
 */
typedef struct pictra_colour pictra_colour;

/*
 * Makes a conversion from a profile (ISO 15076-1) of size bytes, which is borrowed and may be anything: one of up to 4 MiB
 * takes some ten milliseconds and 64 MiB at most.
 *
 * IMG_ST_OK       *colour is given, to be released with pictra_colour_free
 * IMG_ST_DAMAGED  it is no profile, or a damaged one
 * IMG_ST_BADFMT   it is not for grey, RGB or CMYK pictures, or of a later major version than 4
 * IMG_ST_NOMEM    no memory
 * IMG_ST_LIMIT    it is larger than 4 MiB
 * IMG_ST_BADARG   options are unknown
 * IMG_ST_NOTSUP   the kit was built without colour
 */
IMG_API img_status pictra_colour_create(const void *icc, size_t size, const pictra_colour_options *options,
                                        pictra_colour **colour);

/* Releases a conversion. Null is ignored. */
IMG_API void pictra_colour_free(pictra_colour *colour);

/* The channels of the profile's space: 1 for grey, 3 for RGB, 4 for CMYK. */
IMG_API uint32_t pictra_colour_channels(const pictra_colour *colour);

/* 1 if the profile is sRGB, or so near that every colour stays within a level: converting changes nothing then. */
IMG_API uint32_t pictra_colour_is_srgb(const pictra_colour *colour);

/* What the profile calls itself, UTF-8 for people without control characters, cut to size bytes with the zero after it. */
IMG_API void pictra_colour_name(pictra_colour *colour, char *text, size_t size);

/*
 * Converts count pixels of a direct format with 8 bits a channel or fewer, of a grey or RGB profile. dst may be src. Alpha
 * stays. Grey pixels of an RGB profile stay grey; colours of a grey profile are taken channel by channel.
 *
 * IMG_ST_OK       done
 * IMG_ST_BADFMT   indices, alpha alone, or a CMYK profile
 * IMG_ST_DAMAGED  the profile turns out to be of no use
 * IMG_ST_NOMEM    no memory
 */
IMG_API img_status pictra_colour_convert(pictra_colour *colour, img_format format, const void *src, void *dst,
                                         uint32_t count);

/*
 * Converts count pixels of samples into pixels of format, opaque where it has alpha. dst must not overlap src. Results as
 * for pictra_colour_convert; IMG_ST_BADFMT for indices and alpha alone only, IMG_ST_BADARG for unknown samples.
 */
IMG_API img_status pictra_colour_convert_samples(pictra_colour *colour, const pictra_samples *samples, const void *src,
                                                 img_format format, void *dst, uint32_t count);

/*
 * Converts an image in place: its pixel buffer and its colour key, or the palette alone where it has one. Results as for
 * pictra_colour_convert, and IMG_ST_BADARG for a record without format, size, and buffer or palette.
 */
IMG_API img_status pictra_colour_convert_image(pictra_colour *colour, img_record *image);

#ifdef __cplusplus
}
#endif

#endif
