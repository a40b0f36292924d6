// SPDX-License-Identifier: MIT
//
// Lines stepped through in vectors: a pixel to each 32-bit lane while pixels are picked and averaged. Part of kernels.cpp.
//
// A line may be scaled in place: the pixels of a vector are read before it is written, and lie where nothing was written
// yet, since reductions go forward and enlargements backward.
#pragma once

#include "scale/window.h"

namespace img::IMG_TARGET {
namespace {

// Lane i is parms.lane_whole[i] pixels further than lane 0, and another one further where the parts carry over.
template <Kind K> class Stepper {
public:
    Stepper(const uint8_t *line, uint8_t *dst, const img_scl_parms &p)
        : line_(line), dst_(dst), p_(p), length_(p.src_width >> p.halvings), width_(Words{} + p.dst_width),
          half_(Words{} + p.half), rule_(p.rule) {}

    // Steps of less than two pixels in lines that fill a window, and sums of parts that fit 31 bits.
    static bool serves(const img_scl_parms &p) {
        return p.dst_width < 1u << 30 && p.src_width >> p.halvings >= least_line &&
               (p.dir < 0 ? p.int_step == 0 : p.int_step == p.dir);
    }

    void reduce() {
        whole_ = Words(load(p_.lane_whole)) * unit + first_index;
        parts_ = Words(load(p_.lane_parts));
        for (uint32_t i = 0, at = 0; i < p_.dst_width; i += lanes, at += advance()) {
            const uint32_t left = p_.dst_width - i;
            const Any v = pick<1>(at, at);
            if (left >= lanes)
                store_packed<pixel>(dst_ + size_t{i} * pixel, packed<pixel>(v));
            else
                store_some<pixel>(dst_ + size_t{i} * pixel, v, 0, left);
        }
    }

    // From the right: the last lane comes first.
    void enlarge() {
        constexpr uint32_t skip = scale_lanes - lanes;
        whole_ = first_index - Words(load(p_.lane_whole_back + skip)) * unit;
        parts_ = Words(load(p_.lane_parts_back + skip));
        for (uint32_t i = 0, at = length_ - 1; i < p_.main_count; i += lanes, at -= advance()) {
            const uint32_t left = p_.main_count - i;
            const Any v = pick<-1>(at < lanes ? 0 : at - lanes, at);
            if (left >= lanes)
                store_packed<pixel>(dst_ + size_t{p_.dst_width - i - lanes} * pixel, packed<pixel>(v));
            else
                store_some<pixel>(dst_ + size_t{p_.edge_count} * pixel, v, lanes - left, left);
        }
        const uint8_t *edge = line_ + size_t{p_.edge_src} * pixel;
        for (uint32_t i = p_.edge_count; i-- > 0;) Pixel<K>::load(edge).store(dst_ + size_t{i} * pixel, p_.rule);
    }

private:
    static constexpr uint32_t pixel = K.elements * K.bytes, unit = index_unit<pixel>;

    static Any load(const uint32_t *table) { return img::IMG_TARGET::load(reinterpret_cast<const uint8_t *>(table)); }

    // Pixels from the first lane of one vector to that of the next.
    uint32_t advance() {
        fraction_ += p_.lane_parts[lanes];
        const bool carry = fraction_ >= p_.dst_width;
        fraction_ -= carry ? p_.dst_width : 0;
        return p_.lane_whole[lanes] + carry;
    }

    // The pixels of the lanes, of which the one that comes first is `at`, out of a window that begins at `start`.
    template <int direction> Any pick(uint32_t start, uint32_t at) const {
        const Window<pixel> in{line_, start, length_};
        Words parts = parts_ + fraction_, index = whole_ + (at - in.start()) * unit;
        const Chosen carry = at_least(parts, width_);
        parts = choose(carry, parts - width_, parts);
        const auto further = [](Words v) { return direction > 0 ? v + unit : v - unit; };
        index = choose(carry, further(index), index);
        const Any near = in.picked(index), both = mean<K>(near, in.picked(further(index)), rule_);
        return with_forced<K>(Any(choose(at_least(parts, half_), Words(both), Words(near))), rule_);
    }

    const uint8_t *line_;
    uint8_t *dst_;
    const img_scl_parms &p_;
    uint32_t length_;
    uint32_t fraction_ = 0;
    Words whole_{}, parts_{}, width_, half_;
    Rule rule_;
};

} // namespace
} // namespace img::IMG_TARGET
