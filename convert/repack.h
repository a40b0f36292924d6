// SPDX-License-Identifier: MIT
//
// Bits moved within words, alike for one word and for the lanes of a vector. Part of kernels.cpp.
#pragma once

#include "convert/layout.h"
#include "simd/registers.h"

namespace img::IMG_TARGET {
namespace {

// What arrives from n places away and farther.
template <Layout S, Layout D, int n, typename Lane, typename Words> INLINE Words moved(Words words) {
    constexpr Moves m = moves(S, D);
    Words result{};
    if constexpr (n < Moves::farthest) result = moved<S, D, n + 1, Lane>(words);
    if constexpr (m.left[n] != 0) result |= words << Lane(n) & Lane(m.left[n]);
    if constexpr (m.right[n] != 0) result |= words >> Lane(n) & Lane(m.right[n]);
    return result;
}

template <Layout S, Layout D, typename Lane, typename Words> INLINE Words repack(Words words) {
    constexpr Moves m = moves(S, D);
    return moved<S, D, 0, Lane>(words) | Lane(m.set);
}

} // namespace
} // namespace img::IMG_TARGET
