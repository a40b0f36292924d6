// SPDX-License-Identifier: MIT
//
// The GIF codec module. giflib is used for writing only.
//
// A GIF file draws its pictures one after the other onto a canvas. The first picture, if it covers the canvas, is PAL8, and
// its rows are delivered as they are decoded. Every other picture may mix palettes, so it is ARGB8888HE and shows the whole
// canvas. A caller that asks for ARGB8888HE with IMG_F_WANT_ALPHA gets all pictures of a file in one format.
#pragma once

#include "modules/common/entry.h"
#include "modules/gif/lzw.h"

#include <gif_lib.h>

namespace gif {

using namespace codec;

inline constexpr uint32_t max_side = UINT16_MAX; // the file has 16 bits for a size

enum class Disposal : uint8_t { unspecified, none, background, previous };

using Words = std::unique_ptr<uint32_t, Delete<uint32_t>>;

// The colour map of the file or of a picture.
struct Colors {
    uint32_t depth, count; // 0 without a map
    uint8_t rgb[3 * max_colors];
};

// The extension before a picture that says how it is shown.
struct Control {
    Disposal disposal = Disposal::unspecified;
    uint32_t delay = 0; // in hundredths of a second
    bool present = false, has_transparent = false;
    uint8_t transparent = 0;
};

struct Area {
    uint32_t left, top, width, height;
};

class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = true;
    static bool recognises(const Signature &start);

    using BaseReader::BaseReader;
    img_status frame();

private:
    bool read(uint8_t *dst, size_t length) { return read_up_to(stream_, dst, length) == length; }
    img_status read_header();
    bool read_colors(Colors &map, uint8_t flags);

    img_status next_picture();
    img_status read_picture_header();
    img_status take_palette();
    img_status read_extension();
    img_status read_control();
    img_status read_application();
    img_status report_loops();
    enum class Keep : uint8_t { contents, contents_and_lengths };
    img_status keep_blocks(Keep what);
    img_status read_comment();
    img_status read_profile();
    img_status read_xmp();

    template <typename Use> img_status read_lines(Use use);
    bool covers_canvas() const {
        return !image_.left && !image_.top && image_.width >= width_ && image_.height >= height_;
    }
    img_status decode_indices();

    uint32_t *canvas_at(uint32_t x, uint32_t y) const { return canvas_.get() + size_t{y} * width_ + x; }
    img_status make_canvas();
    img_status take_area();
    void dispose_of_last();
    img_status deliver_canvas(uint32_t end);
    img_status decode_on_canvas();
    img_status decode_picture();

    img_status ended_ = ok; // what every further frame gets
    uint32_t pictures_ = 0; // decoded so far
    uint32_t width_ = 0, height_ = 0;
    bool header_read_ = false;
    Colors global_;

    // The current picture.
    Control control_;
    Colors local_;
    Area image_{}; // as the file has it, which may reach beyond the canvas
    bool interlaced_ = false;
    uint32_t palette_[max_colors]; // alpha is 0 or 255
    uint32_t ncolors_ = 0;
    uint8_t index_bits_ = 0; // of its codes
    Blocks blocks_;
    Lzw codes_;
    uint8_t line_[max_side];

    // What the next picture is drawn on: the indices of the first picture and their colours, or, from the second
    // picture on, the canvas.
    Bytes first_;
    uint32_t first_palette_[max_colors];
    Words canvas_;
    uint32_t shown_ = 0;                        // rows of the canvas that were delivered
    Disposal disposal_ = Disposal::unspecified; // of the last picture on the canvas
    Area area_{};                               // that it covers
    Words hidden_;                              // what the area showed before, if that is to be restored

    Buffer kept_; // contents of the current extension, up to max_block bytes
    size_t kept_length_ = 0;
};

// The palette of a file has as many entries as a power of two.
using ColorMap = std::unique_ptr<ColorMapObject, decltype(&GifFreeMapObject)>;

class Writer : public BaseWriter {
public:
    static constexpr bool many_pictures = true;

    using BaseWriter::BaseWriter;
    img_status begin();
    img_status frame();
    img_status finish();

private:
    struct Asked;

    static int write_bytes(GifFileType *gif, const GifByteType *src, int length);
    img_status checked(int result) const;
    img_status ask(Asked &asked) const;
    img_status take_colors();
    ColorMap make_map() const;
    bool has_global_colors(const ColorMapObject &map) const;
    img_status write_loops(uint32_t loops);
    img_status write_comments(const img_bytes &answer);
    img_status write_file_header(const ColorMapObject &map, const Asked &asked);
    img_status write_control(uint32_t delay);
    img_status write_headers(const ColorMapObject &map, const Asked &asked);
    img_status write_rows();
    img_status write_picture(const ColorMapObject &map, const Asked &asked);
    img_status encode_picture();

    GifFileType *gif_ = nullptr;
    img_status failure_ = ok;
    uint32_t pictures_ = 0; // written so far
    GifColorType global_[max_colors];
    uint32_t nglobal_ = 0; // a power of two

    // The current picture.
    uint32_t palette_[max_colors];
    GifColorType colors_[max_colors];
    uint32_t ncolors_ = 0;
    int transparent_ = NO_TRANSPARENT_COLOR;
    uint8_t index_of_[max_colors]; // all transparent entries become one
    uint8_t line_[max_side];
};

} // namespace gif
