// SPDX-License-Identifier: MIT
//
// Means of vectors, for AVX2 and what came after it. Part of kernels.cpp.
#pragma once

#include "scale/mean.h"

#include <immintrin.h>

namespace img::IMG_TARGET {
namespace {

#if defined(__AVX512VBMI__)
typedef __m512i Any;
constexpr size_t vector_bytes = 64;
Any load(const uint8_t *p) { return _mm512_loadu_si512(p); }
void store(uint8_t *p, Any v) { _mm512_storeu_si512(p, v); }
Any average_of_bytes(Any a, Any b) { return _mm512_avg_epu8(a, b); }
Any in_lanes(Any v, Any order) { return _mm512_shuffle_epi8(v, order); }
Any complement_or(Any v, Any bits) { return _mm512_ternarylogic_epi32(v, bits, bits, 0xcf); } // ~v | bits
#else
typedef __m256i Any;
constexpr size_t vector_bytes = 32;
Any load(const uint8_t *p) { return _mm256_loadu_si256(reinterpret_cast<const Any *>(p)); }
void store(uint8_t *p, Any v) { _mm256_storeu_si256(reinterpret_cast<Any *>(p), v); }
Any average_of_bytes(Any a, Any b) { return _mm256_avg_epu8(a, b); }
Any in_lanes(Any v, Any order) { return _mm256_shuffle_epi8(v, order); }
Any complement_or(Any v, Any bits) { return _mm256_or_si256(_mm256_xor_si256(v, _mm256_set1_epi8(-1)), bits); }
#endif

typedef uint8_t Bytes __attribute__((vector_size(vector_bytes)));
typedef uint16_t Halves __attribute__((vector_size(vector_bytes)));
typedef uint32_t Words __attribute__((vector_size(vector_bytes)));

Halves swapped(Halves v) {
    static constexpr auto order = [] {
        struct {
            uint8_t at[vector_bytes];
        } result{};
        for (size_t i = 0; i < vector_bytes; i++) result.at[i] = uint8_t((i ^ 1) & 15);
        return result;
    }();
    return Halves(in_lanes(Any(v), load(order.at)));
}

// Means of vectors. Bytes are complemented while they are averaged, since the instruction rounds up: means of means are
// then as many operations less. Words of the other order are swapped meanwhile.
template <Kind K> class Means {
public:
    explicit Means(const MeanRule &rule) : mask_(Words{} + rule.mask), forced_(Words{} + rule.forced) {}

    Any opened(Any v) const {
        if constexpr (K.bytes != 2) return Any(~Words(v));
        return K.swapped ? Any(swapped(Halves(v))) : v;
    }
    Any of(Any a, Any b) const {
        if constexpr (K.bytes != 2) return average_of_bytes(a, b);
        const auto x = Halves(a), y = Halves(b);
        return Any((x & y) + (((x ^ y) & Halves(mask_)) >> 1));
    }
    Any closed(Any v) const {
        if constexpr (K.bytes == 1) return opened(v);
        if constexpr (K.bytes == 4) return complement_or(v, Any(forced_));
        return Any(Words(opened(v)) | forced_);
    }

private:
    Words mask_, forced_;
};

// In place as well: what overlaps at the end is read before anything is written.
template <Kind K>
[[gnu::noinline]] void average(const void *a, const void *b, void *dst, size_t bytes, const MeanRule &rule) {
    const auto *x = static_cast<const uint8_t *>(a), *y = static_cast<const uint8_t *>(b);
    auto *out = static_cast<uint8_t *>(dst);
    const Means<K> means{rule};
    const auto at = [&](const uint8_t *p, const uint8_t *q) {
        return means.closed(means.of(means.opened(load(p)), means.opened(load(q))));
    };
    if (bytes < vector_bytes) {
        uint8_t first[vector_bytes] = {}, second[vector_bytes] = {};
        memcpy(first, x, bytes);
        memcpy(second, y, bytes);
        store(first, at(first, second));
        memcpy(out, first, bytes);
        return;
    }
    const size_t end = bytes - vector_bytes;
    const Any last = at(x + end, y + end);
    for (size_t i = 0; i < end; i += vector_bytes) store(out + i, at(x + i, y + i));
    store(out + end, last);
}

} // namespace
} // namespace img::IMG_TARGET
