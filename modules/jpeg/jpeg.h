// SPDX-License-Identifier: MIT
//
// The JPEG codec module, on libjpeg. It decodes at an eighth to the whole of the size.
#pragma once

#include "modules/common/entry.h"
#include "modules/common/exif.h"
#include "modules/common/layout.h"

#include <stdio.h>

// libjpeg's header needs the one above.
#include <jerror.h>
#include <jpeglib.h>

namespace jpeg {

using namespace codec;

// What the markers of metadata begin with, zeros included.
inline constexpr char exif_mark[] = "Exif\0";
inline constexpr char xmp_mark[] = "http://ns.adobe.com/xap/1.0/";
inline constexpr char icc_mark[] = "ICC_PROFILE";
inline constexpr size_t max_marker = 65533;
inline constexpr size_t block_size = 16 * 1024;

// What both directions share: libjpeg under control.
class State : protected Guard {
protected:
    // Gives libjpeg what reports to this state. state_of finds it again in libjpeg's functions.
    void begin(jpeg_common_struct *libjpeg);
    template <typename S, typename Codec> static S &state_of(Codec *libjpeg) {
        return *static_cast<S *>(static_cast<State *>(libjpeg->client_data));
    }

    bool cut_ = false;   // libjpeg lacked bytes of the picture
    bool ended_ = false; // the stream has no more
    jpeg_error_mgr errors_;
    char warning_[JMSG_LENGTH_MAX]; // the first one
    uint8_t block_[block_size];     // of the stream

private:
    [[noreturn]] static void on_error(j_common_ptr libjpeg);
    static void on_message(j_common_ptr libjpeg, int level);
};

// The format as libjpeg names it. Of those that layout.h knows without alpha.
inline J_COLOR_SPACE color_space_of(img_format format) {
    const Layout *layout = layout_of(format);
    if (!layout) return JCS_GRAYSCALE;
    if (layout->fourth == Fourth::none) return layout->blue_first ? JCS_EXT_BGR : JCS_EXT_RGB;
    if (layout->fourth == Fourth::last) return layout->blue_first ? JCS_EXT_BGRX : JCS_EXT_RGBX;
    return layout->blue_first ? JCS_EXT_XBGR : JCS_EXT_XRGB;
}

class Reader : public BaseReader, State {
public:
    static constexpr bool many_pictures = false;
    static bool recognises(const Signature &start);

    using BaseReader::BaseReader;
    ~Reader() { jpeg_destroy_decompress(&libjpeg_); }
    img_status frame();

private:
    friend State;
    struct Marker;

    static boolean fill(j_decompress_ptr libjpeg);
    static void skip(j_decompress_ptr libjpeg, long count);
    static void watch_scans(j_common_ptr libjpeg);
    static boolean keep_marker(j_decompress_ptr libjpeg);
    void copy_bytes(uint8_t *to, size_t count);

    template <typename Visit> img_status for_each_marker(Visit visit) const;
    bool resolution(img_resolution &found) const;
    img_status report_profile() const;
    img_status report_markers(bool resolution_known) const;
    img_status report_values() const;

    img_status choose();
    void choose_size();
    img_status hold_coefficients();
    img_status read_rows();
    img_status decode();

    jpeg_decompress_struct libjpeg_{};
    jpeg_source_mgr source_{};
    jpeg_progress_mgr monitor_{};
    bool strict_ = false;
    bool overfull_ = false; // more markers than are kept
    Bytes inks_;            // a row of four channels
    Buffer kept_;           // markers with metadata: code, two bytes of length, content
    size_t kept_size_ = 0;
    int scan_ = 0; // the last one whose blocks were counted
    uint64_t scan_blocks_ = 0;
};

class Writer : public BaseWriter, State {
public:
    static constexpr bool many_pictures = false;

    using BaseWriter::BaseWriter;
    ~Writer() { jpeg_destroy_compress(&libjpeg_); }
    img_status frame();

private:
    friend State;

    static void begin_block(j_compress_ptr libjpeg);
    static boolean empty_block(j_compress_ptr libjpeg);
    static void end_block(j_compress_ptr libjpeg);
    void write_block(size_t size);

    img_status ask();
    img_status choose();
    void set_resolution();
    void set_parameters();
    void write_marker(int code, const char *mark, size_t mark_size, const img_bytes &bytes);
    void write_metadata();
    img_status encode();

    jpeg_compress_struct libjpeg_{};
    jpeg_destination_mgr destination_{};
    Metadata metadata_;
    int quality_ = 0, subsampling_ = 0; // options
    bool progressive_ = false, grey_ = false;
};

} // namespace jpeg
