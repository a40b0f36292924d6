// SPDX-License-Identifier: MIT
//
// What the parts of the PNG module share: libpng under control.
//
// libpng reports errors by longjmp. It is called from guarded() only; what runs inside has no object with a destructor, and
// everything that changes there lives in the state on the heap, which is released after the jump.
#pragma once

#include "modules/common/exif.h"
#include "modules/common/layout.h"

#include <png.h>
#include <string.h>

namespace module {

struct State {
    png_structp png = nullptr;
    png_infop info = nullptr;
    io_handle *stream = nullptr;
    img_status failure = no_memory; // what a jump out of libpng means
    size_t allowance = SIZE_MAX;    // bytes that libpng may still allocate
    bool strict = false;            // what libpng only warns of is an error
    char warning[128] = "";         // the first one

    State() = default;
    State(const State &) = delete;
    State &operator=(const State &) = delete;
};

struct Reader : State {
    Decoding picture;
    Bytes whole;                       // an interlaced image that cannot be decoded in place
    bool held = false;                 // rows are handed over when all passes are done
    bool values = false;               // somebody listens to values
    int texts = 0;                     // that have been reported
    bool exif = false, warned = false; // and these
    uint32_t palette[PNG_MAX_PALETTE_LENGTH];
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

struct Writer : State {
    Encoding picture;
    Metadata metadata;
    Bytes xmp_text;    // that of the metadata and a zero
    int level, filter; // options
    bool interlace;
    Bytes whole; // for the passes of an interlaced file
    uint32_t palette[max_colors];
    png_byte alpha[max_colors];
    ~Writer() { png_destroy_write_struct(&png, &info); }
};

// The functions that a State gives to libpng.
[[noreturn]] void on_error(png_structp png, png_const_charp text);
void on_warning(png_structp png, png_const_charp text);
png_voidp allocate(png_structp png, png_alloc_size_t size);
void release(png_structp png, png_voidp block);

// Runs a step that calls libpng.
template <typename S> img_status guarded(S &state, img_status (*step)(S &)) {
    if (setjmp(png_jmpbuf(state.png))) return state.failure;
    return step(state);
}

// Bytes that libpng may allocate for all texts and profiles of a file on one side of its pixels, whatever they were
// compressed to.
inline constexpr size_t values_allowance = 64 << 20;

// Before the file is read: has libpng keep what is reported, and nothing else.
void keep_values(Reader &reader);
// Reports what has been read since the last time.
enum class When : uint8_t { before_pixels, after_pixels };
img_status report_values(Reader &reader, When when);

// What the caller answers, and where it goes: after the header, before the pixels.
img_status ask_for_metadata(Writer &writer);
img_status set_metadata(Writer &writer);

img_status png_encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state);

} // namespace module
