// SPDX-License-Identifier: MIT
//
// AVX2: no register is wider than 32 bytes, bytes do not move between parts, and there are masks for 32-bit words only.
#pragma once

#include "simd/x86.h"

namespace simd {
namespace {

typedef Bytes WideBytes;
typedef Words16 WideWords16;
typedef Words32 WideWords32;

constexpr size_t wide_bytes = sizeof(WideBytes);
constexpr uint32_t lanes = wide_bytes / 4;

constexpr bool permutes_bytes = false, looks_up_256 = false;

// ---- Ends of runs ------------------------------------------------------------------------------------------------

// Which of the eight words from word i on are before the end.
INLINE __m256i words_before(size_t end, size_t i) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(end) - static_cast<int>(i)),
                              _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}

// Copies a run that is shorter than a block into a buffer, padded with zeros up to `size`, and out of one. Whole
// registers, as the block is read: loads that span several smaller stores would wait for them to reach the cache.
INLINE void read_padded(uint8_t *buffer, const uint8_t *src, size_t bytes, size_t size) {
    const size_t words = bytes / 4, rest = bytes % 4;
    int last = 0;
    if (rest & 1) last = src[bytes - 1] << (rest & 2 ? 16 : 0);
    if (rest & 2) last |= load<uint16_t>(src + words * 4);
    for (size_t i = 0; i < size / 4; i += 8) {
        const __m256i whole = words_before(words, i), there = words_before(words + 1, i);
        const __m256i v =
            _mm256_maskload_epi32(static_cast<const int *>(static_cast<const void *>(src + i * 4)), whole);
        store(buffer + i * 4, v | (_mm256_andnot_si256(whole, there) & _mm256_set1_epi32(last)));
    }
}

INLINE void write_part(uint8_t *dst, const uint8_t *buffer, size_t bytes) {
    const size_t words = bytes / 4, rest = bytes % 4;
    for (size_t i = 0; i < words; i += 8)
        _mm256_maskstore_epi32(static_cast<int *>(static_cast<void *>(dst + i * 4)), words_before(words, i),
                               load<__m256i>(buffer + i * 4));
    if (rest & 2) memcpy(dst + words * 4, buffer + words * 4, 2);
    if (rest & 1) dst[bytes - 1] = buffer[bytes - 1];
}

// ---- Arithmetic --------------------------------------------------------------------------------------------------

INLINE Words32 add_products(Words32 sum, Words16 a, Words16 b) { return sum + multiply_add(a, b); }

INLINE Words32 sum_products(Bytes v, Bytes weights) {
    return multiply_add(multiply_add_bytes(v, weights), Words16{} + uint16_t{1});
}

INLINE Bytes not_or(Bytes v, Bytes bits) { return ~v | bits; }

// Lanes of v where the top bit of a word is set, and of `otherwise` where it is not.
INLINE Bytes select_by_top_bit(Words32 words, Bytes v, Bytes otherwise) {
    return Bytes(_mm256_blendv_ps(__m256(otherwise), __m256(v), __m256(words)));
}

// ---- Rows to columns ---------------------------------------------------------------------------------------------

template <class V> INLINE V load_parts(const uint8_t *p, ptrdiff_t step) { return load_halves(p, p + step); }
template <class V> INLINE V repeat_part(const void *p) { return repeat_half(p); }

// ---- Pixels in lanes ---------------------------------------------------------------------------------------------

// Four pixels of three bytes at either address, `skip` bytes into what is loaded, as four of four.
INLINE Bytes load_spread(const uint8_t *low, const uint8_t *high, uint8_t skip_high) {
    const __m256i order = _mm256_setr_epi8(0, 1, 2, -128, 3, 4, 5, -128, 6, 7, 8, -128, 9, 10, 11, -128, 0, 1, 2, -128,
                                           3, 4, 5, -128, 6, 7, 8, -128, 9, 10, 11, -128);
    const __m256i skip =
        _mm256_inserti128_si256(_mm256_setzero_si256(), _mm_set1_epi8(static_cast<char>(skip_high)), 1);
    return shuffle(load_halves(low, high), Bytes(_mm256_add_epi8(order, skip)));
}

// Sixteen pixels; a line has at least as many. A window is moved where it would reach beyond the line.
constexpr uint32_t window_pixels = 16;
INLINE uint32_t window_begin(uint32_t at, uint32_t length) {
    return at < length - window_pixels ? at : length - window_pixels;
}

template <uint32_t pixel> class Window {
public:
    // The index of the first pixel and what it grows by. Higher bits do not count.
    static constexpr uint32_t first_index = 0, index_unit = 1;

    INLINE Window(const uint8_t *line, uint32_t start, uint32_t) {
        const uint8_t *p = line + size_t{start} * pixel;
        if constexpr (pixel == 1) {
            low_ = Bytes(_mm256_castsi128_si256(load_part(p)));
        } else if constexpr (pixel == 2) {
            low_ = load(p);
        } else if constexpr (pixel == 3) {
            low_ = load_spread(p, p + 12, 0);
            high_ = load_spread(p + 24, p + 32, 4); // not 36, where nothing need follow
        } else {
            low_ = load(p);
            high_ = load(p + vector_bytes);
        }
    }

    // A pixel to each lane. Small pixels are shifted down from the words that they are in.
    INLINE Bytes pick(Words32 index) const {
        if constexpr (pixel <= 2) {
            constexpr uint32_t per_word = 4 / pixel;
            const __m256i word = _mm256_permutevar8x32_epi32(__m256i(low_), __m256i(index / per_word));
            return Bytes(_mm256_srlv_epi32(word, __m256i(index % per_word * (8 * pixel))));
        }
        const __m256i low = _mm256_permutevar8x32_epi32(__m256i(low_), __m256i(index));
        const __m256i high = _mm256_permutevar8x32_epi32(__m256i(high_), __m256i(index));
        return select_by_top_bit(index << 28, Bytes(high), Bytes(low));
    }

private:
    Bytes low_{}, high_{};
};

// Packs the pixels in lanes: within the parts, then the second part's after the first's.
template <uint32_t pixel> INLINE Bytes packed(Bytes v) {
    static constexpr Pattern<> order = [] {
        Pattern<> result{};
        for (size_t i = 0; i < vector_bytes; i++)
            result.at[i] = uint8_t(i % 16 < 4 * pixel ? i % 16 / pixel * 4 + i % 16 % pixel : 0x80);
        return result;
    }();
    if constexpr (pixel == 4) return v;
    const auto w = __m256i(shuffle(v, load(order.at)));
    if constexpr (pixel == 1) return Bytes(_mm256_permutevar8x32_epi32(w, _mm256_setr_epi32(0, 4, 1, 2, 3, 5, 6, 7)));
    if constexpr (pixel == 2) return Bytes(_mm256_permutevar8x32_epi32(w, _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7)));
    return Bytes(_mm256_permutevar8x32_epi32(w, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7)));
}

// Stores the pixels of all lanes without gaps.
template <uint32_t pixel> INLINE void store_lanes(uint8_t *dst, Bytes v) {
    const auto w = __m256i(packed<pixel>(v));
    if constexpr (pixel == 4) return store(dst, w);
    if constexpr (pixel == 1)
        return _mm_storel_epi64(static_cast<__m128i *>(static_cast<void *>(dst)), _mm256_castsi256_si128(w));
    store_low_half(dst, Bytes(w));
    if constexpr (pixel == 3)
        _mm_storel_epi64(static_cast<__m128i *>(static_cast<void *>(dst + 16)), _mm256_extracti128_si256(w, 1));
}

// Stores `count` of them, from lane `first` on.
template <uint32_t pixel> INLINE void store_some_lanes(uint8_t *dst, Bytes v, uint32_t first, uint32_t count) {
    uint8_t pixels[vector_bytes];
    store(pixels, packed<pixel>(v));
    memcpy(dst, pixels + first * pixel, count * pixel);
}

// Twice as many pixels as a result holds, to be parted into the first and the second ones of pairs. Pixels of three
// bytes are in lanes.
template <uint32_t pixel> struct Pairs {
    static constexpr size_t block = pixel == 3 ? lanes : vector_bytes / pixel; // pixels of a result

    Bytes low, high;

    INLINE static Pairs load(const uint8_t *p) {
        if constexpr (pixel == 3) return {load_spread(p, p + 12, 0), load_spread(p + 24, p + 32, 4)};
        return {simd::load(p), simd::load(p + vector_bytes)};
    }

    // Pixels of low and high alternate by 8 bytes until they are stored.
    INLINE Parted<Bytes> parted() const {
        if constexpr (pixel >= 3) {
            const auto a = __m256(low), b = __m256(high);
            return {Bytes(_mm256_shuffle_ps(a, b, 0b10'00'10'00)), Bytes(_mm256_shuffle_ps(a, b, 0b11'01'11'01))};
        }
        static constexpr Pattern<> order = [] { // in each part the first ones, then the second ones
            Pattern<> result{};
            for (size_t i = 0; i < vector_bytes; i++)
                result.at[i] = uint8_t((2 * (i % 8 / pixel) + i % 16 / 8) * pixel + i % pixel);
            return result;
        }();
        const Bytes a = shuffle(low, simd::load(order.at)), b = shuffle(high, simd::load(order.at));
        return {unpack_low<8>(a, b), unpack_high<8>(a, b)};
    }

    INLINE static void store(uint8_t *dst, Bytes v, bool) {
        v = interleave_parts<8>(v);
        if constexpr (pixel == 3)
            store_lanes<pixel>(dst, v);
        else
            simd::store(dst, v);
    }
};

// The first two of every four pixels of four bytes, in an order that in_order() mends after they are parted.
struct Quads {
    INLINE static Bytes load_pairs(const uint8_t *p) { return unpack_low<8>(load(p), load(p + vector_bytes)); }
    INLINE static Parted<Bytes> parted(Bytes low, Bytes high) { return Pairs<4>{low, high}.parted(); }
    INLINE static Bytes in_order(Bytes v) { return interleave_parts<4>(v); }
};

} // namespace
} // namespace simd
