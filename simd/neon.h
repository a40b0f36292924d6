// SPDX-License-Identifier: MIT
//
// NEON of aarch64. A register of 32 bytes is two of the machine's, its parts. Short runs and streaming are as in
// plain.h: there are no masks, and no stores past the caches.
#pragma once

#include "simd/plain.h"

#include <arm_neon.h>

namespace simd {
namespace {

typedef Bytes WideBytes;
typedef Words16 WideWords16;
typedef Words32 WideWords32;

constexpr size_t wide_bytes = sizeof(WideBytes);
constexpr uint32_t lanes = wide_bytes / 4;

// The parts of a register as vectors of bytes, 16- or 32-bit words.
template <class Part> struct Parts { Part of[2]; };
typedef Parts<uint8x16_t> Parts8;
typedef Parts<uint16x8_t> Parts16;
typedef Parts<uint32x4_t> Parts32;
typedef Parts<uint64x2_t> Parts64;

template <class P, class V> INLINE P parts(V v) { return __builtin_bit_cast(P, v); }
template <class V, class P> INLINE V whole(P low, P high) { return __builtin_bit_cast(V, (Parts<P>{{low, high}})); }

// ---- Loads and stores --------------------------------------------------------------------------------------------

INLINE uint8x16_t load_part(const void *p) { return vld1q_u8(static_cast<const uint8_t *>(p)); }

INLINE Bytes load_halves(const void *low, const void *high) { return whole<Bytes>(load_part(low), load_part(high)); }
INLINE Bytes repeat_half(const void *p) { return load_halves(p, p); }

INLINE Words16 load_widened(const void *p) {
    const uint8x16_t v = load_part(p);
    return whole<Words16>(vmovl_u8(vget_low_u8(v)), vmovl_high_u8(v));
}

INLINE void store_low_half(void *p, Bytes v) { vst1q_u8(static_cast<uint8_t *>(p), parts<Parts8>(v).of[0]); }
INLINE void store_high_half(void *p, Bytes v) { vst1q_u8(static_cast<uint8_t *>(p), parts<Parts8>(v).of[1]); }

// ---- Elements moved within parts ---------------------------------------------------------------------------------

INLINE Bytes shuffle(Bytes v, Bytes order) {
    const auto a = parts<Parts8>(v), places = parts<Parts8>(order);
    return whole<Bytes>(vqtbl1q_u8(a.of[0], places.of[0]), vqtbl1q_u8(a.of[1], places.of[1]));
}

template <size_t element> INLINE auto zip_low(Bytes a, Bytes b, size_t part) {
    if constexpr (element == 1) return vzip1q_u8(parts<Parts8>(a).of[part], parts<Parts8>(b).of[part]);
    if constexpr (element == 2) return vzip1q_u16(parts<Parts16>(a).of[part], parts<Parts16>(b).of[part]);
    if constexpr (element == 4) return vzip1q_u32(parts<Parts32>(a).of[part], parts<Parts32>(b).of[part]);
}
template <size_t element> INLINE auto zip_high(Bytes a, Bytes b, size_t part) {
    if constexpr (element == 1) return vzip2q_u8(parts<Parts8>(a).of[part], parts<Parts8>(b).of[part]);
    if constexpr (element == 2) return vzip2q_u16(parts<Parts16>(a).of[part], parts<Parts16>(b).of[part]);
    if constexpr (element == 4) return vzip2q_u32(parts<Parts32>(a).of[part], parts<Parts32>(b).of[part]);
}

template <size_t element> INLINE Bytes unpack_low(Bytes a, Bytes b) {
    return whole<Bytes>(zip_low<element>(a, b, 0), zip_low<element>(a, b, 1));
}
template <size_t element> INLINE Bytes unpack_high(Bytes a, Bytes b) {
    return whole<Bytes>(zip_high<element>(a, b, 0), zip_high<element>(a, b, 1));
}

INLINE Bytes narrow(Words16 a, Words16 b) {
    const auto x = parts<Parts8>(a), y = parts<Parts8>(b);
    return whole<Bytes>(vuzp1q_u8(x.of[0], y.of[0]), vuzp1q_u8(x.of[1], y.of[1]));
}
INLINE Words16 narrow(Words32 a, Words32 b) {
    const auto x = parts<Parts16>(a), y = parts<Parts16>(b);
    return whole<Words16>(vuzp1q_u16(x.of[0], y.of[0]), vuzp1q_u16(x.of[1], y.of[1]));
}

INLINE Words16 swap_bytes(Words16 v) {
    const auto x = parts<Parts8>(v);
    return whole<Words16>(vrev16q_u8(x.of[0]), vrev16q_u8(x.of[1]));
}

// ---- Elements moved between parts --------------------------------------------------------------------------------

// Interleaves the elements of the parts, which mends the order that narrowing leaves: once by elements of 8 bytes,
// twice by elements of 4.
template <size_t element> INLINE Bytes interleave_parts(Bytes v) {
    if constexpr (element == 8) {
        const auto x = parts<Parts64>(v);
        return whole<Bytes>(vzip1q_u64(x.of[0], x.of[1]), vzip2q_u64(x.of[0], x.of[1]));
    } else {
        const auto x = parts<Parts32>(v);
        return whole<Bytes>(vzip1q_u32(x.of[0], x.of[1]), vzip2q_u32(x.of[0], x.of[1]));
    }
}

// The opposite, so that unpacking leaves elements in order.
template <size_t element> INLINE Bytes deinterleave_parts(Bytes v) {
    if constexpr (element == 8) return interleave_parts<8>(v);
    const auto x = parts<Parts32>(v);
    return whole<Bytes>(vuzp1q_u32(x.of[0], x.of[1]), vuzp2q_u32(x.of[0], x.of[1]));
}

template <size_t element> INLINE Bytes reverse(Bytes v) {
    const auto reversed = [](auto x) {
        if constexpr (element == 1) x = vrev64q_u8(x);
        if constexpr (element == 2) x = vreinterpretq_u8_u16(vrev64q_u16(vreinterpretq_u16_u8(x)));
        if constexpr (element == 4) x = vreinterpretq_u8_u32(vrev64q_u32(vreinterpretq_u32_u8(x)));
        return vextq_u8(x, x, 8);
    };
    const auto x = parts<Parts8>(v);
    return whole<Bytes>(reversed(x.of[1]), reversed(x.of[0]));
}

// Stores the first 12 bytes of a vector; where more may follow, 16, of which the rest is overwritten.
INLINE void store_12(uint8_t *p, uint8x16_t v) {
    vst1_u8(p, vget_low_u8(v));
    vst1q_lane_u32(static_cast<uint32_t *>(static_cast<void *>(p + 8)), vreinterpretq_u32_u8(v), 2);
}

INLINE void store_low12(uint8_t *p, Bytes v) {
    vst1q_u8(p, parts<Parts8>(v).of[0]);
    store_12(p + 12, parts<Parts8>(v).of[1]);
}

INLINE void store_low12(uint8_t *p, const Bytes (&v)[4]) {
    for (size_t k = 0; k < 7; k++) vst1q_u8(p + 12 * k, parts<Parts8>(v[k / 2]).of[k % 2]);
    store_12(p + 84, parts<Parts8>(v[3]).of[1]);
}

// One byte of each 32-bit word of four registers, in order.
template <size_t byte> INLINE Bytes pick_byte(const Bytes (&words)[4]) {
    const auto pick = [](Bytes a, Bytes b) {
        const auto odd = [](auto x, auto y) { return byte / 2 ? vuzp2q_u16(x, y) : vuzp1q_u16(x, y); };
        const auto x = parts<Parts16>(a), y = parts<Parts16>(b);
        const uint8x16_t low = vreinterpretq_u8_u16(odd(x.of[0], x.of[1]));
        const uint8x16_t high = vreinterpretq_u8_u16(odd(y.of[0], y.of[1]));
        return byte % 2 ? vuzp2q_u8(low, high) : vuzp1q_u8(low, high);
    };
    return whole<Bytes>(pick(words[0], words[1]), pick(words[2], words[3]));
}

// ---- Arithmetic --------------------------------------------------------------------------------------------------

template <class P, class V> INLINE V for_parts(V a, V b, auto operation) {
    const auto x = parts<P>(a), y = parts<P>(b);
    return whole<V>(operation(x.of[0], y.of[0]), operation(x.of[1], y.of[1]));
}

INLINE Bytes larger(Bytes a, Bytes b) {
    return for_parts<Parts8>(a, b, [](auto x, auto y) { return vmaxq_u8(x, y); });
}
INLINE Bytes equal(Bytes a, Bytes b) {
    return for_parts<Parts8>(a, b, [](auto x, auto y) { return vceqq_u8(x, y); });
}
INLINE Bytes average_up(Bytes a, Bytes b) {
    return for_parts<Parts8>(a, b, [](auto x, auto y) { return vrhaddq_u8(x, y); });
}

// The upper halves of the products.
INLINE Words16 multiply_high(Words16 a, Words16 b) {
    return for_parts<Parts16>(a, b, [](auto x, auto y) {
        const uint32x4_t low = vmull_u16(vget_low_u16(x), vget_low_u16(y)), high = vmull_high_u16(x, y);
        return vuzp2q_u16(vreinterpretq_u16_u32(low), vreinterpretq_u16_u32(high));
    });
}

INLINE Words32 multiply_add(Words16 a, Words16 b) {
    const auto part = [](auto x, auto y) {
        return vpaddq_s32(vmull_s16(vget_low_s16(x), vget_low_s16(y)), vmull_high_s16(x, y));
    };
    const auto x = parts<Parts<int16x8_t>>(a), y = parts<Parts<int16x8_t>>(b);
    return whole<Words32>(part(x.of[0], y.of[0]), part(x.of[1], y.of[1]));
}

// Weights are below 128, and the sums below 32768.
INLINE Words16 multiply_add_bytes(Bytes v, Bytes weights) {
    const auto part = [](auto x, auto y) {
        return vpaddq_u16(vmull_u8(vget_low_u8(x), vget_low_u8(y)), vmull_high_u8(x, y));
    };
    const auto x = parts<Parts8>(v), y = parts<Parts8>(weights);
    return whole<Words16>(part(x.of[0], y.of[0]), part(x.of[1], y.of[1]));
}

INLINE Words32 sum_products(Bytes v, Bytes weights) {
    const auto x = parts<Parts16>(multiply_add_bytes(v, weights));
    return whole<Words32>(vpaddlq_u16(x.of[0]), vpaddlq_u16(x.of[1]));
}

INLINE Bytes not_or(Bytes v, Bytes bits) { return ~v | bits; }

// Lanes of v where the top bit of a word is set, and of `otherwise` where it is not.
INLINE Bytes select_by_top_bit(Words32 words, Bytes v, Bytes otherwise) {
    const auto part = [](auto sign, auto x, auto y) {
        return vbslq_u8(vreinterpretq_u8_s32(vshrq_n_s32(sign, 31)), x, y);
    };
    const auto sign = parts<Parts<int32x4_t>>(words);
    const auto x = parts<Parts8>(v), y = parts<Parts8>(otherwise);
    return whole<Bytes>(part(sign.of[0], x.of[0], y.of[0]), part(sign.of[1], x.of[1], y.of[1]));
}

// ---- Rows to columns ---------------------------------------------------------------------------------------------

template <class V> INLINE V load_parts(const uint8_t *p, ptrdiff_t step) { return load_halves(p, p + step); }
template <class V> INLINE V repeat_part(const void *p) { return repeat_half(p); }

// ---- Pixels in lanes ---------------------------------------------------------------------------------------------

// Sixteen pixels; a line has at least as many. A window is moved where it would reach beyond the line.
constexpr uint32_t window_pixels = 16;
INLINE uint32_t window_begin(uint32_t at, uint32_t length) {
    return at < length - window_pixels ? at : length - window_pixels;
}

template <uint32_t pixel> class Window {
public:
    // An index is that of each of the bytes that a pixel brings into its lane. Higher bits do not count.
    static constexpr uint32_t first_index = 0x03020100, index_unit = pixel * 0x01010101;

    INLINE Window(const uint8_t *line, uint32_t start, uint32_t) {
        for (uint32_t k = 0; k < pixel; k++) in_[k] = load_part(line + size_t{start} * pixel + part_bytes * k);
    }

    // A pixel to each lane.
    INLINE Bytes pick(Words32 index) const {
        const auto place = parts<Parts8>(index & 0x3f3f3f3f);
        return whole<Bytes>(look_up(place.of[0]), look_up(place.of[1]));
    }

private:
    INLINE uint8x16_t look_up(uint8x16_t place) const {
        if constexpr (pixel == 1) return vqtbl1q_u8(in_[0], place);
        if constexpr (pixel == 2) return vqtbl2q_u8({{in_[0], in_[1]}}, place);
        if constexpr (pixel == 3) return vqtbl3q_u8({{in_[0], in_[1], in_[2]}}, place);
        if constexpr (pixel == 4) return vqtbl4q_u8({{in_[0], in_[1], in_[2], in_[3]}}, place);
    }

    uint8x16_t in_[pixel];
};

// Four pixels of three bytes in each part as four of four, and back.
constexpr Pattern<> spread_order = [] {
    Pattern<> order{};
    for (size_t i = 0; i < vector_bytes; i++) order.at[i] = uint8_t(i % 4 == 3 ? 0x80 : i % 16 / 4 * 3 + i % 4);
    return order;
}();
constexpr Pattern<> packed_order = [] {
    Pattern<> order{};
    for (size_t i = 0; i < vector_bytes; i++) order.at[i] = uint8_t(i % 16 >= 12 ? 0x80 : i % 16 / 3 * 4 + i % 16 % 3);
    return order;
}();

// Stores the pixels of all lanes without gaps.
template <uint32_t pixel> INLINE void store_lanes(uint8_t *dst, Bytes v) {
    if constexpr (pixel == 4) return store(dst, v);
    if constexpr (pixel == 3) return store_low12(dst, shuffle(v, load(packed_order.at)));
    const auto x = parts<Parts16>(v);
    const uint8x16_t halves = vreinterpretq_u8_u16(vuzp1q_u16(x.of[0], x.of[1]));
    if constexpr (pixel == 2) return vst1q_u8(dst, halves);
    vst1_u8(dst, vget_low_u8(vuzp1q_u8(halves, halves)));
}

// Stores `count` of them, from lane `first` on.
template <uint32_t pixel> INLINE void store_some_lanes(uint8_t *dst, Bytes v, uint32_t first, uint32_t count) {
    uint8_t pixels[vector_bytes];
    store_lanes<pixel>(pixels, v);
    memcpy(dst, pixels + first * pixel, count * pixel);
}

// Twice as many pixels as a result holds, to be parted into the first and the second ones of pairs. Pixels of three
// bytes are in lanes.
template <uint32_t pixel> struct Pairs {
    static constexpr size_t block = pixel == 3 ? lanes : vector_bytes / pixel; // pixels of a result

    Bytes low, high;

    INLINE static Pairs load(const uint8_t *p) {
        if constexpr (pixel != 3) return {simd::load(p), simd::load(p + vector_bytes)};
        const uint8x16_t last = load_part(p + 32); // not 36, where nothing need follow
        const Bytes order = simd::load(spread_order.at);
        return {shuffle(load_halves(p, p + 12), order),
                shuffle(whole<Bytes>(load_part(p + 24), vextq_u8(last, last, 4)), order)};
    }

    INLINE Parted<Bytes> parted() const {
        if constexpr (pixel == 1) {
            const auto a = parts<Parts8>(low), b = parts<Parts8>(high);
            return {whole<Bytes>(vuzp1q_u8(a.of[0], a.of[1]), vuzp1q_u8(b.of[0], b.of[1])),
                    whole<Bytes>(vuzp2q_u8(a.of[0], a.of[1]), vuzp2q_u8(b.of[0], b.of[1]))};
        } else if constexpr (pixel == 2) {
            const auto a = parts<Parts16>(low), b = parts<Parts16>(high);
            return {whole<Bytes>(vuzp1q_u16(a.of[0], a.of[1]), vuzp1q_u16(b.of[0], b.of[1])),
                    whole<Bytes>(vuzp2q_u16(a.of[0], a.of[1]), vuzp2q_u16(b.of[0], b.of[1]))};
        } else {
            const auto a = parts<Parts32>(low), b = parts<Parts32>(high);
            return {whole<Bytes>(vuzp1q_u32(a.of[0], a.of[1]), vuzp1q_u32(b.of[0], b.of[1])),
                    whole<Bytes>(vuzp2q_u32(a.of[0], a.of[1]), vuzp2q_u32(b.of[0], b.of[1]))};
        }
    }

    INLINE static void store(uint8_t *dst, Bytes v, bool) {
        if constexpr (pixel == 3)
            store_lanes<pixel>(dst, v);
        else
            simd::store(dst, v);
    }
};

// The first two of every four pixels of four bytes, to be parted like pairs.
struct Quads {
    INLINE static Bytes load_pairs(const uint8_t *p) {
        const auto a = parts<Parts64>(load(p)), b = parts<Parts64>(load(p + vector_bytes));
        return whole<Bytes>(vzip1q_u64(a.of[0], a.of[1]), vzip1q_u64(b.of[0], b.of[1]));
    }
    INLINE static Parted<Bytes> parted(Bytes low, Bytes high) { return Pairs<4>{low, high}.parted(); }
    INLINE static Bytes in_order(Bytes v) { return v; }
};

} // namespace
} // namespace simd
