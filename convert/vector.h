// SPDX-License-Identifier: MIT
//
// A block of pixels in vectors of 32 bytes, for AVX2 and what came after it. Part of kernels.cpp.
//
// Two vectors hold the block as 16-bit words, four hold it as 32-bit words or as bytes in place of words: eight pixels
// to a vector, four to each half of it, because byte shuffles do not cross the halves.
#pragma once

#include "convert/repack.h"

#include <immintrin.h>
#include <stddef.h>
#include <string.h>

namespace img::IMG_TARGET {
namespace {

constexpr size_t block = 32;

typedef uint8_t U8 __attribute__((vector_size(32)));
typedef uint16_t U16 __attribute__((vector_size(32)));
typedef int16_t S16 __attribute__((vector_size(32)));
typedef uint32_t U32 __attribute__((vector_size(32)));
typedef __m256i Any;

template <typename Vector = U8> INLINE Vector load(const void *p) {
    Vector v;
    memcpy(&v, p, sizeof v);
    return v;
}

template <typename Vector> INLINE void store(uint8_t *p, Vector v) { memcpy(p, &v, sizeof v); }

// Whole vectors, aligned on both sides, past the caches.
INLINE void stream(uint8_t *dst, const uint8_t *src, size_t bytes) {
    for (size_t i = 0; i < bytes; i += sizeof(Any))
        _mm256_stream_si256(reinterpret_cast<Any *>(dst + i), load<Any>(src + i));
}

INLINE void end_streaming() { _mm_sfence(); }

// Less than a block into a buffer, filled up with zeros, and out of it. In whole vectors, as the block is read: smaller
// pieces would have to reach the cache before.
#if defined(__AVX512BW__)
INLINE __mmask32 first_bytes(size_t n) { return _bzhi_u32(~uint32_t{0}, static_cast<uint32_t>(n < 32 ? n : 32)); }

INLINE void load_short(uint8_t *in, const uint8_t *src, size_t bytes, size_t filled) {
    for (size_t i = 0; i < filled; i += 32)
        store(in + i, _mm256_maskz_loadu_epi8(first_bytes(bytes > i ? bytes - i : 0), src + i));
}

INLINE void store_short(uint8_t *dst, const uint8_t *out, size_t bytes) {
    for (size_t i = 0; i < bytes; i += 32) _mm256_mask_storeu_epi8(dst + i, first_bytes(bytes - i), load<Any>(out + i));
}
#else
// Which of the eight words from word i on are before the end.
INLINE Any words_before(size_t end, size_t i) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(end) - static_cast<int>(i)),
                              _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}

INLINE void load_short(uint8_t *in, const uint8_t *src, size_t bytes, size_t filled) {
    const size_t words = bytes / 4, rest = bytes % 4;
    int last = 0;
    if (rest & 1) last = src[bytes - 1] << (rest & 2 ? 16 : 0);
    if (rest & 2) last |= load<uint16_t>(src + words * 4);
    for (size_t i = 0; i < filled / 4; i += 8) {
        const Any whole = words_before(words, i), there = words_before(words + 1, i);
        const Any v = _mm256_maskload_epi32(reinterpret_cast<const int *>(src + i * 4), whole);
        store(in + i * 4, v | (_mm256_andnot_si256(whole, there) & _mm256_set1_epi32(last)));
    }
}

INLINE void store_short(uint8_t *dst, const uint8_t *out, size_t bytes) {
    const size_t words = bytes / 4, rest = bytes % 4;
    for (size_t i = 0; i < words; i += 8)
        _mm256_maskstore_epi32(reinterpret_cast<int *>(dst + i * 4), words_before(words, i), load<Any>(out + i * 4));
    if (rest & 2) memcpy(dst + words * 4, out + words * 4, 2);
    if (rest & 1) dst[bytes - 1] = out[bytes - 1];
}
#endif

// The byte of the source, in each half, that goes to each byte of the result; 0x80 makes it zero.
struct Mask {
    uint8_t at[32];
};

INLINE U8 shuffle(U8 v, const Mask &mask) { return U8(_mm256_shuffle_epi8(Any(v), load<Any>(mask.at))); }

// Reorders quarters, which undoes what packing and unpacking do within the halves.
template <typename Vector> INLINE Vector exchange_middle(Vector v) {
    return Vector(_mm256_permute4x64_epi64(Any(v), 0b11'01'10'00));
}

// ---- Layouts of whole bytes: grey, 24 and 32 bits --------------------------------------------------------------

struct Words {
    U8 v[4];
};

// The block, eight pixels to a vector; where in the halves they lie is for `place` to know.
template <uint32_t bytes> INLINE Words load_bytes(const uint8_t *src) {
    Words w;
    for (size_t k = 0; k < 4; k++) {
        const uint8_t *p = src + k * 8 * bytes;
        if constexpr (bytes == 1) {
            w.v[k] = U8(_mm256_set1_epi64x(load<long long>(p)));
        } else if constexpr (bytes == 3) { // 8 bytes apart, not 12: nothing beyond the pixels is read
            w.v[k] = U8(_mm256_inserti128_si256(_mm256_castsi128_si256(load<__m128i>(p)), load<__m128i>(p + 8), 1));
        } else {
            w.v[k] = load(p);
        }
    }
    return w;
}

// Where pixel i of a half begins in it.
constexpr uint32_t pixel_place(uint32_t bytes, uint32_t half, uint32_t i) {
    return bytes * i + (bytes == 4 ? 0 : 4 * half);
}

// Puts the bytes of four pixels to a half where dst has them, without gaps.
constexpr Mask place(Layout src, Layout dst) {
    Mask mask{};
    for (uint8_t &byte : mask.at) byte = 0x80;
    const Field from[] = {src.r, src.g, src.b, src.a}, to[] = {dst.r, dst.g, dst.b, dst.a};
    for (uint32_t half = 0; half < 2; half++)
        for (uint32_t i = 0; i < 4; i++)
            for (uint32_t c = 0; c < 4; c++)
                if (from[c].bits && to[c].bits)
                    mask.at[16 * half + dst.bytes * i + to[c].shift / 8] =
                        uint8_t(pixel_place(src.bytes, half, i) + from[c].shift / 8u);
    return mask;
}

constexpr bool in_place(Layout src, Layout dst) {
    return src.bytes == dst.bytes && src.r.shift == dst.r.shift && src.g.shift == dst.g.shift &&
           src.b.shift == dst.b.shift && (!src.a.bits || !dst.a.bits || src.a.shift == dst.a.shift);
}

template <Layout S, Layout D> INLINE Words placed(Words w) {
    static constexpr Mask mask = place(S, D);
    for (U8 &v : w.v) {
        if constexpr (!in_place(S, D)) v = shuffle(v, mask);
        if constexpr (!S.a.bits && D.a.bits) v = U8(U32(v) | field_mask(D.a));
    }
    return w;
}

INLINE void store_words(uint8_t *dst, const Words &w) {
    for (size_t k = 0; k < 4; k++) store(dst + 32 * k, w.v[k]);
}

// Stores pixels of layout S as 24-bit ones: each vector is squeezed to its six double words, turned to where three
// vectors want them, and these are put together.
template <Layout S, Layout D> INLINE void store_squeezed(uint8_t *dst, const Words &w) {
    static constexpr uint32_t turned[4][8] = {
        {0, 1, 2, 4, 5, 6, 3, 7}, {2, 4, 5, 6, 3, 7, 0, 1}, {5, 6, 3, 7, 0, 1, 2, 4}, {3, 7, 0, 1, 2, 4, 5, 6}};
    static constexpr Mask mask = place(S, D);
    Any v[4];
    for (size_t k = 0; k < 4; k++) v[k] = _mm256_permutevar8x32_epi32(Any(shuffle(w.v[k], mask)), load<Any>(turned[k]));
    store(dst, _mm256_blend_epi32(v[0], v[1], 0b11000000));
    store(dst + 32, _mm256_blend_epi32(v[1], v[2], 0b11110000));
    store(dst + 64, _mm256_blend_epi32(v[2], v[3], 0b11111100));
}

// Bytes of a block whose vectors were put together within the halves.
INLINE U8 in_order(Any v) {
    static constexpr uint32_t order[] = {0, 4, 1, 5, 2, 6, 3, 7};
    return U8(_mm256_permutevar8x32_epi32(v, load<Any>(order)));
}

// Four vectors of 32-bit words below 65536, shifted right, to the bytes of a block.
template <int shift> INLINE U8 narrow_to_bytes(const Words &w) {
    const auto low = U16(_mm256_packus_epi32(Any(w.v[0]), Any(w.v[1]))) >> shift;
    const auto high = U16(_mm256_packus_epi32(Any(w.v[2]), Any(w.v[3]))) >> shift;
    return in_order(_mm256_packus_epi16(Any(low), Any(high)));
}

// One byte of each word. Only one instruction here crosses the halves, where packing twice would take four.
template <uint32_t byte> INLINE U8 byte_of_words(const Words &w) {
    static constexpr Mask mask = [] {
        Mask m{};
        for (uint8_t i = 0; i < 32; i++) m.at[i] = uint8_t(i % 4 * 4 + byte);
        return m;
    }();
    const Any low = _mm256_blend_epi32(Any(shuffle(w.v[0], mask)), Any(shuffle(w.v[1], mask)), 0b00100010);
    const Any high = _mm256_blend_epi32(Any(shuffle(w.v[2], mask)), Any(shuffle(w.v[3], mask)), 0b10001000);
    return in_order(_mm256_blend_epi32(low, high, 0b11001100));
}

// ---- Layouts of 16 bits ----------------------------------------------------------------------------------------

struct Halves {
    U16 v[2]; // 16 pixels each, in order
};

INLINE U16 swap_bytes(U16 v) {
    static constexpr Mask swapped = [] {
        Mask mask{};
        for (uint8_t i = 0; i < 32; i++) mask.at[i] = (i ^ 1) & 15;
        return mask;
    }();
    return U16(shuffle(U8(v), swapped));
}

template <Layout S> INLINE Halves load_halves(const uint8_t *src) {
    Halves h{load<U16>(src), load<U16>(src + 32)};
    if constexpr (S.swapped)
        for (U16 &v : h.v) v = swap_bytes(v);
    return h;
}

template <Layout D> INLINE void store_halves(uint8_t *dst, Halves h) {
    for (size_t k = 0; k < 2; k++) store(dst + 32 * k, D.swapped ? swap_bytes(h.v[k]) : h.v[k]);
}

// A channel widened to eight bits, in the low byte. Repeating the top bits is a multiplication: by 33 / 4 for five bits
// and by 65 / 16 for six, with the fraction dropped.
template <Field F> INLINE U16 widened(U16 v) {
    if constexpr (F.bits == 1) return U16(S16(v << uint16_t(15 - F.shift)) >> 15) & 0xff;
    constexpr uint32_t factor = ((1u << F.bits) + 1) << (24 - 2 * F.bits);
    if constexpr (F.shift == 0) // the factor would not fit 16 bits
        return U16(_mm256_mulhi_epu16(Any(v << uint16_t(16 - F.bits)), _mm256_set1_epi16(factor >> (16 - F.bits))));
    return U16(_mm256_mulhi_epu16(Any(v & uint16_t(field_mask(F))), _mm256_set1_epi16(int16_t(factor >> F.shift))));
}

// The byte of a pixel of D at a place in memory, in the low byte.
template <Layout S, Layout D, uint32_t byte> INLINE U16 channel(U16 v) {
    if constexpr (D.r.shift / 8 == byte) return widened<S.r>(v);
    if constexpr (D.g.shift / 8 == byte) return widened<S.g>(v);
    if constexpr (D.b.shift / 8 == byte) return widened<S.b>(v);
    if constexpr (!D.a.bits) return U16{};
    if constexpr (!S.a.bits) return U16{} + 0xff;
    return widened<S.a>(v);
}

// 32-bit words, in 16-bit lanes as long as possible: the even bytes together, the odd ones together.
template <Layout S, Layout D> INLINE Words widen_halves(const Halves &h) {
    Words w;
    for (size_t k = 0; k < 2; k++) {
        const U16 v = exchange_middle(h.v[k]);
        const U16 even = channel<S, D, 0>(v) | channel<S, D, 2>(v) << 8;
        const U16 odd = channel<S, D, 1>(v) | channel<S, D, 3>(v) << 8;
        w.v[2 * k] = U8(_mm256_unpacklo_epi8(Any(even), Any(odd)));
        w.v[2 * k + 1] = U8(_mm256_unpackhi_epi8(Any(even), Any(odd)));
    }
    return w;
}

// What a channel of eight bits, its low bits cleared, is multiplied by to get to its place in D, three bits too high.
constexpr int narrow_weight(Field f) { return f.bits ? 1 << (f.shift + f.bits - 5) : 0; }
constexpr uint32_t kept_bits(Field f) { return f.bits ? (0xff00u >> f.bits) & 0xff : 0; }

// From words of ARGB: sums of pairs of bytes, then of pairs of those, put the channels next to each other.
template <Layout S, Layout D> INLINE Halves narrow_words(const Words &argb) {
    constexpr bool alpha = S.a.bits && D.a.bits;
    constexpr uint32_t kept =
        kept_bits(D.b) | kept_bits(D.g) << 8 | kept_bits(D.r) << 16 | (alpha ? kept_bits(D.a) << 24 : 0);
    constexpr int red = narrow_weight(D.r);
    constexpr int in_pairs =
        narrow_weight(D.b) | narrow_weight(D.g) << 8 | 1 << 16 | (alpha ? narrow_weight(D.a) / red << 24 : 0);
    Any v[4];
    for (size_t k = 0; k < 4; k++) {
        const Any pairs = _mm256_maddubs_epi16(Any(U32(argb.v[k]) & kept), _mm256_set1_epi32(in_pairs));
        v[k] = _mm256_srli_epi32(_mm256_madd_epi16(pairs, _mm256_set1_epi32(1 | red << 16)), 3);
    }
    Halves h;
    for (size_t k = 0; k < 2; k++) {
        h.v[k] = exchange_middle(U16(_mm256_packus_epi32(v[2 * k], v[2 * k + 1])));
        if constexpr (!S.a.bits && D.a.bits) h.v[k] |= uint16_t(field_mask(D.a));
    }
    return h;
}

INLINE U8 pack_halves(const Halves &h) { return exchange_middle(U8(_mm256_packus_epi16(Any(h.v[0]), Any(h.v[1])))); }

// ---- The rules -------------------------------------------------------------------------------------------------

// Grey of whole bytes as a sum of four products: green is split in two, so that each weight is below 128 and the sum of
// two products below 32768, which is what the multiplication takes.
template <Layout S, Weights W> INLINE U8 luma_of_bytes(const Words &w) {
    constexpr Layout green_twice{S.bytes, false, S.r, S.g, S.b, S.g}, rgbg{4, false, {0, 8}, {8, 8}, {16, 8}, {24, 8}};
    constexpr int near_red = 51, near_blue = W.g - near_red;
    static_assert((W.r + near_red) * 255 < 32768 && (W.b + near_blue) * 255 < 32768 && near_blue < 128);
    const Any products = _mm256_set1_epi32(W.r | near_red << 8 | W.b << 16 | near_blue << 24);
    Words sums = placed<green_twice, rgbg>(w);
    for (U8 &v : sums.v) {
#if defined(__AVX512VNNI__)
        v = U8(_mm256_dpbusd_epi32(Any{}, Any(v), products));
#else
        v = U8(_mm256_madd_epi16(_mm256_maddubs_epi16(Any(v), products), _mm256_set1_epi16(1)));
#endif
    }
    return narrow_to_bytes<8>(sums);
}

template <Layout S, Weights W> INLINE U8 luma_of_halves(Halves h) {
    for (U16 &v : h.v) {
        const U16 r = (v & uint16_t(field_mask(S.r))) >> S.r.shift, g = (v & uint16_t(field_mask(S.g))) >> S.g.shift,
                  b = v & uint16_t(field_mask(S.b));
        v = U16(r * raw_weight(S.r, W.r) + g * raw_weight(S.g, W.g) + b * raw_weight(S.b, W.b)) >> 8;
    }
    return pack_halves(h);
}

// Reads all of the block before it writes any of it.
template <Layout S, Layout D, Rule R> INLINE void convert_block(const uint8_t *src, uint8_t *dst) {
    constexpr Layout argb = S.a.bits ? layout::argb8888he : layout::xrgb8888he;
    if constexpr (S.bytes == 2) {
        Halves h = load_halves<S>(src);
        if constexpr (R != Rule::repack) {
            store(dst, luma_of_halves<S, weights(R)>(h));
        } else if constexpr (D.bytes == 1) {
            for (U16 &v : h.v) v = widened<S.a>(v);
            store(dst, pack_halves(h));
        } else if constexpr (D.bytes == 2) {
            for (U16 &v : h.v) v = repack<S, D, uint16_t>(v);
            store_halves<D>(dst, h);
        } else if constexpr (D.bytes == 3) {
            store_squeezed<argb, D>(dst, widen_halves<S, layout::xrgb8888he>(h));
        } else {
            store_words(dst, widen_halves<S, D>(h));
        }
    } else {
        Words w = load_bytes<S.bytes>(src);
        if constexpr (R != Rule::repack) {
            store(dst, luma_of_bytes<S, weights(R)>(w));
        } else if constexpr (D.bytes == 1) {
            store(dst, byte_of_words<S.a.shift / 8>(w));
        } else if constexpr (D.bytes == 2) {
            store_halves<D>(dst, narrow_words<argb, D>(placed<S, argb>(w)));
        } else if constexpr (D.bytes == 3) {
            store_squeezed<S, D>(dst, w);
        } else {
            store_words(dst, placed<S, D>(w));
        }
    }
}

} // namespace
} // namespace img::IMG_TARGET
