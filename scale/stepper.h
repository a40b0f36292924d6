// SPDX-License-Identifier: MIT
//
// Lines stepped through in registers: a pixel to each 32-bit lane while pixels are picked and averaged. Which pixels
// these are is the same in every line, so it is worked out once, as a plan. Part of kernels.cpp.
//
// A line may be scaled in place: the pixels of a register are read before it is written, and from where nothing has
// been written yet, since reductions go forward and enlargements backward.
#pragma once

#include "scale/vector.h"

namespace img::IMG_TARGET {
namespace {

constexpr uint32_t blended = 1u << 31;

// Writes the plan: for each register, in the order in which they are made, where its window begins; then a word for
// each of its lanes: the pixel's index in the window, and `blended` if it is averaged with its neighbour. Windows suit
// steps of less than two pixels; in lines of a billion they could not be counted.
[[gnu::noinline]] bool plan_steps(const img_scl_parms &p, uint32_t *memory, uint32_t first, uint32_t unit) {
    const bool forward = p.dir > 0;
    const uint32_t length = p.src_width >> p.halvings;
    if (length < window_pixels || p.int_step != (forward ? p.dir : 0) || p.dst_width > 1u << 30) return false;
    uint32_t *starts = memory, *words = memory + plan_starts(p.dst_width);
    uint32_t at = forward ? 0 : length - 1, fraction = 0;
    for (uint32_t i = 0; i < p.main_count; i += lanes, words += lanes) {
        const uint32_t start = window_begin(forward ? at : at < lanes ? 0 : at - lanes, length);
        *starts++ = start;
        for (uint32_t k = 0; k < lanes; k++) {
            const bool there = i + k < p.main_count;
            const uint32_t index = there ? first + (at - start) * unit : 0;
            words[forward ? k : lanes - 1 - k] = index | (fraction >= p.half ? blended : 0);
            fraction += p.frac_step;
            const bool carry = fraction >= p.dst_width;
            fraction -= carry ? p.dst_width : 0;
            at += forward ? 1 + carry : -uint32_t{carry};
        }
    }
    return true;
}

template <Kind K> class Stepper {
public:
    static bool plan(const img_scl_parms &p, uint32_t *memory) {
        return plan_steps(p, memory, Window<pixel>::first_index, Window<pixel>::index_unit);
    }

    Stepper(const uint8_t *line, uint8_t *dst, const img_scl_parms &p)
        : line_(line), dst_(dst), p_(p), length_(p.src_width >> p.halvings), starts_(p.plan),
          words_(p.plan + plan_starts(p.dst_width)), means_(p.rule) {}

    void reduce() const {
        for (uint32_t i = 0; i < p_.dst_width; i += lanes) {
            const uint32_t left = p_.dst_width - i;
            const WideBytes v = pick<1>(i);
            if (left >= lanes)
                store_lanes<pixel>(dst_ + size_t{i} * pixel, v);
            else
                store_some_lanes<pixel>(dst_ + size_t{i} * pixel, v, 0, left);
        }
    }

    // From the right: the last lane comes first.
    void enlarge() const {
        for (uint32_t i = 0; i < p_.main_count; i += lanes) {
            const uint32_t left = p_.main_count - i;
            const WideBytes v = pick<-1>(i);
            if (left >= lanes)
                store_lanes<pixel>(dst_ + size_t{p_.dst_width - i - lanes} * pixel, v);
            else
                store_some_lanes<pixel>(dst_ + size_t{p_.edge_count} * pixel, v, lanes - left, left);
        }
        const uint8_t *edge = line_ + size_t{p_.edge_src} * pixel;
        for (uint32_t i = p_.edge_count; i-- > 0;) Pixel<K>::load(edge).store(dst_ + size_t{i} * pixel, p_.rule);
    }

private:
    static constexpr uint32_t pixel = K.elements * K.bytes;

    // The pixels of the i-th register.
    template <int direction> INLINE WideBytes pick(uint32_t i) const {
        constexpr uint32_t unit = Window<pixel>::index_unit;
        const Window<pixel> in{line_, starts_[i / lanes], length_};
        const auto index = load<WideWords32>(words_ + i);
        const WideBytes near = means_.prepared(in.pick(index));
        const WideBytes next = means_.prepared(in.pick(direction > 0 ? index + unit : index - unit));
        return means_.finished(select_by_top_bit(index, means_.mean(near, next), near));
    }

    const uint8_t *line_;
    uint8_t *dst_;
    const img_scl_parms &p_;
    uint32_t length_;
    const uint32_t *starts_, *words_;
    Means<K> means_;
};

template <Kind K> [[gnu::noinline]] void step(const uint8_t *line, uint8_t *dst, const img_scl_parms &p) {
    if (!p.plan) return step_pixels<K>(line, dst, p);
    const Stepper<K> stepper{line, dst, p};
    if (p.dir > 0)
        stepper.reduce();
    else
        stepper.enlarge();
}
template <Kind K> constexpr img_scl_planner planner = Stepper<K>::plan;

} // namespace
} // namespace img::IMG_TARGET
