// SPDX-License-Identifier: MIT
#include "tools/confine/thumbnail.h"

#include "pictra/pictra.hpp"

#include <algorithm>
#include <stdlib.h>

namespace confine {

namespace {

// Gives the thumbnail its size and format. Pictures that may be transparent get alpha; palettes tell only later.
uint32_t choose(void *data, img_record *thumbnail, const img_format *formats, uint32_t count) {
    auto &listener = *static_cast<Listener *>(data);
    const pictra::extent full{thumbnail->width, thumbnail->height},
        size = pictra::within(listener.task().thumbnail).of(full);
    listener.set_full_size(full.width, full.height);
    thumbnail->width = size.width;
    thumbnail->height = size.height;
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

img_status decode_thumbnail(img_lib_handle &library, io_handle *stream, img_decode_callouts callouts,
                            img_record &record) {
    callouts.choose_format = choose;
    const img_status status = img_load_resize(&library, stream, &callouts, &record);
    if (status != IMG_ST_OK || record.format != FMT_ARGB8888HE || !is_opaque(record)) return status;
    img_record opaque{};
    opaque.format = FMT_RGB888;
    opaque.flags = IMG_F_FORMAT;
    if (const img_status converted = img_dtransform(&record, &opaque)) return converted;
    free(record.data);
    record = opaque;
    return status;
}

} // namespace confine
