/* SPDX-License-Identifier: MIT */
/*
 * Codecs: what they implement, the callouts between them and the caller, the registry, and how to drive a codec step by
 * step. Included by pictra.h; docs/codec-modules.md is the guide for authors of modules.
 */
#ifndef PICTRA_CODEC_H
#define PICTRA_CODEC_H

#include "image.h"
#include "stream.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A library handle with its codec registry; see img_lib_attach in pictra.h. */
typedef struct img_lib_handle img_lib_handle;

/* ---- Decoding: what codec and caller exchange ----------------------------------------------------------------- */

/* The order in which a codec delivers rows (setup of img_decode_callouts) or fetches them (of img_encode_callouts). */
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
 * null. For the caller's functions, data is the table's data and record is the caller's record; a codec passes the
 * data of the table that it was given, and its own record. All of them run on the thread that called the library. What
 * the pointers lead to is borrowed for the call.
 */
typedef struct img_decode_callouts {
    /* Returns the index of the format to decode to, among those that the codec can produce. */
    uint32_t (*choose_format)(void *data, img_record *record, const img_format *formats, uint32_t nformats);
    /* Sees or completes the record before storage is allocated. A status other than 0 ends the decode with it. */
    img_status (*setup)(void *data, img_record *record, uint32_t setup_flags);
    /* The decode failed after a successful setup. The storage that the library allocated is still there, and released
     * afterwards. */
    void (*abort)(void *data, img_record *record);
    /* Progress. A status other than 0 asks the codec to stop with it. */
    img_forward_func scanline;
    /*
     * The codec's palette: the record's ncolors entries in the given format. 0: handled; otherwise the library stores
     * it.
     */
    img_status (*set_palette)(void *data, img_record *record, const void *palette, img_format format);
    /* The colour key, after it was stored in the record. */
    void (*set_transparency)(void *data, img_record *record, uint32_t key);
    /* The frame is complete. */
    void (*frame)(void *data, img_record *record);
    /* A value that the codec reports (values.h). */
    img_forward_func set_value;
    void *data;
} img_decode_callouts;

/* The same for encoding: the steps that a caller may take over, and the table that a codec receives. */
typedef struct img_encode_callouts {
    /* Returns the index of the format to write, among those that the codec can write; nformats or more means none. */
    uint32_t (*choose_format)(void *data, img_record *image, const img_format *formats, uint32_t nformats);
    /* Sees the image before its pixels are fetched, and may still give it storage. A status other than 0 ends the
     * encode with it. An image with pixels but without storage is then refused with IMG_ST_BADARG, and abort called. */
    img_status (*setup)(void *data, img_record *image, uint32_t setup_flags);
    /* The encode failed after a successful setup callout. */
    void (*abort)(void *data, img_record *image);
    /* Progress. A status other than 0 asks the codec to stop with it. */
    img_forward_func scanline;
    /* Fills dst with the image's ncolors palette entries in the given format. IMG_ST_BADARG without a palette. */
    img_status (*get_palette)(void *data, img_record *image, void *dst, img_format format);
    /* Stores the colour key at dst as a pixel in the format that the codec writes; for palette formats, even of 1 and 4
     * bits, that is the index. dst has room for four bytes: the key may pass through it in the caller's format.
     * IMG_ST_BADARG without a key. */
    img_status (*get_transparency)(void *data, img_record *image, void *dst);
    /* The frame is written. */
    void (*frame)(void *data, img_record *image);
    void *data;
} img_encode_callouts;

/* ---- Codecs --------------------------------------------------------------------------------------------------- */

/*
 * What a codec implements; any slot may be null. state points at one word that is null before begin and belongs to the
 * codec until finish. docs/codec-modules.md holds the whole contract of a codec.
 */
typedef struct img_codec_funcs {
    /* 0 if the stream holds this codec's format, else IMG_ST_WRONGFORMAT. Leaves the stream where it was. */
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

/* Fills the table, which has size bytes, and returns 0. Any other status is a failure that is handed on. */
typedef img_status img_getfuncs_func(img_codec_funcs *table, size_t size);

/* The entry of a codec module: exported by every module, not by the library. */
IMG_API img_getfuncs_func img_codec_getfuncs;

/* One entry of the registry. */
typedef struct img_codec img_codec;

/* ---- Codec registry --------------------------------------------------------------------------------------------- */

/*
 * Registers the codec module at path, to be opened when first needed. extensions (without the dot) and mime_types are
 * lists joined by ":"; an empty name ends them, and either may be null. All strings are copied. The codec belongs to
 * the handle and is found before all older ones. Null when out of memory. No other thread may use the handle meanwhile.
 */
IMG_API img_codec *img_codec_register_dll(img_lib_handle *handle, const char *path, const char *extensions,
                                          const char *mime_types);

/* The same for functions of the program: getfuncs is called at once. Null when out of memory or if getfuncs fails. */
IMG_API img_codec *img_codec_register(img_lib_handle *handle, img_getfuncs_func *getfuncs, const char *extensions,
                                      const char *mime_types);

/* Removes the codec from the registry, closes its module and frees it. No other thread may use the handle meanwhile. */
IMG_API void img_codec_deregister(img_lib_handle *handle, img_codec *codec);

/*
 * Lists the codecs, newest first, without the nexclude ones in exclude. Stores up to max of them in out, which may be
 * null if max is 0, and returns how many there are in all. The codecs stay the handle's.
 */
IMG_API uint32_t img_codec_list(img_lib_handle *handle, img_codec **out, uint32_t max, img_codec *const *exclude,
                                uint32_t nexclude);

/* The same for the codecs of path's extension: the text after its last dot, whether in upper or lower case. */
IMG_API uint32_t img_codec_list_byext(img_lib_handle *handle, const char *path, img_codec **out, uint32_t max);

/* The same for the codecs of a MIME type, whether in upper or lower case. */
IMG_API uint32_t img_codec_list_bymime(img_lib_handle *handle, const char *mime_type, img_codec **out, uint32_t max);

/*
 * Returns what a codec was registered for. Each list is a sequence of strings, ended by an empty one, or null; it
 * belongs to the codec. Either pointer may be null.
 */
IMG_API void img_codec_get_criteria(img_codec *codec, const char **extensions, const char **mime_types);

/*
 * Opens the codec's module and fetches its functions, once: later calls return 0 whatever the first one returned, and a
 * codec that did not open stays without functions. The drivers call it. Call it yourself to choose when a module is
 * opened, and before several threads use the codec: it must not run in two threads at once for one codec.
 *
 * IMG_ST_OK      done, now or earlier
 * IMG_ST_MODULE  the module does not open or lacks img_codec_getfuncs; other values are the module's own
 */
IMG_API img_status codec_init(img_codec *codec);

/* Closes the module and frees a codec that is in no registry. */
IMG_API void codec_release(img_codec *codec);

/* ---- Decode and encode step by step ------------------------------------------------------------------------------ */

/*
 * Finds the first candidate whose validate function accepts the stream, and stores its index in *index if index is not
 * null. All pointers are borrowed.
 *
 * IMG_ST_OK      one accepts
 * IMG_ST_NOCODEC there are no candidates
 * Otherwise none accepts, and the status is that of the last one: IMG_ST_MODULE if its module does not open,
 * IMG_ST_NOTSUP if it cannot recognise its format, or what its validate function returned.
 */
IMG_API img_status img_decode_validate(img_codec *const *candidates, uint32_t ncandidates, io_handle *stream,
                                       uint32_t *index);

/*
 * Begins decoding with a codec. *state must be null; it belongs to the codec until img_decode_finish. IMG_ST_NOTSUP if
 * it cannot decode, IMG_ST_MODULE if its module does not open; others are the codec's.
 */
IMG_API img_status img_decode_begin(img_codec *codec, io_handle *stream, void **state);

/*
 * Decodes one image into record, as img_load does; statuses are as there. callouts may be null. IMG_ST_MODULE if the
 * codec cannot decode or its module does not open.
 */
IMG_API img_status img_decode_frame(img_codec *codec, io_handle *stream, const img_decode_callouts *callouts,
                                    img_record *record, void **state);

/* Ends decoding. Must follow every successful begin, whatever the frames returned. The status is the codec's. */
IMG_API img_status img_decode_finish(img_codec *codec, io_handle *stream, void **state);

/*
 * Begins encoding with a codec. *state must be null; it belongs to the codec until img_encode_finish. IMG_ST_NOTSUP if
 * it cannot encode, IMG_ST_MODULE if its module does not open; others are the codec's.
 */
IMG_API img_status img_encode_begin(img_codec *codec, io_handle *stream, void **state);

/*
 * Encodes one image, as img_write does; statuses are as there. callouts may be null. IMG_ST_NOTSUP if the codec cannot
 * encode, IMG_ST_MODULE if its module does not open.
 */
IMG_API img_status img_encode_frame(img_codec *codec, io_handle *stream, const img_encode_callouts *callouts,
                                    img_record *image, void **state);

/* Ends encoding. Must follow every successful begin, whatever the frames returned. The status is the codec's. */
IMG_API img_status img_encode_finish(img_codec *codec, io_handle *stream, void **state);

#ifdef __cplusplus
}
#endif

#endif
