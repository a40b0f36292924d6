// SPDX-License-Identifier: MIT
//
// A picture in memory.
#pragma once

#include "tools/confine/memory.h"

#include <array>
#include <memory>
#include <utility>

namespace tool {

class Picture {
public:
    // Takes over a record with its pixels: the library's, or those that a worker shares. The palette is copied.
    explicit Picture(const img_record &given, std::shared_ptr<confine::Mapping> shared = nullptr)
        : shared_(std::move(shared)) {
        adopt(given);
    }
    Picture(const Picture &) = delete;
    Picture &operator=(const Picture &) = delete;
    ~Picture() { release(); }

    img_record &record() { return record_; }
    const img_record &record() const { return record_; }
    // Where the pixels are, if a worker can see them there.
    const std::shared_ptr<confine::Mapping> &shared() const { return shared_; }
    bool has(img_flags flags) const { return record_.flags & flags; }
    bool has_transparency() const { return has(IMG_F_TRANSP | IMG_F_PAL_ALPHA) || (record_.format & IMG_FMT_ALPHA); }
    void drop_key() { record_.flags &= ~img_flags{IMG_F_TRANSP}; }

    img_status convert(img_format format);
    void key_to_alpha();          // to FMT_ARGB8888HE, with whatever transparency there is
    void pack(img_format format); // indices of 8 bits into 1 or 4 again

    // Puts what step makes, in the same format and with the same transparency, in the place of the picture.
    template <typename Step> img_status replace(const Step &step) {
        img_record made{};
        made.format = record_.format;
        made.flags = IMG_F_FORMAT;
        made.ncolors = record_.ncolors;
        if (const img_status status = step(made)) return status;
        constexpr img_flags kept = IMG_F_TRANSP | IMG_F_PAL_ALPHA;
        made.flags = (made.flags & ~kept) | (record_.flags & kept);
        made.transparency = record_.transparency;
        release();
        adopt(made);
        return IMG_ST_OK;
    }

private:
    void clear_key(uint32_t key); // pixels of this colour become transparent
    void adopt(const img_record &given);
    void release();

    img_record record_{};
    // An entry for every index that there can be, whatever the pixels say: those from ncolors on are transparent black.
    std::array<uint32_t, 256> palette_{};
    std::shared_ptr<confine::Mapping> shared_; // null: the pixels are the library's
};

} // namespace tool
