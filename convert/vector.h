// SPDX-License-Identifier: MIT
//
// A block of pixels in registers of 32 bytes. Part of run.h.
//
// Two registers hold the block as 16-bit words; four hold it as 32-bit words, or as the bytes that will become such:
// eight pixels to a register, four to each of its parts, because byte shuffles do not cross parts.
#pragma once

#include "convert/repack.h"
#include "simd/simd.h"

namespace img::IMG_TARGET {
namespace {

using namespace simd;

constexpr size_t block = 32;

// ---- Layouts of whole bytes: grey, 24 and 32 bits ----------------------------------------------------------------

struct Pixels32 {
    Bytes v[4];
};

// Loads a block, eight pixels to a register; pixel_place() says where in the parts they are.
template <uint32_t bytes> INLINE Pixels32 load_pixels(const uint8_t *src) {
    Pixels32 pixels;
    for (size_t k = 0; k < 4; k++) {
        const uint8_t *p = src + k * 8 * bytes;
        if constexpr (bytes == 1)
            pixels.v[k] = Bytes(Words64{} + load<uint64_t>(p));
        else if constexpr (bytes == 3) // 8 bytes apart, not 12: nothing after the pixels is read
            pixels.v[k] = load_halves(p, p + 8);
        else
            pixels.v[k] = load(p);
    }
    return pixels;
}

// Where pixel i of a part begins in it.
constexpr uint32_t pixel_place(uint32_t bytes, uint32_t part, uint32_t i) {
    return bytes * i + (bytes == 4 ? 0 : 4 * part);
}

// Moves the bytes of the four pixels of a part to where dst has them, without gaps.
constexpr Pattern<> placing(Layout src, Layout dst) {
    Pattern<> pattern{};
    for (uint8_t &byte : pattern.at) byte = 0x80;
    const Field from[] = {src.r, src.g, src.b, src.a}, to[] = {dst.r, dst.g, dst.b, dst.a};
    for (uint32_t part = 0; part < 2; part++)
        for (uint32_t i = 0; i < 4; i++)
            for (uint32_t c = 0; c < 4; c++)
                if (from[c].bits && to[c].bits)
                    pattern.at[16 * part + dst.bytes * i + to[c].shift / 8] =
                        uint8_t(pixel_place(src.bytes, part, i) + from[c].shift / 8u);
    return pattern;
}

constexpr bool in_place(Layout src, Layout dst) {
    return src.bytes == dst.bytes && src.r.shift == dst.r.shift && src.g.shift == dst.g.shift &&
           src.b.shift == dst.b.shift && (!src.a.bits || !dst.a.bits || src.a.shift == dst.a.shift);
}

template <Layout S, Layout D> INLINE Pixels32 placed(Pixels32 pixels) {
    static constexpr Pattern<> order = placing(S, D);
    for (Bytes &v : pixels.v) {
        if constexpr (!in_place(S, D)) v = shuffle(v, load(order.at));
        if constexpr (!S.a.bits && D.a.bits) v = Bytes(Words32(v) | field_mask(D.a));
    }
    return pixels;
}

INLINE void store_pixels(uint8_t *dst, const Pixels32 &pixels) {
    for (size_t k = 0; k < 4; k++) store(dst + vector_bytes * k, pixels.v[k]);
}

// Stores pixels of layout S as 24-bit ones.
template <Layout S, Layout D> INLINE void store_24_bits(uint8_t *dst, Pixels32 pixels) {
    static constexpr Pattern<> order = placing(S, D);
    for (Bytes &v : pixels.v) v = shuffle(v, load(order.at));
    store_low12(dst, pixels.v);
}

// ---- Layouts of 16 bits ------------------------------------------------------------------------------------------

struct Pixels16 {
    Words16 v[2]; // 16 pixels each, in order
};

template <Layout S> INLINE Pixels16 load_16_bits(const uint8_t *src) {
    Pixels16 pixels{{load<Words16>(src), load<Words16>(src + vector_bytes)}};
    if constexpr (S.swapped)
        for (Words16 &v : pixels.v) v = swap_bytes(v);
    return pixels;
}

template <Layout D> INLINE void store_16_bits(uint8_t *dst, const Pixels16 &pixels) {
    for (size_t k = 0; k < 2; k++) store(dst + vector_bytes * k, D.swapped ? swap_bytes(pixels.v[k]) : pixels.v[k]);
}

// A channel widened to eight bits, in the low byte. Repeating the top bits is a multiplication: by 33 / 4 for five bits
// and by 65 / 16 for six, with the fraction dropped.
template <Field F> INLINE Words16 widened(Words16 v) {
    if constexpr (F.bits == 1) return Words16(Signed16(v << uint16_t(15 - F.shift)) >> 15) & 0xff;
    constexpr uint32_t factor = ((1u << F.bits) + 1) << (24 - 2 * F.bits);
    if constexpr (F.shift == 0) // the factor would not fit 16 bits
        return multiply_high(v << uint16_t(16 - F.bits), Words16{} + uint16_t(factor >> (16 - F.bits)));
    return multiply_high(v & uint16_t(field_mask(F)), Words16{} + uint16_t(factor >> F.shift));
}

// The byte of a pixel of D at a place in memory, in the low byte.
template <Layout S, Layout D, uint32_t byte> INLINE Words16 channel(Words16 v) {
    if constexpr (D.r.shift / 8 == byte) return widened<S.r>(v);
    if constexpr (D.g.shift / 8 == byte) return widened<S.g>(v);
    if constexpr (D.b.shift / 8 == byte) return widened<S.b>(v);
    if constexpr (!D.a.bits) return Words16{};
    if constexpr (!S.a.bits) return Words16{} + 0xff;
    return widened<S.a>(v);
}

// 16 bits to 32, in 16-bit lanes as long as possible: the even bytes together, the odd ones together.
template <Layout S, Layout D> INLINE Pixels32 widen(const Pixels16 &pixels) {
    Pixels32 result;
    for (size_t k = 0; k < 2; k++) {
        const auto v = Words16(deinterleave_parts<8>(Bytes(pixels.v[k])));
        const auto even = Bytes(channel<S, D, 0>(v) | channel<S, D, 2>(v) << 8);
        const auto odd = Bytes(channel<S, D, 1>(v) | channel<S, D, 3>(v) << 8);
        result.v[2 * k] = unpack_low<1>(even, odd);
        result.v[2 * k + 1] = unpack_high<1>(even, odd);
    }
    return result;
}

// What a channel of eight bits, its low bits cleared, is multiplied by to get to its place in D, three bits too high.
constexpr uint32_t narrow_weight(Field f) { return f.bits ? 1u << (f.shift + f.bits - 5) : 0; }
constexpr uint32_t kept_bits(Field f) { return f.bits ? (0xff00u >> f.bits) & 0xff : 0; }

// 32 bits to 16, from words of ARGB: sums of pairs of bytes, then of pairs of those, put the channels next to each
// other.
template <Layout S, Layout D> INLINE Pixels16 narrow_argb(const Pixels32 &argb) {
    constexpr bool alpha = S.a.bits && D.a.bits;
    constexpr uint32_t kept =
        kept_bits(D.b) | kept_bits(D.g) << 8 | kept_bits(D.r) << 16 | (alpha ? kept_bits(D.a) << 24 : 0);
    constexpr uint32_t red = narrow_weight(D.r);
    constexpr uint32_t in_pairs =
        narrow_weight(D.b) | narrow_weight(D.g) << 8 | 1 << 16 | (alpha ? narrow_weight(D.a) / red << 24 : 0);
    Words32 v[4];
    for (size_t k = 0; k < 4; k++) {
        const Words16 pairs = multiply_add_bytes(Bytes(Words32(argb.v[k]) & kept), Bytes(Words32{} + in_pairs));
        v[k] = multiply_add(pairs, Words16(Words32{} + (1 | red << 16))) >> 3;
    }
    Pixels16 result;
    for (size_t k = 0; k < 2; k++) {
        result.v[k] = Words16(interleave_parts<8>(Bytes(narrow(v[2 * k], v[2 * k + 1]))));
        if constexpr (!S.a.bits && D.a.bits) result.v[k] |= uint16_t(field_mask(D.a));
    }
    return result;
}

INLINE Bytes low_bytes(const Pixels16 &pixels) { return interleave_parts<8>(narrow(pixels.v[0], pixels.v[1])); }

// ---- The rules ---------------------------------------------------------------------------------------------------

// Grey of whole bytes as a sum of four products: green is split in two, so that each weight is below 128 and the sum of
// two products below 32768, which is what the multiplication takes.
template <Layout S, Weights W> INLINE Bytes luma_of_bytes(const Pixels32 &pixels) {
    constexpr Layout green_twice{S.bytes, false, S.r, S.g, S.b, S.g}, rgbg{4, false, {0, 8}, {8, 8}, {16, 8}, {24, 8}};
    constexpr uint32_t near_red = 51, near_blue = W.g - near_red;
    static_assert((W.r + near_red) * 255 < 32768 && (W.b + near_blue) * 255 < 32768 && near_blue < 128);
    const auto weights = Bytes(Words32{} + (W.r | near_red << 8 | uint32_t{W.b} << 16 | near_blue << 24));
    const Pixels32 split = placed<green_twice, rgbg>(pixels);
    Words32 sums[4];
    for (size_t k = 0; k < 4; k++) sums[k] = sum_products(split.v[k], weights);
    return interleave_parts<4>(narrow(narrow(sums[0], sums[1]) >> 8, narrow(sums[2], sums[3]) >> 8));
}

template <Layout S, Weights W> INLINE Bytes luma_of_16_bits(Pixels16 pixels) {
    for (Words16 &v : pixels.v) {
        const Words16 r = (v & uint16_t(field_mask(S.r))) >> S.r.shift,
                      g = (v & uint16_t(field_mask(S.g))) >> S.g.shift, b = v & uint16_t(field_mask(S.b));
        v = Words16(r * raw_weight(S.r, W.r) + g * raw_weight(S.g, W.g) + b * raw_weight(S.b, W.b)) >> 8;
    }
    return low_bytes(pixels);
}

// Reads all of the block before it writes any of it.
template <Layout S, Layout D, Rule R> INLINE void convert_block(const uint8_t *src, uint8_t *dst) {
    constexpr Layout argb = S.a.bits ? layout::argb8888he : layout::xrgb8888he;
    if constexpr (S.bytes == 2) {
        Pixels16 pixels = load_16_bits<S>(src);
        if constexpr (R != Rule::repack) {
            store(dst, luma_of_16_bits<S, weights(R)>(pixels));
        } else if constexpr (D.bytes == 1) {
            for (Words16 &v : pixels.v) v = widened<S.a>(v);
            store(dst, low_bytes(pixels));
        } else if constexpr (D.bytes == 2) {
            for (Words16 &v : pixels.v) v = repack<S, D, uint16_t>(v);
            store_16_bits<D>(dst, pixels);
        } else if constexpr (D.bytes == 3) {
            store_24_bits<argb, D>(dst, widen<S, layout::xrgb8888he>(pixels));
        } else {
            store_pixels(dst, widen<S, D>(pixels));
        }
    } else {
        const Pixels32 pixels = load_pixels<S.bytes>(src);
        if constexpr (R != Rule::repack)
            store(dst, luma_of_bytes<S, weights(R)>(pixels));
        else if constexpr (D.bytes == 1)
            store(dst, pick_byte<S.a.shift / 8>(pixels.v));
        else if constexpr (D.bytes == 2)
            store_16_bits<D>(dst, narrow_argb<argb, D>(placed<S, argb>(pixels)));
        else if constexpr (D.bytes == 3)
            store_24_bits<S, D>(dst, pixels);
        else
            store_pixels(dst, placed<S, D>(pixels));
    }
}

} // namespace
} // namespace img::IMG_TARGET
