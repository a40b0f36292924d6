// SPDX-License-Identifier: MIT
//
// Bits moved within words, in the same way for one word and for the lanes of a register. Part of plain.h and vector.h.
#pragma once

#include "convert/layout.h"
#include "simd/registers.h"

namespace img::IMG_TARGET {
namespace {

template <Layout S, Layout D> constexpr Moves moves_of = moves(S, D);

// Applies the first n moves.
template <Layout S, Layout D, uint32_t n, typename Lane, typename Words> INLINE Words moved(Words words) {
    if constexpr (n == 0) {
        return Words{};
    } else {
        constexpr auto m = moves_of<S, D>.move[n - 1];
        const Words others = moved<S, D, n - 1, Lane>(words);
        if constexpr (m.distance >= 0)
            return others | (words << Lane(m.distance) & Lane(m.bits));
        else
            return others | (words >> Lane(-m.distance) & Lane(m.bits));
    }
}

template <Layout S, Layout D, typename Lane, typename Words> INLINE Words repack(Words words) {
    return moved<S, D, moves_of<S, D>.count, Lane>(words) | Lane(moves_of<S, D>.set);
}

} // namespace
} // namespace img::IMG_TARGET
