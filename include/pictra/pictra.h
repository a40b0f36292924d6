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

#include "codec.h"
#include "image.h"
#include "stream.h"

#define PICTRA_VERSION_MAJOR 0
#define PICTRA_VERSION_MINOR 1
#define PICTRA_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Library handle and log ------------------------------------------------------------------------------------ */

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

/* ---- Load and write -------------------------------------------------------------------------------------------- */

/*
 * Loads the image in a file, asking the codecs of its extension first and then all others. What the caller filled in
 * beforehand (format, size, storage, palette, IMG_F_WANT_ALPHA, IMG_F_SIZE_HINT) is honoured; the rest is filled. callouts
 * may be null. Storage that the record lacked is given to the caller.
 *
 * A palette of the caller's own gets as many entries as the file has, whatever ncolors says: bring room for 256, and clear
 * IMG_F_PALETTE before a record is used again. With IMG_F_SIZE_HINT the size becomes the file's also over a buffer of the
 * caller's own, which must then hold any picture; without it the picture is cut to the record's size.
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
 * img_dtransform_free. Into FMT_ARGB8888HE it refers to src's palette, which must stay as it is until then and reach as
 * far as the indices do; otherwise indices from src's ncolors on are 0. On failure *state is null.
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
 * given to the caller, for a palette format with a palette of dst's ncolors entries; a palette format that is taken from src
 * brings src's ncolors along. After a failure dst has no storage that it did not have before. src is borrowed.
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
 * has no storage that it did not have before. src and its palette are borrowed. The colour key is not copied. With a common
 * width or height of 0 nothing is moved and no access function is called (IMG_ANGLE_0 is img_dtransform and does as that).
 * 1- and 4-bit indices that start inside a byte are read from the next byte on; those that would lie after the row are 0.
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
 * dst. Non-zero from scanline stops load and resize. If the load fails when all rows of the result have been made, dst has
 * them. To get an image of its own size through an access function, use img_load_file: nothing is resized then, and
 * img_dtransform asks for the last row first, so that the others are gone.
 *
 * A side of dst that is not given follows the proportions of the file, whatever they are: a file of 432 bytes that holds
 * 1 x 1,000,000 pixels makes a width of 1,000 a destination of 3 GB. To bound it, give both sides, or check dst in a setup
 * callout: both sides are filled in by then, storage follows with the first row, and a status other than 0 ends the load.
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
