// SPDX-License-Identifier: MIT
//
// EXIF blocks, and the metadata that formats keep in blocks of bytes beside the pixels: reported, and asked for.
#pragma once

#include "modules/common/picture.h"

namespace codec {

// Of EXIF, ICC and XMP alike. No honest file comes near it.
inline constexpr size_t max_block = 4 * 1024 * 1024;

// What an EXIF block, from its TIFF header on, says of its main picture. 0 where it says nothing usable.
struct Exif {
    uint32_t orientation = 0;
    img_resolution resolution{}; // pixels per metre
};
Exif read_exif(const uint8_t *block, size_t size);

constexpr double per_metre_of_inch = 1 / 0.0254, per_metre_of_centimetre = 100;

// Reports a block of bytes, or warns that it is too large.
img_status report_block(const Decoding &picture, uint32_t key, const uint8_t *block, size_t size);

// Reports an EXIF block and the orientation in it, and the resolution unless the format has told a better one.
img_status report_exif(const Decoding &picture, const uint8_t *block, size_t size, bool resolution_known = false);

// What a caller wants to have written. Sizes of 0 and resolutions of 0 stand for nothing.
struct Metadata {
    img_bytes icc{}, exif{}, xmp{}, texts{};
    img_resolution resolution{};

    // An orientation that the caller answers is in exif afterwards. over_limit if a block is too large. The resolution is
    // and the texts are for formats that keep them beside EXIF.
    img_status ask(const Encoding &picture, bool keeps_resolution_and_texts = true);

private:
    img_status set_orientation(uint32_t orientation);

    Bytes own_exif_; // the caller's block with another orientation, or a small one of our own
};

} // namespace codec
