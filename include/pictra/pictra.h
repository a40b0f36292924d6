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
 * Sizes are in pixels, rows or bytes as stated. Pixels of 16 and 32 bits may be at any address.
 *
 * Image operations return img_status; a function lists the statuses that the library itself returns. Stream operations
 * report failure the POSIX way: -1, or a short count. No callout may throw or jump out.
 *
 * Threads. Any function may be called from several threads at once if they pass different records and streams. A handle
 * may be shared by threads that list codecs, load and write, as long as no thread registers or deregisters a codec or
 * detaches, and every codec was initialised before (codec_init). Codecs and callouts run on the calling thread;
 * img_load_resize says what runs on its second one. Between calls the library keeps only the registry of each handle,
 * the abort request of img_resize_set_abort, and the imglog_* variables.
 */
#ifndef PICTRA_PICTRA_H
#define PICTRA_PICTRA_H

#include "codec.h"
#include "image.h"
#include "routines.h"
#include "stream.h"

#define PICTRA_VERSION_MAJOR 0
#define PICTRA_VERSION_MINOR 1
#define PICTRA_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Library handle and log ------------------------------------------------------------------------------------ */

/*
 * Creates a handle and fills its codec registry from the configuration file: the one that the environment variable
 * PICTRA_CFGFILE names, else /etc/system/config/img.conf. No module is opened yet. Never returns for a file whose first
 * entry is a key (see img_cfg_read). Do not call it while another thread changes the environment.
 *
 * IMG_ST_OK      done
 * IMG_ST_NOMEM   out of memory; *handle is null if the handle itself could not be allocated
 * IMG_ST_CONFIG  the file is missing or has errors; the handle is valid and has the codecs that were registered
 */
IMG_API img_status img_lib_attach(img_lib_handle **handle);

/* Closes every codec module and frees the handle, which no other call may be using. Null is ignored. */
IMG_API void img_lib_detach(img_lib_handle *handle);

/*
 * Registers the codec modules that a configuration file lists, one per section. A file whose first entry is a key is
 * never read to its end (deliberately): do not pass one.
 *
 * IMG_ST_OK      done
 * IMG_ST_NOMEM   out of memory; the modules before that are registered
 * IMG_ST_CONFIG  the file is missing or has errors; all modules that it lists are registered
 */
IMG_API img_status img_cfg_read(img_lib_handle *handle, const char *path);

/*
 * Bit 0x1: print log lines to standard error, too. Every thread reads it: set it before other threads use the library.
 */
IMG_API extern uint32_t imglog_flags;
/* Not read by the library; initially 8. */
IMG_API extern uint32_t imglog_verbose;
/* Constant 1. */
IMG_API extern const uint32_t enable_output;

/*
 * Logs "pictra:function(line): message" to the system logger, and to standard error if imglog_flags says so. severity
 * 2 is an error. code is ignored. Messages are cut at 4095 bytes; errno is left alone. Any thread may call it.
 */
IMG_API void imglog(uint32_t severity, const char *function, int32_t line, uint64_t code, const char *format, ...)
    IMG_PRINTF(5, 6);

/* ---- Load and write -------------------------------------------------------------------------------------------- */

/*
 * Loads the image in a file, asking the codecs of its extension first and then all others. What the caller filled in
 * beforehand (format, size, storage, palette, IMG_F_WANT_ALPHA, IMG_F_SIZE_HINT) is honoured; the rest is filled in.
 * callouts may be null. record and callouts are borrowed. Storage that the record lacked is given to the caller.
 *
 * A palette of the caller's own gets as many entries as the file has, whatever ncolors says: bring room for 256, and
 * clear IMG_F_PALETTE before a record is used again. With IMG_F_SIZE_HINT, width and height are overwritten with the
 * file's even if the caller supplied the buffer, which must then be large enough for any picture; without it the
 * picture is cut to the record's size.
 *
 * After a failure the record may have a format and a size, but no storage that it did not have before.
 *
 * IMG_ST_OK      done
 * IMG_ST_NOCONV  no conversion from the codec's format to the record's
 * IMG_ST_NOCODEC no codec of the extension, and none of the others accepted the data
 * IMG_ST_NOMEM   out of memory, or a file or buffer of 4 GiB or more
 * IMG_ST_MODULE  the module of the last codec of the extension does not open
 * IMG_ST_FILE    the file cannot be opened
 * IMG_ST_BADARG  the codec set a palette that the record has no place for
 * IMG_ST_NOTSUP  the codec cannot decode, or the last one of the extension cannot recognise its format
 * Others are the codec's (IMG_ST_WRONGFORMAT, IMG_ST_DAMAGED, IMG_ST_LIMIT) or a callout's. If no codec accepts the
 * data, the status is that of the last codec of the extension.
 */
IMG_API img_status img_load_file(img_lib_handle *handle, const char *path, const img_decode_callouts *callouts,
                                 img_record *record);

/*
 * The same from a stream, which stays the caller's and is at the end of the picture afterwards. All codecs are asked,
 * newest first; if none accepts the data, the status is that of the last one asked. IMG_ST_FILE comes from codecs only.
 */
IMG_API img_status img_load(img_lib_handle *handle, io_handle *stream, const img_decode_callouts *callouts,
                            img_record *record);

/*
 * Writes an image to a file with the newest codec of its extension. callouts may be null. image and callouts are
 * borrowed. A file that could not be written is removed; a disk that is full at the final flush goes unnoticed, so
 * programs that must know write through img_write and flush the stream themselves.
 *
 * IMG_ST_OK      done
 * IMG_ST_NOCODEC no codec for the extension
 * IMG_ST_BADFMT  the palette or the colour key cannot be converted to the format that the codec writes
 * IMG_ST_NOMEM   out of memory
 * IMG_ST_MODULE  the codec's module does not open
 * IMG_ST_FILE    the file cannot be created
 * IMG_ST_BADARG  the image has pixels but no storage, or lacks a palette that is needed
 * IMG_ST_NOTSUP  the codec cannot write
 * Others are the codec's or a callout's.
 */
IMG_API img_status img_write_file(img_lib_handle *handle, const char *path, const img_encode_callouts *callouts,
                                  img_record *image);

/*
 * The same to a stream, which stays the caller's and is not flushed, with the first codec of the list; the list must
 * have one, and needs no end. handle is not used.
 */
IMG_API img_status img_write(img_lib_handle *handle, io_handle *stream, const img_encode_callouts *callouts,
                             img_record *image, img_codec *const *codecs);

/* ---- Pixel conversion -------------------------------------------------------------------------------------------- */

/* Copies count pixels; after each, dst advances by step bytes, which may be negative. */
typedef void img_copy_routine(const void *src, void *dst, int32_t step, uint32_t count);
typedef img_copy_routine *img_copy_func;

/*
 * Writes, for each of count indices, the palette entry of that number. palette has packed entries of the destination's
 * pixel size and must cover every index that occurs. src and dst may be the same address. A count of 0 is allowed for
 * 8-bit indices only.
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
 * Prepares the conversion of runs of src's format into dst's; only formats and palettes of the records are looked at.
 * The state is given to the caller, who releases it with img_dtransform_free. Into FMT_ARGB8888HE it refers to src's
 * palette, which must not change until then and must reach as far as the indices do; in other formats indices from
 * src's ncolors on give 0. On failure *state is null.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADFMT  direct colour into a palette format, or no routine for the pair
 * IMG_ST_NOMEM   out of memory
 * IMG_ST_BADARG  a record has no format, or the source has indices but no palette
 */
IMG_API img_status img_dtransform_create(const img_record *src, const img_record *dst, img_dtransform_state **state);

/*
 * Converts one run of count pixels, which must not be 0 for 1- and 4-bit indices. src and dst may be the same address.
 * Several threads may use one state at once.
 */
IMG_API void img_dtransform_apply(const img_dtransform_state *state, const void *src, void *dst, uint32_t count);

/* Releases a state. Null is ignored. */
IMG_API void img_dtransform_free(img_dtransform_state *state);

/*
 * Copies an image into another record, converting to the destination's format. What dst lacks of format, width and
 * height is copied from src, with a palette format its ncolors as well; the part at the top left that both have in
 * common is copied. Storage that dst lacks is allocated and given to the caller, for a palette format with a palette of
 * dst's ncolors entries. After a failure dst has no storage that it did not have before. src is borrowed.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADFMT  no conversion for the pair of formats
 * IMG_ST_NOMEM   out of memory
 * IMG_ST_BADARG  src lacks format, width, height, a palette that is needed, or storage
 */
IMG_API img_status img_dtransform(const img_record *src, img_record *dst);

/* The same upside down: the first source row becomes the last of the common rows. */
IMG_API img_status img_dtransform_bu(const img_record *src, img_record *dst);

/* ---- Geometry ---------------------------------------------------------------------------------------------------- */

/*
 * Rules for img_flip, img_crop and img_rotate_ortho. They copy into another record, converting to the destination's
 * format. What dst lacks of format (and, except for img_crop, of width and height) is copied from src and flagged, even
 * if a later step fails. Storage that dst lacks is allocated and given to the caller, a palette included; after a
 * failure dst has no storage that it did not have before. src and its palette are borrowed. The colour key is not
 * copied. If the common width or height is 0, no access function is called (with IMG_ANGLE_0, img_dtransform decides).
 * 1- and 4-bit indices that start inside a byte are read from the next byte on; indices after the end of the row are 0.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADFMT  dst's format has no strided copy (img_copy_getfunc), or there is no conversion from src's format
 * IMG_ST_NOMEM   out of memory
 * IMG_ST_BADARG  src lacks format, width, height, a palette that is needed, or storage
 */

/*
 * Flips an image top to bottom in place: whole rows of stride bytes change places. IMG_ST_BADFMT without a pixel
 * buffer, IMG_ST_NOMEM when out of memory.
 */
IMG_API img_status img_flip_vertical(img_record *image);

/*
 * Flips an image left to right in place. Depths of 1, 8, 16, 24 and 32 bits. A width below 2 or a height of 0 is
 * IMG_ST_OK. IMG_ST_BADFMT without a pixel buffer or for another depth, IMG_ST_NOCODEC for a depth of 0.
 */
IMG_API img_status img_flip_horizontal(img_record *image);

/* Directions of img_flip. */
enum {
    IMG_FLIP_HORIZONTAL = 0, /* left to right */
    IMG_FLIP_VERTICAL = 1    /* top to bottom */
};

/*
 * Copies an image flipped, by the rules above. A smaller destination gets the right and bottom part. An access function
 * gets the rows from the bottom up in either direction. IMG_ST_BADFMT for another direction, too.
 */
IMG_API img_status img_flip(const img_record *src, img_record *dst, uint32_t direction);

/*
 * Copies a rectangle of src by the rules above: of dst's width and height, which dst must have, with its top left pixel
 * at (x, y). IMG_ST_BADARG also if it is not inside src.
 */
IMG_API img_status img_crop(const img_record *src, img_record *dst, uint32_t x, uint32_t y);

/* Angles of img_rotate_ortho: clockwise, in radians as 16.16 fixed point. */
enum { IMG_ANGLE_0 = 0, IMG_ANGLE_90 = 0x1921f, IMG_ANGLE_180 = 0x3243f, IMG_ANGLE_270 = 0x4b65f };

/*
 * Copies an image rotated, by the rules above. At 90 and 270 degrees, width and height that dst lacks are src's height
 * and width. An access function gets these rotations in blocks of eight columns, line by line. IMG_ANGLE_0 is
 * img_dtransform.
 * IMG_ST_BADFMT for another angle, too.
 */
IMG_API img_status img_rotate_ortho(const img_record *src, img_record *dst, uint32_t angle);

/* ---- Resize ------------------------------------------------------------------------------------------------------ */

/* Averages the count pixels of two lines, channel by channel, rounding down. dst may be one of the lines. */
typedef void img_avg_routine(const void *a, const void *b, void *dst, uint32_t count);
typedef img_avg_routine *img_avg_func;

/* The averaging routine of a format, or null: palette formats, FMT_A8, FMT_XBGR8888* and FMT_ABGR8888OE have none. */
IMG_API img_avg_func img_avg_getfunc(img_format format);

/*
 * Copies an image at another size, converting to the destination's format. If one of dst's width and height is missing,
 * it follows the other in src's proportions (rounded down, at least 1; the product wraps at 32 bits); if both are
 * missing, they are src's, as is a missing format. Storage that dst lacks is allocated and given to the caller; after a
 * failure dst has no storage that it did not have before. src is borrowed. Access functions are called for whole rows.
 * src and dst may share a buffer that is large enough.
 *
 * Takes nearest pixels and averages of two neighbours, after exact halving where the reduction is more than 2:1.
 *
 * IMG_ST_OK      done
 * IMG_ST_BADFMT  dst's format is a palette format, the formats cannot be converted, or the deeper one cannot be scaled
 *                (img_avg_getfunc)
 * IMG_ST_NOMEM   out of memory, or img_resize_set_abort requested a stop; rows written so far stay written
 * IMG_ST_BADARG  src lacks format, width, height, a palette that is needed, or storage, or a width or height is 0
 */
IMG_API img_status img_resize_fs(const img_record *src, img_record *dst);

/* The same upside down: the first row of the result becomes dst's last. */
IMG_API img_status img_resize_fsbu(const img_record *src, img_record *dst);

/*
 * Asks every resize that is running in the process to stop, if abort is not 0. Each one checks once per row; one that
 * starts later clears the request. Any thread may call it.
 */
IMG_API void img_resize_set_abort(uint32_t abort);

/*
 * Loads an image at another size, without holding the full-size one if the codec delivers rows in order: the calling
 * thread decodes while a second one resizes. dst's format, width, height and storage are as for img_resize_fs, but for
 * a missing side, which is computed in 64 bits; IMG_F_WANT_ALPHA in dst is passed on. callouts may be null. Everything
 * is borrowed.
 *
 * The codec and all callouts run on the calling thread. dst's access function runs on the second thread if the codec
 * delivers rows in order, at the same time as the codec, otherwise on the calling thread after it.
 *
 * choose_format, which is called if dst has no format, sees dst, and the codec is then asked to decode at dst's size if
 * it can. setup, set_palette, set_transparency, frame and abort see the record of the load; set_value sees dst. A
 * status other than 0 from scanline stops load and resize. If the load fails after all rows of the result were made,
 * dst has them. An image of its own size for an access function is loaded with img_load_file: here nothing would be
 * resized, img_dtransform would request the last row first, and all other rows would be lost.
 *
 * A missing side follows the proportions of the file, whatever they are: a file of 432 bytes with 1 x 1,000,000 pixels
 * turns a width of 1,000 into a destination of 3 GB. To bound it, give both sides, or check dst in a setup callout:
 * both sides are filled in by then, storage is allocated with the first row, and a status other than 0 ends the load.
 *
 * IMG_ST_NOMEM  out of memory, no second thread, or stopped by img_resize_set_abort
 * Others are those of img_load_file and img_resize_fs.
 */
IMG_API img_status img_load_resize_file(img_lib_handle *handle, const char *path, const img_decode_callouts *callouts,
                                        img_record *dst);

/* The same from a stream, which stays the caller's. */
IMG_API img_status img_load_resize(img_lib_handle *handle, io_handle *stream, const img_decode_callouts *callouts,
                                   img_record *dst);

#ifdef __cplusplus
}
#endif

#endif
