// SPDX-License-Identifier: MIT
//
// Writing GIF.
#include "modules/common/picture.h"
#include "modules/common/text.h"
#include "modules/gif/gif.h"

#include <algorithm>
#include <gif_lib.h>
#include <string.h>

using namespace codec;

namespace {

constexpr uint32_t most_alpha_of_transparent = 127; // GIF has no partly transparent colours

struct Writer {
    GifFileType *gif;
    io_handle *stream;
    Encoding picture;
    img_status failure;
    uint32_t pictures; // written so far
    GifColorType global[max_colors];
    uint32_t nglobal; // a power of two

    // The picture at hand.
    uint32_t palette[max_colors];
    GifColorType colors[max_colors];
    uint32_t ncolors;
    int transparent;
    uint8_t index_of[max_colors]; // all transparent entries become one
    uint8_t line[gif::max_side];

    Writer() = default;
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
};

// After a failure nothing is written, the trailer included, which giflib writes in any case.
int write_bytes(GifFileType *gif, const GifByteType *src, int length) {
    auto &writer = *static_cast<Writer *>(gif->UserData);
    if (!writer.failure && !write_all(*writer.stream, src, static_cast<size_t>(length))) writer.failure = write_failed;
    return writer.failure ? 0 : length;
}

// giflib does not look at the result of every write, so the one that failed counts.
img_status checked(const Writer &w, int result) {
    if (w.failure) return w.failure;
    if (result != GIF_ERROR) return ok;
    return w.gif->Error == E_GIF_ERR_NOT_ENOUGH_MEM ? no_memory : write_failed;
}

// Colours and transparency of the picture at hand.
img_status take_colors(Writer &w) {
    const img_record &image = w.picture.image();
    const bool grey = image.format == FMT_G8;
    if (grey)
        for (uint32_t i = 0; i < max_colors; i++) w.palette[i] = 0xff000000 | i * 0x010101;
    else if (const img_status status = w.picture.get_palette(w.palette))
        return status;
    w.ncolors = grey ? max_colors : std::min(image.ncolors, 1u << bits_per_pixel(image.format));
    if (grey && w.picture.has(IMG_F_TRANSP)) {
        uint8_t key[4];
        if (const img_status status = w.picture.get_transparency(key)) return status;
        w.palette[key[0]] &= 0xffffff;
    }
    w.transparent = NO_TRANSPARENT_COLOR;
    for (uint32_t i = 0; i < w.ncolors; i++) {
        const uint32_t argb = w.palette[i];
        const bool hidden = argb >> 24 <= most_alpha_of_transparent;
        if (hidden && w.transparent == NO_TRANSPARENT_COLOR) w.transparent = static_cast<int>(i);
        w.index_of[i] = static_cast<uint8_t>(hidden ? w.transparent : static_cast<int>(i));
        w.colors[i] = {static_cast<GifByteType>(argb >> 16), static_cast<GifByteType>(argb >> 8),
                       static_cast<GifByteType>(argb)};
    }
    return ok;
}

// The palette of a file has as many entries as a power of two.
using ColorMap = std::unique_ptr<ColorMapObject, decltype(&GifFreeMapObject)>;
ColorMap make_map(const Writer &w) {
    ColorMap map(GifMakeMapObject(1 << GifBitSize(static_cast<int>(w.ncolors)), nullptr), GifFreeMapObject);
    if (map) std::copy_n(w.colors, w.ncolors, map->Colors);
    return map;
}

img_status write_loops(Writer &w, uint32_t loops) {
    // The file says how often the animation is repeated; one that is not says nothing.
    const uint32_t repeated = loops ? std::min<uint32_t>(loops - 1, UINT16_MAX) : 0;
    const uint8_t block[] = {1, static_cast<uint8_t>(repeated), static_cast<uint8_t>(repeated >> 8)};
    const bool written = EGifPutExtensionLeader(w.gif, APPLICATION_EXT_FUNC_CODE) == GIF_OK &&
                         EGifPutExtensionBlock(w.gif, 11, "NETSCAPE2.0") == GIF_OK &&
                         EGifPutExtensionBlock(w.gif, sizeof block, block) == GIF_OK &&
                         EGifPutExtensionTrailer(w.gif) == GIF_OK;
    return checked(w, written ? GIF_OK : GIF_ERROR);
}

img_status write_comments(Writer &w, const img_bytes &answer) {
    for (Texts texts(answer); texts.next();)
        if (texts.is_comment())
            if (const img_status status = checked(w, EGifPutComment(w.gif, texts.text()))) return status;
    return ok;
}

struct Asked {
    uint32_t delay, loops;
    img_bytes texts;
};

bool has_global_colors(const Writer &w, const ColorMapObject &map) {
    return static_cast<uint32_t>(map.ColorCount) == w.nglobal &&
           !memcmp(map.Colors, w.global, w.nglobal * sizeof *map.Colors);
}

// The header with the first picture's colours, which further pictures use as long as they have the same.
img_status write_file_header(Writer &w, const ColorMapObject &map, const Asked &asked) {
    const img_record &image = w.picture.image();
    w.nglobal = static_cast<uint32_t>(map.ColorCount);
    std::copy_n(map.Colors, w.nglobal, w.global);
    const int result =
        EGifPutScreenDesc(w.gif, static_cast<int>(image.width), static_cast<int>(image.height), 8, 0, &map);
    if (const img_status status = checked(w, result)) return status;
    if (asked.loops != 1)
        if (const img_status status = write_loops(w, asked.loops)) return status;
    return write_comments(w, asked.texts);
}

// Each picture is cleared before the next, which may show the canvas through.
img_status write_control(Writer &w, uint32_t delay) {
    const auto hundredths = static_cast<int>(std::min<uint32_t>(delay / 10 + (delay % 10 >= 5), UINT16_MAX));
    const GraphicsControlBlock control = {DISPOSE_BACKGROUND, false, hundredths, w.transparent};
    GifByteType block[4];
    const size_t length = EGifGCBToExtension(&control, block);
    return checked(w, EGifPutExtension(w.gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), block));
}

img_status write_headers(Writer &w, const ColorMapObject &map, const Asked &asked) {
    const img_record &image = w.picture.image();
    if (!w.pictures)
        if (const img_status status = write_file_header(w, map, asked)) return status;
    if (const img_status status = write_control(w, asked.delay)) return status;
    GifFreeMapObject(w.gif->Image.ColorMap); // giflib forgets the last picture's when the next has none
    w.gif->Image.ColorMap = nullptr;
    const ColorMapObject *local = has_global_colors(w, map) ? nullptr : &map;
    return checked(
        w, EGifPutImageDesc(w.gif, 0, 0, static_cast<int>(image.width), static_cast<int>(image.height), false, local));
}

img_status write_rows(Writer &w) {
    const img_record &image = w.picture.image();
    const uint32_t bits = bits_per_pixel(image.format);
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = w.picture.fetch(y);
        if (!row) return bad_record;
        if (bits == 8)
            for (uint32_t x = 0; x < image.width; x++) w.line[x] = w.index_of[row[x]];
        else
            for (uint32_t x = 0; x < image.width; x++) w.line[x] = w.index_of[index_at(row, bits, x)];
        const int result = EGifPutLine(w.gif, w.line, static_cast<int>(image.width));
        if (const img_status status = checked(w, result)) return status;
        if (const img_status status = w.picture.progress(y + 1)) return status;
    }
    return ok;
}

img_status write_picture(Writer &w, const ColorMapObject &map, const Asked &asked) {
    const img_status status = write_headers(w, map, asked);
    w.pictures++;
    return status ? status : write_rows(w);
}

img_status ask(const Writer &w, Asked &asked) {
    if (const img_status status = w.picture.ask(IMG_VALUE_DELAY, &asked.delay)) return status;
    if (w.pictures) return ok; // the rest stands at the head of the file
    if (const img_status status = w.picture.ask(IMG_VALUE_LOOPS, &asked.loops)) return status;
    return w.picture.ask(IMG_VALUE_TEXT, &asked.texts);
}

// A picture that is refused before anything of it was written does no harm to the others.
img_status encode_picture(Writer &w) {
    const img_record &image = w.picture.image();
    // The library would make grey of colours.
    if (!(image.format & IMG_FMT_PAL) && image.format != FMT_G8) return no_common_format;
    const uint32_t side = std::max(image.width, image.height);
    if (side > gif::max_side) return w.picture.refuse({"side", side, gif::max_side});
    // A later picture has its place on the canvas of the first.
    const auto width = static_cast<int>(image.width), height = static_cast<int>(image.height);
    if (w.pictures && (width > w.gif->SWidth || height > w.gif->SHeight)) return bad_record;
    Asked asked = {0, 1, {}};
    if (const img_status status = ask(w, asked)) return status;
    constexpr img_format formats[] = {FMT_PAL8, FMT_PAL4, FMT_PAL1, FMT_G8};
    if (const img_status status = w.picture.choose_and_set_up(formats, std::size(formats))) return status;
    if (const img_status status = take_colors(w)) return status;
    const ColorMap map = make_map(w);
    if (!map) return no_memory;
    w.failure = write_picture(w, *map, asked);
    return w.failure;
}

} // namespace

namespace gif {

img_status encode_begin(io_handle *stream, void **state) {
    want_large_buffer(stream, state);
    auto writer = make<Writer>();
    if (!writer) return no_memory;
    writer->stream = stream;
    int error;
    writer->gif = EGifOpen(writer.get(), write_bytes, &error);
    if (!writer->gif) return no_memory;
    EGifSetGifVersion(writer->gif, true);
    *state = writer.release();
    return ok;
}

img_status encode_frame(io_handle *, const img_encode_callouts *callouts, img_record *image, void **state) {
    auto &writer = *static_cast<Writer *>(*state);
    if (writer.failure) return writer.failure;
    if (const img_status status = writer.picture.begin(*callouts, *image)) return status;
    return encode_picture(writer);
}

img_status encode_finish(io_handle *, void **state) {
    const std::unique_ptr<Writer, Delete<Writer>> writer(static_cast<Writer *>(*state));
    *state = nullptr;
    const img_status earlier = writer->failure;
    if (!writer->pictures && !earlier) writer->failure = bad_record; // no header, so no trailer
    const int result = EGifCloseFile(writer->gif, nullptr);
    if (earlier || !writer->pictures) return ok; // the frame said it
    return writer->failure || result == GIF_ERROR ? write_failed : ok;
}

} // namespace gif
