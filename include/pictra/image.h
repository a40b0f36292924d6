/* SPDX-License-Identifier: MIT */
/*
 * Images: status, pixel formats, the record and its storage. Included by pictra.h, which says what the words mean.
 */
#ifndef PICTRA_IMAGE_H
#define PICTRA_IMAGE_H

#include <stdint.h>

#if defined(__GNUC__)
#define IMG_API __attribute__((visibility("default")))
#define IMG_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define IMG_API
#define IMG_PRINTF(text, first)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Status --------------------------------------------------------------------------------------------------- */

/* The result of an image operation. A codec's non-zero status passes through unchanged. */
typedef uint32_t img_status;

enum {
    IMG_ST_OK = 0,
    IMG_ST_WRONGFORMAT = 1, /* codecs only: the data is not in this codec's format */
    IMG_ST_NOCONV = 2,      /* no conversion from the codec's format to the record's */
    IMG_ST_NOCODEC = 3,     /* no codec to ask */
    IMG_ST_DAMAGED = 4,     /* codecs only: the data is damaged or incomplete */
    IMG_ST_BADFMT = 5,      /* the operation does not know or support the format */
    IMG_ST_NOMEM = 6,       /* out of memory, or a buffer would exceed 4 GiB - 1 */
    IMG_ST_CONFIG = 7,      /* the configuration file is missing or holds errors */
    IMG_ST_MODULE = 8,      /* a codec module does not open or lacks its entry; a codec cannot decode frames */
    IMG_ST_FILE = 9,        /* a file cannot be opened or created */
    IMG_ST_LIMIT = 10,      /* codecs only: the image exceeds a limit */
    IMG_ST_BADARG = 11,     /* the record lacks what the operation needs, or an argument is out of range */
    IMG_ST_NOTSUP = 12,     /* the codec does not implement the operation */

    /* Older names of the three statuses that only codecs return. */
    IMG_ST_RESERVED1 = IMG_ST_WRONGFORMAT,
    IMG_ST_RESERVED4 = IMG_ST_DAMAGED,
    IMG_ST_RESERVED10 = IMG_ST_LIMIT
};

/* ---- Pixel formats -------------------------------------------------------------------------------------------- */

/* A pixel format: bits per pixel and the IMG_FMT_* bits. Only the 21 FMT_* codes are defined. */
typedef uint32_t img_format;

enum {
    IMG_FMT_BPP_MASK = 0x7f, /* bits per pixel: 1, 4, 8, 16, 24 or 32 */
    IMG_FMT_HE = 0x100,      /* 16 and 32 bits: stored in host byte order */
    IMG_FMT_OE = 0x200,      /* 16 and 32 bits: stored in the other byte order */
    IMG_FMT_ALPHA = 0x400,   /* has an alpha channel */
    IMG_FMT_PAL = 0x800,     /* palette indices */
    IMG_FMT_RGB = 0x1000,    /* direct colour */
    IMG_FMT_ALT = 0x1000000  /* 16 bits: 5-6-5 instead of 1-5-5-5; 24 and 32 bits: red lowest instead of blue */
};

/* Words name their channels from the top bit down; the 24-bit formats name their bytes in memory order. */
enum {
    FMT_PAL1 = 0x801,           /* indices, 8 pixels a byte, the leftmost in the top bit */
    FMT_PAL4 = 0x804,           /* indices, 2 pixels a byte, the left one in the high half */
    FMT_PAL8 = 0x808,           /* indices */
    FMT_G8 = 0x8,               /* grey level */
    FMT_A8 = 0x408,             /* alpha only */
    FMT_XRGB1555HE = 0x1110,    /* bit 15 ignored, red 14-10, green 9-5, blue 4-0 */
    FMT_XRGB1555OE = 0x1210,    /* the same, bytes swapped */
    FMT_ARGB1555HE = 0x1510,    /* alpha in bit 15 */
    FMT_ARGB1555OE = 0x1610,    /* the same, bytes swapped */
    FMT_RGB565HE = 0x1001110,   /* red 15-11, green 10-5, blue 4-0 */
    FMT_RGB565OE = 0x1001210,   /* the same, bytes swapped */
    FMT_BGR888 = 0x1018,        /* bytes blue, green, red */
    FMT_RGB888 = 0x1001018,     /* bytes red, green, blue */
    FMT_XRGB8888HE = 0x1120,    /* ignored, red, green, blue */
    FMT_XRGB8888OE = 0x1220,    /* the same, bytes swapped */
    FMT_ARGB8888HE = 0x1520,    /* alpha, red, green, blue; the format of every palette entry */
    FMT_ARGB8888OE = 0x1620,    /* the same, bytes swapped */
    FMT_XBGR8888HE = 0x1001120, /* ignored, blue, green, red */
    FMT_XBGR8888OE = 0x1001220, /* the same, bytes swapped */
    FMT_ABGR8888HE = 0x1001520, /* alpha, blue, green, red */
    FMT_ABGR8888OE = 0x1001620  /* the same, bytes swapped */
};

/* ---- The image record ----------------------------------------------------------------------------------------- */

/* Which fields of a record are valid, how its pixels are stored, and what the caller of a load wants. */
typedef uint32_t img_flags;

enum {
    IMG_F_TRANSP = 0x1,       /* transparency holds the colour key */
    IMG_F_FORMAT = 0x2,       /* format is valid */
    IMG_F_WIDTH = 0x4,        /* width is valid */
    IMG_F_HEIGHT = 0x8,       /* height is valid */
    IMG_F_DIRECT = 0x10,      /* data and stride describe a pixel buffer */
    IMG_F_ACCESS = 0x20,      /* access and access_arg describe an access function */
    IMG_F_PALETTE = 0x80,     /* palette and ncolors are valid */
    IMG_F_PAL_ALPHA = 0x200,  /* the palette carries the transparency as alpha already */
    IMG_F_WANT_ALPHA = 0x400, /* a load keeps or makes an alpha channel; without it, alpha is stripped from a requested
                                 format unless both sides have it */
    IMG_F_CODEC_MARK = 0x800, /* a codec's own mark, carried into the caller's record */
    IMG_F_SIZE_HINT = 0x1000  /* width and height are adjustable: the codec's replace the caller's; set in a codec's
                                 description, the caller's choice is written back for the codec to decode at */
};

/*
 * Transfers count pixels of row y from column x on, in the format of the record that it belongs to: for a destination,
 * scanline holds the pixels; for a source, the function stores them there. scanline is borrowed. The result is ignored.
 * It runs on the thread that called the library, except for the destination of img_load_resize (see there).
 */
typedef int (*img_access_func)(void *arg, uint32_t x, uint32_t y, uint32_t count, void *scanline);

/*
 * An image. The record owns nothing: the code that filled data and palette frees them. A buffer and a palette that the
 * library allocated together are one block, released by free(data); a palette allocated alone is released by
 * free(palette). The layout is an interface to separately built codec modules.
 */
typedef struct img_record {
    union {
        void *data;             /* IMG_F_DIRECT: first byte of the top row */
        img_access_func access; /* IMG_F_ACCESS */
    };
    union {
        uint32_t stride;  /* IMG_F_DIRECT: bytes from one row to the next */
        void *access_arg; /* IMG_F_ACCESS: first argument of access */
    };
    uint32_t width;  /* pixels in a row */
    uint32_t height; /* rows */
    img_format format;
    uint32_t ncolors;  /* entries of palette */
    uint32_t *palette; /* FMT_ARGB8888HE words */
    img_flags flags;
    /*
     * The colour key: an FMT_ARGB8888HE word for 24- and 32-bit records, an index for palette formats (of 1 and 4 bits,
     * too), else a pixel in the record's own format.
     */
    union {
        uint32_t transparency;   /* 24 and 32 bits per pixel */
        uint16_t transparency16; /* 16 */
        uint8_t transparency8;   /* 1, 4 and 8 */
    };
    uint64_t user; /* the caller's own; copied with the record, never read */
} img_record;

/* What img_alloc allocated. */
typedef uint32_t img_alloc_result;

enum {
    IMG_ALLOC_PIXELS = 1, /* the pixel buffer, and in the same block the palette if one was made */
    IMG_ALLOC_PALETTE = 2 /* the palette */
};

/*
 * Gives a record the pixel buffer and the palette that its flags and format say it lacks, in one block that becomes the
 * caller's: free(data), or free(palette) if only a palette was allocated. Rows are padded to a multiple of 4 bytes;
 * pixels and palette are not cleared. Reads width, height, format, ncolors and flags; sets data, stride, palette and
 * their flags. A record with storage keeps it; one without pixels (width or height 0) gets no buffer.
 *
 * The row size wraps at 32 bits (deliberately: only its product with the height is tested).
 *
 * IMG_ST_OK     done; *result has the IMG_ALLOC_* bits of what was made
 * IMG_ST_NOMEM  no memory, or more than 4 GiB - 1 bytes; nothing was allocated and the record is unchanged
 */
IMG_API img_status img_alloc(img_record *record, img_alloc_result *result);

#ifdef __cplusplus
}
#endif

#endif
