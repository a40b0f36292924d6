// SPDX-License-Identifier: MIT
//
// How decoder and encoder choose among formats.
#pragma once

#include "core/record.h"

namespace img {

// Whether pixels of one format can be converted to the other.
inline bool convertible(img_format from, img_format to) {
    return (is_palette(from) && !is_palette(to) && img_expand_getfunc(from, to)) || img_convert_getfunc(from, to);
}

// The similarity of two formats: equal alpha counts most, then the class (colour and palette count as alike), then
// depth.
constexpr uint32_t similarity(img_format a, img_format b) {
    constexpr img_format colour_class = IMG_FMT_PAL | IMG_FMT_RGB | 0x2000;
    const img_format difference = a ^ b, class_difference = difference & colour_class;
    return (difference & IMG_FMT_BPP_MASK ? 1 : 3) +
           (class_difference == 0 || class_difference == (IMG_FMT_PAL | IMG_FMT_RGB) ? 4 : 0) +
           (difference & IMG_FMT_ALPHA ? 0 : 8);
}

// The index of the usable format that is most similar to the wanted one, the first of equals; count if none is usable.
template <typename Usable>
uint32_t closest_format(img_format wanted, const img_format *formats, uint32_t count, Usable usable) {
    uint32_t best = count, best_similarity = 0;
    for (uint32_t i = 0; i < count; i++) {
        const uint32_t found = similarity(wanted, formats[i]);
        if (found <= best_similarity || !usable(formats[i])) continue;
        best = i;
        best_similarity = found;
    }
    return best;
}

// The index of a format in the list; count if it is not there.
inline uint32_t find_format(img_format wanted, const img_format *formats, uint32_t count) {
    uint32_t i = 0;
    while (i < count && formats[i] != wanted) i++;
    return i;
}

} // namespace img
