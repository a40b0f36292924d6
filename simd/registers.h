// SPDX-License-Identifier: MIT
//
// What all instruction sets have in common: the types of registers, loads and stores.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

// Kernels pass registers to each other; a call between them would pass these through memory.
#define INLINE [[gnu::always_inline]] inline

namespace simd {
namespace {

typedef uint8_t Bytes __attribute__((vector_size(32)));
typedef uint16_t Words16 __attribute__((vector_size(32)));
typedef uint32_t Words32 __attribute__((vector_size(32)));
typedef uint64_t Words64 __attribute__((vector_size(32)));
typedef int16_t Signed16 __attribute__((vector_size(32)));

constexpr size_t vector_bytes = sizeof(Bytes), part_bytes = 16, cache_line = 64;

// At any address, and whatever is there. memcpy would do, but for g++ 12, which then takes some registers apart.
template <class V> struct [[gnu::packed, gnu::may_alias]] Unaligned { V v; };

template <class V = Bytes> INLINE V load(const void *p) { return static_cast<const Unaligned<V> *>(p)->v; }
template <class V> INLINE void store(void *p, V v) { static_cast<Unaligned<V> *>(p)->v = v; }

// The order of a shuffle, as data.
template <size_t size = vector_bytes> struct Pattern { alignas(size) uint8_t at[size]; };

// Pixels parted into the first and the second ones of pairs.
template <class V> struct Parted { V first, second; };

// Defined where permutes_bytes says so: bytes move freely within a register and between two, and any part of one is
// loaded, with zeros after it, and stored.
template <class V> V permute(V v, V order);
template <class V> V load_first(const void *p, size_t bytes);
template <class V> void store_first(void *p, V v, size_t bytes);

// Defined where looks_up_256 says so: one byte of each of 256 entries, looked up for all bytes of a register.
template <class V> class Table256;

} // namespace
} // namespace simd
