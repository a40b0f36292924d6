// SPDX-License-Identifier: MIT
//
// Palette indices in registers: a shuffle looks up one byte of each pixel in a table of 16 entries, and where there is
// a Table256, in one of 256. Part of palette_kernels.cpp.
#pragma once

#include "convert/indices.h"
#include "convert/vector.h"

namespace img::IMG_TARGET {
namespace {

// The highest of the indices in `bytes` whole bytes.
template <uint32_t bits> uint32_t highest_index(const uint8_t *src, size_t bytes) {
    Bytes most{};
    size_t i = 0;
    for (; i + sizeof most <= bytes; i += sizeof most) {
        const Bytes v = load(src + i);
        most = larger(most, bits == 4 ? v & 0x0f : v);
        if constexpr (bits == 4) most = larger(most, v >> 4);
    }
    uint32_t highest = 0;
    const auto see = [&highest](uint32_t index) { highest = index > highest ? index : highest; };
    for (uint32_t k = 0; k < sizeof most; k++) see(most[k]);
    for (; i < bytes; i++) {
        see(bits == 4 ? src[i] & 0x0f : src[i]);
        if constexpr (bits == 4) see(src[i] >> 4);
    }
    return bits == 1 ? highest != 0 : highest; // single bits were compared by the byte
}

// Loads the indices of a block, as a byte each.
template <uint32_t bits> INLINE Bytes load_indices(const uint8_t *src) {
    if constexpr (bits == 1) {
        static constexpr Pattern<> eight_times = [] {
            Pattern<> order{};
            for (uint8_t i = 0; i < block; i++) order.at[i] = i / 8;
            return order;
        }();
        const auto bit = Bytes(Words64{} + 0x0102040810204080);
        const Bytes bytes = shuffle(Bytes(Words32{} + load<uint32_t>(src)), load(eight_times.at));
        return equal(bytes & bit, bit) & 1;
    } else if constexpr (bits == 4) {
        const Words16 pairs = load_widened(src);
        return Bytes(pairs >> 4 | pairs << 8) & 0x0f;
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

// Permutes indices so that store_planes(), which unpacks within parts, yields pixels in order.
template <uint32_t bytes, class V> INLINE V arranged(V indices) {
    if constexpr (bytes == 1) return indices;
    return deinterleave_parts < bytes == 2 ? 8 : 4 > (indices);
}

// Stores pixels from their planes: all first bytes, all second bytes and so on.
template <uint32_t bytes, class V> INLINE void store_planes(uint8_t *dst, const V *plane) {
    constexpr size_t size = sizeof(V);
    if constexpr (bytes == 1) {
        store(dst, plane[0]);
    } else {
        const V low = unpack_low<1>(plane[0], plane[1]), high = unpack_high<1>(plane[0], plane[1]);
        if constexpr (bytes == 2) {
            store(dst, low);
            store(dst + size, high);
        } else {
            const V fourth = bytes == 4 ? plane[bytes - 1] : V{};
            const V low_top = unpack_low<1>(plane[2], fourth), high_top = unpack_high<1>(plane[2], fourth);
            V words[4] = {unpack_low<2>(low, low_top), unpack_high<2>(low, low_top), unpack_low<2>(high, high_top),
                          unpack_high<2>(high, high_top)};
            if constexpr (bytes == 3) {
                static constexpr Pattern<> order = placing(layout::xrgb8888he, layout::bgr888);
                for (V &v : words) v = shuffle(v, repeat_part<V>(order.at));
                store_low12(dst, words);
            } else {
                for (size_t k = 0; k < 4; k++) store(dst + k * size, words[k]);
            }
        }
    }
}

// Splits a block of entries into planes: their first bytes, their second bytes, and so on.
template <uint32_t bytes> INLINE void split(const uint8_t *entries, Bytes *plane) {
    if constexpr (bytes == 1) {
        plane[0] = load(entries);
    } else if constexpr (bytes == 2) {
        const Words16 low = load<Words16>(entries), high = load<Words16>(entries + vector_bytes);
        plane[0] = low_bytes({{low & 0xff, high & 0xff}});
        plane[1] = low_bytes({{low >> 8, high >> 8}});
    } else {
        constexpr Layout packed = bytes == 3 ? layout::bgr888 : layout::xrgb8888he;
        const Pixels32 words = placed<packed, layout::xrgb8888he>(load_pixels<bytes>(entries));
        plane[0] = pick_byte<0>(words.v);
        plane[1] = pick_byte<1>(words.v);
        plane[2] = pick_byte<2>(words.v);
        if constexpr (bytes == 4) plane[3] = pick_byte<3>(words.v);
    }
}

// The planes of a palette, of which only the entries up to the highest index are read.
template <uint32_t bytes, uint32_t entries> struct Planes {
    alignas(64) uint8_t at[bytes][entries];

    Planes(const uint8_t *palette, uint32_t highest) {
        uint8_t read[entries * bytes] = {};
        memcpy(read, palette, (highest + 1) * bytes);
        for (size_t i = 0; i < entries; i += block) {
            Bytes plane[bytes];
            split<bytes>(read + i * bytes, plane);
            for (uint32_t k = 0; k < bytes; k++) store(at[k] + i, plane[k]);
        }
    }
};

template <uint32_t bits, uint32_t bytes>
size_t expand_16_colours(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette, uint32_t highest) {
    const Planes<bytes, block> planes(palette, highest);
    Bytes table[bytes];
    for (uint32_t k = 0; k < bytes; k++) table[k] = repeat_half(planes.at[k]);
    size_t i = 0;
    for (; i + block <= count; i += block) {
        const Bytes indices = arranged<bytes>(load_indices<bits>(src + i * bits / 8));
        Bytes plane[bytes];
        for (uint32_t k = 0; k < bytes; k++) plane[k] = shuffle(table[k], indices);
        store_planes<bytes>(dst + i * bytes, plane);
    }
    return i;
}

template <uint32_t bytes, class V>
size_t look_up_256_colours(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette, uint32_t highest) {
    const Planes<bytes, 256> planes(palette, highest);
    Table256<V> table[bytes];
    for (uint32_t k = 0; k < bytes; k++) table[k].fill(planes.at[k]);
    size_t i = 0;
    for (; i + sizeof(V) <= count; i += sizeof(V)) {
        const V indices = arranged<bytes>(load<V>(src + i));
        V plane[bytes];
        for (uint32_t k = 0; k < bytes; k++) plane[k] = table[k][indices];
        store_planes<bytes>(dst + i * bytes, plane);
    }
    return i;
}

// Without tables of 256, entries of 24 bits are made words: a pixel is one load and one store, whose fourth byte the
// next pixel overwrites. Entries of other sizes are looked up singly.
template <uint32_t bytes>
size_t expand_256_colours(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette, uint32_t highest) {
    if constexpr (looks_up_256) return look_up_256_colours<bytes, WideBytes>(src, dst, count, palette, highest);
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
