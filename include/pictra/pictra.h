/* SPDX-License-Identifier: MIT */
/*
 * pictra: images from files or memory into raw pixel buffers, and back.
 *
 * All that an application or a codec module needs. backend.h adds the stream record, for authors of stream backends
 * only. C11 and C++17 or later.
 *
 * Words used throughout:
 *   borrowed  the library uses the object during the call only
 *   kept      the library holds on to it until the event that is named
 *   given     ownership goes to the receiver; memory given by the library is released with free()
 * Sizes are in pixels, rows or bytes as stated. Pixels of 16 and 32 bits may lie at any address.
 *
 * Image operations return img_status. Stream operations report failure the POSIX way: -1, or a short count.
 * No callout may throw or jump out. Calls on different records may run at once while the registry of the handle does not
 * change and every codec was opened before (codec_init). The library keeps nothing between calls but that registry and the
 * abort flag of img_resize_set_abort, and starts a thread during img_load_resize only.
 */
#ifndef PICTRA_PICTRA_H
#define PICTRA_PICTRA_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#define PICTRA_VERSION_MAJOR 0
#define PICTRA_VERSION_MINOR 1
#define PICTRA_VERSION_PATCH 0

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
    IMG_ST_RESERVED1 = 1,   /* codecs only: the data is not of this codec's format */
    IMG_ST_NOCONV = 2,      /* no conversion from the codec's format to the record's */
    IMG_ST_NOCODEC = 3,     /* no codec to ask */
    IMG_ST_RESERVED4 = 4,   /* codecs only: damaged data */
    IMG_ST_BADFMT = 5,      /* the operation does not know or support the format */
    IMG_ST_NOMEM = 6,       /* out of memory, or a buffer would exceed 4 GiB - 1 */
    IMG_ST_CONFIG = 7,      /* the configuration file is missing or holds errors */
    IMG_ST_MODULE = 8,      /* a codec module does not open or lacks its entry; a codec cannot decode frames */
    IMG_ST_FILE = 9,        /* a file cannot be opened or created */
    IMG_ST_RESERVED10 = 10, /* codecs only: a limit is exceeded */
    IMG_ST_BADARG = 11,     /* the record lacks what the operation needs, or an argument is out of range */
    IMG_ST_NOTSUP = 12      /* the codec does not implement the operation */
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
 * Hands over, or fetches, count pixels of row y starting at column x, in the format of the record it belongs to. On
 * decoding the library delivers the pixels at scanline, on encoding it asks for them there. scanline is borrowed. The
 * result is not examined.
 */
typedef int (*img_access_func)(void *arg, uint32_t x, uint32_t y, uint32_t count, void *scanline);

/*
 * An image. The record owns nothing: whoever filled data and palette frees them. A buffer and a palette that the
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
    /* The colour key. An FMT_ARGB8888HE word for 24- and 32-bit records, else a pixel in the record's own format. */
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
 * caller's: free(data), or free(palette) when only a palette was made. Rows are padded to a multiple of 4 bytes; pixels
 * and palette are not cleared. Reads width, height, format, ncolors and flags; sets data, stride, palette and their
 * flags. A record with storage keeps it; one without pixels (width or height 0) gets no buffer.
 *
 * The row size wraps at 32 bits (deliberately: only its product with the height is tested).
 *
 * IMG_ST_OK     done; *result has the IMG_ALLOC_* bits of what was made
 * IMG_ST_NOMEM  no memory, or more than 4 GiB - 1 bytes; nothing was allocated and the record is unchanged
 */
IMG_API img_status img_alloc(img_record *record, img_alloc_result *result);

/* ---- Streams -------------------------------------------------------------------------------------------------- */

/* A buffered byte stream over a backend. Its record is private but for backend authors (backend.h). */
typedef struct io_stream io_stream;

/* Modes of io_open. */
enum { IO_READ = 1, IO_WRITE = 2 };

/* Control codes of ctl and io_stream_ctl. */
enum {
    IO_CTL_SETBUF = 1,   /* arg: uint32_t * with the new buffer size; receives the old one if they differ */
    IO_CTL_SETLIMIT = 2, /* arg: the limit itself as a value: bytes that may still pass; once, before any did */
    IO_CTL_GETBUF = 3 /* reading; arg: io_ctl_buf *, receives bytes lent in place until the next call; 0 at the end */
};

typedef struct io_ctl_buf {
    uint8_t *data; /* borrowed from the stream */
    uint32_t length;
} io_ctl_buf;

/*
 * The face of a stream: what io_open returns and codecs receive. Every operation takes self as its first argument:
 * h->read(h->self, buffer, 512). In each union the first name is for streams opened with IO_READ, the second for
 * IO_WRITE. The operations behind the slots are io_stream_* and io_ostream_* below.
 */
typedef struct io_handle {
    io_stream *self;
    int (*ctl)(io_stream *self, uint32_t code, void *arg);
    union {
        uint32_t (*read)(io_stream *self, void *dst, uint32_t length);
        uint32_t (*write)(io_stream *self, const void *src, uint32_t length);
    };
    union {
        int (*skip)(io_stream *self, uint32_t count);
        int64_t (*seek)(io_stream *self, int32_t offset, int whence);
    };
    union {
        int (*unread)(io_stream *self, const void *bytes, uint32_t count);
        uint32_t (*read_back)(io_stream *self, void *dst, uint32_t length);
    };
    int (*unskip)(io_stream *self, uint32_t count); /* null for IO_WRITE */
} io_handle;

/*
 * Prepares a new stream for one kind of source or sink, taking its own arguments from args. Returns 0, or -1 with errno
 * set; then io_open fails.
 */
typedef int io_backend_ctor(io_stream *stream, va_list *args);

/*
 * A backend over an open file descriptor. Argument: int fd. The descriptor stays the caller's and is not closed. A
 * seekable one may be read to the size that the file has at this moment, at most 4 GiB - 1 bytes ahead.
 */
IMG_API io_backend_ctor IO_FD;

/*
 * A backend over memory, for reading only (IO_WRITE: ENOTSUP). Arguments: uint32_t length and the address of that many
 * bytes, or 0 and the address of an io_mem_block. The memory stays the caller's and must outlive the stream. A chain
 * delivers its first block only, because a memory stream never asks its backend for more.
 */
IMG_API io_backend_ctor IO_MEM;

/* One block of a chain in memory. The bytes follow the length directly, as many as it says. */
typedef struct io_mem_block {
    struct io_mem_block *next; /* null ends the chain */
    uint32_t length;
    uint8_t bytes[4]; /* the first of them */
} io_mem_block;

/*
 * Opens a stream over the backend that ctor makes from the arguments after mode, for instance
 * io_open(IO_FD, IO_READ, fd). The stream is the caller's until io_close. Null on failure: EINVAL for a null ctor or
 * another mode, else what calloc or the backend left in errno.
 */
IMG_API io_handle *io_open(io_backend_ctor *ctor, uint32_t mode, ...);

/* Writes what is waiting (the result is not inspected), lets the backend close, and frees the stream. Null is ignored. */
IMG_API void io_close(io_handle *handle);

/*
 * Reads up to length bytes: those pushed back, those buffered, then what at most one call of the backend gives. A short
 * count means a short read, the limit or the end. EBADF and 0 for a stream opened for writing.
 */
IMG_API uint32_t io_stream_read(io_stream *self, void *dst, uint32_t length);

/* Skips count bytes. 0, or -1 when the limit or the data ends before. EBADF for a stream opened for writing. */
IMG_API int io_stream_skip(io_stream *self, uint32_t count);

/*
 * Gives back the count bytes that were read last. 0, or -1 when more than was read, when memory lacks, or when the
 * backend refuses. EBADF for a stream opened for writing.
 *
 * Give back what one read below the buffer size delivered, before anything else is done: the stream then goes back in its
 * buffer. After a skip or a larger read it would go back over older bytes. A backend that cannot take bytes back has them
 * kept here; if only part of them is still in the buffer, the buffer's consumed bytes are delivered again after them.
 */
IMG_API int io_stream_unread(io_stream *self, const void *bytes, uint32_t count);

/*
 * Goes back over count bytes without having them at hand, within the limits of io_stream_unread. Bytes pushed back are
 * forgotten unless the buffer suffices. 0, or -1 where unsupported.
 */
IMG_API int io_stream_unskip(io_stream *self, uint32_t count);

/* Writes length bytes, through the buffer when they fit. Returns how many were accepted. EBADF on a reading stream. */
IMG_API uint32_t io_ostream_write(io_stream *self, const void *src, uint32_t length);

/*
 * Writes what is waiting and moves the backend's position, offset and whence as for lseek. Returns the backend's answer,
 * -1 if the flush or the seek failed. EBADF on a reading stream, ESPIPE where the backend cannot seek.
 */
IMG_API int64_t io_ostream_seek(io_stream *self, int32_t offset, int whence);

/*
 * Writes what is waiting, then calls the backend's *write* operation with (dst, length): it does not read. Kept for
 * backends that give their write operation that meaning. EBADF on a reading stream.
 */
IMG_API uint32_t io_ostream_read(io_stream *self, void *dst, uint32_t length);

/* Writing: hands waiting bytes to the backend. 0, or -1 and EFBIG when not all were taken; the rest stays buffered. */
IMG_API int io_ostream_flush(io_stream *self);

/*
 * Runs a control code (IO_CTL_*). 0 or -1. EPERM for a second limit, EINVAL for an unknown code, EBUSY for a buffer too
 * small for the bytes that it holds unread. Do not shrink the buffer of a reading stream below what was consumed: it is
 * then filled anew, and what does not fit is lost.
 */
IMG_API int io_stream_ctl(io_stream *self, uint32_t code, void *arg);

/* ---- Decoding: what codec and caller exchange ----------------------------------------------------------------- */

/* How a codec will deliver rows (setup of img_decode_callouts) or fetch them (setup of img_encode_callouts). */
enum {
    IMG_SETUP_TOPDOWN = 0x2, /* all rows in order from the top; wins if both are set */
    IMG_SETUP_BOTTOMUP = 0x4 /* all rows in order from the bottom */
};

/*
 * Further arguments of a codec, forwarded unchanged. A callout gets four words after (data, record); a codec passes
 * integers and object pointers converted to uintptr_t, and zero for words that it does not use. Their meaning is agreed
 * between codec and caller.
 */
typedef img_status (*img_forward_func)(void *data, img_record *record, uintptr_t a, uintptr_t b, uintptr_t c,
                                       uintptr_t d);

/*
 * The steps of decoding that a caller may take over, and the same table as a codec receives it. Any function may be
 * null. For the caller's functions data is the table's data and record the caller's record; a codec passes on the
 * data of the table that it was given and its own record.
 */
typedef struct img_decode_callouts {
    /* Picks one of the formats that the codec can produce; returns its index. */
    uint32_t (*choose_format)(void *data, img_record *record, const img_format *formats, uint32_t nformats);
    /* Sees or completes the record before storage is allocated. Non-zero stops the decode. */
    img_status (*setup)(void *data, img_record *record, uint32_t setup_flags);
    /* The decode failed after a setup. */
    void (*abort)(void *data, img_record *record);
    /* Progress. Non-zero asks the codec to stop. */
    img_forward_func scanline;
    /* The codec's palette, of the record's ncolors entries in the given format, before it is stored. 0: handled. */
    img_status (*set_palette)(void *data, img_record *record, const void *palette, img_format format);
    /* The colour key, after it was stored in the record. */
    void (*set_transparency)(void *data, img_record *record, uint32_t key);
    /* The frame is complete. */
    void (*frame)(void *data, img_record *record);
    /* A value that the codec reports. */
    img_forward_func set_value;
    void *data;
} img_decode_callouts;

/* The same for encoding: the table of the caller, and the one that a codec receives. */
typedef struct img_encode_callouts {
    /* Picks one of the formats that the codec can write; an index of nformats or above means none. */
    uint32_t (*choose_format)(void *data, img_record *image, const img_format *formats, uint32_t nformats);
    /* Sees the image before its pixels are fetched. Non-zero stops the encode. */
    img_status (*setup)(void *data, img_record *image, uint32_t setup_flags);
    /* The encode failed after a setup. */
    void (*abort)(void *data, img_record *image);
    /* Progress. Non-zero asks the codec to stop. */
    img_forward_func scanline;
    /* Fills dst with the image's ncolors palette entries in the given format. */
    img_status (*get_palette)(void *data, img_record *image, void *dst, img_format format);
    /* Stores the colour key at dst, a pixel in the format that the codec writes. */
    img_status (*get_transparency)(void *data, img_record *image, void *dst);
    /* The frame is written. */
    void (*frame)(void *data, img_record *image);
    void *data;
} img_encode_callouts;

/* ---- Codecs --------------------------------------------------------------------------------------------------- */

/*
 * What a codec implements; any slot may be null. state points at one word, null before begin, that is the codec's own
 * until finish. docs/codec-modules.md holds the whole contract of a codec.
 */
typedef struct img_codec_funcs {
    /* 0 if the stream holds this codec's format. Leaves the stream where it was. */
    img_status (*decode_validate)(io_handle *stream);
    img_status (*decode_begin)(io_handle *stream, void **state);
    /* Decodes one image, driving the callouts: choose_format, setup, then palette and colour key, then rows. */
    img_status (*decode_frame)(io_handle *stream, const img_decode_callouts *callouts, img_record *record,
                               void **state);
    img_status (*decode_finish)(io_handle *stream, void **state);
    img_status (*encode_begin)(io_handle *stream, void **state);
    img_status (*encode_frame)(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state);
    img_status (*encode_finish)(io_handle *stream, void **state);
} img_codec_funcs;

/* Fills the table, of size bytes, and returns 0; another result is a failure that is reported as it is. */
typedef img_status img_getfuncs_func(img_codec_funcs *table, size_t size);

/* The entry of a codec module: exported by every module, not by the library. */
IMG_API img_getfuncs_func img_codec_getfuncs;

/* One entry of the registry. */
typedef struct img_codec img_codec;

/* ---- Library handle and log ------------------------------------------------------------------------------------ */

typedef struct img_lib_handle img_lib_handle;

/*
 * Makes a handle and fills its codec registry from the configuration file: the one that the environment variable
 * PICTRA_CFGFILE names, else /etc/system/config/img.conf. No module is opened yet. Never returns for a file whose first
 * entry is a key (see img_cfg_read).
 *
 * IMG_ST_OK      done
 * IMG_ST_NOMEM   no memory; *handle is null if the handle itself could not be had
 * IMG_ST_CONFIG  the file is missing or holds errors; the handle is valid and holds the codecs that were registered
 */
IMG_API img_status img_lib_attach(img_lib_handle **handle);

/* Closes every codec module and frees the handle. Null is ignored. */
IMG_API void img_lib_detach(img_lib_handle *handle);

/*
 * Registers the codec modules that a configuration file lists, one a section. Results as for img_lib_attach. A file whose
 * first entry is a key is never read to its end (deliberately kept): do not pass one.
 */
IMG_API img_status img_cfg_read(img_lib_handle *handle, const char *path);

/* Bit 0x1: print log lines to standard error too. */
IMG_API extern uint32_t imglog_flags;
/* Not read by the library; initially 8. */
IMG_API extern uint32_t imglog_verbose;
/* Constant 1. */
IMG_API extern const uint32_t enable_output;

/*
 * Logs "pictra:function(line): message" to the system logger, and to standard error if imglog_flags says so. severity
 * 2 is an error. code is ignored. Messages are cut at 4095 bytes; errno is left alone.
 */
IMG_API void imglog(uint32_t severity, const char *function, int32_t line, uint64_t code, const char *format, ...)
    IMG_PRINTF(5, 6);

/* ---- Codec registry --------------------------------------------------------------------------------------------- */

/*
 * Registers the codec module at path, to be opened when first needed. extensions (without the dot) and mime_types are
 * lists joined by ":", which an empty name ends; either may be null. The texts are copied. The codec belongs to the handle
 * and is found before all older ones. Null when memory lacks.
 */
IMG_API img_codec *img_codec_register_dll(img_lib_handle *handle, const char *path, const char *extensions,
                                          const char *mime_types);

/* The same for functions inside the program: getfuncs is called at once. Null when memory lacks or getfuncs fails. */
IMG_API img_codec *img_codec_register(img_lib_handle *handle, img_getfuncs_func *getfuncs, const char *extensions,
                                      const char *mime_types);

/* Takes the codec out of the handle's registry, closes its module and frees it. */
IMG_API void img_codec_deregister(img_lib_handle *handle, img_codec *codec);

/*
 * Lists the codecs, newest first, without the nexclude ones in exclude. Stores up to max of them in out and returns how
 * many there are in all.
 */
IMG_API uint32_t img_codec_list(img_lib_handle *handle, img_codec **out, uint32_t max, img_codec *const *exclude,
                                uint32_t nexclude);

/* Lists the codecs for the extension of path: the text after its last dot, in letters of either case. */
IMG_API uint32_t img_codec_list_byext(img_lib_handle *handle, const char *path, img_codec **out, uint32_t max);

/* Lists the codecs for a MIME type, in letters of either case. */
IMG_API uint32_t img_codec_list_bymime(img_lib_handle *handle, const char *mime_type, img_codec **out, uint32_t max);

/*
 * Tells what a codec was registered for. Each list is a sequence of strings that an empty one ends, or null; it belongs
 * to the codec. Either pointer may be null.
 */
IMG_API void img_codec_get_criteria(img_codec *codec, const char **extensions, const char **mime_types);

/*
 * Opens the codec's module and fills its functions, once: later calls return 0 whatever the first one gave, and a codec
 * that did not open stays without functions. The drivers call it; call it early to load a module at a time of your own.
 *
 * IMG_ST_OK      done, now or earlier
 * IMG_ST_MODULE  the module does not open or lacks img_codec_getfuncs; other values are the module's own
 */
IMG_API img_status codec_init(img_codec *codec);

/* Closes the module and frees a codec that is in no registry. */
IMG_API void codec_release(img_codec *codec);

/* ---- Load and write -------------------------------------------------------------------------------------------- */

/*
 * Loads the image in a file, asking the codecs of its extension first and then all others. What the caller filled in
 * beforehand (format, size, storage, palette, IMG_F_WANT_ALPHA, IMG_F_SIZE_HINT) is honoured; the rest is filled. callouts
 * may be null. Storage that the record lacked is given to the caller.
 *
 * After a failure the record may hold a format and a size, but no storage that it did not have before.
 *
 * IMG_ST_OK      done
 * IMG_ST_NOCONV  no conversion from the codec's format to the record's
 * IMG_ST_NOCODEC no codec of the extension, and none of the others took the data
 * IMG_ST_NOMEM   no memory
 * IMG_ST_FILE    the file cannot be opened
 * Others are those of the codec, or of the last codec of the extension that refused the data.
 */
IMG_API img_status img_load_file(img_lib_handle *handle, const char *path, const img_decode_callouts *callouts,
                                 img_record *record);

/* The same from a stream, which stays the caller's. All codecs are asked, newest first. */
IMG_API img_status img_load(img_lib_handle *handle, io_handle *stream, const img_decode_callouts *callouts,
                            img_record *record);

/*
 * Writes an image to a file with the codec of its extension. callouts may be null. The image is borrowed. A file that
 * could not be written is removed; a full disk found at the final flush goes unnoticed, so programs that must know write
 * through img_write and flush the stream themselves.
 *
 * IMG_ST_OK      done
 * IMG_ST_NOCODEC no codec for the extension
 * IMG_ST_NOMEM   no memory
 * IMG_ST_FILE    the file cannot be created
 * IMG_ST_NOTSUP  the codec cannot write
 * Others are those of the codec.
 */
IMG_API img_status img_write_file(img_lib_handle *handle, const char *path, const img_encode_callouts *callouts,
                                  img_record *image);

/* The same to a stream, which stays the caller's, with the first codec of the list. handle is not used. */
IMG_API img_status img_write(img_lib_handle *handle, io_handle *stream, const img_encode_callouts *callouts,
                             img_record *image, img_codec *const *codecs);

/* ---- Decode and encode step by step ------------------------------------------------------------------------------ */

/*
 * Finds the first of the candidates whose validate function takes the stream; its index goes to *index if index is not
 * null. IMG_ST_NOCODEC without candidates, else the status of the last one asked.
 */
IMG_API img_status img_decode_validate(img_codec *const *candidates, uint32_t ncandidates, io_handle *stream,
                                       uint32_t *index);

/* Begins decoding with a codec. state is the codec's word, null beforehand. IMG_ST_NOTSUP if it decodes no frames. */
IMG_API img_status img_decode_begin(img_codec *codec, io_handle *stream, void **state);

/* Decodes one image into record. callouts may be null. IMG_ST_MODULE if the codec decodes no frames. */
IMG_API img_status img_decode_frame(img_codec *codec, io_handle *stream, const img_decode_callouts *callouts,
                                    img_record *record, void **state);

/* Ends decoding; due after every successful begin. */
IMG_API img_status img_decode_finish(img_codec *codec, io_handle *stream, void **state);

/* Begins encoding with a codec. IMG_ST_NOTSUP if it encodes no frames. */
IMG_API img_status img_encode_begin(img_codec *codec, io_handle *stream, void **state);

/* Encodes one image. callouts may be null. IMG_ST_NOTSUP if the codec encodes no frames. */
IMG_API img_status img_encode_frame(img_codec *codec, io_handle *stream, const img_encode_callouts *callouts,
                                    img_record *image, void **state);

/* Ends encoding; due after every successful begin. */
IMG_API img_status img_encode_finish(img_codec *codec, io_handle *stream, void **state);

/* ---- Pixel conversion -------------------------------------------------------------------------------------------- */

/*
 * Converts count pixels. src and dst may be the same address: runs that grow go from the last pixel to the first. Other
 * overlaps are not allowed. A count of 0 does nothing, except that img_cvt_pal1_pal8 and img_cvt_pal4_pal8 must not
 * get one.
 */
typedef void img_cvt_routine(const void *src, void *dst, uint32_t count);
typedef img_cvt_routine *img_cvt_func;

/* Copies count pixels; dst moves on by step bytes after each, which may be negative. */
typedef void img_copy_routine(const void *src, void *dst, int32_t step, uint32_t count);
typedef img_copy_routine *img_copy_func;

/*
 * Writes, for each of count indices, the palette entry of that number. palette holds packed entries of the destination's
 * pixel size. In place as for conversions. A count of 0 is allowed for 8-bit indices only.
 */
typedef void img_expand_routine(const void *src, void *dst, uint32_t count, const void *palette);
typedef img_expand_routine *img_expand_func;

/* The routine for a pair of formats, or null. Palette indices convert to FMT_PAL8 only. */
IMG_API img_cvt_func img_convert_getfunc(img_format src, img_format dst);

/* Converts count pixels once. IMG_ST_BADFMT, with dst untouched, if there is no routine for the pair. */
IMG_API img_status img_convert_data(img_format src_format, const void *src, img_format dst_format, void *dst,
                                    uint32_t count);

/* The strided copy of a format, or null: 1- and 4-bit formats, FMT_A8, FMT_XBGR8888* and FMT_ABGR8888OE have none. */
IMG_API img_copy_func img_copy_getfunc(img_format format);

/* The expansion from indices of src's depth (1, 4, 8) to pixels of dst's depth (8, 16, 24, 32), or null. */
IMG_API img_expand_func img_expand_getfunc(img_format src, img_format dst);

/* A prepared conversion from one record's format to another's, palettes included. */
typedef struct img_dtransform_state img_dtransform_state;

/*
 * Prepares the conversion of runs of src's format into dst's. The state is given to the caller, who releases it with
 * img_dtransform_free; it may refer to src's palette, which must stay as it is until then. On failure *state is null.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADFMT  direct colour into a palette format, or no routine for the pair
 * IMG_ST_NOMEM   no memory
 * IMG_ST_BADARG  a record without format, or palette indices without a palette
 */
IMG_API img_status img_dtransform_create(const img_record *src, const img_record *dst, img_dtransform_state **state);

/* Converts one run of count pixels, which must not be 0 for 1- and 4-bit indices. In place as for conversions. */
IMG_API void img_dtransform_apply(const img_dtransform_state *state, const void *src, void *dst, uint32_t count);

/* Releases a state. Null is ignored. */
IMG_API void img_dtransform_free(img_dtransform_state *state);

/*
 * Copies an image into another record, converting to the destination's format. What dst lacks of format, width and height
 * is taken from src; the common width and height are copied, from the top left. Storage that dst lacks is allocated and
 * given to the caller, a palette for a palette format included; after a failure dst has no storage that it did not have
 * before. src is borrowed.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADFMT  no conversion for the pair of formats
 * IMG_ST_NOMEM   no memory
 * IMG_ST_BADARG  src lacks format, width, height, a palette that is needed, or storage
 */
IMG_API img_status img_dtransform(const img_record *src, img_record *dst);

/* The same upside down: the first source row becomes the last of the common rows. */
IMG_API img_status img_dtransform_bu(const img_record *src, img_record *dst);

/* ---- Geometry ---------------------------------------------------------------------------------------------------- */

/*
 * img_flip, img_crop and img_rotate_ortho copy into another record, converting to the destination's format. What dst
 * lacks of format (and for img_flip and img_rotate_ortho of width and height) is taken from src and flagged, also when a
 * later step fails. Storage that dst lacks is allocated and given to the caller, a palette included; after a failure dst
 * has no storage that it did not have before. src and its palette are borrowed. The colour key is not copied. A common
 * width or height of 0 moves nothing.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADFMT  dst's format has no strided copy (img_copy_getfunc), or no conversion from src's format
 * IMG_ST_NOMEM   no memory
 * IMG_ST_BADARG  src lacks format, width, height, a palette that is needed, or storage
 */

/* Turns an image with a pixel buffer upside down in place, whole rows of stride bytes. IMG_ST_BADFMT without a buffer. */
IMG_API img_status img_flip_vertical(img_record *image);

/*
 * Mirrors an image with a pixel buffer left to right in place. Formats of 1, 8, 16, 24 and 32 bits. IMG_ST_BADFMT without
 * a buffer or for another depth, IMG_ST_NOCODEC for a depth of 0; a width below 2 or a height of 0 is IMG_ST_OK.
 */
IMG_API img_status img_flip_horizontal(img_record *image);

/* Directions of img_flip. */
enum {
    IMG_FLIP_HORIZONTAL = 0, /* left to right */
    IMG_FLIP_VERTICAL = 1    /* top to bottom */
};

/*
 * Copies an image mirrored. A smaller destination gets the right and bottom part. An access function gets the rows from
 * the bottom up in either direction. IMG_ST_BADFMT for another direction.
 */
IMG_API img_status img_flip(const img_record *src, img_record *dst, uint32_t direction);

/*
 * Copies the rectangle of dst's width and height, which dst must have, whose top left pixel is (x, y) in src.
 * IMG_ST_BADARG if it does not lie within src.
 */
IMG_API img_status img_crop(const img_record *src, img_record *dst, uint32_t x, uint32_t y);

/* Angles of img_rotate_ortho: clockwise, in radians as 16.16 fixed point. */
enum { IMG_ANGLE_0 = 0, IMG_ANGLE_90 = 0x1921f, IMG_ANGLE_180 = 0x3243f, IMG_ANGLE_270 = 0x4b65f };

/*
 * Copies an image turned. At 90 and 270 degrees the sides that dst lacks are exchanged. An access function gets quarter
 * turns in blocks of eight columns, line by line. IMG_ANGLE_0 is img_dtransform. IMG_ST_BADFMT for another angle.
 */
IMG_API img_status img_rotate_ortho(const img_record *src, img_record *dst, uint32_t angle);

/* ---- Resize ------------------------------------------------------------------------------------------------------ */

/* Takes the mean, rounded down, of the count pixels of two lines, channel by channel. dst may be one of them. */
typedef void img_avg_routine(const void *a, const void *b, void *dst, uint32_t count);
typedef img_avg_routine *img_avg_func;

/* The mean of lines of a format, or null: palette formats, FMT_A8, FMT_XBGR8888* and FMT_ABGR8888OE have none. */
IMG_API img_avg_func img_avg_getfunc(img_format format);

/*
 * Copies an image at another size, converting to the destination's format. Of dst's width and height, one that is missing
 * follows the other in src's proportions (at least 1), and both that are missing are src's; dst's format, if missing, is
 * src's. Storage that dst lacks is allocated and given to the caller; after a failure dst has no storage that it did not
 * have before. src is borrowed. A row of an access function is passed whole, source rows at most once for consecutive
 * uses. src and dst may share a buffer that is large enough.
 *
 * Nearest pixels and means of two neighbours, after halving by exact means where the reduction is more than 2:1.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADFMT  dst's format is a palette format, or neither format can be scaled (img_avg_getfunc)
 * IMG_ST_NOMEM   no memory, or img_resize_set_abort asked to stop; rows written so far stay written
 * IMG_ST_BADARG  src lacks format, width, height or storage, or a width or height is 0
 */
IMG_API img_status img_resize_fs(const img_record *src, img_record *dst);

/* The same upside down: the first row of the result becomes dst's last. */
IMG_API img_status img_resize_fsbu(const img_record *src, img_record *dst);

/*
 * Asks every resize that runs in the process to stop, if abort is not 0. Each asks once per row; one that starts afterwards
 * clears the request. Any thread may call it.
 */
IMG_API void img_resize_set_abort(uint32_t abort);

/*
 * Loads an image at another size without holding the full-size one, when the codec delivers rows in order: the calling
 * thread decodes, a second one resizes. dst's width, height, format and storage are as for img_resize_fs; IMG_F_WANT_ALPHA
 * in dst is passed on. callouts may be null. The caller's choose_format sees dst, and the codec is then asked to decode at
 * dst's size if it can; setup, set_palette, set_transparency, frame and abort see the record of the load, set_value sees
 * dst. Non-zero from scanline stops load and resize.
 *
 * IMG_ST_NOMEM  no memory or thread, or stopped by img_resize_set_abort
 * Others are those of img_load_file and img_resize_fs.
 */
IMG_API img_status img_load_resize_file(img_lib_handle *handle, const char *path, const img_decode_callouts *callouts,
                                        img_record *dst);

/* The same from a stream, which stays the caller's. */
IMG_API img_status img_load_resize(img_lib_handle *handle, io_handle *stream, const img_decode_callouts *callouts,
                                   img_record *dst);

#include "routines.h"

#ifdef __cplusplus
}
#endif

#endif
