// SPDX-License-Identifier: MIT
//
// Lines averaged and reduced in registers. Part of kernels.cpp.
#pragma once

#include "scale/pixels.h"
#include "simd/simd.h"

namespace img::IMG_TARGET {
namespace {

using namespace simd;

// Means of pixels in registers, which are prepared once, then averaged any number of times. average_up() rounds up, so
// averaging complemented bytes rounds down; words in the other byte order are swapped.
template <Kind K> class Means {
public:
    explicit Means(const MeanRule &rule) : mask_(WideWords32{} + rule.mask), forced_(WideWords32{} + rule.forced) {}

    INLINE WideBytes prepared(WideBytes v) const {
        if constexpr (K.bytes != 2) return ~v;
        return K.swapped ? WideBytes(swap_bytes(WideWords16(v))) : v;
    }
    INLINE WideBytes mean(WideBytes a, WideBytes b) const {
        if constexpr (K.bytes != 2) return average_up(a, b);
        const auto x = WideWords16(a), y = WideWords16(b);
        return WideBytes((x & y) + (((x ^ y) & WideWords16(mask_)) >> 1));
    }
    INLINE WideBytes finished(WideBytes v) const {
        if constexpr (K.bytes == 1) return prepared(v);
        if constexpr (K.bytes == 4) return not_or(v, WideBytes(forced_));
        return WideBytes(WideWords32(prepared(v)) | forced_);
    }

private:
    WideWords32 mask_, forced_;
};

// dst may equal a or b: what overlaps at the end is read before anything is written.
template <Kind K>
[[gnu::noinline]] void average(const void *a, const void *b, void *dst, size_t bytes, const MeanRule &rule) {
    const auto *x = static_cast<const uint8_t *>(a), *y = static_cast<const uint8_t *>(b);
    auto *out = static_cast<uint8_t *>(dst);
    const Means<K> means{rule};
    const auto at = [&](const uint8_t *p, const uint8_t *q) {
        return means.finished(means.mean(means.prepared(load<WideBytes>(p)), means.prepared(load<WideBytes>(q))));
    };
    if (bytes < wide_bytes) {
        uint8_t first[wide_bytes], second[wide_bytes];
        read_padded(first, x, bytes, wide_bytes);
        read_padded(second, y, bytes, wide_bytes);
        store(first, at(first, second));
        return write_part(out, first, bytes);
    }
    const size_t end = bytes - wide_bytes;
    const WideBytes last = at(x + end, y + end);
    for (size_t i = 0; i < end; i += wide_bytes) store(out + i, at(x + i, y + i));
    store(out + end, last);
}

// Makes pixels in blocks, of which the last may overlap the one before: it is made first when a line is scaled in
// place.
template <size_t block> INLINE void in_blocks(size_t count, bool in_place, auto make, auto put) {
    const size_t end = count - block;
    WideBytes last{};
    if (in_place) last = make(end);
    for (size_t i = 0; i < end; i += block) put(i, make(i), false);
    put(end, in_place ? last : make(end), true);
}

// What becomes of a pair of pixels: the first of them, their mean, or the mean of the four with the pair below.
enum class Reduction { first, pair, square };

template <Kind K, Reduction R>
void reduce_pairs(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count, const MeanRule &rule) {
    constexpr size_t pixel = K.elements * K.bytes;
    using In = Pairs<pixel>;
    const Means<K> means{rule};
    const auto reduced = [&](In in, auto in_below) {
        if constexpr (R == Reduction::first) return means.finished(means.prepared(in.parted().first));
        in = {means.prepared(in.low), means.prepared(in.high)};
        if constexpr (R == Reduction::square) {
            const In other = in_below();
            in = {means.mean(in.low, means.prepared(other.low)), means.mean(in.high, means.prepared(other.high))};
        }
        const auto parted = in.parted();
        return means.finished(means.mean(parted.first, parted.second));
    };
    if (count < In::block) {
        if constexpr (permutes_bytes) {
            const size_t there = 2 * count * pixel;
            const auto v = reduced(In::load_first(src, there), [&] { return In::load_first(below, there); });
            return store_first(dst, v, count * pixel);
        }
        if constexpr (R == Reduction::first) return thin_pixels<K>(src, dst, count, rule);
        return halve_pixels<K>(src, R == Reduction::square ? below : nullptr, dst, count, rule);
    }
    in_blocks<In::block>(
        count, src == dst,
        [&](size_t i) {
            return reduced(In::load(src + 2 * i * pixel), [&] { return In::load(below + 2 * i * pixel); });
        },
        [&](size_t i, WideBytes v, bool last) { In::store(dst + i * pixel, v, last); });
}

template <Kind K>
void halve(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count, const MeanRule &rule) {
    if constexpr (K.elements == 1)
        if (below) return reduce_pairs<K, Reduction::square>(src, below, dst, count, rule);
    reduce_pairs<K, Reduction::pair>(src, nullptr, dst, count, rule);
}

template <Kind K> [[gnu::noinline]] void thin(const uint8_t *src, uint8_t *dst, size_t count, const MeanRule &rule) {
    reduce_pairs<K, Reduction::first>(src, nullptr, dst, count, rule);
}

// Halves two lines to one and takes every second pixel of it, which needs half of the source only. At least so many
// pixels; 0: never. Not in place.
template <Kind K> constexpr uint32_t least_quartered = K.bytes == 4 ? lanes : 0;

template <Kind K>
[[gnu::noinline]] void quarter(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count,
                               const MeanRule &rule) {
    const Means<K> means{rule};
    const auto pairs = [&](size_t at) {
        return means.mean(means.prepared(Quads::load_pairs(src + at)), means.prepared(Quads::load_pairs(below + at)));
    };
    in_blocks<lanes>(
        count, false,
        [&](size_t i) {
            const auto parted = Quads::parted(pairs(i * 16), pairs(i * 16 + 2 * wide_bytes));
            return Quads::in_order(means.finished(means.mean(parted.first, parted.second)));
        },
        [&](size_t i, WideBytes v, bool) { store(dst + i * 4, v); });
}

} // namespace
} // namespace img::IMG_TARGET
