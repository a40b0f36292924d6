// SPDX-License-Identifier: MIT
//
// How a line is scaled: steps and counts that are computed once per resize. There is no filter. A reduction halves the
// line while it is more than twice as long as it should become; a stepper in the manner of Bresenham then takes the
// nearest pixel or, in the second half of each step, the average of it and its neighbour.
#pragma once

#include "scale/family.h"

namespace img {

struct img_scl_parms;

// Scales src, or its average with the line below if that is not null, to dst. Halved lines pass through scratch, which
// is long enough for src. src, scratch and dst may be the same line if it is long enough for both widths.
using img_scl_func = void (*)(const void *src, const void *below, void *scratch, void *dst, const img_scl_parms *parms);

// Computes once what is the same for all lines that are scaled with these parameters, in plan_words() words of memory.
// False if that would not help.
using img_scl_planner = bool (*)(const img_scl_parms &parms, uint32_t *memory);

// Offsets and steps are in words of the format's family (scale/family.h).
struct img_scl_parms {
    img_scl_func scaler;
    int32_t dir;        // from one pixel to the next: forward when reducing, backward when enlarging
    uint64_t src_start; // the first pixel read
    uint64_t dst_start; // the first pixel written
    uint32_t src_width; // in pixels, before halving
    uint32_t dst_width;
    uint32_t half;       // dst_width / 2: from this fraction on the average with the neighbour is taken
    int32_t int_step;    // whole words to advance for each pixel written
    uint32_t frac_step;  // plus this fraction of a pixel, in units of 1 / dst_width
    uint32_t edge_count; // enlarging: pixels at the left edge that repeat the first one
    uint32_t main_count; // pixels that the stepper writes
    uint32_t halvings;   // passes of exact halving before the stepper

    MeanRule rule;
    uint32_t edge_src;       // enlarging: the pixel that the edge repeats
    img_scl_planner planner; // null where nothing is planned
    const uint32_t *plan;    // null: every line computes its steps again, which is slower
};

// Words in a plan: one per window (windows hold at least 8 pixels), then one per pixel, each count rounded up to 16.
constexpr uint64_t plan_starts(uint32_t width) { return (uint64_t{width} / 8 + 16) & ~uint64_t{15}; }
constexpr uint64_t plan_words(uint32_t width) { return plan_starts(width) + ((uint64_t{width} + 15) & ~uint64_t{15}); }

// Halves `from` until it is at most twice `to`. Returns how often.
uint32_t count_halvings(uint32_t &from, uint32_t to);

// How often an enlargement repeats the last row, or the first pixel, of the source.
constexpr uint32_t repeated_at_edge(uint32_t from, uint32_t to) {
    return static_cast<uint32_t>(to / (2 * uint64_t{from})) + 1;
}

// Fills the record. Returns 0, or -1 if the format cannot be scaled. The widths must not be 0.
int img_scl_calc_parms(img_format format, uint32_t src_width, uint32_t dst_width, img_scl_parms *parms);

} // namespace img
