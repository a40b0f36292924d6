// SPDX-License-Identifier: MIT
//
// How one line is scaled: steps and counts worked out once per resize. There is no filter: reductions halve the line as
// often as it stays above the width wanted, and a stepper in the manner of Bresenham then takes the nearest pixel, or the
// mean of it and its neighbour in the second half of each step.
#pragma once

#include "scale/family.h"

namespace img {

struct img_scl_parms;

// Scales src, or its mean with the line below unless that is null, to dst. Halved lines pass through room, which is long
// enough for src. All but below may be the same line if it is long enough for src and dst.
using img_scl_func = void (*)(const void *src, const void *below, void *room, void *dst, const img_scl_parms *parms);

// Works out beforehand what is the same for all lines that are scaled like this, in plan_words(). False if that would not
// help.
using img_scl_planner = bool (*)(const img_scl_parms &parms, uint32_t *memory);

// Offsets and steps count words of the format's family (scale/family.h).
struct img_scl_parms {
    img_scl_func scaler;
    int32_t dir;        // from one pixel to the next: forward when reducing, backward when enlarging
    uint64_t src_start; // the first pixel read
    uint64_t dst_start; // the first pixel written
    uint32_t src_width; // in pixels, before halving
    uint32_t dst_width;
    uint32_t half;       // of dst_width: from here on the mean with the neighbour is taken
    int32_t int_step;    // words to go on for each pixel written
    uint32_t frac_step;  // and parts of dst_width
    uint32_t edge_count; // enlarging: pixels at the left edge that repeat the first one
    uint32_t main_count; // pixels that the stepper writes
    uint32_t halvings;   // passes of exact halving before the stepper

    MeanRule rule;
    uint32_t edge_src;       // enlarging: the pixel that the edge repeats
    img_scl_planner planner; // null where nothing is planned
    const uint32_t *plan;    // null: each line is counted through, slowly
};

// A plan's windows, of 8 pixels at least, and its pixels, by 16.
constexpr uint64_t plan_starts(uint32_t width) { return (uint64_t{width} / 8 + 16) & ~uint64_t{15}; }
constexpr uint64_t plan_words(uint32_t width) { return plan_starts(width) + ((uint64_t{width} + 15) & ~uint64_t{15}); }

// Halvings after which a size is at most twice the other; it is halved on the way.
uint32_t count_halvings(uint32_t &from, uint32_t to);

// How often an enlargement repeats the last row, or the first pixel, of its source.
constexpr uint32_t repeated_at_edge(uint32_t from, uint32_t to) {
    return static_cast<uint32_t>(to / (2 * uint64_t{from})) + 1;
}

// Fills the record. 0, or -1 for a format without scaler. Widths are not 0.
int img_scl_calc_parms(img_format format, uint32_t src_width, uint32_t dst_width, img_scl_parms *parms);

} // namespace img
