// SPDX-License-Identifier: MIT
//
// The run of pixels: cut into blocks, in place or between buffers. Compiled once per variant, with IMG_TARGET naming its
// namespace. All but the table has internal linkage and only headers without linkage are included, so that nothing
// of one variant can be linked into another. What happens within a block is in plain.h and vector.h.
#include "convert/kernels.h"
#include "convert/layout.h"

#include <stddef.h>
#include <string.h>

#if defined(__AVX2__)
#include "convert/vector.h"
#include "convert/vector_indices.h"
#else
#include "convert/plain.h"
#endif

namespace img::IMG_TARGET {
namespace {

// Converts at least `least` pixels between buffers that do not overlap; or in place, first to last, when a pixel does
// not grow and count is a multiple of the block.
using Convert = void(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette);

struct Shape {
    uint32_t src_bits, dst_bytes; // of a pixel
    uint32_t least;
    Convert *convert;
};

constexpr size_t vector_bytes = 32, worth_aligning = 256;
constexpr size_t chunk = 256; // pixels that pass through a buffer together; it stays in the L1 cache

size_t index_bytes(size_t count, uint32_t bits) { return (count * bits + 7) >> 3; }

// Copies at least `size` bytes, in two moves of that size if they suffice.
template <size_t size> void copy_overlapping(uint8_t *dst, const uint8_t *src, size_t bytes) {
    struct Piece {
        uint8_t bytes[size];
    } first, last;
    memcpy(&first, src, size);
    memcpy(&last, src + bytes - size, size);
    for (size_t i = size; i + size < bytes; i += size) memcpy(dst + i, src + i, size);
    memcpy(dst, &first, size);
    memcpy(dst + bytes - size, &last, size);
}

// Less than a block. The call to memcpy would take longer than all the rest of a short run.
void copy_short(uint8_t *dst, const uint8_t *src, size_t bytes) {
    if (bytes >= 16) return copy_overlapping<16>(dst, src, bytes);
    if (bytes >= 8) return copy_overlapping<8>(dst, src, bytes);
    if (bytes >= 4) return copy_overlapping<4>(dst, src, bytes);
    if (bytes >= 2) return copy_overlapping<2>(dst, src, bytes);
    if (bytes) *dst = *src;
}

// At most a chunk, read completely before anything is written.
void convert_buffered(const Shape &shape, const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *palette) {
    const size_t src_bytes = index_bytes(count, shape.src_bits);
    if (count >= shape.least) {
        uint8_t in[chunk * 4];
        memcpy(in, src, src_bytes);
        return shape.convert(in, dst, count, palette);
    }
    uint8_t in[block * 4] = {}, out[block * 4];
    copy_short(in, src, src_bytes);
    shape.convert(in, out, block, palette);
    copy_short(dst, out, count * shape.dst_bytes);
}

// How many pixels lie before the first one that begins a vector, on the side that moves more bytes; 0 if none does.
// Vectors that straddle cache lines halve the speed of light conversions.
size_t pixels_to_alignment(const Shape &shape, uintptr_t src, uintptr_t dst) {
    const bool by_dst = shape.dst_bytes * 8 >= shape.src_bits;
    const uint32_t bytes = by_dst ? shape.dst_bytes : shape.src_bits / 8;
    const size_t missing = -(by_dst ? dst : src) % vector_bytes;
    if (bytes == 3) return missing * 11 % vector_bytes; // 3 * 11 = 1 modulo 32
    return missing % bytes ? 0 : missing / bytes;
}

void run(const Shape &shape, const void *from, void *to, size_t count, const void *entries) {
    const auto *src = static_cast<const uint8_t *>(from);
    const auto *palette = static_cast<const uint8_t *>(entries);
    auto *dst = static_cast<uint8_t *>(to);
    const auto s = reinterpret_cast<uintptr_t>(src), d = reinterpret_cast<uintptr_t>(dst);
    const bool apart = s + index_bytes(count, shape.src_bits) <= d || d + count * shape.dst_bytes <= s;
    if (apart && count >= shape.least) {
        const size_t lead = count >= worth_aligning && shape.least == block ? pixels_to_alignment(shape, s, d) : 0;
        if (lead) shape.convert(src, dst, block, palette);
        return shape.convert(src + lead * shape.src_bits / 8, dst + lead * shape.dst_bytes, count - lead, palette);
    }

    size_t whole = 0; // pixels that need no buffer
    if (!apart && shape.dst_bytes * 8 <= shape.src_bits && (whole = count & ~size_t{block - 1}))
        shape.convert(src, dst, whole, palette);
    for (size_t end = count; end > whole;) { // last to first, because pixels grow
        const size_t begin = end - whole > chunk ? (end - 1) / chunk * chunk : whole;
        convert_buffered(shape, src + index_bytes(begin, shape.src_bits), dst + begin * shape.dst_bytes, end - begin,
                         palette);
        end = begin;
    }
}

template <Layout S, Layout D, Rule R>
void convert_blocks(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *) {
    const uint8_t *last_src = src + (count - block) * S.bytes;
    uint8_t *last_dst = dst + (count - block) * D.bytes;
    for (;;) {
        convert_block<S, D, R>(src, dst);
        if (src == last_src) return;
        src += block * S.bytes;
        dst += block * D.bytes;
        if (src > last_src) [[unlikely]] { // the last block overlaps the one before
            src = last_src;
            dst = last_dst;
        }
    }
}

template <Layout S, Layout D, Rule R> void convert(const void *src, void *dst, uint32_t count) {
    static constexpr Shape shape{S.bytes * 8, D.bytes, block, convert_blocks<S, D, R>};
    run(shape, src, dst, count, nullptr);
}

template <uint32_t bits> void unpack(const void *src, void *dst, uint32_t count) {
    static constexpr Shape shape{bits, 1, 1, unpack_indices<bits>};
    run(shape, src, dst, count, nullptr);
}

template <uint32_t bits, uint32_t bytes> void expand(const void *src, void *dst, uint32_t count, const void *palette) {
    static constexpr Shape shape{bits, bytes, 1, expand_indices<bits, bytes>};
    run(shape, src, dst, count, palette);
}

} // namespace

const Kernels kernels = {
#define ROUTINE(name, source, destination, rule) .name = convert<layout::source, layout::destination, Rule::rule>,
#include "convert/routines.inc"
    .pal1_pal8 = unpack<1>,
    .pal4_pal8 = unpack<4>,
    .expand = {{expand<1, 1>, expand<1, 2>, expand<1, 3>, expand<1, 4>},
               {expand<4, 1>, expand<4, 2>, expand<4, 3>, expand<4, 4>},
               {expand<8, 1>, expand<8, 2>, expand<8, 3>, expand<8, 4>}},
};

} // namespace img::IMG_TARGET
