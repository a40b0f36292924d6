// SPDX-License-Identifier: MIT
//
// Pixels picked out of a stretch of a line, put together again, and pairs of them made one. Part of kernels.cpp. Here is
// what differs between instruction sets: bytes from anywhere in two vectors, or words with shifts.
#pragma once

#include "scale/vector.h"

namespace img::IMG_TARGET {
namespace {

constexpr uint32_t lanes = vector_bytes / 4;

struct Order {
    alignas(vector_bytes) uint8_t at[vector_bytes];
};

Any loaded(const Order &order) { return load(order.at); }

// How two pixels become one: the first of them, their mean, or the mean of two in this line and two in the one below.
enum class Fold { first, pair, square };

// Pixels of all lanes that are packed.
template <uint32_t pixel> void store_packed(uint8_t *dst, Any v) {
    const auto w = Words(v);
    const auto store_part = [](uint8_t *to, auto part) { memcpy(to, &part, sizeof part); };
    if constexpr (pixel == 4) {
        store(dst, v);
    } else if constexpr (lanes == 8) {
        if constexpr (pixel == 1) return store_part(dst, __builtin_shufflevector(w, w, 0, 1));
        store_part(dst, __builtin_shufflevector(w, w, 0, 1, 2, 3));
        if constexpr (pixel == 3) store_part(dst + 16, __builtin_shufflevector(w, w, 4, 5));
    } else {
        if constexpr (pixel == 1) return store_part(dst, __builtin_shufflevector(w, w, 0, 1, 2, 3));
        store_part(dst, __builtin_shufflevector(w, w, 0, 1, 2, 3, 4, 5, 6, 7));
        if constexpr (pixel == 3) store_part(dst + 32, __builtin_shufflevector(w, w, 8, 9, 10, 11));
    }
}

// Makes pixels by blocks, of which the last may overlap the one before: it is made first when a line is scaled in place.
template <size_t block> void in_blocks(size_t count, bool in_place, auto made, auto put) {
    const size_t end = count - block;
    Any last{};
    if (in_place) last = made(end);
    for (size_t i = 0; i < end; i += block) put(i, made(i));
    put(end, in_place ? last : made(end));
}

#if defined(__AVX512VBMI__)

constexpr uint32_t least_line = 2;

__mmask16 top_bits(Words v) { return _mm512_movepi32_mask(Any(v)); }
Any choose(__mmask16 chosen, Any v, Any otherwise) { return _mm512_mask_mov_epi32(otherwise, chosen, v); }

// An index is that of a pixel, or of each of the bytes that a smaller one brings into its lane. Higher bits do not count.
template <uint32_t pixel> constexpr uint32_t index_unit = pixel == 4 ? 1 : pixel * 0x01010101;
template <uint32_t pixel> constexpr uint32_t first_index = pixel == 4 ? 0 : 0x03020100;

uint64_t first_bytes(size_t n) { return _bzhi_u64(~uint64_t{0}, static_cast<uint32_t>(n < 64 ? n : 64)); }

struct Vectors {
    Any low, high;
};

// Bytes from p on, and from `second` bytes further. Of those only as many are read as there are.
Vectors load_two(const uint8_t *p, size_t second, size_t there) {
    if (there >= second + 64) return {load(p), load(p + second)};
    return {_mm512_maskz_loadu_epi8(first_bytes(there), p),
            there > second ? _mm512_maskz_loadu_epi8(first_bytes(there - second), p + second) : _mm512_setzero_si512()};
}

// A window may reach beyond the line: what is not there is not read.
uint32_t window_begin(uint32_t at, uint32_t) { return at; }

template <uint32_t pixel> class Window {
public:
    Window(const uint8_t *line, uint32_t start, uint32_t length)
        : in_(load_two(line + size_t{start} * pixel, 64, size_t{length - start} * pixel)) {}

    // Small pixels are all in the first vector.
    Any picked(Words index) const {
        if constexpr (pixel <= 2) return _mm512_maskz_permutexvar_epi8(~__mmask64{0}, Any(index), in_.low);
        if constexpr (pixel == 4) return _mm512_permutex2var_epi32(in_.low, Any(index), in_.high);
        return _mm512_permutex2var_epi8(in_.low, Any(index), in_.high);
    }

private:
    Vectors in_;
};

// Pixels in lanes, from the first on, to one after the other.
template <uint32_t pixel> Any packed(Any v, uint32_t first) {
    static constexpr Order order = [] {
        Order result{};
        for (size_t i = 0; i < 16 * pixel; i++) result.at[i] = uint8_t(i / pixel * 4 + i % pixel);
        return result;
    }();
    const Any moved = Any(Bytes(loaded(order)) + uint8_t(4 * first));
    return _mm512_maskz_permutexvar_epi8(~__mmask64{0}, moved, v);
}
template <uint32_t pixel> Any packed(Any v) {
    if constexpr (pixel == 4) return v;
    return packed<pixel>(v, 0);
}

template <uint32_t pixel> void store_some(uint8_t *dst, Any v, uint32_t first, uint32_t count) {
    _mm512_mask_storeu_epi8(dst, first_bytes(count * pixel), packed<pixel>(v, first));
}

// The bytes of the first pixels of pairs in two vectors; of the second ones with shift.
template <size_t pixel> consteval Order pixels_of_pairs(size_t shift) {
    constexpr size_t used = 64 / pixel * pixel, second = 2 * used - 64;
    Order order{};
    for (size_t i = 0; i < used; i++) {
        const size_t from = (2 * (i / pixel) + shift) * pixel + i % pixel;
        order.at[i] = uint8_t(from < 64 ? from : 64 + from - second);
    }
    return order;
}

// The bytes of a vector in two, or pixels of four bytes, which are put in order three times as fast.
template <uint32_t pixel> Any from_two(const Vectors &in, Any order) {
    if constexpr (pixel == 4) return _mm512_permutex2var_epi32(in.low, Any(Words(order) >> 26), in.high);
    return _mm512_permutex2var_epi8(in.low, order, in.high);
}

template <Kind K, Fold F>
void fold_pairs(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count, const MeanRule &rule) {
    const Means<K> means{rule};
    constexpr size_t pixel = K.elements * K.bytes, block = 64 / pixel, second = 2 * block * pixel - 64;
    static constexpr Order firsts = pixels_of_pairs<pixel>(0), seconds = pixels_of_pairs<pixel>(1);
    const Any first = loaded(firsts), other = loaded(seconds);
    const auto folded = [&](Vectors in, auto under) {
        if constexpr (F == Fold::first) return means.closed(means.opened(from_two<pixel>(in, first)));
        in = {means.opened(in.low), means.opened(in.high)};
        if constexpr (F == Fold::square) {
            const Vectors v = under();
            in = {means.of(in.low, means.opened(v.low)), means.of(in.high, means.opened(v.high))};
        }
        return means.closed(means.of(from_two<pixel>(in, first), from_two<pixel>(in, other)));
    };
    if (count < block) {
        const size_t there = 2 * count * pixel;
        const Any v = folded(load_two(src, second, there), [&] { return load_two(below, second, there); });
        return _mm512_mask_storeu_epi8(dst, first_bytes(count * pixel), v);
    }
    const auto both = [](const uint8_t *p) { return Vectors{load(p), load(p + second)}; };
    in_blocks<block>(
        count, src == dst,
        [&](size_t i) { return folded(both(src + 2 * i * pixel), [&] { return both(below + 2 * i * pixel); }); },
        [&](size_t i, Any v) {
            // Masks only where they are needed: what a masked store wrote is slow to be read again. The byte behind whole
            // pixels, if there is one, is the next block's.
            if (pixel == 3 && i + block == count)
                _mm512_mask_storeu_epi8(dst + i * pixel, first_bytes(block * pixel), v);
            else
                store(dst + i * pixel, v);
        });
}

// Every fourth pixel with its right neighbour, in both lines. Into another line, and at least one vector of pixels.
template <Kind K>
[[gnu::noinline]] void quarter(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count,
                               const MeanRule &rule) {
    const Means<K> means{rule};
    const Any order = _mm512_setr_epi32(0, 4, 8, 12, 16, 20, 24, 28, 1, 5, 9, 13, 17, 21, 25, 29);
    const auto picked = [&](const uint8_t *p) {
        return means.opened(_mm512_permutex2var_epi32(load(p), order, load(p + 64)));
    };
    in_blocks<lanes>(
        count, false,
        [&](size_t i) {
            const uint8_t *p = src + i * 16, *q = below + i * 16;
            const Any low = means.of(picked(p), picked(q)), high = means.of(picked(p + 128), picked(q + 128));
            return means.closed(means.of(_mm512_maskz_shuffle_i64x2(0xff, low, high, 0b01'00'01'00),
                                         _mm512_maskz_shuffle_i64x2(0xff, low, high, 0b11'10'11'10)));
        },
        [&](size_t i, Any v) { store(dst + i * 4, v); });
}

#else

constexpr uint32_t least_line = 2 * lanes;

__m256 top_bits(Words v) { return __m256(v); }
Any choose(__m256 chosen, Any v, Any otherwise) { return Any(_mm256_blendv_ps(__m256(otherwise), __m256(v), chosen)); }

// An index is that of a pixel. Higher bits do not count.
template <uint32_t pixel> constexpr uint32_t index_unit = 1;
template <uint32_t pixel> constexpr uint32_t first_index = 0;

__m128i load_half(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }

// A window is moved where it would reach beyond the line.
uint32_t window_begin(uint32_t at, uint32_t length) { return at < length - least_line ? at : length - least_line; }

// Sixteen pixels.
template <uint32_t pixel> class Window {
public:
    Window(const uint8_t *line, uint32_t start, uint32_t) {
        const uint8_t *p = line + size_t{start} * pixel;
        if constexpr (pixel == 1) {
            low_ = _mm256_castsi128_si256(load_half(p));
        } else if constexpr (pixel == 2) {
            low_ = load(p);
        } else if constexpr (pixel == 3) {
            low_ = spread(p, p + 12, 0, 0);
            high_ = spread(p + 24, p + 32, 0, 4);
        } else {
            low_ = load(p);
            high_ = load(p + vector_bytes);
        }
    }

    // Small pixels are shifted down from the words that they are in.
    Any picked(Words index) const {
        if constexpr (pixel <= 2) {
            constexpr uint32_t per_word = 4 / pixel;
            const Any word = _mm256_permutevar8x32_epi32(low_, Any(index / per_word));
            return _mm256_srlv_epi32(word, Any(index % per_word * (8 * pixel)));
        }
        const Any low = _mm256_permutevar8x32_epi32(low_, Any(index));
        const Any high = _mm256_permutevar8x32_epi32(high_, Any(index));
        return choose(top_bits(index << 28), high, low);
    }

private:
    // Four pixels of three bytes from either place, after as many other bytes, as four of four.
    static Any spread(const uint8_t *p, const uint8_t *q, char skip_p, char skip_q) {
        const Any order = _mm256_setr_epi8(0, 1, 2, -128, 3, 4, 5, -128, 6, 7, 8, -128, 9, 10, 11, -128, 0, 1, 2, -128,
                                           3, 4, 5, -128, 6, 7, 8, -128, 9, 10, 11, -128);
        const Any skip = _mm256_inserti128_si256(_mm256_set1_epi8(skip_p), _mm_set1_epi8(skip_q), 1);
        return in_lanes(_mm256_inserti128_si256(_mm256_castsi128_si256(load_half(p)), load_half(q), 1),
                        _mm256_add_epi8(order, skip));
    }

    Any low_{}, high_{};
};

// Pixels in lanes to one after the other: within the halves, then the second half behind the first.
template <uint32_t pixel> Any packed(Any v) {
    static constexpr Order order = [] {
        Order result{};
        for (size_t i = 0; i < vector_bytes; i++)
            result.at[i] = uint8_t(i % 16 < 4 * pixel ? i % 16 / pixel * 4 + i % 16 % pixel : 0x80);
        return result;
    }();
    if constexpr (pixel == 4) return v;
    v = in_lanes(v, loaded(order));
    if constexpr (pixel == 1) return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 4, 1, 2, 3, 5, 6, 7));
    if constexpr (pixel == 2) return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7));
    return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}

template <uint32_t pixel> void store_some(uint8_t *dst, Any v, uint32_t first, uint32_t count) {
    uint8_t pixels[vector_bytes];
    store(pixels, packed<pixel>(v));
    memcpy(dst, pixels + first * pixel, count * pixel);
}

// The first and the second pixels of the pairs in two vectors: those in each half of one and the other, half by half.
template <size_t pixel> class Parts {
public:
    Parts(Any low, Any high) : low_(low), high_(high) {
        if constexpr (pixel == 4) return;
        static constexpr Order order = [] { // in each half the first ones, then the second ones
            Order result{};
            for (size_t i = 0; i < vector_bytes; i++)
                result.at[i] = uint8_t((2 * (i % 8 / pixel) + i % 16 / 8) * pixel + i % pixel);
            return result;
        }();
        low_ = in_lanes(low, loaded(order));
        high_ = in_lanes(high, loaded(order));
    }

    Any first() const {
        if constexpr (pixel == 4) return Any(_mm256_shuffle_ps(__m256(low_), __m256(high_), 0b10'00'10'00));
        return _mm256_unpacklo_epi64(low_, high_);
    }
    Any second() const {
        if constexpr (pixel == 4) return Any(_mm256_shuffle_ps(__m256(low_), __m256(high_), 0b11'01'11'01));
        return _mm256_unpackhi_epi64(low_, high_);
    }

private:
    Any low_, high_;
};

template <Kind K, Fold F>
void fold_pairs(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count, const MeanRule &rule) {
    const Means<K> means{rule};
    constexpr size_t pixel = K.elements * K.bytes, block = pixel == 3 ? lanes : vector_bytes / pixel;
    if (count < block) {
        if constexpr (F == Fold::first) return thin_pixels<K>(src, dst, count, rule);
        return halve_pixels<K>(src, F == Fold::square ? below : nullptr, dst, count, rule);
    }
    in_blocks<block>(
        count, src == dst,
        [&](size_t i) {
            const uint8_t *p = src + 2 * i * pixel;
            if constexpr (pixel == 3) {
                static_assert(F != Fold::square);
                const Window<pixel> in{p, 0, 2 * lanes};
                const Any first = in.picked(Words{0, 2, 4, 6, 8, 10, 12, 14});
                if constexpr (F == Fold::first) return first;
                const Any second = in.picked(Words{1, 3, 5, 7, 9, 11, 13, 15});
                return means.closed(means.of(means.opened(first), means.opened(second)));
            } else {
                const auto half = [&](size_t at) {
                    const Any v = means.opened(load(p + at));
                    // Without a line below there is no pointer to add to.
                    if constexpr (F == Fold::square) return means.of(v, means.opened(load(below + 2 * i * pixel + at)));
                    return v;
                };
                const Parts<pixel> parts{half(0), half(vector_bytes)};
                const Any v = F == Fold::first ? parts.first() : means.of(parts.first(), parts.second());
                return _mm256_permute4x64_epi64(means.closed(v), 0b11'01'10'00);
            }
        },
        [&](size_t i, Any v) {
            if constexpr (pixel == 3)
                store_packed<pixel>(dst + i * pixel, packed<pixel>(v));
            else
                store(dst + i * pixel, v);
        });
}

// As above, eight pixels at a time. The wanted pairs are the low parts of the halves of a vector.
template <Kind K>
[[gnu::noinline]] void quarter(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count,
                               const MeanRule &rule) {
    const Means<K> means{rule};
    const auto pairs = [&](const uint8_t *p) {
        return means.opened(_mm256_unpacklo_epi64(load(p), load(p + vector_bytes)));
    };
    const Any order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    in_blocks<lanes>(
        count, false,
        [&](size_t i) {
            const uint8_t *p = src + i * 16, *q = below + i * 16;
            const Parts<4> parts{means.of(pairs(p), pairs(q)), means.of(pairs(p + 64), pairs(q + 64))};
            return _mm256_permutevar8x32_epi32(means.closed(means.of(parts.first(), parts.second())), order);
        },
        [&](size_t i, Any v) { store(dst + i * 4, v); });
}

#endif

} // namespace
} // namespace img::IMG_TARGET
