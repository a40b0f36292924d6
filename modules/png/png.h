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

namespace png {

using namespace codec;

class State {
protected:
    State() = default;
    State(const State &) = delete;
    State &operator=(const State &) = delete;

    // The functions that a State gives to libpng.
    [[noreturn]] static void on_error(png_structp png, png_const_charp text);
    static void on_warning(png_structp png, png_const_charp text);
    static png_voidp allocate(png_structp png, png_alloc_size_t size);
    static void release(png_structp png, png_voidp block);

    // Runs a step that calls libpng.
    template <typename S> static img_status guarded(S &state, img_status (S::*step)()) {
        if (setjmp(png_jmpbuf(state.png_))) return state.failure_;
        return (state.*step)();
    }

    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    img_status failure_ = no_memory; // what a jump out of libpng means
    size_t allowance_ = SIZE_MAX;    // bytes that libpng may still allocate
    bool strict_ = false;            // what libpng only warns of is an error
    char warning_[128] = "";         // the first one
};

img_status ask_strict(const Decoding &picture, bool &strict);

// Reads one file, for icons as well, which hold pictures as PNG files.
class Reader : State {
public:
    ~Reader() { png_destroy_read_struct(&png_, &info_, nullptr); }

    // Reads the file that follows in the stream. strict: what the caller answered to ask_strict.
    img_status read(io_handle &stream, Decoding &picture, bool strict);

private:
    friend State;

    struct Source;
    enum class When : uint8_t { before_pixels, after_pixels };

    static void read_bytes(png_structp png, png_bytep dst, size_t length);
    img_status decode();
    img_status describe(Source &source) const;
    img_status hand_over_palette(const Source &source);
    void hand_over_key(const Source &source) const;
    void set_transformations(const Source &source) const;
    void set_portion() const;
    img_status read_rows();
    uint8_t *held_row(uint32_t y) const;
    img_status read_passes(uint32_t passes);
    img_status hand_over_held() const;

    void keep_values();
    img_status report_values(When when);
    bool resolution(img_resolution &found) const;
    img_status report_resolution() const;
    img_status report_profile() const;
    img_status report_exif();
    img_status report_texts();

    io_handle *stream_ = nullptr;
    Decoding *picture_ = nullptr;
    Bytes whole_;                                 // an interlaced image that cannot be decoded in place
    bool held_ = false;                           // rows are handed over when all passes are done
    int texts_ = 0;                               // that have been reported
    bool exif_reported_ = false, warned_ = false; // and these
    uint32_t palette_[PNG_MAX_PALETTE_LENGTH];
};

class Writer : State {
public:
    ~Writer() { png_destroy_write_struct(&png_, &info_); }

    img_status write();

    io_handle *stream = nullptr;
    Encoding picture;

private:
    friend State;

    static void write_bytes(png_structp png, png_bytep src, size_t length);
    img_status encode();
    img_status ask_for_options();
    img_status ask_for_metadata();
    void set_options() const;
    img_status set_metadata();
    void set_text(const char *keyword, const char *content, bool international = false) const;
    img_status write_header(const Layout *layout);
    img_status write_palette();
    img_status write_key(const Layout *layout);
    img_status write_row(const uint8_t *row) const;
    img_status write_rows();
    img_status write_passes();

    Metadata metadata_;
    Bytes xmp_text_;             // that of the metadata and a zero
    int level_ = 0, filter_ = 0; // options
    bool interlace_ = false;
    Bytes whole_; // for the passes of an interlaced file
    uint32_t palette_[max_colors];
    png_byte alpha_[max_colors];
};

} // namespace png
