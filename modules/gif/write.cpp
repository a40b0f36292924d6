// SPDX-License-Identifier: MIT
//
// The writing side of the GIF module, on giflib.
#include "modules/common/text.h"
#include "modules/gif/gif.h"

#include <algorithm>
#include <string.h>

namespace gif {

namespace {

constexpr uint32_t most_alpha_of_transparent = 127; // GIF has no partly transparent colours

} // namespace

struct Writer::Asked {
    uint32_t delay, loops;
    img_bytes texts;
};

// After a failure nothing more is written, not even the trailer that giflib always writes.
int Writer::write_bytes(GifFileType *gif, const GifByteType *src, int length) {
    auto &writer = *static_cast<Writer *>(gif->UserData);
    if (!writer.failure_ && !write_all(writer.stream_, src, static_cast<size_t>(length)))
        writer.failure_ = write_failed;
    return writer.failure_ ? 0 : length;
}

// giflib ignores the results of some writes, so the first failure is remembered.
img_status Writer::checked(int result) const {
    if (failure_) return failure_;
    if (result != GIF_ERROR) return ok;
    return gif_->Error == E_GIF_ERR_NOT_ENOUGH_MEM ? no_memory : write_failed;
}

// Takes the colours and the transparency of the current picture.
img_status Writer::take_colors() {
    const img_record &image = picture_.image();
    const bool grey = image.format == FMT_G8;
    if (grey)
        for (uint32_t i = 0; i < max_colors; i++) palette_[i] = 0xff000000 | i * 0x010101;
    else if (const img_status status = picture_.get_palette(palette_))
        return status;
    ncolors_ = grey ? max_colors : std::min(image.ncolors, 1u << bits_per_pixel(image.format));
    if (grey && picture_.has(IMG_F_TRANSP)) {
        uint8_t key[4];
        if (const img_status status = picture_.get_transparency(key)) return status;
        palette_[key[0]] &= 0xffffff;
    }
    transparent_ = NO_TRANSPARENT_COLOR;
    for (uint32_t i = 0; i < ncolors_; i++) {
        const uint32_t argb = palette_[i];
        const bool hidden = argb >> 24 <= most_alpha_of_transparent;
        if (hidden && transparent_ == NO_TRANSPARENT_COLOR) transparent_ = static_cast<int>(i);
        index_of_[i] = static_cast<uint8_t>(hidden ? transparent_ : static_cast<int>(i));
        colors_[i] = {static_cast<GifByteType>(argb >> 16), static_cast<GifByteType>(argb >> 8),
                      static_cast<GifByteType>(argb)};
    }
    return ok;
}

ColorMap Writer::make_map() const {
    ColorMap map(GifMakeMapObject(1 << GifBitSize(static_cast<int>(ncolors_)), nullptr), GifFreeMapObject);
    if (map) std::copy_n(colors_, ncolors_, map->Colors);
    return map;
}

img_status Writer::write_loops(uint32_t loops) {
    // The file says how often the animation is repeated; without the extension it is not.
    const uint32_t repeated = loops ? std::min<uint32_t>(loops - 1, UINT16_MAX) : 0;
    const uint8_t block[] = {1, static_cast<uint8_t>(repeated), static_cast<uint8_t>(repeated >> 8)};
    const bool written = EGifPutExtensionLeader(gif_, APPLICATION_EXT_FUNC_CODE) == GIF_OK &&
                         EGifPutExtensionBlock(gif_, 11, "NETSCAPE2.0") == GIF_OK &&
                         EGifPutExtensionBlock(gif_, sizeof block, block) == GIF_OK &&
                         EGifPutExtensionTrailer(gif_) == GIF_OK;
    return checked(written ? GIF_OK : GIF_ERROR);
}

img_status Writer::write_comments(const img_bytes &answer) {
    for (Texts texts(answer); texts.next();)
        if (texts.is_comment())
            if (const img_status status = checked(EGifPutComment(gif_, texts.text()))) return status;
    return ok;
}

bool Writer::has_global_colors(const ColorMapObject &map) const {
    return static_cast<uint32_t>(map.ColorCount) == nglobal_ &&
           !memcmp(map.Colors, global_, nglobal_ * sizeof *map.Colors);
}

// Writes the header with the colours of the first picture, which later pictures with the same colours use as well.
img_status Writer::write_file_header(const ColorMapObject &map, const Asked &asked) {
    const img_record &image = picture_.image();
    nglobal_ = static_cast<uint32_t>(map.ColorCount);
    std::copy_n(map.Colors, nglobal_, global_);
    const int result =
        EGifPutScreenDesc(gif_, static_cast<int>(image.width), static_cast<int>(image.height), 8, 0, &map);
    if (const img_status status = checked(result)) return status;
    if (asked.loops != 1)
        if (const img_status status = write_loops(asked.loops)) return status;
    return write_comments(asked.texts);
}

// Each picture is cleared before the next one, which may be transparent in places.
img_status Writer::write_control(uint32_t delay) {
    const auto hundredths = static_cast<int>(std::min<uint32_t>(delay / 10 + (delay % 10 >= 5), UINT16_MAX));
    const GraphicsControlBlock control = {DISPOSE_BACKGROUND, false, hundredths, transparent_};
    GifByteType block[4];
    const size_t length = EGifGCBToExtension(&control, block);
    return checked(EGifPutExtension(gif_, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), block));
}

img_status Writer::write_headers(const ColorMapObject &map, const Asked &asked) {
    const img_record &image = picture_.image();
    if (!pictures_)
        if (const img_status status = write_file_header(map, asked)) return status;
    if (const img_status status = write_control(asked.delay)) return status;
    GifFreeMapObject(gif_->Image.ColorMap); // giflib would leak it if this picture has no map
    gif_->Image.ColorMap = nullptr;
    const ColorMapObject *local = has_global_colors(map) ? nullptr : &map;
    return checked(
        EGifPutImageDesc(gif_, 0, 0, static_cast<int>(image.width), static_cast<int>(image.height), false, local));
}

img_status Writer::write_rows() {
    const img_record &image = picture_.image();
    const uint32_t bits = bits_per_pixel(image.format);
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = picture_.fetch(y);
        if (!row) return bad_record;
        if (bits == 8)
            for (uint32_t x = 0; x < image.width; x++) line_[x] = index_of_[row[x]];
        else
            for (uint32_t x = 0; x < image.width; x++) line_[x] = index_of_[index_at(row, bits, x)];
        const int result = EGifPutLine(gif_, line_, static_cast<int>(image.width));
        if (const img_status status = checked(result)) return status;
        if (const img_status status = picture_.progress(y + 1)) return status;
    }
    return ok;
}

img_status Writer::write_picture(const ColorMapObject &map, const Asked &asked) {
    const img_status status = write_headers(map, asked);
    pictures_++;
    return status ? status : write_rows();
}

img_status Writer::ask(Asked &asked) const {
    if (const img_status status = picture_.ask(IMG_VALUE_DELAY, &asked.delay)) return status;
    if (pictures_) return ok; // the rest belongs to the head of the file
    if (const img_status status = picture_.ask(IMG_VALUE_LOOPS, &asked.loops)) return status;
    return picture_.ask(IMG_VALUE_TEXT, &asked.texts);
}

// A picture that is refused before anything of it was written does no harm to the others.
img_status Writer::encode_picture() {
    const img_record &image = picture_.image();
    // The library would make grey of colours.
    if (!(image.format & IMG_FMT_PAL) && image.format != FMT_G8) return no_common_format;
    const uint32_t side = std::max(image.width, image.height);
    if (side > max_side) return picture_.refuse({"side", side, max_side});
    // Later pictures must fit on the canvas of the first.
    const auto width = static_cast<int>(image.width), height = static_cast<int>(image.height);
    if (pictures_ && (width > gif_->SWidth || height > gif_->SHeight)) return bad_record;
    Asked asked = {0, 1, {}};
    if (const img_status status = ask(asked)) return status;
    constexpr img_format formats[] = {FMT_PAL8, FMT_PAL4, FMT_PAL1, FMT_G8};
    if (const img_status status = picture_.choose_and_set_up(formats, std::size(formats))) return status;
    if (const img_status status = take_colors()) return status;
    const ColorMap map = make_map();
    if (!map) return no_memory;
    failure_ = write_picture(*map, asked);
    return failure_;
}

img_status Writer::begin() {
    int error;
    gif_ = EGifOpen(this, write_bytes, &error);
    if (!gif_) return no_memory;
    EGifSetGifVersion(gif_, true);
    return ok;
}

img_status Writer::frame() { return failure_ ? failure_ : encode_picture(); }

img_status Writer::finish() {
    const img_status earlier = failure_;
    if (!pictures_ && !earlier) failure_ = bad_record; // no header, so no trailer
    const int result = EGifCloseFile(gif_, nullptr);
    if (earlier || !pictures_) return ok; // the frame has reported it
    return failure_ || result == GIF_ERROR ? write_failed : ok;
}

} // namespace gif
