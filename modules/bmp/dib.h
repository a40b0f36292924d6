// SPDX-License-Identifier: MIT
//
// Device-independent bitmaps: header, palette and colours of BMP files and of the bitmaps in icons.
#pragma once

#include "modules/common/picture.h"

namespace bmp {

using namespace codec;

struct Dib {
    enum Compression : uint32_t { plain, rle8, rle4, fields, jpeg, png, alpha_fields };

    uint32_t width, height;
    bool top_down;
    uint32_t depth; // bits per pixel
    uint32_t compression;
    uint32_t masks[4]; // red, green, blue, alpha; of pixels of more than 8 bits
    uint32_t entries;  // of the palette in the file, which may be more than the depth can use
    uint32_t entry_size;
    uint32_t data_size; // bytes of pixels, or 0
    img_resolution resolution;
    uint32_t profile_offset, profile_size; // offset from the start of the header; size 0: no profile
};

// Size of the longest header, masks included.
inline constexpr size_t dib_header_most = 124;

inline constexpr uint32_t embedded_profile = 0x4d424544; // "MBED": where a header of 124 bytes names its colour space
inline constexpr uint32_t srgb_profile = 0x73524742;     // "sRGB"

// Whether 20 bytes can be the start of a header: a known size, one plane, a known depth.
bool dib_plausible(const uint8_t *header);

// Size of the colour masks that follow the header, which are parsed as part of it.
uint32_t dib_mask_bytes(const uint8_t *header);

// header: a plausible one with its masks, followed by zeros up to dib_header_most.
img_status dib_parse(const uint8_t *header, Dib &dib);

// The format that has the file's pixel layout, or 0.
img_format dib_format(const Dib &dib);

// Bytes of a row in a file.
constexpr uint64_t dib_stride(uint64_t width, uint32_t depth) { return (width * depth + 31) / 32 * 4; }

// Bits of an index, or of a sample of the finest channel.
uint32_t dib_sample_bits(const Dib &dib);

// Converts entries of a file's palette to FMT_ARGB8888HE words.
void dib_palette(const Dib &dib, const uint8_t *entries, uint32_t count, uint32_t *argb);

// Converts pixels of more than 8 bits with any masks to FMT_ARGB8888HE words.
class MaskedColors {
public:
    img_status begin(const Dib &dib); // unsupported: a mask with gaps
    void expand(const uint8_t *pixels, uint32_t count, uint8_t *argb) const;

private:
    template <uint32_t bytes> void expand_pixels(const uint8_t *pixels, uint32_t count, uint8_t *argb) const;

    struct Channel {
        uint32_t mask, shift;
        uint8_t scaled[256]; // by the uppermost eight bits
    };
    Channel channels_[4];
    uint32_t bytes_ = 0; // per pixel
};

} // namespace bmp
