// SPDX-License-Identifier: MIT
//
// Palette indices in vectors: a byte shuffle looks up one byte of 32 pixels at once, in tables of 16 entries, and of 256
// with AVX-512. Part of kernels.cpp.
#pragma once

#include "convert/indices.h"
#include "convert/vector.h"

namespace img::IMG_TARGET {
namespace {

// Among whole bytes of indices. Of a byte of single bits, any that is set makes the highest index 1.
template <uint32_t bits> uint32_t highest_index(const uint8_t *src, size_t bytes) {
    U8 most{};
    size_t i = 0;
    for (; i + sizeof most <= bytes; i += sizeof most) {
        const U8 v = load(src + i);
        most = U8(_mm256_max_epu8(Any(most), Any(bits == 4 ? v & 0x0f : v)));
        if constexpr (bits == 4) most = U8(_mm256_max_epu8(Any(most), Any(v >> 4)));
    }
    uint32_t highest = 0;
    const auto see = [&highest](uint32_t index) { highest = index > highest ? index : highest; };
    for (uint32_t k = 0; k < sizeof most; k++) see(most[k]);
    for (; i < bytes; i++) {
        see(bits == 4 ? src[i] & 0x0f : src[i]);
        if constexpr (bits == 4) see(src[i] >> 4);
    }
    return bits == 1 ? highest != 0 : highest;
}

// The indices of a block, a byte each.
template <uint32_t bits> INLINE U8 load_indices(const uint8_t *src) {
    if constexpr (bits == 1) {
        static constexpr Mask eight_times = [] {
            Mask mask{};
            for (uint8_t i = 0; i < 32; i++) mask.at[i] = i / 8;
            return mask;
        }();
        const U8 bit = U8(_mm256_set1_epi64x(0x0102040810204080));
        const U8 bytes = shuffle(U8(_mm256_set1_epi32(load<int>(src))), eight_times);
        return U8((bytes & bit) == bit) & 1;
    } else if constexpr (bits == 4) {
        const auto pairs = U16(_mm256_cvtepu8_epi16(load<__m128i>(src)));
        return U8(pairs >> 4 | pairs << 8) & 0x0f;
    } else {
        return load(src);
    }
}

template <uint32_t bits> void unpack_indices(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *) {
    constexpr size_t per_byte = 8 / bits;
    const size_t whole = count / block * block;
    for (size_t i = 0; i < whole; i += block) store(dst + i, load_indices<bits>(src + i / per_byte));
    unpack_singly<bits>(src + whole / per_byte, dst + whole, count - whole);
}

// The order in which indices are looked up, so that putting the bytes of the entries together leaves them in place.
template <uint32_t bytes> INLINE U8 arranged(U8 indices) {
    static constexpr uint32_t for_words[] = {0, 2, 4, 6, 1, 3, 5, 7};
    if constexpr (bytes == 1) return indices;
    if constexpr (bytes == 2) return exchange_middle(indices);
    return U8(_mm256_permutevar8x32_epi32(Any(indices), load<Any>(for_words)));
}

// Stores a block from the planes of its pixels: all first bytes, all second bytes and so on.
template <uint32_t bytes> INLINE void store_planes(uint8_t *dst, const U8 *plane) {
    if constexpr (bytes == 1) {
        store(dst, plane[0]);
    } else {
        const Any low = _mm256_unpacklo_epi8(Any(plane[0]), Any(plane[1]));
        const Any high = _mm256_unpackhi_epi8(Any(plane[0]), Any(plane[1]));
        if constexpr (bytes == 2) {
            store(dst, low);
            store(dst + 32, high);
        } else {
            const Any fourth = bytes == 4 ? Any(plane[bytes - 1]) : Any{};
            const Any low_top = _mm256_unpacklo_epi8(Any(plane[2]), fourth);
            const Any high_top = _mm256_unpackhi_epi8(Any(plane[2]), fourth);
            const Words words{U8(_mm256_unpacklo_epi16(low, low_top)), U8(_mm256_unpackhi_epi16(low, low_top)),
                              U8(_mm256_unpacklo_epi16(high, high_top)), U8(_mm256_unpackhi_epi16(high, high_top))};
            if constexpr (bytes == 3)
                store_squeezed<layout::xrgb8888he, layout::bgr888>(dst, words);
            else
                store_words(dst, words);
        }
    }
}

// Part of a palette, byte by byte of its entries.
template <uint32_t bytes, uint32_t entries> struct Planes {
    alignas(64) uint8_t at[bytes][entries];

    Planes(const uint8_t *palette, uint32_t highest) {
        memset(at, 0, sizeof at);
        for (uint32_t i = 0; i <= highest; i++)
            for (uint32_t k = 0; k < bytes; k++) at[k][i] = palette[i * bytes + k];
    }
};

template <uint32_t bits, uint32_t bytes>
size_t expand_16_colours(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette, uint32_t highest) {
    const Planes<bytes, 16> planes(palette, highest);
    U8 table[bytes];
    for (uint32_t k = 0; k < bytes; k++) table[k] = U8(_mm256_broadcastsi128_si256(load<__m128i>(planes.at[k])));
    size_t i = 0;
    for (; i + block <= count; i += block) {
        const U8 indices = arranged<bytes>(load_indices<bits>(src + i * bits / 8));
        U8 plane[bytes];
        for (uint32_t k = 0; k < bytes; k++) plane[k] = U8(_mm256_shuffle_epi8(Any(table[k]), Any(indices)));
        store_planes<bytes>(dst + i * bytes, plane);
    }
    return i;
}

#if defined(__AVX512VBMI__)
// The byte of each of 64 indices from a table of 256.
INLINE __m512i look_up(const __m512i *table, __m512i indices) {
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(indices), _mm512_permutex2var_epi8(table[0], indices, table[1]),
                                  _mm512_permutex2var_epi8(table[2], indices, table[3]));
}

template <uint32_t bytes>
size_t expand_256_colours(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette, uint32_t highest) {
    const Planes<bytes, 256> planes(palette, highest);
    __m512i table[bytes][4];
    for (uint32_t k = 0; k < bytes; k++)
        for (uint32_t part = 0; part < 4; part++) table[k][part] = _mm512_load_si512(planes.at[k] + 64 * part);
    size_t i = 0;
    for (; i + 2 * block <= count; i += 2 * block) {
        const Any first = Any(arranged<bytes>(load(src + i))), second = Any(arranged<bytes>(load(src + i + block)));
        const __m512i indices = __builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7);
        U8 plane[2][bytes];
        for (uint32_t k = 0; k < bytes; k++) {
            const __m512i found = look_up(table[k], indices);
            plane[0][k] = U8(__builtin_shufflevector(found, found, 0, 1, 2, 3));
            plane[1][k] = U8(__builtin_shufflevector(found, found, 4, 5, 6, 7));
        }
        store_planes<bytes>(dst + i * bytes, plane[0]);
        store_planes<bytes>(dst + (i + block) * bytes, plane[1]);
    }
    return i;
}
#else
// Entries of 24 bits as words: a pixel is one load and one store, whose fourth byte the next pixel overwrites. Entries of
// other sizes are looked up singly.
template <uint32_t bytes>
size_t expand_256_colours(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette, uint32_t highest) {
    size_t i = 0;
    if constexpr (bytes == 3) {
        uint32_t words[256];
        for (uint32_t k = 0; k <= highest; k++)
            words[k] = palette[3 * k] | uint32_t{palette[3 * k + 1]} << 8 | uint32_t{palette[3 * k + 2]} << 16;
        for (; i + 8 < count; i += 8) {
            const auto indices = load<uint64_t>(src + i);
            for (size_t k = 0; k < 8; k++) memcpy(dst + (i + k) * 3, &words[indices >> 8 * k & 0xff], 4);
        }
    }
    return i;
}
#endif

template <uint32_t bits, uint32_t bytes>
void expand_indices(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette) {
    constexpr size_t worth_16 = 64, worth_256 = 512; // pixels from which making a table pays
    const size_t whole = count / block * block;
    size_t done = 0;
    if (count >= worth_16) {
        const uint32_t highest = highest_index<bits>(src, whole * bits / 8);
        if (highest < 16)
            done = expand_16_colours<bits, bytes>(src, dst, whole, palette, highest);
        else if (count >= worth_256)
            done = expand_256_colours<bytes>(src, dst, whole, palette, highest);
    }
    expand_singly<bits, bytes>(src + done * bits / 8, dst + done * bytes, count - done, palette);
}

} // namespace
} // namespace img::IMG_TARGET
