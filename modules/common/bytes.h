// SPDX-License-Identifier: MIT
//
// Bytes of a file: numbers in both byte orders, and a stream read in blocks.
#pragma once

#include "modules/common/picture.h"

#include <algorithm>
#include <string.h>

namespace codec {

inline uint16_t little16(const uint8_t *at) { return static_cast<uint16_t>(at[0] | at[1] << 8); }
inline uint32_t little32(const uint8_t *at) { return little16(at) | uint32_t{little16(at + 2)} << 16; }

inline void put_little16(uint8_t *at, uint32_t value) {
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}
inline void put_little32(uint8_t *at, uint32_t value) {
    put_little16(at, value);
    put_little16(at + 2, value >> 16);
}

inline uint32_t big32(const uint8_t *at) {
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | at[3];
}
inline void put_big32(uint8_t *at, uint32_t value) {
    for (const int shift : {24, 16, 8, 0}) *at++ = static_cast<uint8_t>(value >> shift);
}

// Reads a stream in blocks without reading beyond the picture: of data whose length shows only at its end, the caller
// tells how many bytes are certain to follow.
class Input {
public:
    static constexpr size_t most = 4096; // that can be needed at a time

    explicit Input(io_handle &stream) : stream_(stream) {}

    // Whether the next length bytes are at data(). certain: so many bytes, these included, belong to the picture.
    bool need(size_t length, uint64_t certain) { return end_ - at_ >= length || refill(length, certain); }
    const uint8_t *data() const { return block_ + at_; }
    void take(size_t length) {
        at_ += length;
        position_ += length;
    }
    uint64_t position() const { return position_; } // bytes taken so far

    // Reads length bytes to dst.
    bool read(void *dst, size_t length) {
        const size_t held = std::min(length, end_ - at_);
        memcpy(dst, data(), held);
        take(held);
        position_ += length - held;
        return read_up_to(stream_, static_cast<uint8_t *>(dst) + held, length - held) == length - held;
    }

    // Reads length bytes and forgets them.
    bool discard(uint64_t length) {
        for (size_t part; length; length -= part) {
            part = static_cast<size_t>(std::min<uint64_t>(length, most));
            if (!need(part, part)) return false;
            take(part);
        }
        return true;
    }

private:
    bool refill(size_t length, uint64_t certain) {
        memmove(block_, data(), end_ - at_);
        end_ -= at_;
        at_ = 0;
        const auto wanted = static_cast<size_t>(std::clamp<uint64_t>(certain, length, most));
        end_ += read_up_to(stream_, block_ + end_, wanted - end_);
        return end_ >= length;
    }

    io_handle &stream_;
    size_t at_ = 0, end_ = 0;
    uint64_t position_ = 0;
    uint8_t block_[most];
};

} // namespace codec
