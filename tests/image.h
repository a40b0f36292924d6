// SPDX-License-Identifier: MIT
//
// An image for tests: a buffer with gaps between its rows, or an access function that logs its calls as "x,y:count".
#pragma once

#include "core/record.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <bit>
#include <string>
#include <vector>

inline img_record a_record(img_flags flags, img_format format = 0, uint32_t width = 0, uint32_t height = 0) {
    img_record record{};
    record.flags = flags;
    record.format = format;
    record.width = width;
    record.height = height;
    return record;
}

// The bytes of pixels on this machine, from their bytes on a little-endian one.
inline std::vector<uint8_t> as_here(img_format format, std::vector<uint8_t> bytes) {
    const uint32_t pixel = img::bits_per_pixel(format) / 8;
    if (std::endian::native == std::endian::big && pixel % 2 == 0)
        for (size_t i = 0; pixel && i < bytes.size(); i += pixel) std::reverse(&bytes[i], &bytes[i] + pixel);
    return bytes;
}

// Four bytes of memory as a word.
inline uint32_t word_of(std::array<uint8_t, 4> bytes) { return std::bit_cast<uint32_t>(bytes); }

struct Image {
    Image(img_format format, uint32_t width, uint32_t height, bool access, uint8_t fill = 0) {
        stride = static_cast<uint32_t>(img::run_bytes(format, width)) + 3;
        pixels.resize(size_t{stride} * height, fill);
        const img_flags storage = access ? IMG_F_ACCESS : IMG_F_DIRECT;
        record = a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | storage, format, width, height);
        if (access) {
            record.access = pass;
            record.access_arg = this;
        } else {
            record.data = pixels.data();
            record.stride = stride;
        }
    }
    Image(const Image &) = delete;

    static int pass(void *arg, uint32_t x, uint32_t y, uint32_t count, void *line) {
        auto &self = *static_cast<Image *>(arg);
        const img_format format = self.record.format;
        self.calls += std::to_string(x) + "," + std::to_string(y) + ":" + std::to_string(count) + " ";
        uint8_t *at = &self.pixels[size_t{y} * self.stride + img::run_bytes(format, x)];
        memcpy(self.receives ? at : line, self.receives ? line : at, img::run_bytes(format, count));
        return 1; // not examined
    }
    void give_palette(const uint32_t *entries, uint32_t count) {
        record.palette = const_cast<uint32_t *>(entries);
        record.ncolors = count;
        record.flags |= IMG_F_PALETTE;
    }
    // Bytes of a different value each, as far as 251 goes.
    void fill() {
        for (size_t i = 0; i < pixels.size(); i++) pixels[i] = static_cast<uint8_t>(i * 37 % 251);
    }

    img_record record{};
    uint32_t stride;
    std::vector<uint8_t> pixels;
    bool receives = false; // the access function stores instead of fetching
    std::string calls;
};
