// SPDX-License-Identifier: MIT
//
// Rows of pixels copied, mirrored and transposed in registers. Part of kernels.cpp. Nothing outside the rows is read or
// written: what is left at the end of a row overlaps what was done, is masked, or goes pixel by pixel.
#pragma once

#include "geometry/pixels.h"
#include "simd/simd.h"

namespace img::IMG_TARGET {
namespace {

using namespace simd;

// Cache lines that are written whole need not be read from memory first. Those at the ends belong to other rows, too.
void copy_streaming(uint8_t *dst, const uint8_t *src, size_t bytes) {
    size_t head = -reinterpret_cast<uintptr_t>(dst) % cache_line;
    if (bytes < head + cache_line) head = bytes;
    const size_t lines = (bytes - head) / cache_line * cache_line, tail = head + lines;
    memcpy(dst, src, head);
    stream(dst + head, src + head, lines);
    memcpy(dst + tail, src + tail, bytes - tail);
}

// ---- Copy --------------------------------------------------------------------------------------------------------

// For a row of some hundred bytes the call of memcpy is a good part of the time.
void copy_rows(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t bytes, uint32_t rows) {
    constexpr size_t together = 4 * vector_bytes, longest = 2048; // wider registers straddle more cache lines
    if (bytes * rows >= worth_streaming) {
        for (; rows; rows--, src += src_step, dst += dst_step) copy_streaming(dst, src, bytes);
        return end_streaming();
    }
    if (bytes < together || bytes > longest) return copy_each_row(src, src_step, dst, dst_step, bytes, rows);
    for (; rows; rows--, src += src_step, dst += dst_step)
        for (size_t i = 0;; i = i + 2 * together <= bytes ? i + together : bytes - together) { // the last ones overlap
            for (size_t k = i; k < i + together; k += vector_bytes) store(dst + k, load(src + k));
            if (i + together == bytes) break;
        }
}

// ---- Mirror ------------------------------------------------------------------------------------------------------

// The last whole pixels of a register from the last to the first.
template <size_t bytes> consteval Pattern<64> reversed_pixels() {
    Pattern<64> order{};
    for (size_t i = 0; i < 64 / bytes * bytes; i++) order.at[i] = uint8_t(64 - bytes - i / bytes * bytes + i % bytes);
    return order;
}

// Where bytes go anywhere in a register. Upward in the destination, which the caches like better than upward in the
// source.
template <class V, size_t bytes> void mirror_permuted(const uint8_t *src, uint8_t *dst, size_t count) {
    static constexpr Pattern<64> pattern = reversed_pixels<bytes>();
    constexpr size_t size = sizeof(V), used = size / bytes * bytes;
    const V order = load<V>(pattern.at);
    size_t left = count * bytes;
    for (; left >= size; left -= used, dst += used) store_first(dst, permute(load<V>(src + left - size), order), used);
    if (left) store_first(dst, permute(load_first<V>(src, left), V(order - uint8_t(size - left))), left);
}

// Whole pixels of three bytes of each part from the last to the first, at the upper end of the part.
constexpr Pattern<> reversed_24_bits = [] {
    Pattern<> order{};
    for (size_t i = 0; i < 15; i++) order.at[1 + i] = order.at[17 + i] = uint8_t(12 - i / 3 * 3 + i % 3);
    return order;
}();

inline void mirror_24_bits(const uint8_t *src, uint8_t *dst, size_t count) {
    const Bytes order = load(reversed_24_bits.at);
    size_t left = count * 3;
    // The byte below the pixels is written, too: the pixels that go there come next.
    for (; left > 32; left -= 30, src += 30) {
        const Bytes v = shuffle(load_halves(src + 15, src), order);
        store_high_half(dst + left - 16, v);
        store_low_half(dst + left - 31, v);
    }
    mirror_pixels<3>(src, dst, left / 3);
}

template <size_t bytes> void mirror_reversed(const uint8_t *src, uint8_t *dst, size_t count) {
    size_t left = count * bytes;
    if (left < vector_bytes) return mirror_pixels<bytes>(src, dst, count);
    uint8_t *const last = dst + left - vector_bytes;
// Read backward and written forward: one register a round, the two get in each other's way.
#pragma GCC unroll 4
    for (; left >= vector_bytes; left -= vector_bytes, dst += vector_bytes)
        store(dst, reverse<bytes>(load(src + left - vector_bytes)));
    if (left) store(last, reverse<bytes>(load(src))); // overlaps what was done
}

template <size_t bytes> void mirror(const uint8_t *src, uint8_t *dst, size_t count) {
    if constexpr (permutes_bytes)
        mirror_permuted<WideBytes, bytes>(src, dst, count);
    else if constexpr (bytes == 3)
        mirror_24_bits(src, dst, count);
    else
        mirror_reversed<bytes>(src, dst, count);
}

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
            copy_streaming(dst + i * bytes, mirrored, n * bytes);
        }
    end_streaming();
}

// ---- Transpose ---------------------------------------------------------------------------------------------------

// A block has as many columns as pixels fit a part, and for each part of a register V as many rows. Pixels of three
// bytes are handled as four.
template <size_t bytes> constexpr size_t columns = bytes == 3 ? 4 : part_bytes / bytes;

template <class V, size_t bytes> constexpr uint32_t block_rows = sizeof(V) / part_bytes *columns<bytes>;

template <class V, size_t bytes> struct Block { V v[columns<bytes>]; };

// One round of interleaving the first half of the registers with the second. After as many rounds as the number of
// columns has bits, rows are columns.
template <class V, size_t bytes> INLINE Block<V, bytes> interleaved(const Block<V, bytes> &b) {
    constexpr size_t n = columns<bytes> / 2, element = bytes == 3 ? 4 : bytes;
    Block<V, bytes> result;
    for (size_t i = 0; i < n; i++) {
        result.v[2 * i] = unpack_low<element>(b.v[i], b.v[i + n]);
        result.v[2 * i + 1] = unpack_high<element>(b.v[i], b.v[i + n]);
    }
    return result;
}

template <class V, size_t bytes> INLINE Block<V, bytes> transposed(const Block<V, bytes> &b) {
    const Block<V, bytes> twice = interleaved(interleaved(b));
    if constexpr (bytes == 1) return interleaved(interleaved(twice));
    if constexpr (bytes == 2) return interleaved(twice);
    return twice;
}

// Four pixels of three bytes, `skip` bytes into each part, as four of four; and back.
template <size_t skip>
constexpr Pattern<part_bytes> spread = [] {
    Pattern<part_bytes> order{};
    for (size_t i = 0; i < 16; i++) order.at[i] = uint8_t(i % 4 == 3 ? 0x80 : skip + i / 4 * 3 + i % 4);
    return order;
}();
constexpr Pattern<part_bytes> squeezed = [] {
    Pattern<part_bytes> order{};
    for (size_t i = 0; i < 16; i++) order.at[i] = uint8_t(i >= 12 ? 0x80 : i / 3 * 4 + i % 3);
    return order;
}();

// skip: bytes before the pixels that are loaded with them, so that nothing after them is read.
template <class V, size_t bytes, bool past_caches, size_t skip = 0>
INLINE void transpose_block(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step) {
    constexpr ptrdiff_t n = columns<bytes>;
    Block<V, bytes> block;
    for (ptrdiff_t i = 0; i < n; i++) {
        block.v[i] = load_parts<V>(src - skip + i * src_step, n * src_step);
        if constexpr (bytes == 3) block.v[i] = shuffle(block.v[i], repeat_part<V>(spread<skip>.at));
    }
    block = transposed(block);
    for (ptrdiff_t i = 0; i < n; i++) {
        if constexpr (bytes == 3)
            store_low12(dst + i * dst_step, shuffle(block.v[i], repeat_part<V>(squeezed.at)));
        else if constexpr (past_caches)
            stream(dst + i * dst_step, block.v[i]);
        else
            store(dst + i * dst_step, block.v[i]);
    }
}

// Blocks are taken tile by tile, whose cache lines and pages are still there when the next block needs them. The last
// blocks overlap those before them.
template <class V, size_t bytes, bool past_caches = false>
[[gnu::noinline]] void transpose_blocks(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step,
                                        uint32_t width, uint32_t height) {
    constexpr uint32_t tile = 256, across = columns<bytes>, down = block_rows<V, bytes>;
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
                    transpose_block<V, bytes, past_caches, bytes == 3 ? 4 : 0>(from, src_step, to, dst_step);
                else
                    transpose_block<V, bytes, past_caches>(from, src_step, to, dst_step);
            }
        }
    }
}

template <size_t bytes>
void transpose(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, uint32_t width,
               uint32_t height) {
    constexpr uint32_t across = columns<bytes>, down = block_rows<WideBytes, bytes>;
    if (width < across + 2 || height < block_rows<Bytes, bytes>)
        return transpose_pixels<bytes>(src, src_step, dst, dst_step, width, height);
    if (height < down) return transpose_blocks<Bytes, bytes>(src, src_step, dst, dst_step, width, height);
    // Where a register is a cache line, it can be streamed.
    if constexpr (sizeof(WideBytes) == cache_line && bytes != 3) {
        const bool aligned = (reinterpret_cast<uintptr_t>(dst) | static_cast<uintptr_t>(dst_step)) % cache_line == 0;
        if (aligned && size_t{width} * height * bytes >= worth_streaming) {
            transpose_blocks<WideBytes, bytes, true>(src, src_step, dst, dst_step, width, height / down * down);
            end_streaming();
            if (height % down == 0) return;
            src +=
                static_cast<ptrdiff_t>(height - down) * src_step; // the last blocks, which overlap and are not aligned
            dst += size_t{height - down} * bytes;
            height = down;
        }
    }
    transpose_blocks<WideBytes, bytes>(src, src_step, dst, dst_step, width, height);
}

} // namespace
} // namespace img::IMG_TARGET
