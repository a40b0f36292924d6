// SPDX-License-Identifier: MIT
//
// The data of GIF pictures and extensions: a chain of blocks, and the LZW codes in those of a picture.
#pragma once

#include "modules/common/picture.h"

namespace gif {

// Up to 255 bytes each, preceded by their number; an empty one ends the chain.
class Blocks {
public:
    // Starts before the first block. Its size is read at once, and that of every further block with the block before
    // it, so nothing after the chain is taken from the stream.
    void begin(io_handle &stream) {
        stream_ = &stream;
        length_ = 0;
        cut_ = !codec::read_up_to(stream, bytes_, 1);
    }

    // Goes to the next block if there is one. A block that is cut off is delivered as far as it goes, and is the last.
    bool next() {
        const size_t wanted = bytes_[length_];
        if (cut_ || !wanted) return false;
        const size_t got = codec::read_up_to(*stream_, bytes_, wanted + 1);
        cut_ = got <= wanted;
        length_ = got < wanted ? got : wanted;
        return length_;
    }
    const uint8_t *bytes() const { return bytes_; }
    size_t length() const { return length_; }
    bool cut() const { return cut_; }

    // Whether the chain has an end.
    bool skip() {
        while (next()) {
        }
        return !cut_;
    }

private:
    io_handle *stream_ = nullptr;
    size_t length_ = 0;
    bool cut_ = false;
    uint8_t bytes_[256]; // the block, and then the number of bytes in the next one
};

// Decodes LZW codes of up to 12 bits, each of which stands for an index, or for an earlier string and one more index.
// Up to 11 bits may be declared for an index: some writers declare more than the 8 that a palette can use.
class Lzw {
public:
    static constexpr uint32_t most_index_bits = 11;

    // index_bits: at most so many.
    void begin(Blocks &blocks, uint32_t index_bits) {
        blocks_ = &blocks;
        at_ = end_ = pending_ = 0;
        bits_ = bit_count_ = 0;
        clear_ = 1u << index_bits;
        index_bits_ = index_bits;
        ended_ = false;
        forget();
    }

    // Decodes count indices, or fewer if the data ends before or makes no sense.
    size_t read(uint8_t *out, size_t count) {
        for (size_t done = 0;;) {
            while (pending_ && done < count) out[done++] = stack_[--pending_];
            if (done == count || !decode()) return done;
        }
    }

private:
    static constexpr uint32_t most_bits = 12, most_codes = 1u << most_bits, none = most_codes;

    void forget() {
        next_ = clear_ + 2; // after the code that clears and the one that ends
        width_ = index_bits_ + 1;
        previous_ = none;
    }

    bool read_code(uint32_t &code) {
        for (; bit_count_ < width_; bit_count_ += 8) {
            if (at_ == end_) {
                if (!blocks_->next()) return false;
                at_ = 0;
                end_ = blocks_->length();
            }
            bits_ |= uint32_t{blocks_->bytes()[at_++]} << bit_count_;
        }
        code = bits_ & ((1u << width_) - 1);
        bits_ >>= width_;
        bit_count_ -= width_;
        return true;
    }

    // Pushes the string of the next code on the stack, last index first. False at the end of the data.
    bool decode() {
        uint32_t code;
        if (ended_ || !read_code(code)) return false;
        if (code == clear_) {
            forget();
            return true;
        }
        const bool literal = code < clear_, known = literal || (code > clear_ + 1 && code < next_);
        const bool repeats = !known && code == next_ && previous_ != none && next_ < most_codes;
        if ((!known && !repeats) || (!literal && previous_ == none)) return !(ended_ = true);
        if (repeats) stack_[pending_++] = first_; // the string before, and its first index again
        uint32_t part = repeats ? previous_ : code;
        for (; part > clear_; part = before_[part]) stack_[pending_++] = last_[part];
        if (part > UINT8_MAX) return !(ended_ = true);
        stack_[pending_++] = first_ = static_cast<uint8_t>(part);
        if (previous_ != none && next_ < most_codes) add();
        previous_ = code;
        return true;
    }

    // Adds a string: the previous one and the first index of the current one.
    void add() {
        before_[next_] = static_cast<uint16_t>(previous_);
        last_[next_] = first_;
        if (++next_ == 1u << width_ && width_ < most_bits) width_++;
    }

    Blocks *blocks_ = nullptr;
    size_t at_ = 0, end_ = 0; // in the block
    uint32_t bits_ = 0, bit_count_ = 0;
    uint32_t index_bits_ = 0, clear_ = 0, next_ = 0, width_ = 0, previous_ = none;
    bool ended_ = false;
    uint8_t first_ = 0; // of the last string
    size_t pending_ = 0;
    uint16_t before_[most_codes];
    uint8_t last_[most_codes];
    uint8_t stack_[most_codes + 1];
};

} // namespace gif
