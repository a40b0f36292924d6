/* SPDX-License-Identifier: MIT */
/*
 * What codec modules and callers tell each other besides pixels: metadata, progress, options, limits. The library
 * passes it on without looking at it, so this is an agreement between the modules that come with pictra and their
 * callers; other modules may follow it. Everything here runs on the thread that called the library.
 *
 * Reading. A module reports a value through set_value of img_decode_callouts as
 *     set_value(data, record, key, size, (uintptr_t)pointer, 0)
 * before choose_format if the file has it before the pixels. What the pointer leads to is borrowed for the call. size
 * is in bytes. Return 0 for keys that you do not know; any other status ends the decode with it.
 *
 * Progress, reading and writing, through scanline:
 *     scanline(data, record, rows done, rows in all, 0, 0)
 * A status other than 0 ends the work with it.
 *
 * Writing. IMG_F_ANSWERS in the flags of an image promises that scanline of img_encode_callouts answers questions as
 * well:
 *     scanline(data, image, 0, 0, key, (uintptr_t)pointer)
 * The third word tells questions from progress, where it is 0. The pointer leads to an object of the type that the
 * table below gives, which holds a default; the caller replaces it or leaves it, and returns 0. All questions come
 * before choose_format. What an answer points to stays valid until the frame is done. Texts are answered all at once,
 * each followed by a zero byte.
 *
 * Options are questions in both directions: the key is IMG_VALUE_OPTION, the pointer leads to an img_option. They are
 * asked through set_value when reading (size is sizeof(img_option)) and through scanline when writing, before anything
 * else of the frame. A module asks for each option that it knows once per frame; an option that was not asked for by
 * the time of choose_format does not exist in that module.
 *
 * Limits. Right before a frame ends with IMG_ST_LIMIT, the module reports IMG_VALUE_LIMIT, which names the limit that
 * was exceeded: through set_value when reading, and like a question that needs no answer when writing. Warnings
 * (IMG_VALUE_WARNING) are reported in the same two ways, when writing as an img_bytes. When reading, modules also ask
 * for the one limit that the caller sets, IMG_VALUE_MAX_MEMORY: how many bytes the module may allocate for one picture
 * besides the pixels that the caller provides, such as coefficients, canvases, interlaced rows and whole files. A
 * module asks at most once per frame, through set_value like an option, before it allocates any of that. What it needs
 * for the pixels alone it checks after setup, so that callers who stop at setup learn what the picture is.
 */
#ifndef PICTRA_VALUES_H
#define PICTRA_VALUES_H

#include "image.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A flag of an image to write: scanline answers questions. The library ignores it. */
enum { IMG_F_ANSWERS = 0x2000 };

/*
 * Keys. Bytes are reported as they are, with their number in size, and asked for as an img_bytes; all other values have
 * the named type in both directions.
 */
enum {
    IMG_VALUE_ORIENTATION = 1, /* uint32_t, 1 to 8 as in EXIF: how to rotate or flip the picture to show it */
    IMG_VALUE_RESOLUTION = 2,  /* img_resolution */
    IMG_VALUE_ICC = 3,         /* bytes: a colour profile (ISO 15076-1) */
    IMG_VALUE_EXIF = 4,        /* bytes: an EXIF block, from its TIFF header on */
    IMG_VALUE_XMP = 5,         /* bytes: an XMP packet (ISO 16684-1), UTF-8 */
    IMG_VALUE_TEXT = 6,        /* bytes: keyword, a zero byte, text, both UTF-8; may come several times */
    IMG_VALUE_FRAMES = 7,      /* uint32_t: pictures in the file; reported once, with the first frame */
    IMG_VALUE_DELAY = 8,       /* uint32_t: how long this frame is shown, in milliseconds */
    IMG_VALUE_LOOPS = 9,       /* uint32_t: how often an animation plays, 0 for ever */
    IMG_VALUE_DEPTH = 10,      /* uint32_t: bits per sample, or per index, in the file */
    IMG_VALUE_WARNING = 11,    /* bytes: a message for the user about what was read or is not written; reported only */
    IMG_VALUE_OPTION = 12,     /* img_option: a question, see above */
    IMG_VALUE_LIMIT = 13,      /* img_limit: the limit that is exceeded; reported only, right before IMG_ST_LIMIT */
    IMG_VALUE_MAX_MEMORY = 14  /* uint64_t: a question when reading: bytes that the module may use; 0 for no limit */
};

/* A limit that was exceeded. */
typedef struct img_limit {
    const char *name; /* what was counted, such as "pixels", "side", "memory", "scans", "file size", "tile", "strip",
                         "profile"; borrowed for the call */
    uint64_t needed;  /* at least this much, if counting ended early */
    uint64_t allowed;
} img_limit;

/* Pixels per metre; 0 where unknown. */
typedef struct img_resolution {
    double x, y;
} img_resolution;

/* The answer to a question for bytes; size 0 means none. */
typedef struct img_bytes {
    const void *data;
    uint64_t size;
} img_bytes;

enum {
    IMG_OPTION_NUMBER = 1, /* lowest to highest */
    IMG_OPTION_SWITCH = 2, /* 0 or 1 */
    IMG_OPTION_CHOICE = 3  /* the index of one of choices */
};

/* An option of a module. The module fills in everything, value with the default; the caller may replace value. */
typedef struct img_option {
    const char *name;    /* lower case, such as "quality" */
    const char *meaning; /* one phrase for the user */
    const char *choices; /* names joined by ":", or null */
    uint32_t type;       /* IMG_OPTION_* */
    int32_t lowest, highest;
    int32_t value; /* out of range: the frame ends with IMG_ST_BADARG */
} img_option;

#ifdef __cplusplus
}
#endif

#endif
