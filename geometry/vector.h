// SPDX-License-Identifier: MIT
//
// Geometry in vectors, for AVX2 and what came after it. Part of kernels.cpp. Nothing outside the runs is read or written:
// what is left of a run at its end overlaps what was done, or goes by masks, or pixel by pixel.
#pragma once

#include <immintrin.h>

namespace img::IMG_TARGET {
namespace {

// For each byte of a result the byte of the source that goes there.
template <size_t size> struct Order { alignas(size) uint8_t at[size]; };

__m128i load_half(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }

// Two runs of 16 bytes; the second goes to the upper half without passing through a shuffle.
__m256i load_halves(const uint8_t *low, const uint8_t *high) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(load_half(low)), load_half(high), 1);
}

// ---- Streaming ---------------------------------------------------------------------------------------------------

constexpr size_t worth_streaming = size_t{16} << 20; // bytes, about what a core has of the last cache
constexpr size_t cache_line = 64;

// Lines of the cache that are written whole need not be read from memory first. Those at the ends belong to other rows,
// too.
void stream(uint8_t *dst, const uint8_t *src, size_t bytes) {
    constexpr size_t vector = sizeof(__m256i);
    size_t i = -reinterpret_cast<uintptr_t>(dst) % cache_line;
    if (bytes < i + cache_line) i = bytes;
    memcpy(dst, src, i);
    for (; i + cache_line <= bytes; i += cache_line)
        for (size_t k = i; k < i + cache_line; k += vector)
            _mm256_stream_si256(reinterpret_cast<__m256i *>(dst + k),
                                _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + k)));
    memcpy(dst + i, src + i, bytes - i);
}

// ---- Copy ------------------------------------------------------------------------------------------------------

// For a row of some hundred bytes the call of memcpy is a good part of the time.
void copy_rows(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t bytes, uint32_t rows) {
    constexpr size_t vector = 32, together = 4 * vector, longest = 2048; // larger vectors straddle more cache lines
    if (bytes * rows >= worth_streaming) {
        for (; rows; rows--, src += src_step, dst += dst_step) stream(dst, src, bytes);
        return _mm_sfence();
    }
    if (bytes < together || bytes > longest) return copy_each_row(src, src_step, dst, dst_step, bytes, rows);
    for (; rows; rows--, src += src_step, dst += dst_step)
        for (size_t i = 0;; i = i + 2 * together <= bytes ? i + together : bytes - together) { // the last ones overlap
            for (size_t k = i; k < i + together; k += vector)
                _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + k),
                                    _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + k)));
            if (i + together == bytes) break;
        }
}

// ---- Mirror ----------------------------------------------------------------------------------------------------

#if defined(__AVX512VBMI__)

// The last whole pixels of a vector from the last to the first.
template <size_t bytes> consteval Order<64> reversed() {
    Order<64> order{};
    for (size_t i = 0; i < 64 / bytes * bytes; i++) order.at[i] = uint8_t(64 - bytes - i / bytes * bytes + i % bytes);
    return order;
}

// With a mask, although of all bytes, because g++ 12 takes the plain function's unused operand for an uninitialised one.
__m512i permuted(__m512i order, __m512i v) { return _mm512_maskz_permutexvar_epi8(~__mmask64{0}, order, v); }

template <size_t bytes> void mirror(const uint8_t *src, uint8_t *dst, size_t count) {
    static constexpr Order<64> table = reversed<bytes>();
    constexpr size_t used = 64 / bytes * bytes;
    const __m512i order = _mm512_load_si512(table.at);
    size_t left = count * bytes;
    // Upward in the destination, which the caches like better than upward in the source.
    for (; left >= 64; left -= used, dst += used)
        _mm512_mask_storeu_epi8(dst, ~__mmask64{0} >> (64 - used),
                                permuted(order, _mm512_loadu_si512(src + left - 64)));
    if (!left) return;
    const __mmask64 rest = _bzhi_u64(~uint64_t{0}, static_cast<uint32_t>(left));
    const __m512i moved = _mm512_sub_epi8(order, _mm512_set1_epi8(static_cast<char>(64 - left)));
    _mm512_mask_storeu_epi8(dst, rest, permuted(moved, _mm512_maskz_loadu_epi8(rest, src)));
}

#else

// Whole pixels of each half from the last to the first. Where they do not fill it, they are put to its upper end.
template <size_t bytes> consteval Order<32> reversed() {
    constexpr size_t used = 16 / bytes * bytes;
    Order<32> order{};
    for (size_t i = 0; i < used; i++)
        order.at[16 - used + i] = order.at[32 - used + i] = uint8_t(used - bytes - i / bytes * bytes + i % bytes);
    return order;
}

template <size_t bytes> void mirror(const uint8_t *src, uint8_t *dst, size_t count) {
    static constexpr Order<32> table = reversed<bytes>();
    constexpr size_t half = 16 / bytes * bytes, step = 2 * half;
    const __m256i order = _mm256_load_si256(reinterpret_cast<const __m256i *>(table.at));
    const auto turned = [&](const uint8_t *p) { return _mm256_shuffle_epi8(load_halves(p + half, p), order); };
    size_t left = count * bytes;
    if constexpr (bytes == 3) {
        // The byte below the pixels is written, too: the pixels that go there come next.
        for (; left > 32; left -= step, src += step) {
            const __m256i v = turned(src);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + left - 16), _mm256_extracti128_si256(v, 1));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + left - 31), _mm256_castsi256_si128(v));
        }
    } else if (left >= step) {
        const auto turn_at = [&](const uint8_t *p, uint8_t *to) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
            const __m256i turned_over = bytes == 4
                                            ? _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0))
                                            : _mm256_permute4x64_epi64(_mm256_shuffle_epi8(v, order), 0b01'00'11'10);
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(to), turned_over);
        };
        uint8_t *const last = dst + left - step;
// Read backward and written forward: one vector a round, the two get in each other's way.
#pragma GCC unroll 4
        for (; left >= step; left -= step, dst += step) turn_at(src + left - step, dst);
        if (left) turn_at(src, last); // overlaps what was done
        return;
    }
    mirror_pixels<bytes>(src, dst, left / bytes);
}

#endif

template <size_t bytes>
[[gnu::noinline]] void mirror_rows(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step,
                                   size_t count, uint32_t rows) {
    if (count * bytes * rows < worth_streaming) {
        for (; rows; rows--, src += src_step, dst += dst_step) mirror<bytes>(src, dst, count);
        return;
    }
    constexpr size_t chunk = 1024; // pixels that are mirrored in the cache, then moved
    alignas(cache_line) uint8_t mirrored[chunk * bytes];
    for (; rows; rows--, src += src_step, dst += dst_step)
        for (size_t i = 0, n; i < count; i += n) {
            n = count - i < chunk ? count - i : chunk;
            mirror_rows<bytes>(src + (count - i - n) * bytes, 0, mirrored, 0, n, 1);
            stream(dst + i * bytes, mirrored, n * bytes);
        }
    _mm_sfence();
}

// ---- Turn ------------------------------------------------------------------------------------------------------

// What a block of pixels is turned in: vectors of two or of four parts of 16 bytes.
struct Pair {
    using Vector = __m256i;
    static constexpr size_t parts = 2;

    static Vector load(const uint8_t *p, ptrdiff_t step) { return load_halves(p, p + step); }
    static Vector table(const uint8_t (&part)[16]) { return _mm256_broadcastsi128_si256(load_half(part)); }
    static Vector shuffled(Vector v, Vector order) { return _mm256_shuffle_epi8(v, order); }
    template <size_t bytes> static Vector low(Vector a, Vector b) {
        if constexpr (bytes == 1) return _mm256_unpacklo_epi8(a, b);
        if constexpr (bytes == 2) return _mm256_unpacklo_epi16(a, b);
        return _mm256_unpacklo_epi32(a, b);
    }
    template <size_t bytes> static Vector high(Vector a, Vector b) {
        if constexpr (bytes == 1) return _mm256_unpackhi_epi8(a, b);
        if constexpr (bytes == 2) return _mm256_unpackhi_epi16(a, b);
        return _mm256_unpackhi_epi32(a, b);
    }
    static void store(uint8_t *p, Vector v) { _mm256_storeu_si256(reinterpret_cast<Vector *>(p), v); }
    // The first twelve bytes of each part.
    static void store_squeezed(uint8_t *p, Vector v) {
        v = _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm256_castsi256_si128(v));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(p + 16), _mm256_extracti128_si256(v, 1));
    }
};

#if defined(__AVX512VBMI__)
// With masks for the reason given above.
struct Quad {
    using Vector = __m512i;
    static constexpr size_t parts = 4;

    static Vector load(const uint8_t *p, ptrdiff_t step) {
        return _mm512_maskz_inserti64x4(0xff, _mm512_castsi256_si512(Pair::load(p, step)),
                                        Pair::load(p + 2 * step, step), 1);
    }
    static Vector table(const uint8_t (&part)[16]) { return _mm512_maskz_broadcast_i32x4(0xffff, load_half(part)); }
    static Vector shuffled(Vector v, Vector order) { return _mm512_shuffle_epi8(v, order); }
    template <size_t bytes> static Vector low(Vector a, Vector b) {
        if constexpr (bytes == 1) return _mm512_unpacklo_epi8(a, b);
        if constexpr (bytes == 2) return _mm512_unpacklo_epi16(a, b);
        return _mm512_maskz_unpacklo_epi32(0xffff, a, b);
    }
    template <size_t bytes> static Vector high(Vector a, Vector b) {
        if constexpr (bytes == 1) return _mm512_unpackhi_epi8(a, b);
        if constexpr (bytes == 2) return _mm512_unpackhi_epi16(a, b);
        return _mm512_maskz_unpackhi_epi32(0xffff, a, b);
    }
    static void store(uint8_t *p, Vector v) { _mm512_storeu_si512(p, v); }
    static void store_squeezed(uint8_t *p, Vector v) {
        const Vector order = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15);
        _mm512_mask_storeu_epi32(p, 0x0fff, _mm512_maskz_permutexvar_epi32(0xffff, order, v));
    }
};
using Widest = Quad;

// Past the caches, as above.
struct Streamed : Quad {
    static void store(uint8_t *p, Vector v) { _mm512_stream_si512(reinterpret_cast<Vector *>(p), v); }
};
#else
using Widest = Pair;
#endif

// A block has as many columns as pixels fit a part, and as many rows for each part. Pixels of three bytes are handled as
// four.
template <size_t bytes> constexpr size_t columns = bytes == 3 ? 4 : 16 / bytes;

template <class V, size_t bytes> struct Block { typename V::Vector v[columns<bytes>]; };

// One round of interleaving the first half of the vectors with the second. After as many rounds as the number of columns
// has bits, rows are columns.
template <class V, size_t bytes> Block<V, bytes> interleaved(const Block<V, bytes> &b) {
    constexpr size_t n = columns<bytes> / 2;
    Block<V, bytes> result;
    for (size_t i = 0; i < n; i++) {
        result.v[2 * i] = V::template low<bytes>(b.v[i], b.v[i + n]);
        result.v[2 * i + 1] = V::template high<bytes>(b.v[i], b.v[i + n]);
    }
    return result;
}

template <class V, size_t bytes> Block<V, bytes> turned(const Block<V, bytes> &b) {
    const Block<V, bytes> twice = interleaved(interleaved(b));
    if constexpr (bytes == 1) return interleaved(interleaved(twice));
    if constexpr (bytes == 2) return interleaved(twice);
    return twice;
}

// Four pixels of three bytes, `skip` bytes into each part, as four of four; and back.
template <size_t skip>
constexpr Order<16> spread = [] {
    Order<16> order{};
    for (size_t i = 0; i < 16; i++) order.at[i] = uint8_t(i % 4 == 3 ? 0x80 : skip + i / 4 * 3 + i % 4);
    return order;
}();
constexpr Order<16> squeezed = [] {
    Order<16> order{};
    for (size_t i = 0; i < 16; i++) order.at[i] = uint8_t(i >= 12 ? 0x80 : i / 3 * 4 + i % 3);
    return order;
}();

// skip: bytes before the pixels that are loaded with them, so that nothing is read behind them.
template <class V, size_t bytes, size_t skip = 0>
void turn_block(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step) {
    constexpr ptrdiff_t n = columns<bytes>;
    Block<V, bytes> block;
    for (ptrdiff_t i = 0; i < n; i++) {
        block.v[i] = V::load(src - skip + i * src_step, n * src_step);
        if constexpr (bytes == 3) block.v[i] = V::shuffled(block.v[i], V::table(spread<skip>.at));
    }
    block = turned(block);
    for (ptrdiff_t i = 0; i < n; i++) {
        if constexpr (bytes == 3)
            V::store_squeezed(dst + i * dst_step, V::shuffled(block.v[i], V::table(squeezed.at)));
        else
            V::store(dst + i * dst_step, block.v[i]);
    }
}

// Blocks go by tiles, whose lines and pages stay at hand until they are done. The last blocks overlap those before them.
template <class V, size_t bytes>
void turn_blocks(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, uint32_t width,
                 uint32_t height) {
    constexpr uint32_t tile = 256, across = columns<bytes>, down = V::parts * across;
    const auto smaller = [](uint32_t a, uint32_t b) { return a < b ? a : b; };
    for (uint32_t left = 0; left < width; left += tile) {
        const uint32_t right = smaller(left + tile, width);
        for (uint32_t y0 = 0; y0 < height; y0 += down) {
            const uint32_t y = smaller(y0, height - down);
            for (uint32_t x0 = left; x0 < right; x0 += across) {
                const uint32_t x = smaller(x0, width - across);
                const uint8_t *from = src + y * src_step + x * bytes;
                uint8_t *to = dst + x * dst_step + y * bytes;
                if (bytes == 3 && x + across + 2 > width) // Too few bytes follow in the row.
                    turn_block<V, bytes, bytes == 3 ? 4 : 0>(from, src_step, to, dst_step);
                else
                    turn_block<V, bytes>(from, src_step, to, dst_step);
            }
        }
    }
}

template <size_t bytes>
void turn(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, uint32_t width, uint32_t height) {
    constexpr uint32_t across = columns<bytes>, down = Widest::parts * across;
    TurnRows *kernel = turn_blocks<Widest, bytes>;
    if (height < down) kernel = turn_blocks<Pair, bytes>;
    if (width < across + 2 || height < Pair::parts * across) kernel = turn_pixels<bytes>;
#if defined(__AVX512VBMI__)
    const bool aligned = (reinterpret_cast<uintptr_t>(dst) | static_cast<uintptr_t>(dst_step)) % 64 == 0;
    if (bytes != 3 && aligned && size_t{width} * height * bytes >= worth_streaming &&
        kernel == turn_blocks<Widest, bytes>) {
        turn_blocks<Streamed, bytes>(src, src_step, dst, dst_step, width, height / down * down);
        _mm_sfence();
        if (height % down == 0) return;
        src += static_cast<ptrdiff_t>(height - down) * src_step; // the last blocks, which overlap and are not aligned
        dst += size_t{height - down} * bytes;
        height = down;
    }
#endif
    kernel(src, src_step, dst, dst_step, width, height);
}

} // namespace
} // namespace img::IMG_TARGET
