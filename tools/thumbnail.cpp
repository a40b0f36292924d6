// SPDX-License-Identifier: MIT
//
// pictra thumbnail: pictures made small while they are decoded, so that memory does not grow with them.
#include "tools/config.h"
#include "tools/output.h"
#include "tools/picture.h"
#include "tools/text.h"
#include "tools/verbs.h"

#include <algorithm>

namespace tool {

namespace {

struct Wish : Exchange {
    using Exchange::Exchange;
    uint32_t most = 0; // pixels a side
};

uint32_t in_proportion(uint32_t side, uint32_t to, uint32_t from) {
    return std::max(1u, static_cast<uint32_t>((uint64_t{side} * to + from / 2) / from));
}

// Gives the thumbnail its size and format. Pictures that may be transparent get alpha; palettes tell only later.
uint32_t choose(void *data, img_record *thumbnail, const img_format *formats, uint32_t count) {
    const uint32_t most = static_cast<Wish *>(static_cast<Exchange *>(data))->most, width = thumbnail->width,
                   height = thumbnail->height;
    if (std::max(width, height) > most) {
        thumbnail->width = width > height ? most : in_proportion(most, width, height);
        thumbnail->height = width > height ? in_proportion(most, height, width) : most;
    }
    const bool alpha =
        std::any_of(formats, formats + count, [](img_format f) { return f & (IMG_FMT_ALPHA | IMG_FMT_PAL); });
    thumbnail->format = alpha ? FMT_ARGB8888HE : count && formats[0] == FMT_G8 ? FMT_G8 : FMT_RGB888;
    thumbnail->flags |= IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_FORMAT | (alpha ? IMG_F_WANT_ALPHA : 0);
    return count; // take the format of the record
}

bool is_opaque(const img_record &record) {
    for (uint32_t y = 0; y < record.height; y++) {
        const auto *row = static_cast<const uint8_t *>(record.data) + size_t{y} * record.stride;
        const auto *pixels = reinterpret_cast<const uint32_t *>(row);
        if (std::any_of(pixels, pixels + record.width, [](uint32_t argb) { return argb < 0xff000000; })) return false;
    }
    return true;
}

} // namespace

int thumbnail(const ThumbnailOptions &options) {
    const Library library = attach();
    return for_each_pair(*library, options.files, [&](const std::string &in, const std::string &out) {
        const Output output{out, options.to, {}};
        img_codec *codec = codec_for(*library, output);
        img_record record{};
        Wish wish(options.given);
        wish.most = options.size;
        img_decode_callouts callouts = wish.reading();
        callouts.choose_format = choose;
        load(*library, in, img_load_resize_file, img_load_resize, callouts, wish, record);
        Picture picture(record);
        if (record.format == FMT_ARGB8888HE && is_opaque(record)) picture.convert(FMT_RGB888);
        write(*library, codec, picture, output, wish);
    });
}

} // namespace tool
