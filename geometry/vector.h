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
__m256i load(const uint8_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }

// Two runs of 16 bytes; the second goes to the upper half without passing through a shuffle.
__m256i load_halves(const uint8_t *low, const uint8_t *high) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(load_half(low)), load_half(high), 1);
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
    const __m256i order = load(table.at);
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
        for (;; left -= step, src += step) {
            if (left < step) { // overlaps what was done
                src -= step - left;
                left = step;
            }
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + left - step), turned(src));
            if (left == step) return;
        }
    }
    mirror_pixels<bytes>(src, dst, left / bytes);
}

#endif

// ---- Turn ------------------------------------------------------------------------------------------------------

// A block has as many columns as pixels fit a half of a vector, and twice as many rows: the first in the lower halves.
// Pixels of three bytes are handled as four.
template <size_t bytes> constexpr size_t columns = bytes == 3 ? 4 : 16 / bytes;
template <size_t bytes> constexpr size_t rows = 2 * columns<bytes>;

template <size_t bytes> struct Block { __m256i v[columns<bytes>]; };

// One round of interleaving the first half of the vectors with the second. After as many rounds as the number of columns
// has bits, rows are columns.
template <size_t bytes> Block<bytes> interleaved(const Block<bytes> &b) {
    constexpr size_t n = columns<bytes> / 2;
    Block<bytes> result;
    for (size_t i = 0; i < n; i++) {
        const __m256i x = b.v[i], y = b.v[i + n];
        if constexpr (bytes == 1) {
            result.v[2 * i] = _mm256_unpacklo_epi8(x, y);
            result.v[2 * i + 1] = _mm256_unpackhi_epi8(x, y);
        } else if constexpr (bytes == 2) {
            result.v[2 * i] = _mm256_unpacklo_epi16(x, y);
            result.v[2 * i + 1] = _mm256_unpackhi_epi16(x, y);
        } else {
            result.v[2 * i] = _mm256_unpacklo_epi32(x, y);
            result.v[2 * i + 1] = _mm256_unpackhi_epi32(x, y);
        }
    }
    return result;
}

template <size_t bytes> Block<bytes> turned(const Block<bytes> &b) {
    const Block<bytes> twice = interleaved(interleaved(b));
    if constexpr (bytes == 1) return interleaved(interleaved(twice));
    if constexpr (bytes == 2) return interleaved(twice);
    return twice;
}

// Four pixels of three bytes, `skip` bytes into each half, as four of four; and back.
template <size_t skip>
constexpr Order<32> spread = [] {
    Order<32> order{};
    for (size_t i = 0; i < 32; i++) order.at[i] = uint8_t(i % 4 == 3 ? 0x80 : skip + i % 16 / 4 * 3 + i % 4);
    return order;
}();
constexpr Order<32> squeezed = [] {
    Order<32> order{};
    for (size_t i = 0; i < 32; i++) order.at[i] = uint8_t(i % 16 >= 12 ? 0x80 : i % 16 / 3 * 4 + i % 16 % 3);
    return order;
}();

// skip: bytes before the pixels that are loaded with them, so that nothing is read behind them.
template <size_t bytes, size_t skip = 0>
void turn_block(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step) {
    constexpr ptrdiff_t n = columns<bytes>;
    Block<bytes> block;
    for (ptrdiff_t i = 0; i < n; i++) {
        block.v[i] = load_halves(src - skip + i * src_step, src - skip + (i + n) * src_step);
        if constexpr (bytes == 3) block.v[i] = _mm256_shuffle_epi8(block.v[i], load(spread<skip>.at));
    }
    block = turned(block);
    for (ptrdiff_t i = 0; i < n; i++) {
        uint8_t *out = dst + i * dst_step;
        if constexpr (bytes == 3) {
            const __m256i v = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(block.v[i], load(squeezed.at)),
                                                          _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm256_castsi256_si128(v));
            _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 16), _mm256_extracti128_si256(v, 1));
        } else {
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), block.v[i]);
        }
    }
}

// Blocks go by tiles, whose lines stay in the caches until they are done. The last blocks overlap those before them.
template <size_t bytes>
void turn(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, uint32_t width, uint32_t height) {
    constexpr uint32_t tile = 128, down = rows<bytes>, across = columns<bytes>;
    if (width < across + 2 || height < down) return turn_pixels<bytes>(src, src_step, dst, dst_step, width, height);
    const auto smaller = [](uint32_t a, uint32_t b) { return a < b ? a : b; };
    for (uint32_t top = 0; top < height; top += tile) {
        for (uint32_t left = 0; left < width; left += tile) {
            const uint32_t bottom = smaller(top + tile, height), right = smaller(left + tile, width);
            for (uint32_t x0 = left; x0 < right; x0 += across) {
                const uint32_t x = smaller(x0, width - across);
                for (uint32_t y0 = top; y0 < bottom; y0 += down) {
                    const uint32_t y = smaller(y0, height - down);
                    const uint8_t *from = src + y * src_step + x * bytes;
                    uint8_t *to = dst + x * dst_step + y * bytes;
                    if (bytes == 3 && x + across + 2 > width)
                        turn_block<bytes, bytes == 3 ? 4 : 0>(from, src_step, to, dst_step);
                    else
                        turn_block<bytes>(from, src_step, to, dst_step);
                }
            }
        }
    }
}

} // namespace
} // namespace img::IMG_TARGET
