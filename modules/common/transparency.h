// SPDX-License-Identifier: MIT
//
// Pictures to write whose transparency lies beside their pixels: a palette with alpha, a colour key. For files that keep
// alpha in pixels only, their rows are made FMT_ARGB8888HE or FMT_ARGB8888OE.
#pragma once

#include "modules/common/picture.h"

#include <string.h>

namespace codec {

class TransparentRows {
public:
    static bool needed(const img_record &image) {
        if (image.format & IMG_FMT_ALPHA) return false;
        return image.flags & (image.format & IMG_FMT_PAL ? IMG_F_TRANSP | IMG_F_PAL_ALPHA : IMG_F_TRANSP);
    }

    // The one format to offer for such a picture. Indices stay indices: as a colour, the key could equal an opaque entry.
    static img_format offer(const img_record &image) {
        return image.format & IMG_FMT_PAL ? image.format : img_format{FMT_RGB888};
    }

    // Once the picture is set up. made: the format of the rows to come.
    img_status begin(const Encoding &picture, img_format made) {
        const img_record &image = picture.image();
        swapped_ = made & IMG_FMT_OE;
        uint8_t key[4] = {};
        const img_status status =
            image.format & IMG_FMT_PAL ? picture.get_palette(palette_) : picture.get_transparency(key);
        if (status) return status;
        key_ = rgb(key);
        line_ = make_bytes(row_bytes(FMT_ARGB8888HE, image.width));
        return line_ ? ok : no_memory;
    }

    // Null for a row with an index that has no palette entry.
    const uint8_t *fetch(const Encoding &picture, uint32_t y) const {
        const img_record &image = picture.image();
        const uint32_t bits = bits_per_pixel(image.format);
        const bool indexed = image.format & IMG_FMT_PAL;
        const uint8_t *row = picture.fetch(y);
        if (!row) return nullptr;
        uint8_t *out = line_.get();
        for (uint32_t x = 0; x < image.width; x++, out += 4) {
            const uint32_t color = indexed ? 0 : rgb(row + 3 * size_t{x});
            const uint32_t argb = indexed         ? palette_[index_at(row, bits, x)]
                                  : color == key_ ? color
                                                  : color | 0xff000000;
            const uint32_t pixel = swapped_ ? __builtin_bswap32(argb) : argb;
            memcpy(out, &pixel, sizeof pixel);
        }
        return line_.get();
    }

private:
    static uint32_t rgb(const uint8_t *pixel) { return uint32_t{pixel[0]} << 16 | uint32_t{pixel[1]} << 8 | pixel[2]; }

    uint32_t palette_[max_colors];
    uint32_t key_ = 0;
    bool swapped_ = false;
    Bytes line_;
};

} // namespace codec
