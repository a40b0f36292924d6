// SPDX-License-Identifier: MIT
//
// Registers of 32 bytes, as AVX2 and AVX-512 have them.
#pragma once

#include "simd/registers.h"

#include <immintrin.h>

namespace simd {
namespace {

// Destinations of this many bytes go past the caches: about what a core has of the last one.
constexpr size_t worth_streaming = size_t{16} << 20;

// ---- Loads and stores --------------------------------------------------------------------------------------------

INLINE __m128i load_part(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }

// The second run goes to the upper half without passing through a shuffle.
INLINE Bytes load_halves(const void *low, const void *high) {
    return Bytes(_mm256_inserti128_si256(_mm256_castsi128_si256(load_part(low)), load_part(high), 1));
}

INLINE Bytes repeat_half(const void *p) { return Bytes(_mm256_broadcastsi128_si256(load_part(p))); }

INLINE Words16 load_widened(const void *p) { return Words16(_mm256_cvtepu8_epi16(load_part(p))); }

INLINE Words32 load_widened_twice(const void *p) {
    return Words32(_mm256_cvtepu8_epi32(_mm_loadl_epi64(static_cast<const __m128i *>(p))));
}

INLINE void store_low_half(void *p, Bytes v) {
    _mm_storeu_si128(static_cast<__m128i *>(p), _mm256_castsi256_si128(__m256i(v)));
}
INLINE void store_high_half(void *p, Bytes v) {
    _mm_storeu_si128(static_cast<__m128i *>(p), _mm256_extracti128_si256(__m256i(v), 1));
}

// Whole registers past the caches; dst is aligned to them.
INLINE void stream(uint8_t *dst, const uint8_t *src, size_t bytes) {
    for (size_t i = 0; i < bytes; i += vector_bytes)
        _mm256_stream_si256(static_cast<__m256i *>(static_cast<void *>(dst + i)), __m256i(load(src + i)));
}
INLINE void end_streaming() { _mm_sfence(); }

// ---- Elements moved within parts ---------------------------------------------------------------------------------

INLINE Bytes shuffle(Bytes v, Bytes order) { return Bytes(_mm256_shuffle_epi8(__m256i(v), __m256i(order))); }

template <size_t element> INLINE Bytes unpack_low(Bytes a, Bytes b) {
    const auto x = __m256i(a), y = __m256i(b);
    if constexpr (element == 1) return Bytes(_mm256_unpacklo_epi8(x, y));
    if constexpr (element == 2) return Bytes(_mm256_unpacklo_epi16(x, y));
    if constexpr (element == 4) return Bytes(_mm256_unpacklo_epi32(x, y));
    return Bytes(_mm256_unpacklo_epi64(x, y));
}

template <size_t element> INLINE Bytes unpack_high(Bytes a, Bytes b) {
    const auto x = __m256i(a), y = __m256i(b);
    if constexpr (element == 1) return Bytes(_mm256_unpackhi_epi8(x, y));
    if constexpr (element == 2) return Bytes(_mm256_unpackhi_epi16(x, y));
    if constexpr (element == 4) return Bytes(_mm256_unpackhi_epi32(x, y));
    return Bytes(_mm256_unpackhi_epi64(x, y));
}

INLINE Bytes narrow(Words16 a, Words16 b) { return Bytes(_mm256_packus_epi16(__m256i(a), __m256i(b))); }
INLINE Words16 narrow(Words32 a, Words32 b) { return Words16(_mm256_packus_epi32(__m256i(a), __m256i(b))); }

INLINE Words16 swap_bytes(Words16 v) {
    static constexpr Pattern<> order = [] {
        Pattern<> result{};
        for (size_t i = 0; i < vector_bytes; i++) result.at[i] = uint8_t((i ^ 1) % part_bytes);
        return result;
    }();
    return Words16(shuffle(Bytes(v), load(order.at)));
}

// ---- Elements moved between parts --------------------------------------------------------------------------------

// Interleaves the elements of the parts, which mends the order that narrowing leaves: once by elements of 8 bytes,
// twice by elements of 4.
template <size_t element> INLINE Bytes interleave_parts(Bytes v) {
    if constexpr (element == 8) return Bytes(_mm256_permute4x64_epi64(__m256i(v), 0b11'01'10'00));
    return Bytes(_mm256_permutevar8x32_epi32(__m256i(v), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
}

// The opposite, so that unpacking leaves elements in order.
template <size_t element> INLINE Bytes deinterleave_parts(Bytes v) {
    if constexpr (element == 8) return interleave_parts<8>(v);
    return Bytes(_mm256_permutevar8x32_epi32(__m256i(v), _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7)));
}

template <size_t element> INLINE Bytes reverse(Bytes v) {
    if constexpr (element == 4)
        return Bytes(_mm256_permutevar8x32_epi32(__m256i(v), _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0)));
    static constexpr Pattern<> order = [] {
        Pattern<> result{};
        for (size_t i = 0; i < vector_bytes; i++)
            result.at[i] = uint8_t((part_bytes - element) - i % part_bytes / element * element + i % element);
        return result;
    }();
    return Bytes(_mm256_permute4x64_epi64(__m256i(shuffle(v, load(order.at))), 0b01'00'11'10));
}

INLINE void store_low12(uint8_t *p, Bytes v) {
    const __m256i packed = _mm256_permutevar8x32_epi32(__m256i(v), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    store_low_half(p, Bytes(packed));
    _mm_storel_epi64(static_cast<__m128i *>(static_cast<void *>(p + 16)), _mm256_extracti128_si256(packed, 1));
}

// Four registers are 96 bytes: their six words each are rotated to where three registers want them, and blended.
INLINE void store_low12(uint8_t *p, const Bytes (&v)[4]) {
    static constexpr uint32_t rotated[4][8] = {
        {0, 1, 2, 4, 5, 6, 3, 7}, {2, 4, 5, 6, 3, 7, 0, 1}, {5, 6, 3, 7, 0, 1, 2, 4}, {3, 7, 0, 1, 2, 4, 5, 6}};
    __m256i w[4];
    for (size_t k = 0; k < 4; k++) w[k] = _mm256_permutevar8x32_epi32(__m256i(v[k]), load<__m256i>(rotated[k]));
    store(p, _mm256_blend_epi32(w[0], w[1], 0b11000000));
    store(p + 32, _mm256_blend_epi32(w[1], w[2], 0b11110000));
    store(p + 64, _mm256_blend_epi32(w[2], w[3], 0b11111100));
}

// One byte of each 32-bit word of four registers, in order. One instruction crosses the parts; narrowing twice would
// need shifts and masks before.
template <size_t byte> INLINE Bytes pick_byte(const Bytes (&words)[4]) {
    static constexpr Pattern<> order = [] {
        Pattern<> result{};
        for (size_t i = 0; i < vector_bytes; i++) result.at[i] = uint8_t(i % 4 * 4 + byte);
        return result;
    }();
    __m256i v[4];
    for (size_t k = 0; k < 4; k++) v[k] = __m256i(shuffle(words[k], load(order.at)));
    const __m256i low = _mm256_blend_epi32(v[0], v[1], 0b00100010), high = _mm256_blend_epi32(v[2], v[3], 0b10001000);
    return interleave_parts<4>(Bytes(_mm256_blend_epi32(low, high, 0b11001100)));
}

// ---- Arithmetic --------------------------------------------------------------------------------------------------

INLINE Bytes larger(Bytes a, Bytes b) { return Bytes(_mm256_max_epu8(__m256i(a), __m256i(b))); }
INLINE Bytes equal(Bytes a, Bytes b) { return Bytes(_mm256_cmpeq_epi8(__m256i(a), __m256i(b))); }
INLINE Bytes average_up(Bytes a, Bytes b) { return Bytes(_mm256_avg_epu8(__m256i(a), __m256i(b))); }

// The upper halves of the products.
INLINE Words16 multiply_high(Words16 a, Words16 b) { return Words16(_mm256_mulhi_epu16(__m256i(a), __m256i(b))); }

INLINE Words32 multiply_add(Words16 a, Words16 b) { return Words32(_mm256_madd_epi16(__m256i(a), __m256i(b))); }

// Weights are below 128, and the sums below 32768.
INLINE Words16 multiply_add_bytes(Bytes v, Bytes weights) {
    return Words16(_mm256_maddubs_epi16(__m256i(v), __m256i(weights)));
}

} // namespace
} // namespace simd
