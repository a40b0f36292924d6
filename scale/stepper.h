// SPDX-License-Identifier: MIT
//
// Lines halved, thinned and stepped through in vectors of 64 bytes whose bytes can be put anywhere. Part of kernels.cpp.
//
// What lies behind a line is kept out by masks. Lines may be scaled in place: what a vector is made from is read before
// the vector is written, and lies where nothing was written yet, since reductions go forward and enlargements backward.
#pragma once

#include "scale/vector.h"

namespace img::IMG_TARGET {
namespace {

// A vector of bytes and the one behind it.
struct Window {
    Any low, high;
};

struct Order {
    alignas(64) uint8_t at[64];
};

uint64_t first_bytes(size_t n) { return _bzhi_u64(~uint64_t{0}, static_cast<uint32_t>(n < 64 ? n : 64)); }

// Bytes from p on, `second` bytes further the other vector. Of those only as many are read as there are.
Window load_window(const uint8_t *p, size_t second, size_t there) {
    if (there >= second + 64) return {load(p), load(p + second)};
    return {_mm512_maskz_loadu_epi8(first_bytes(there), p),
            there > second ? _mm512_maskz_loadu_epi8(first_bytes(there - second), p + second) : _mm512_setzero_si512()};
}

// ---- Pairs of pixels become one: their mean, or the first of them -----------------------------------------------

// The bytes of the first pixels of pairs in a window; of the second ones with shift.
template <size_t pixel> consteval Order pixels_of_pairs(size_t shift) {
    constexpr size_t used = 64 / pixel * pixel, second = 2 * used - 64;
    Order order{};
    for (size_t i = 0; i < used; i++) {
        const size_t from = (2 * (i / pixel) + shift) * pixel + i % pixel;
        order.at[i] = uint8_t(from < 64 ? from : 64 + from - second);
    }
    return order;
}

template <Family F, bool averaged> void fold_pairs(const uint8_t *src, uint8_t *dst, size_t count) {
    constexpr size_t pixel = F.elements * F.bytes, used = 64 / pixel * pixel, second = 2 * used - 64;
    static constexpr Order firsts = pixels_of_pairs<pixel>(0), seconds = pixels_of_pairs<pixel>(1);
    const Any first = _mm512_load_si512(firsts.at), other = _mm512_load_si512(seconds.at);
    for (size_t left = count * pixel; left;) {
        const size_t bytes = left < used ? left : used;
        const Window in = load_window(src, second, 2 * left);
        Any v = _mm512_permutex2var_epi8(in.low, first, in.high);
        if constexpr (averaged) v = mean<F>(v, _mm512_permutex2var_epi8(in.low, other, in.high));
        v = with_forced<F>(v);
        if (left >= 64) // The byte behind whole pixels, if there is one, is the next vector's.
            store(dst, v);
        else
            _mm512_mask_storeu_epi8(dst, first_bytes(bytes), v);
        src += 2 * bytes;
        dst += bytes;
        left -= bytes;
    }
}

// ---- The stepper ------------------------------------------------------------------------------------------------

// Sixteen pixels at a time, one in each 32-bit lane while they are picked and averaged. Lane i is parms.lanes[i] further
// than lane 0, and another pixel further where the parts carry over.
template <Family F> class Stepper {
public:
    Stepper(const uint8_t *line, uint8_t *dst, const img_scl_parms &p)
        : line_(line), dst_(dst), p_(p), length_(p.src_width >> p.halvings) {}

    // Steps of less than two pixels in lines that have a neighbour, and sums of parts that fit 32 bits.
    static bool serves(const img_scl_parms &p) {
        return p.dst_width < 1u << 30 && p.src_width >> p.halvings > 1 &&
               (p.dir < 0 ? p.int_step == 0 : p.int_step == p.dir);
    }

    void reduce() {
        set_lanes(_mm512_loadu_si512(p_.lane_whole), _mm512_loadu_si512(p_.lane_parts), 1);
        for (uint32_t i = 0, at = 0; i < p_.dst_width; i += lanes, advance(at, 1)) {
            const uint32_t left = p_.dst_width - i;
            put(dst_ + i * pixel, left < lanes ? left : lanes, packed(pick(at, 0)));
        }
    }

    // From the right: the last lane comes first.
    void enlarge() {
        const Any backward = _mm512_setr_epi32(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
        const Any all = _mm512_loadu_si512(p_.lane_whole), parts = _mm512_loadu_si512(p_.lane_parts);
        set_lanes(_mm512_maskz_permutexvar_epi32(every_lane, backward, all),
                  _mm512_maskz_permutexvar_epi32(every_lane, backward, parts), -1);
        uint32_t at = length_ - 1;
        for (uint32_t i = 0; i < p_.main_count; i += lanes) {
            const uint32_t left = p_.main_count - i, count = left < lanes ? left : lanes;
            const uint32_t start = at < lanes ? 0 : at - lanes;
            Any v = pick(start, at - start);
            if (count < lanes) v = _mm512_maskz_compress_epi32(__mmask16(0xffff << (lanes - count)), v);
            put(dst_ + size_t{p_.dst_width - i - count} * pixel, count, packed(v));
            advance(at, -1);
        }
        const uint8_t *edge = line_ + size_t{p_.edge_src} * pixel;
        for (uint32_t i = p_.edge_count; i-- > 0;) Pixel<F>::load(edge).store(dst_ + size_t{i} * pixel);
    }

private:
    static constexpr uint32_t pixel = F.elements * F.bytes, lanes = scale_lanes, every_byte = 0x01010101;
    static constexpr __mmask16 every_lane = 0xffff;

    void set_lanes(Any whole, Any parts, int32_t direction) {
        const auto bytes = static_cast<int32_t>(pixel) * direction;
        one_ = _mm512_set1_epi32(static_cast<int32_t>(every_byte) * bytes);
        const Any first = _mm512_mullo_epi32(whole, _mm512_set1_epi32(bytes));
        whole_ = _mm512_add_epi8(_mm512_shuffle_epi8(first, _mm512_set4_epi32(0x0c0c0c0c, 0x08080808, 0x04040404, 0)),
                                 _mm512_set1_epi32(0x03020100));
        parts_ = parts;
        width_ = _mm512_set1_epi32(static_cast<int32_t>(p_.dst_width));
        half_ = _mm512_set1_epi32(static_cast<int32_t>(p_.half));
    }

    void advance(uint32_t &at, int32_t direction) {
        fraction_ += p_.lane_parts[lanes];
        uint32_t whole = p_.lane_whole[lanes];
        if (fraction_ >= p_.dst_width) {
            fraction_ -= p_.dst_width;
            whole++;
        }
        at = direction > 0 ? at + whole : at - whole;
    }

    // The pixels of the lanes from a window of 32 pixels that begins at `start`, with lane 0 `ahead` pixels into it.
    Any pick(uint32_t start, uint32_t ahead) const {
        const Window in = load_window(line_ + size_t{start} * pixel, 64, (length_ - start) * size_t{pixel});
        Any parts = _mm512_add_epi32(parts_, _mm512_set1_epi32(static_cast<int32_t>(fraction_)));
        const __mmask16 carry = _mm512_cmpge_epu32_mask(parts, width_);
        parts = _mm512_mask_sub_epi32(parts, carry, parts, width_);
        Any index = _mm512_add_epi8(whole_, _mm512_set1_epi8(static_cast<char>(ahead * pixel)));
        index = _mm512_mask_add_epi32(index, carry, index, one_);
        const Any near = picked(in, index), next = picked(in, _mm512_add_epi32(index, one_));
        return _mm512_mask_mov_epi32(near, _mm512_cmpge_epu32_mask(parts, half_), mean<F>(near, next));
    }

    // index: bytes of the window. Small pixels are all in its first half.
    static Any picked(const Window &in, Any index) {
        if constexpr (pixel <= 2) return _mm512_maskz_permutexvar_epi8(~__mmask64{0}, index, in.low);
        if constexpr (pixel == 4) return _mm512_permutex2var_epi32(in.low, Any(Words(index) >> 26), in.high);
        return _mm512_permutex2var_epi8(in.low, index, in.high);
    }

    // Pixels from lanes of 32 bits to one after the other.
    static Any packed(Any v) {
        static constexpr Order order = [] {
            Order result{};
            for (size_t i = 0; i < 16 * pixel; i++) result.at[i] = uint8_t(i / pixel * 4 + i % pixel);
            return result;
        }();
        v = with_forced<F>(v);
        if constexpr (pixel == 4) return v;
        return _mm512_maskz_permutexvar_epi8(~__mmask64{0}, _mm512_load_si512(order.at), v);
    }

    // Masks only where they are needed: what a masked store wrote is slow to be read again.
    static void put(uint8_t *dst, uint32_t count, Any v) {
        if (count < lanes) return _mm512_mask_storeu_epi8(dst, first_bytes(count * pixel), v);
        const auto w = Words(v);
        const auto store_part = [](uint8_t *to, auto part) { memcpy(to, &part, sizeof part); };
        if constexpr (pixel == 4)
            store(dst, v);
        else if constexpr (pixel == 1)
            store_part(dst, __builtin_shufflevector(w, w, 0, 1, 2, 3));
        else
            store_part(dst, __builtin_shufflevector(w, w, 0, 1, 2, 3, 4, 5, 6, 7));
        if constexpr (pixel == 3) store_part(dst + 32, __builtin_shufflevector(w, w, 8, 9, 10, 11));
    }

    const uint8_t *line_;
    uint8_t *dst_;
    const img_scl_parms &p_;
    uint32_t length_;
    uint32_t fraction_ = 0;
    Any whole_, parts_, one_, width_, half_;
};

} // namespace
} // namespace img::IMG_TARGET
