// SPDX-License-Identifier: MIT
//
// The PNG codec module, on libpng, which reports errors to functions that may not return: they leave through the Guard.
#pragma once

#include "modules/common/entry.h"
#include "modules/common/exif.h"
#include "modules/common/layout.h"

#include <png.h>
#include <string.h>

namespace png {

using namespace codec;

class State : protected Guard {
protected:
    // The functions that a State gives to libpng.
    [[noreturn]] static void on_error(png_structp png, png_const_charp text);
    static void on_warning(png_structp png, png_const_charp text);
    static png_voidp allocate(png_structp png, png_alloc_size_t size);
    static void release(png_structp png, png_voidp block);

    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    size_t allowance_ = SIZE_MAX; // bytes that libpng may still allocate
    bool strict_ = false;         // libpng's warnings are errors
    char warning_[128] = "";      // the first one
};

img_status ask_strict(const Decoding &picture, bool &strict);

// Also reads the PNG files in icons.
class Reader : public BaseReader, State {
public:
    static constexpr bool many_pictures = false;
    static bool recognises(const Signature &start);

    using BaseReader::BaseReader;
    ~Reader() {
        png_destroy_read_struct(&png_, &info_, nullptr);
        picture_.release(whole_size_); // an icon has more pictures
    }
    img_status frame();
    img_status read(bool strict); // the same; strict: the answer to ask_strict

private:
    struct Source;
    enum class When : uint8_t { before_pixels, after_pixels };

    static void read_bytes(png_structp png, png_bytep dst, size_t length);
    img_status decode();
    img_status describe(Source &source) const;
    Offer offer_for(const Source &source) const;
    img_status set_palette(const Source &source);
    void set_key(const Source &source) const;
    void set_transformations(const Source &source) const;
    void set_portion() const;
    img_status read_rows();
    uint8_t *held_row(uint32_t y) const;
    img_status read_passes(uint32_t passes);
    img_status hand_over_held();

    void keep_values();
    img_status report_values(When when);
    bool resolution(img_resolution &found) const;
    img_status report_resolution() const;
    img_status report_profile() const;
    img_status report_exif_once();
    img_status report_texts();

    Bytes whole_; // an interlaced image that cannot be decoded in place
    uint64_t whole_size_ = 0;
    bool held_ = false;                           // rows are handed over when all passes are done
    int texts_ = 0;                               // that have been reported
    bool exif_reported_ = false, warned_ = false; // and these
    uint32_t palette_[max_colors];
};

class Writer : public BaseWriter, State {
public:
    static constexpr bool many_pictures = false;

    using BaseWriter::BaseWriter;
    ~Writer() { png_destroy_write_struct(&png_, &info_); }
    img_status frame();

private:
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
