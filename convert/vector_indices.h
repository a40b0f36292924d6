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

// Bytes and pairs of bytes of two vectors put in turn, from the low or the high half of every 16 bytes.
INLINE Any low_bytes(Any a, Any b) { return _mm256_unpacklo_epi8(a, b); }
INLINE Any high_bytes(Any a, Any b) { return _mm256_unpackhi_epi8(a, b); }
INLINE Any low_pairs(Any a, Any b) { return _mm256_unpacklo_epi16(a, b); }
INLINE Any high_pairs(Any a, Any b) { return _mm256_unpackhi_epi16(a, b); }

// The order in which indices are looked up, so that putting the bytes of the entries in turn leaves them in place.
template <uint32_t bytes> INLINE Any arranged(Any indices) {
    typedef int Ints __attribute__((vector_size(32)));
    if constexpr (bytes == 1) return indices;
    if constexpr (bytes == 2) return exchange_middle(indices);
    return Any(__builtin_shufflevector(Ints(indices), Ints(indices), 0, 2, 4, 6, 1, 3, 5, 7));
}

INLINE void store_24_bits(uint8_t *dst, const Any *words) {
    store_squeezed<layout::xrgb8888he, layout::bgr888>(dst, {{U8(words[0]), U8(words[1]), U8(words[2]), U8(words[3])}});
}

#if defined(__AVX512VBMI__)
typedef __m512i Wide;

constexpr __mmask64 every_byte = ~__mmask64{0};
constexpr __mmask32 every_pair = ~__mmask32{0};

INLINE Wide low_bytes(Wide a, Wide b) { return _mm512_maskz_unpacklo_epi8(every_byte, a, b); }
INLINE Wide high_bytes(Wide a, Wide b) { return _mm512_maskz_unpackhi_epi8(every_byte, a, b); }
INLINE Wide low_pairs(Wide a, Wide b) { return _mm512_maskz_unpacklo_epi16(every_pair, a, b); }
INLINE Wide high_pairs(Wide a, Wide b) { return _mm512_maskz_unpackhi_epi16(every_pair, a, b); }

template <uint32_t bytes> INLINE Wide arranged(Wide indices) {
    typedef int Ints __attribute__((vector_size(64)));
    if constexpr (bytes == 1) return indices;
    if constexpr (bytes == 2) return __builtin_shufflevector(indices, indices, 0, 4, 1, 5, 2, 6, 3, 7);
    return Wide(
        __builtin_shufflevector(Ints(indices), Ints(indices), 0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15));
}

INLINE void store_24_bits(uint8_t *dst, const Wide *words) {
    Any halves[8];
    for (size_t k = 0; k < 4; k++) {
        halves[2 * k] = __builtin_shufflevector(words[k], words[k], 0, 1, 2, 3);
        halves[2 * k + 1] = __builtin_shufflevector(words[k], words[k], 4, 5, 6, 7);
    }
    store_24_bits(dst, halves);
    store_24_bits(dst + block * 3, halves + 4);
}
#endif

// Stores pixels from their planes: all first bytes, all second bytes and so on.
template <uint32_t bytes, typename Vector> INLINE void store_planes(uint8_t *dst, const Vector *plane) {
    constexpr size_t size = sizeof(Vector);
    if constexpr (bytes == 1) {
        store(dst, plane[0]);
    } else {
        const Vector low = low_bytes(plane[0], plane[1]), high = high_bytes(plane[0], plane[1]);
        if constexpr (bytes == 2) {
            store(dst, low);
            store(dst + size, high);
        } else {
            const Vector fourth = bytes == 4 ? plane[bytes - 1] : Vector{};
            const Vector low_top = low_bytes(plane[2], fourth), high_top = high_bytes(plane[2], fourth);
            const Vector words[4] = {low_pairs(low, low_top), high_pairs(low, low_top), low_pairs(high, high_top),
                                     high_pairs(high, high_top)};
            if constexpr (bytes == 3)
                store_24_bits(dst, words);
            else
                for (size_t k = 0; k < 4; k++) store(dst + k * size, words[k]);
        }
    }
}

// The first, second, ... bytes of a block of entries.
template <uint32_t bytes> INLINE void split(const uint8_t *entries, U8 *plane) {
    if constexpr (bytes == 1) {
        plane[0] = load(entries);
    } else if constexpr (bytes == 2) {
        const Halves h{{load<U16>(entries), load<U16>(entries + 32)}};
        plane[0] = pack_halves({{h.v[0] & 0xff, h.v[1] & 0xff}});
        plane[1] = pack_halves({{h.v[0] >> 8, h.v[1] >> 8}});
    } else {
        constexpr Layout packed = bytes == 3 ? layout::bgr888 : layout::xrgb8888he;
        const Words words = placed<packed, layout::xrgb8888he>(load_bytes<bytes>(entries));
        plane[0] = byte_of_words<0>(words);
        plane[1] = byte_of_words<1>(words);
        plane[2] = byte_of_words<2>(words);
        if constexpr (bytes == 4) plane[3] = byte_of_words<3>(words);
    }
}

// Part of a palette, byte by byte of its entries.
template <uint32_t bytes, uint32_t entries> struct Planes {
    alignas(64) uint8_t at[bytes][entries];

    Planes(const uint8_t *palette, uint32_t highest) {
        uint8_t read[entries * bytes] = {};
        memcpy(read, palette, (highest + 1) * bytes);
        for (size_t i = 0; i < entries; i += block) {
            U8 plane[bytes];
            split<bytes>(read + i * bytes, plane);
            for (uint32_t k = 0; k < bytes; k++) store(at[k] + i, plane[k]);
        }
    }
};

template <uint32_t bits, uint32_t bytes>
size_t expand_16_colours(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette, uint32_t highest) {
    const Planes<bytes, block> planes(palette, highest);
    Any table[bytes];
    for (uint32_t k = 0; k < bytes; k++) table[k] = _mm256_broadcastsi128_si256(load<__m128i>(planes.at[k]));
    size_t i = 0;
    for (; i + block <= count; i += block) {
        const Any indices = arranged<bytes>(Any(load_indices<bits>(src + i * bits / 8)));
        Any plane[bytes];
        for (uint32_t k = 0; k < bytes; k++) plane[k] = _mm256_shuffle_epi8(table[k], indices);
        store_planes<bytes>(dst + i * bytes, plane);
    }
    return i;
}

#if defined(__AVX512VBMI__)
// The byte of each of 64 indices from a table of 256.
INLINE Wide look_up(const Wide *table, Wide indices) {
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(indices), _mm512_permutex2var_epi8(table[0], indices, table[1]),
                                  _mm512_permutex2var_epi8(table[2], indices, table[3]));
}

template <uint32_t bytes>
size_t expand_256_colours(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette, uint32_t highest) {
    const Planes<bytes, 256> planes(palette, highest);
    Wide table[bytes][4];
    for (uint32_t k = 0; k < bytes; k++)
        for (uint32_t part = 0; part < 4; part++) table[k][part] = load<Wide>(planes.at[k] + 64 * part);
    size_t i = 0;
    for (; i + sizeof(Wide) <= count; i += sizeof(Wide)) {
        const Wide indices = arranged<bytes>(load<Wide>(src + i));
        Wide plane[bytes];
        for (uint32_t k = 0; k < bytes; k++) plane[k] = look_up(table[k], indices);
        store_planes<bytes>(dst + i * bytes, plane);
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
