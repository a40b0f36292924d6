// SPDX-License-Identifier: MIT
//
// The GIF codec module, on giflib.
//
// A GIF file draws its pictures one after the other onto a canvas. The first picture, if it covers the canvas, is PAL8
// and its rows go out as they are decoded. Every other picture may mix palettes, so it is ARGB8888HE and shows the whole
// canvas. A caller that asks for ARGB8888HE with IMG_F_WANT_ALPHA gets all pictures of a file in one format.
//
// giflib checks little: sizes, places, colour maps and indices are tested here.
#include "modules/common/module.h"
#include "modules/common/text.h"
#include "modules/gif/gif.h"

#include <algorithm>
#include <gif_lib.h>
#include <string.h>
#include <utility>

using namespace module;

namespace {

constexpr uint32_t max_pictures = 10'000;
constexpr size_t max_comment = 64 * 1024;

using Words = std::unique_ptr<uint32_t, Delete<uint32_t>>;
Words make_words(size_t count) { return Words(static_cast<uint32_t *>(calloc(count, sizeof(uint32_t)))); }

struct Area {
    uint32_t left, top, width, height;
};

struct Reader {
    GifFileType *gif;
    io_handle *stream;
    bool cut; // the stream ended in the middle of something
    Decoding picture;
    img_status ended;  // what every further frame gets
    uint32_t pictures; // decoded so far
    uint32_t width, height;

    // The picture at hand.
    GraphicsControlBlock control;
    bool has_control;
    uint32_t palette[max_colors]; // alpha is 0 or 255
    uint32_t ncolors;
    uint8_t line[gif::max_side];

    // What the next picture is drawn on: the indices of the first picture and their colours, until a second one makes the
    // canvas necessary.
    Bytes first;
    uint32_t first_palette[max_colors];
    Words canvas;
    int disposal; // of the last picture on the canvas, which took this area, and hid this if that will be needed
    Area area;
    Words hidden;

    uint8_t comment[max_comment];
    size_t comment_length;

    Reader() = default;
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    ~Reader() {
        if (gif) DGifCloseFile(gif, nullptr);
    }
    bool interlaced() const { return gif->Image.Interlace; }
    uint32_t picture_width() const { return static_cast<uint32_t>(gif->Image.Width); }
    uint32_t picture_height() const { return static_cast<uint32_t>(gif->Image.Height); }
    bool transparent(uint32_t index) const { return control.TransparentColor == static_cast<int>(index); }
};

int read_bytes(GifFileType *gif, GifByteType *dst, int length) {
    auto &reader = *static_cast<Reader *>(gif->UserData);
    const size_t got = read_up_to(*reader.stream, dst, static_cast<size_t>(length));
    reader.cut = got != static_cast<size_t>(length);
    return static_cast<int>(got);
}

img_status decode_validate(io_handle *stream) {
    Signature signature;
    if (const img_status status = peek(*stream, signature)) return status;
    if (signature.length < 6) return wrong_format;
    return memcmp(signature.bytes, GIF87_STAMP, 6) == 0 || memcmp(signature.bytes, GIF89_STAMP, 6) == 0 ? ok
                                                                                                        : wrong_format;
}

img_status decode_begin(io_handle *stream, void **state) {
    want_large_buffer(stream, state);
    auto reader = make<Reader>();
    if (!reader) return no_memory;
    reader->stream = stream;
    int error = 0;
    reader->gif = DGifOpen(reader.get(), read_bytes, &error);
    if (error == D_GIF_ERR_NOT_GIF_FILE) return wrong_format;
    if (!reader->gif) return reader->cut ? damaged : no_memory; // giflib does not tell them apart
    reader->width = static_cast<uint32_t>(reader->gif->SWidth);
    reader->height = static_cast<uint32_t>(reader->gif->SHeight);
    *state = reader.release();
    return ok;
}

img_status decode_finish(io_handle *, void **state) {
    Delete<Reader>()(static_cast<Reader *>(*state));
    *state = nullptr;
    return ok;
}

// ---- What stands between pictures ----

// The file counts how often the animation is repeated, 0 standing for ever.
img_status report_loops(const Reader &r, const GifByteType *block) {
    const uint32_t repeated = uint32_t{block[2]} | uint32_t{block[3]} << 8;
    return r.picture.report(IMG_VALUE_LOOPS, repeated ? repeated + 1 : 0);
}

void add_to_comment(Reader &r, const GifByteType *text, size_t length) {
    if (r.comment_length + length <= max_comment) memcpy(r.comment + r.comment_length, text, length);
    r.comment_length += length;
}

// Blocks have their length first.
img_status read_extension(Reader &r) {
    int code;
    GifByteType *block;
    if (DGifGetExtension(r.gif, &code, &block) == GIF_ERROR) return damaged;
    r.comment_length = 0;
    bool repeats = false;
    for (bool leads = true; block; leads = false) {
        const size_t length = block[0];
        img_status status = ok;
        if (code == GRAPHICS_EXT_FUNC_CODE && length == 4)
            r.has_control = DGifExtensionToGCB(length, block + 1, &r.control) == GIF_OK;
        if (code == COMMENT_EXT_FUNC_CODE) add_to_comment(r, block + 1, length);
        if (code == APPLICATION_EXT_FUNC_CODE && leads)
            repeats = length == 11 && (!memcmp(block + 1, "NETSCAPE2.0", 11) || !memcmp(block + 1, "ANIMEXTS1.0", 11));
        else if (repeats && length == 3 && block[1] == 1)
            status = report_loops(r, block);
        if (status) return status;
        if (DGifGetExtensionNext(r.gif, &block) == GIF_ERROR) return damaged;
    }
    return r.comment_length <= max_comment ? report_text(r.picture, "Comment", r.comment, r.comment_length) : ok;
}

// The colours of the picture at hand. A transparent index needs no colour of its own in the file.
img_status take_palette(Reader &r) {
    const ColorMapObject *map = r.gif->Image.ColorMap ? r.gif->Image.ColorMap : r.gif->SColorMap;
    if (!map) return damaged;
    const auto count = static_cast<uint32_t>(map->ColorCount);
    r.ncolors = std::max(count, static_cast<uint32_t>(r.control.TransparentColor + 1));
    for (uint32_t i = 0; i < r.ncolors; i++) {
        const GifColorType color = i < count ? map->Colors[i] : GifColorType{};
        r.palette[i] =
            (r.transparent(i) ? 0 : 0xff000000u) | uint32_t{color.Red} << 16 | uint32_t{color.Green} << 8 | color.Blue;
    }
    return r.picture.report(IMG_VALUE_DEPTH, static_cast<uint32_t>(map->BitsPerPixel));
}

img_status read_picture_header(Reader &r) {
    if (DGifGetImageHeader(r.gif) == GIF_ERROR) return r.gif->Error == D_GIF_ERR_NOT_ENOUGH_MEM ? no_memory : damaged;
    const GifImageDesc &image = r.gif->Image;
    if (!image.Width || !image.Height) return damaged;
    if (const img_status status = r.picture.check_size(r.picture_width(), r.picture_height())) return status;
    if (r.pictures == max_pictures) return r.picture.refuse({"frames", max_pictures + 1, max_pictures});
    // Some writers leave the size of the canvas open.
    if (!r.width) r.width = static_cast<uint32_t>(image.Left + image.Width);
    if (!r.height) r.height = static_cast<uint32_t>(image.Top + image.Height);
    if (const img_status status = take_palette(r)) return status;
    if (!r.has_control) return ok;
    return r.picture.report(IMG_VALUE_DELAY, static_cast<uint32_t>(r.control.DelayTime) * 10);
}

// Goes to the next picture. A file that ends between pictures only lacks its trailer.
img_status next_picture(Reader &r) {
    r.control = {DISPOSAL_UNSPECIFIED, false, 0, NO_TRANSPARENT_COLOR};
    r.has_control = false;
    for (;;) {
        GifRecordType type;
        const bool readable = DGifGetRecordType(r.gif, &type) == GIF_OK;
        if (!readable && r.gif->Error != D_GIF_ERR_READ_FAILED) return damaged;
        if (!readable || type == TERMINATE_RECORD_TYPE) return r.pictures ? wrong_format : damaged;
        if (type == IMAGE_DESC_RECORD_TYPE) return read_picture_header(r);
        if (const img_status status = read_extension(r)) return status;
    }
}

// ---- Rows ----

// The order in which a picture's rows are stored.
class RowOrder {
public:
    RowOrder(bool interlaced, uint32_t height) : height_(height), pass_(interlaced ? 0 : 4) {}
    uint32_t row() const { return row_; }
    void advance() {
        constexpr uint32_t start[] = {0, 4, 2, 1}, step[] = {8, 8, 4, 2, 1};
        row_ += step[pass_];
        while (row_ >= height_ && pass_ < 3) row_ = start[++pass_];
    }

private:
    uint32_t height_, pass_, row_ = 0;
};

struct Line {
    bool arrived;
    img_status status;
};

// Reads the next row to r.line. With the last pixel giflib reads on to the end of the picture's data, which may be missing
// though the row is there. So this pixel is read by itself, and is index 0 if it was what failed.
Line read_line(Reader &r, bool last) {
    const uint32_t width = r.picture_width(), alone = last ? 1 : 0;
    const auto rest = static_cast<int>(width - alone);
    if (rest && DGifGetLine(r.gif, r.line, rest) == GIF_ERROR) return {false, damaged};
    img_status status = ok;
    if (last) {
        r.line[width - 1] = 0;
        if (DGifGetLine(r.gif, r.line + width - 1, 1) == GIF_ERROR) status = damaged;
    }
    if (!indices_below(r.line, 8, width, r.ncolors)) return {false, damaged};
    return {true, status};
}

// Reads all rows; each is passed on with its place in the picture.
template <typename Use> img_status read_lines(Reader &r, Use use) {
    const uint32_t height = r.picture_height();
    RowOrder order(r.interlaced(), height);
    for (uint32_t i = 0; i < height; i++, order.advance()) {
        const Line line = read_line(r, i + 1 == height);
        if (line.arrived)
            if (const img_status status = use(order.row())) return status;
        if (line.status) return line.status;
    }
    return ok;
}

// ---- The first picture, as indices ----

bool covers_canvas(const Reader &r) {
    const GifImageDesc &image = r.gif->Image;
    return !image.Left && !image.Top && r.picture_width() >= r.width && r.picture_height() >= r.height;
}

// The transparent index becomes the colour key, unless the caller wants alpha: the library makes alpha of a key only in
// host byte order.
img_status hand_over_palette(Reader &r) {
    const bool has_key = r.control.TransparentColor != NO_TRANSPARENT_COLOR;
    const bool as_key = has_key && !(r.picture.record().flags & IMG_F_WANT_ALPHA);
    if (has_key && !as_key) r.picture.add_flags(IMG_F_PAL_ALPHA);
    if (const img_status status = r.picture.set_palette(r.palette)) return status;
    if (as_key) r.picture.set_transparency(static_cast<uint32_t>(r.control.TransparentColor));
    return ok;
}

img_status decode_indices(Reader &r) {
    constexpr img_format format = FMT_PAL8;
    if (const img_status status = r.picture.choose(r.width, r.height, r.ncolors, &format, 1)) return status;
    if (const img_status status = r.picture.setup(r.interlaced() ? 0 : IMG_SETUP_TOPDOWN)) return status;
    if (const img_status status = hand_over_palette(r)) return status;
    const int disposal = r.control.DisposalMode;
    const bool stays = disposal != DISPOSE_BACKGROUND && disposal != DISPOSE_PREVIOUS;
    if (stays && !(r.first = make_bytes(size_t{r.width} * r.height))) return no_memory;
    std::copy_n(r.palette, r.ncolors, r.first_palette);
    uint32_t done = 0;
    return read_lines(r, [&](uint32_t y) {
        if (y >= r.height) return ok;
        memcpy(r.picture.row(y), r.line, r.width);
        if (stays) memcpy(r.first.get() + size_t{y} * r.width, r.line, r.width);
        r.picture.hand_over(y);
        return r.picture.progress(++done);
    });
}

// ---- Further pictures, drawn on the canvas ----

uint32_t *canvas_at(const Reader &r, uint32_t x, uint32_t y) { return r.canvas.get() + size_t{y} * r.width + x; }

void draw(const uint32_t *palette, const uint8_t *indices, uint32_t count, uint32_t *out) {
    for (uint32_t x = 0; x < count; x++) {
        const uint32_t color = palette[indices[x]];
        out[x] = color >> 24 ? color : out[x];
    }
}

img_status make_canvas(Reader &r) {
    r.canvas = make_words(size_t{r.width} * r.height);
    if (!r.canvas) return no_memory;
    if (!r.first) return ok;
    for (uint32_t y = 0; y < r.height; y++)
        draw(r.first_palette, r.first.get() + size_t{y} * r.width, r.width, canvas_at(r, 0, y));
    r.first.reset();
    return ok;
}

void dispose_of_last(Reader &r) {
    const size_t bytes = size_t{r.area.width} * sizeof(uint32_t);
    for (uint32_t y = 0; y < r.area.height; y++) {
        uint32_t *row = canvas_at(r, r.area.left, r.area.top + y);
        if (r.disposal == DISPOSE_BACKGROUND) memset(row, 0, bytes);
        if (r.disposal == DISPOSE_PREVIOUS) memcpy(row, r.hidden.get() + size_t{y} * r.area.width, bytes);
    }
    r.hidden.reset();
}

// Notes what the picture at hand will cover.
img_status take_area(Reader &r) {
    const GifImageDesc &image = r.gif->Image;
    const uint32_t left = std::min(static_cast<uint32_t>(image.Left), r.width);
    const uint32_t top = std::min(static_cast<uint32_t>(image.Top), r.height);
    r.area = {left, top, std::min(r.picture_width(), r.width - left), std::min(r.picture_height(), r.height - top)};
    r.disposal = r.control.DisposalMode;
    if (!r.area.width) r.area.height = 0;
    if (r.disposal != DISPOSE_PREVIOUS || !r.area.height) return ok;
    r.hidden = make_words(size_t{r.area.width} * r.area.height);
    if (!r.hidden) return no_memory;
    for (uint32_t y = 0; y < r.area.height; y++)
        memcpy(r.hidden.get() + size_t{y} * r.area.width, canvas_at(r, left, top + y), r.area.width * sizeof(uint32_t));
    return ok;
}

// Hands over the rows from begin to end.
img_status hand_over_canvas(const Reader &r, uint32_t begin, uint32_t end) {
    for (uint32_t y = begin; y < end; y++) {
        memcpy(r.picture.row(y), canvas_at(r, 0, y), size_t{r.width} * sizeof(uint32_t));
        r.picture.hand_over(y);
        if (const img_status status = r.picture.progress(y + 1)) return status;
    }
    return ok;
}

// A damaged picture shows what arrived of it on what was there before.
img_status decode_on_canvas(Reader &r) {
    constexpr img_format format = FMT_ARGB8888HE;
    if (const img_status status = r.picture.choose(r.width, r.height, 0, &format, 1)) return status;
    if (const img_status status = r.picture.setup()) return status;
    if (r.canvas)
        dispose_of_last(r);
    else if (const img_status status = make_canvas(r))
        return status;
    if (const img_status status = take_area(r)) return status;
    uint32_t done = 0;
    const img_status drawn = read_lines(r, [&](uint32_t y) {
        if (y >= r.area.height) return ok;
        draw(r.palette, r.line, r.area.width, canvas_at(r, r.area.left, r.area.top + y));
        if (r.interlaced()) return ok;
        const uint32_t begin = std::exchange(done, r.area.top + y + 1);
        return hand_over_canvas(r, begin, done);
    });
    if (drawn && drawn != damaged) return drawn;
    const img_status status = hand_over_canvas(r, done, r.height);
    return status ? status : drawn;
}

img_status decode_picture(Reader &r) {
    if (const img_status status = next_picture(r)) return status;
    return !r.pictures && covers_canvas(r) ? decode_indices(r) : decode_on_canvas(r);
}

img_status decode_frame(io_handle *, const img_decode_callouts *callouts, img_record *record, void **state) {
    auto &reader = *static_cast<Reader *>(*state);
    if (reader.ended) return reader.ended;
    reader.picture.begin(*callouts, *record);
    reader.ended = decode_picture(reader);
    reader.pictures++;
    return reader.ended;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(table, size,
                      {decode_validate, decode_begin, decode_frame, decode_finish, gif::encode_begin, gif::encode_frame,
                       gif::encode_finish});
}
