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
Any odd_sums(Any a, Any b) { return _mm512_ternarylogic_epi32(a, b, _mm512_set1_epi8(1), 0x28); } // (a ^ b) & 1
#else
typedef __m256i Any;
constexpr size_t vector_bytes = 32;
Any load(const uint8_t *p) { return _mm256_loadu_si256(reinterpret_cast<const Any *>(p)); }
void store(uint8_t *p, Any v) { _mm256_storeu_si256(reinterpret_cast<Any *>(p), v); }
Any average_of_bytes(Any a, Any b) { return _mm256_avg_epu8(a, b); }
Any in_lanes(Any v, Any order) { return _mm256_shuffle_epi8(v, order); }
Any odd_sums(Any a, Any b) { return _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_set1_epi8(1)); }
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

// A rule in vectors.
struct Rule {
    Words mask, forced;
    explicit Rule(const MeanRule &rule) : mask(Words{} + rule.mask), forced(Words{} + rule.forced) {}
};

template <Kind K> Any mean(Any a, Any b, const Rule &rule) {
    if constexpr (K.bytes == 2) {
        const Halves x = K.swapped ? swapped(Halves(a)) : Halves(a), y = K.swapped ? swapped(Halves(b)) : Halves(b);
        const Halves result = (x & y) + (((x ^ y) & Halves(rule.mask)) >> 1);
        return Any(K.swapped ? swapped(result) : result);
    } else { // The instruction rounds up: one less where the sum is odd.
        return Any(Bytes(average_of_bytes(a, b)) - Bytes(odd_sums(a, b)));
    }
}

template <Kind K> Any with_forced(Any v, const Rule &rule) {
    if constexpr (K.bytes == 1) return v;
    return Any(Words(v) | rule.forced);
}

// In place as well: what overlaps at the end is read before anything is written.
template <Kind K>
[[gnu::noinline]] void average(const void *a, const void *b, void *dst, size_t bytes, const MeanRule &means) {
    const auto *x = static_cast<const uint8_t *>(a), *y = static_cast<const uint8_t *>(b);
    auto *out = static_cast<uint8_t *>(dst);
    const Rule rule{means};
    const auto at = [&](const uint8_t *p, const uint8_t *q) {
        return with_forced<K>(mean<K>(load(p), load(q), rule), rule);
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
