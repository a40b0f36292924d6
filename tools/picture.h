// SPDX-License-Identifier: MIT
//
// A picture in memory.
#pragma once

#include "pictra/pictra.hpp"
#include "tools/confine/memory.h"

#include <array>
#include <memory>

namespace tool {

class Picture {
public:
    // Takes over a record with its pixels: the library's, or those that a worker shares. The palette is copied.
    explicit Picture(const img_record &given, std::shared_ptr<confine::Mapping> shared = nullptr);
    Picture(const Picture &) = delete;
    Picture &operator=(const Picture &) = delete;

    const pictra::image_view &view() const { return view_; }
    const img_record &record() const { return view_.record(); }
    // Where the pixels are, if a worker can see them there.
    const std::shared_ptr<confine::Mapping> &shared() const { return shared_; }
    void drop_key() { view_.set_color_key({}); }

    // Puts what was made of the picture in its place.
    void become(pictra::image made);
    img_status convert(img_format format);

private:
    void look_at(const img_record &record);

    std::shared_ptr<confine::Mapping> shared_; // null: the pixels are own_
    pictra::image own_{};
    // An entry for every index that there can be, whatever the pixels say: those from ncolors on are transparent black.
    std::array<uint32_t, 256> palette_{};
    pictra::image_view view_{};
};

} // namespace tool
