// SPDX-License-Identifier: MIT
//
// Rows on their way in and out: from the source's format to the one that is worked on, and from that to the target's.
#pragma once

#include "core/owned.h"
#include "kit/pixels.h"

namespace img::kit {

// Whether a pixel may be other than opaque.
constexpr bool may_be_transparent(const img_record &record) {
    return (record.format & IMG_FMT_ALPHA) || has(record, IMG_F_TRANSP | IMG_F_PAL_ALPHA);
}

// Pixels of alpha alone are scaled as grey is.
constexpr img_format grey_for_alpha(img_format format) { return format == FMT_A8 ? img_format{FMT_G8} : format; }

class SourceRows {
public:
    // The record is kept: its palette and its key are read with the first row. Columns outside begin to end are not
    // converted.
    img_status make(const img_record &record, uint32_t begin, uint32_t end);

    // The row in the working format: in the room for it, or where it is if it stays there and is so already. Null if
    // there is no palette.
    const uint8_t *convert(const void *pixels, bool stays, uint8_t *room);

    bool may_be_transparent() const { return kit::may_be_transparent(*record_); }

private:
    img_status read_colours();
    void clear_key(uint8_t *pixels) const;

    const img_record *record_ = nullptr;
    img_cvt_func convert_ = nullptr;   // null: the format is the working one
    img_expand_func expand_ = nullptr; // of palettes
    Owned<uint32_t> palette_;
    uint32_t begin_ = 0, count_ = 0;
    uint32_t key_ = 0;
    bool ready_ = false, has_key_ = false;
};

class ResultRows {
public:
    // The format of the source tells whether alpha comes as grey (grey_for_alpha).
    img_status make(const img_record &target, img_format source_format);

    // Where a row is to be made in the working format.
    uint8_t *room(uint32_t y) const { return line_ ? line_.get() : at(y); }
    // The row in that room is complete.
    void deliver(uint32_t y);

private:
    uint8_t *at(uint32_t y) const { return static_cast<uint8_t *>(target_.data) + uint64_t{y} * target_.stride; }

    img_record target_{};
    img_cvt_func convert_ = nullptr; // null: the format is the working one
    Owned<uint8_t> line_;            // null: rows are made in the target's buffer
};

} // namespace img::kit
