// SPDX-License-Identifier: MIT
//
// The record of a picture and its rows on either side of a decode and an encode. No file format is known here.
#pragma once

#include "modules/common/memory.h"
#include "modules/common/stream.h"

namespace codec {

inline constexpr uint32_t max_colors = 256;

constexpr uint32_t bits_per_pixel(img_format format) { return format & IMG_FMT_BPP_MASK; }
constexpr size_t row_bytes(img_format format, uint32_t width) {
    return (size_t{width} * bits_per_pixel(format) + 7) >> 3;
}

// The index of pixel x in a row of 1, 4 or 8 bits a pixel.
inline uint32_t index_at(const uint8_t *row, uint32_t bits, uint32_t x) {
    const uint32_t bit = x * bits;
    return (row[bit >> 3] >> (8 - bits - (bit & 7))) & ((1u << bits) - 1);
}

// Whether every index of a row has a palette entry. Expansion trusts the indices, so a decoder must not.
bool indices_below(const uint8_t *row, uint32_t bits, uint32_t width, uint32_t ncolors);

// Where the rows of a record are: in its own buffer, or one at a time in a line for its access function.
class Rows {
public:
    img_status attach(const img_record &record); // once the record is set up
    uint8_t *row(uint32_t y) const;              // to write to, or to read from, until the next row is asked for

protected:
    const img_record *record_ = nullptr;
    Bytes line_; // one row, if the record has an access function
};

// ---- Options ----

constexpr img_option number_option(const char *name, const char *meaning, int32_t lowest, int32_t highest,
                                   int32_t value) {
    return {name, meaning, nullptr, IMG_OPTION_NUMBER, lowest, highest, value};
}
constexpr img_option switch_option(const char *name, const char *meaning, bool value = false) {
    return {name, meaning, nullptr, IMG_OPTION_SWITCH, 0, 1, value};
}
// choices are names joined by ":", count of them.
constexpr img_option choice_option(const char *name, const char *meaning, const char *choices, int32_t count,
                                   int32_t value) {
    return {name, meaning, choices, IMG_OPTION_CHOICE, 0, count - 1, value};
}

// ---- Decoding ----

struct Size {
    uint32_t width, height;
};

class Decoding : public Rows {
public:
    // Takes over the codec's record, which began as a copy of the caller's.
    void begin(const img_decode_callouts &callouts, img_record &record);

    // Asks the caller for an option's value. Before choose.
    img_status ask(img_option &option) const;

    // Report a value, best before choose. A status other than 0 is to be returned.
    img_status report(uint32_t key, const void *value, size_t size) const;
    bool listens() const { return callouts_->set_value; } // values that cost time are for callers that do
    img_status report(uint32_t key, uint32_t value) const { return report(key, &value, sizeof value); }
    img_status warn(const char *text) const;

    // Every refusal of a picture that exceeds a limit: says which one, and returns over_limit.
    img_status refuse(const img_limit &limit) const;
    img_status check_size(uint64_t width, uint64_t height) const; // the limits of every picture

    // To be called before so many bytes are allocated that depend on the picture: refused if the caller does not allow to
    // hold them in addition to those held already. The count lasts from frame to frame; release takes bytes off it.
    img_status hold(uint64_t bytes);
    void release(uint64_t bytes) { held_ -= bytes; }
    void release_all() { held_ = 0; }
    uint64_t room() const { // that is left, once hold was called
        return !may_hold_ ? UINT64_MAX : may_hold_ > held_ ? may_hold_ - held_ : 0;
    }
    img_status grow(Buffer &buffer, size_t size, size_t most); // Buffer::grow, held

    // Reads what is left of the stream, at most so many bytes. They are held.
    img_status read_all(io_handle &stream, size_t most, Buffer &buffer, size_t &length);

    // Describes the picture and has one of the formats chosen, which then is the record's.
    img_status choose(uint32_t width, uint32_t height, uint32_t ncolors, const img_format *formats, uint32_t count);

    // The size that the caller would like to have; 0 for a side that does not matter. Known after choose.
    Size wanted() const { return wanted_; }
    // Says that the picture will come in another size than the one that choose was told.
    void deliver_at(uint32_t width, uint32_t height);

    // order: IMG_SETUP_TOPDOWN or IMG_SETUP_BOTTOMUP if all rows come so, else 0.
    img_status setup(uint32_t order = IMG_SETUP_TOPDOWN);

    // argb: with alpha. A single entry that is fully transparent, among opaque ones, becomes the colour key unless the caller
    // wants alpha: the library makes alpha of a key only in host byte order.
    img_status set_palette(const uint32_t *argb);
    void set_transparency(uint32_t key) const;

    // Delivers the row decoded at row(y), unless it has an index without a palette entry: the library expands indices
    // unchecked. Unused bits become 0, so that equal pictures are equal in memory.
    img_status hand_over(uint32_t y);
    // The same and progress, for rows that are delivered one by one as they are decoded.
    img_status deliver(uint32_t y);
    img_status progress(uint32_t rows_done); // not 0: stop with this status
    // For work that finishes no row for long, which calls it at least every few milliseconds: tells the caller the rows
    // done so far, unless it was told less than 50 ms ago.
    img_status keep_alive();

    const img_record &record() const { return *description_; }
    void add_flags(img_flags flags) { description_->flags |= flags; }

private:
    const img_decode_callouts *callouts_ = nullptr;
    img_record *description_ = nullptr;
    Size wanted_{};
    uint64_t held_ = 0, may_hold_ = 0;
    bool memory_asked_ = false;
    int64_t next_call_ = 0; // of keep_alive, in nanoseconds of the monotonic clock
    uint32_t rows_done_ = 0;
};

// ---- Encoding ----

class Encoding : public Rows {
public:
    // Takes over the codec's image. Fails if it lacks a size or a format, or exceeds the limits.
    img_status begin(const img_encode_callouts &callouts, img_record &image);

    // Asks the caller for an option's value, or for another value of values.h, which holds the default. Before choose.
    img_status ask(img_option &option) const;
    img_status ask(uint32_t key, void *value) const;

    img_status refuse(const img_limit &limit) const; // says which limit is exceeded, and returns over_limit
    img_status warn(const char *text) const;         // of what is not written

    // Has one of the formats chosen and the image prepared to be read from the top down in it, or as order says.
    img_status choose_and_set_up(const img_format *formats, uint32_t count, uint32_t order = IMG_SETUP_TOPDOWN);

    // With alpha as the palette is to be seen: an entry that is the colour key is clear. As many entries as the image's
    // ncolors, at least 1, and zeros.
    img_status get_palette(uint32_t (&argb)[max_colors]) const;
    img_status get_transparency(uint8_t (&pixel)[4]) const; // in the image's format
    const uint8_t *fetch(uint32_t y) const;                 // null for a row with an index that has no palette entry
    img_status progress(uint32_t rows_done) const;          // not 0: stop with this status

    const img_record &image() const { return *image_; }
    bool has(img_flags flags) const { return image_->flags & flags; }

private:
    const img_encode_callouts *callouts_ = nullptr;
    img_record *image_ = nullptr;
};

} // namespace codec
