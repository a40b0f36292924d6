// SPDX-License-Identifier: MIT
//
// AVX-512 with its byte permutes: registers of 64 bytes, whose bytes go anywhere, and masks for any part of one.
//
// g++ 12 takes the unused operand of some intrinsics for an uninitialised value: those are written with a mask of all
// lanes, and parts of registers are taken by the compiler's own shuffles.
#pragma once

#include "simd/x86.h"

namespace simd {
namespace {

typedef uint8_t WideBytes __attribute__((vector_size(64)));
typedef uint16_t WideWords16 __attribute__((vector_size(64)));
typedef uint32_t WideWords32 __attribute__((vector_size(64)));

constexpr size_t wide_bytes = sizeof(WideBytes);
constexpr uint32_t lanes = wide_bytes / 4;

constexpr bool permutes_bytes = true, looks_up_256 = true;

constexpr __mmask64 every_byte = ~__mmask64{0};
constexpr __mmask32 every_word16 = ~__mmask32{0};
constexpr __mmask16 every_word32 = 0xffff;

// ---- Parts of registers, and ends of runs ------------------------------------------------------------------------

INLINE __mmask32 first_32(size_t n) { return _bzhi_u32(~uint32_t{0}, static_cast<uint32_t>(n < 32 ? n : 32)); }
INLINE __mmask64 first_64(size_t n) { return _bzhi_u64(~uint64_t{0}, static_cast<uint32_t>(n < 64 ? n : 64)); }

template <class V> INLINE V load_first(const void *p, size_t bytes) {
    return V(_mm512_maskz_loadu_epi8(first_64(bytes), p));
}
INLINE void store_first(void *p, WideBytes v, size_t bytes) { _mm512_mask_storeu_epi8(p, first_64(bytes), __m512i(v)); }

// Copies a run that is shorter than a block into a buffer, padded with zeros up to `size`, and out of one. Whole
// registers, as the block is read: loads that span several smaller stores would wait for them to reach the cache.
INLINE void read_padded(uint8_t *buffer, const uint8_t *src, size_t bytes, size_t size) {
    for (size_t i = 0; i < size; i += 32)
        store(buffer + i, _mm256_maskz_loadu_epi8(first_32(bytes > i ? bytes - i : 0), src + i));
}

INLINE void write_part(uint8_t *dst, const uint8_t *buffer, size_t bytes) {
    for (size_t i = 0; i < bytes; i += 32)
        _mm256_mask_storeu_epi8(dst + i, first_32(bytes - i), __m256i(load(buffer + i)));
}

// ---- Wide registers ----------------------------------------------------------------------------------------------

INLINE WideBytes shuffle(WideBytes v, WideBytes order) {
    return WideBytes(_mm512_shuffle_epi8(__m512i(v), __m512i(order)));
}

// Each byte from any place.
INLINE WideBytes permute(WideBytes v, WideBytes order) {
    return WideBytes(_mm512_maskz_permutexvar_epi8(every_byte, __m512i(order), __m512i(v)));
}
INLINE WideBytes permute(WideBytes low, WideBytes order, WideBytes high) {
    return WideBytes(_mm512_permutex2var_epi8(__m512i(low), __m512i(order), __m512i(high)));
}
INLINE WideBytes permute(WideBytes low, WideWords32 order, WideBytes high) {
    return WideBytes(_mm512_permutex2var_epi32(__m512i(low), __m512i(order), __m512i(high)));
}

template <size_t element> INLINE WideBytes unpack_low(WideBytes a, WideBytes b) {
    const auto x = __m512i(a), y = __m512i(b);
    if constexpr (element == 1) return WideBytes(_mm512_maskz_unpacklo_epi8(every_byte, x, y));
    if constexpr (element == 2) return WideBytes(_mm512_maskz_unpacklo_epi16(every_word16, x, y));
    return WideBytes(_mm512_maskz_unpacklo_epi32(every_word32, x, y));
}

template <size_t element> INLINE WideBytes unpack_high(WideBytes a, WideBytes b) {
    const auto x = __m512i(a), y = __m512i(b);
    if constexpr (element == 1) return WideBytes(_mm512_maskz_unpackhi_epi8(every_byte, x, y));
    if constexpr (element == 2) return WideBytes(_mm512_maskz_unpackhi_epi16(every_word16, x, y));
    return WideBytes(_mm512_maskz_unpackhi_epi32(every_word32, x, y));
}

template <size_t element> INLINE WideBytes deinterleave_parts(WideBytes v) {
    if constexpr (element == 8)
        return WideBytes(_mm512_maskz_permutexvar_epi64(0xff, _mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7), __m512i(v)));
    return WideBytes(_mm512_maskz_permutexvar_epi32(
        every_word32, _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), __m512i(v)));
}

INLINE WideWords16 swap_bytes(WideWords16 v) {
    static constexpr Pattern<64> order = [] {
        Pattern<64> result{};
        for (size_t i = 0; i < wide_bytes; i++) result.at[i] = uint8_t((i ^ 1) % part_bytes);
        return result;
    }();
    return WideWords16(shuffle(WideBytes(v), load<WideBytes>(order.at)));
}

INLINE void store_low12(uint8_t *p, WideBytes v) {
    const __m512i order = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15);
    _mm512_mask_storeu_epi32(p, 0x0fff, _mm512_maskz_permutexvar_epi32(every_word32, order, __m512i(v)));
}

INLINE void store_low12(uint8_t *p, const WideBytes (&v)[4]) {
    Bytes halves[2][4];
    for (size_t k = 0; k < 4; k++) {
        const auto w = __m512i(v[k]);
        halves[k / 2][k % 2 * 2] = Bytes(__builtin_shufflevector(w, w, 0, 1, 2, 3));
        halves[k / 2][k % 2 * 2 + 1] = Bytes(__builtin_shufflevector(w, w, 4, 5, 6, 7));
    }
    store_low12(p, halves[0]);
    store_low12(p + 96, halves[1]);
}

INLINE void stream(void *dst, WideBytes v) { _mm512_stream_si512(static_cast<__m512i *>(dst), __m512i(v)); }

// ---- Arithmetic --------------------------------------------------------------------------------------------------

INLINE WideBytes average_up(WideBytes a, WideBytes b) { return WideBytes(_mm512_avg_epu8(__m512i(a), __m512i(b))); }

INLINE Words32 add_products(Words32 sum, Words16 a, Words16 b) {
    return Words32(_mm256_dpwssd_epi32(__m256i(sum), __m256i(a), __m256i(b)));
}
INLINE WideWords32 add_products(WideWords32 sum, WideWords16 a, WideWords16 b) {
    return WideWords32(_mm512_dpwssd_epi32(__m512i(sum), __m512i(a), __m512i(b)));
}

INLINE Words32 sum_products(Bytes v, Bytes weights) {
    return Words32(_mm256_dpbusd_epi32(__m256i{}, __m256i(v), __m256i(weights)));
}

INLINE WideBytes not_or(WideBytes v, WideBytes bits) {
    return WideBytes(_mm512_ternarylogic_epi32(__m512i(v), __m512i(bits), __m512i(bits), 0xcf));
}

// Lanes of v where the top bit of a word is set, and of `otherwise` where it is not.
INLINE WideBytes select_by_top_bit(WideWords32 words, WideBytes v, WideBytes otherwise) {
    return WideBytes(_mm512_mask_mov_epi32(__m512i(otherwise), _mm512_movepi32_mask(__m512i(words)), __m512i(v)));
}

// One byte of each of 256 entries.
template <> class Table256<WideBytes> {
public:
    INLINE void fill(const uint8_t *bytes) {
        for (size_t k = 0; k < 4; k++) part_[k] = load<WideBytes>(bytes + 64 * k);
    }

    INLINE WideBytes operator[](WideBytes index) const {
        return WideBytes(_mm512_mask_blend_epi8(_mm512_movepi8_mask(__m512i(index)),
                                                __m512i(permute(part_[0], index, part_[1])),
                                                __m512i(permute(part_[2], index, part_[3]))));
    }

private:
    WideBytes part_[4];
};

// ---- Rows to columns ---------------------------------------------------------------------------------------------

template <class V> INLINE V load_parts(const uint8_t *p, ptrdiff_t step) {
    const Bytes low = load_halves(p, p + step);
    if constexpr (sizeof(V) == sizeof(Bytes)) {
        return V(low);
    } else {
        const Bytes high = load_halves(p + 2 * step, p + 3 * step);
        return V(_mm512_maskz_inserti64x4(0xff, _mm512_castsi256_si512(__m256i(low)), __m256i(high), 1));
    }
}

template <class V> INLINE V repeat_part(const void *p) {
    if constexpr (sizeof(V) == sizeof(Bytes))
        return V(repeat_half(p));
    else
        return V(_mm512_maskz_broadcast_i32x4(every_word32, load_part(p)));
}

// ---- Pixels in lanes ---------------------------------------------------------------------------------------------

// A window may reach beyond the line: what is not there is not read.
constexpr uint32_t window_pixels = 2;
INLINE uint32_t window_begin(uint32_t at, uint32_t) { return at; }

// Bytes from p on, and from `second` bytes further; of those only as many as there are.
struct Two {
    WideBytes low, high;

    INLINE static Two load(const uint8_t *p, size_t second) {
        return {simd::load<WideBytes>(p), simd::load<WideBytes>(p + second)};
    }
    INLINE static Two load_first(const uint8_t *p, size_t second, size_t there) {
        if (there >= second + 64) return load(p, second);
        return {simd::load_first<WideBytes>(p, there),
                there > second ? simd::load_first<WideBytes>(p + second, there - second) : WideBytes{}};
    }
};

template <uint32_t pixel> class Window {
public:
    // An index is that of a pixel, or of each of the bytes that a smaller one brings into its lane. Higher bits do not
    // count.
    static constexpr uint32_t first_index = pixel == 4 ? 0 : 0x03020100;
    static constexpr uint32_t index_unit = pixel == 4 ? 1 : pixel * 0x01010101;

    INLINE Window(const uint8_t *line, uint32_t start, uint32_t length)
        : in_(Two::load_first(line + size_t{start} * pixel, 64, size_t{length - start} * pixel)) {}

    // A pixel to each lane. Small pixels are all in the first register.
    INLINE WideBytes pick(WideWords32 index) const {
        if constexpr (pixel <= 2) return permute(in_.low, WideBytes(index));
        if constexpr (pixel == 4) return permute(in_.low, index, in_.high);
        return permute(in_.low, WideBytes(index), in_.high);
    }

private:
    Two in_;
};

// The pixels in lanes, from the first on, without gaps.
template <uint32_t pixel> INLINE WideBytes packed(WideBytes v, uint32_t first) {
    static constexpr Pattern<64> order = [] {
        Pattern<64> result{};
        for (size_t i = 0; i < 16 * pixel; i++) result.at[i] = uint8_t(i / pixel * 4 + i % pixel);
        return result;
    }();
    return permute(v, load<WideBytes>(order.at) + uint8_t(4 * first));
}

// Stores the pixels of all lanes without gaps.
template <uint32_t pixel> INLINE void store_lanes(uint8_t *dst, WideBytes v) {
    if constexpr (pixel == 4) return store(dst, v);
    const auto w = __m512i(packed<pixel>(v, 0));
    if constexpr (pixel == 1) return store(dst, __builtin_shufflevector(w, w, 0, 1));
    store(dst, __builtin_shufflevector(w, w, 0, 1, 2, 3));
    if constexpr (pixel == 3) store(dst + 32, __builtin_shufflevector(w, w, 4, 5));
}

// Stores `count` of them, from lane `first` on.
template <uint32_t pixel> INLINE void store_some_lanes(uint8_t *dst, WideBytes v, uint32_t first, uint32_t count) {
    store_first(dst, packed<pixel>(v, first), count * pixel);
}

// Twice as many pixels as a result holds, to be parted into the first and the second ones of pairs.
template <uint32_t pixel> struct Pairs {
    static constexpr size_t block = wide_bytes / pixel; // pixels of a result
    static constexpr size_t second = 2 * block * pixel - wide_bytes;

    WideBytes low, high;

    INLINE static Pairs load(const uint8_t *p) {
        const Two v = Two::load(p, second);
        return {v.low, v.high};
    }
    INLINE static Pairs load_first(const uint8_t *p, size_t bytes) {
        const Two v = Two::load_first(p, second, bytes);
        return {v.low, v.high};
    }

    // The bytes of two registers go anywhere; pixels of four bytes do so three times as fast.
    template <size_t shift> INLINE WideBytes every_other() const {
        static constexpr Pattern<64> order = [] {
            Pattern<64> result{};
            for (size_t i = 0; i < block * pixel; i++) {
                const size_t from = (2 * (i / pixel) + shift) * pixel + i % pixel;
                result.at[i] = uint8_t(from < 64 ? from : 64 + from - second);
            }
            return result;
        }();
        const auto places = simd::load<WideBytes>(order.at);
        if constexpr (pixel == 4) return permute(low, WideWords32(places) >> 26, high);
        return permute(low, places, high);
    }
    INLINE Parted<WideBytes> parted() const { return {every_other<0>(), every_other<1>()}; }

    // Masks only for the last pixels: what a masked store wrote is slow to be read again. Elsewhere the byte after
    // whole pixels, if there is one, is the next block's.
    INLINE static void store(uint8_t *dst, WideBytes v, bool last) {
        if (pixel == 3 && last)
            store_first(dst, v, block * pixel);
        else
            simd::store(dst, v);
    }
};

// The first two of every four pixels of four bytes: first ones in one half, second ones in the other.
struct Quads {
    INLINE static WideBytes load_pairs(const uint8_t *p) {
        const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 16, 20, 24, 28, 1, 5, 9, 13, 17, 21, 25, 29);
        return permute(load<WideBytes>(p), WideWords32(order), load<WideBytes>(p + wide_bytes));
    }
    INLINE static Parted<WideBytes> parted(WideBytes low, WideBytes high) {
        const auto a = __m512i(low), b = __m512i(high);
        return {WideBytes(_mm512_maskz_shuffle_i64x2(0xff, a, b, 0b01'00'01'00)),
                WideBytes(_mm512_maskz_shuffle_i64x2(0xff, a, b, 0b11'10'11'10))};
    }
    INLINE static WideBytes in_order(WideBytes v) { return v; }
};

} // namespace
} // namespace simd
