// SPDX-License-Identifier: MIT
#include "tools/picture.h"

#include <algorithm>
#include <utility>

namespace tool {

Picture::Picture(const img_record &given, std::shared_ptr<confine::Mapping> shared) : shared_(std::move(shared)) {
    if (!shared_ && (given.flags & IMG_F_DIRECT)) own_ = pictra::image::adopt(given);
    look_at(given);
}

void Picture::look_at(const img_record &record) {
    img_record seen = record;
    palette_ = {};
    if (seen.flags & IMG_F_PALETTE) {
        seen.ncolors = std::min(seen.ncolors, static_cast<uint32_t>(palette_.size()));
        std::copy_n(seen.palette, seen.ncolors, palette_.begin());
        seen.palette = palette_.data();
    }
    view_ = pictra::image_view(seen);
}

void Picture::become(pictra::image made) {
    own_ = std::move(made);
    shared_ = nullptr;
    look_at(own_.record());
}

img_status Picture::convert(img_format format) {
    if (view_.format() == format) return IMG_ST_OK;
    pictra::result<pictra::image> made = pictra::convert(view_, format);
    if (!made) return made.error().status;
    become(*std::move(made));
    return IMG_ST_OK;
}

} // namespace tool
