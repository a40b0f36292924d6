// SPDX-License-Identifier: MIT
//
// A run of pixels, cut into blocks, in place or between buffers. Part of kernels.cpp and palette_kernels.cpp, which
// supply what happens within a block.
#pragma once

#if IMG_VECTORS
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

constexpr size_t worth_aligning = 256; // pixels
constexpr size_t chunk = 256;          // pixels that pass through a buffer together; it stays in the L1 cache
// Likewise of indices: as many as are worth a table of 256, or few enough for the next ones to be fetched meanwhile.
constexpr size_t index_chunk = looks_up_256 ? 4096 : 512;

size_t index_bytes(size_t count, uint32_t bits) { return (count * bits + 7) >> 3; }

// Passed by reference: a copy would wait for the stores that made the original. Uncommon paths are functions of their
// own, which keeps the common one short.
struct Run {
    const uint8_t *src;
    uint8_t *dst;
    size_t count;
    const uint8_t *palette;

    // After it, indices of less than a byte must continue at the start of a byte.
    void skip(size_t pixels, const Shape &shape) {
        src += index_bytes(pixels, shape.src_bits);
        dst += pixels * shape.dst_bytes;
        count -= pixels;
    }
};

// Converts fewer than `block` pixels; src may equal dst. The arguments are passed in registers, which is faster than a
// struct.
[[gnu::noinline]] void convert_short(const uint8_t *src, uint8_t *dst, size_t count, uint32_t src_bytes,
                                     uint32_t dst_bytes, Convert *convert) {
    alignas(vector_bytes) uint8_t in[block * 4], out[block * 4];
    read_padded(in, src, count * src_bytes, src_bytes * block);
    convert(in, out, block, nullptr);
    write_part(dst, out, count * dst_bytes);
}

// Converts at most a chunk, which is read completely before anything is written.
[[gnu::noinline]] void convert_buffered(const Shape &shape, const Run &run) {
    if (run.count < shape.least)
        return convert_short(run.src, run.dst, run.count, shape.src_bits / 8, shape.dst_bytes, shape.convert);
    uint8_t in[chunk * 4];
    memcpy(in, run.src, index_bytes(run.count, shape.src_bits));
    shape.convert(in, run.dst, run.count, run.palette);
}

// How many pixels there are before the first one that begins a vector; 0 if none does.
size_t pixels_to_alignment(const uint8_t *first, uint32_t pixel_bytes) {
    const size_t missing = -reinterpret_cast<uintptr_t>(first) % vector_bytes;
    if (pixel_bytes == 3) return missing * 11 % vector_bytes; // 3 * 11 = 1 modulo 32
    const uint32_t shift = pixel_bytes / 2;                   // of 1, 2 and 4
    return missing >> shift << shift == missing ? missing >> shift : 0;
}

// Converts up to the first pixel of the destination, or of the source, that begins a vector.
INLINE void align(const Shape &shape, Run &run, bool by_dst) {
    const size_t lead =
        by_dst ? pixels_to_alignment(run.dst, shape.dst_bytes) : pixels_to_alignment(run.src, shape.src_bits / 8);
    if (!lead || lead * shape.src_bits % 8) return;
    shape.convert(run.src, run.dst, block, run.palette);
    run.skip(lead, shape);
}

// Cache lines that are streamed whole are not read from memory first. A chunk is converted in the cache, then moved.
template <size_t together> [[gnu::noinline]] void convert_streaming(const Shape &shape, Run &run) {
    alignas(vector_bytes) uint8_t out[together * 4];
    align(shape, run, true);
    if (reinterpret_cast<uintptr_t>(run.dst) % vector_bytes) return;
    for (; run.count >= 2 * together; run.skip(together, shape)) {
        shape.convert(run.src, out, together, run.palette);
        stream(run.dst, out, together * shape.dst_bytes);
    }
    end_streaming();
}

// Converts a run that is long enough to be aligned, or streamed.
template <size_t together> [[gnu::noinline]] void convert_long(const Shape &shape, Run &run) {
    if (run.count * shape.dst_bytes >= worth_streaming)
        convert_streaming<together>(shape, run);
    else if (shape.least == block) // vectors that straddle cache lines take twice as long
        align(shape, run, shape.dst_bytes * 8 >= shape.src_bits);
    shape.convert(run.src, run.dst, run.count, run.palette);
}

[[gnu::noinline]] void convert_in_place(const Shape &shape, const Run &run) {
    size_t whole = 0; // pixels that need no buffer
    if (shape.dst_bytes * 8 <= shape.src_bits && (whole = run.count & ~size_t{block - 1}))
        shape.convert(run.src, run.dst, whole, run.palette);
    for (size_t end = run.count; end > whole;) { // last to first, because pixels grow
        const size_t begin = end - whole > chunk ? (end - 1) / chunk * chunk : whole;
        Run last{run.src, run.dst, end, run.palette};
        last.skip(begin, shape);
        convert_buffered(shape, last);
        end = begin;
    }
}

bool overlap(const Shape &shape, const Run &run) {
    const auto s = reinterpret_cast<uintptr_t>(run.src), d = reinterpret_cast<uintptr_t>(run.dst);
    return s + index_bytes(run.count, shape.src_bits) > d && d + run.count * shape.dst_bytes > s;
}

// Compiled once for all conversions of the same sizes.
template <uint32_t src_bits, uint32_t dst_bytes, uint32_t least>
[[gnu::noinline]] void convert_run(const void *from, void *to, size_t count, const void *palette, Convert *convert) {
    const auto *src = static_cast<const uint8_t *>(from), *entries = static_cast<const uint8_t *>(palette);
    auto *dst = static_cast<uint8_t *>(to);
    if (count < least) {
        if (least == block) convert_short(src, dst, count, src_bits / 8, dst_bytes, convert);
        return;
    }
    const Shape shape{src_bits, dst_bytes, least, convert};
    Run run{src, dst, count, entries};
    if (overlap(shape, run)) return convert_in_place(shape, run);
    if (count >= (least == block ? worth_aligning : worth_streaming / dst_bytes))
        return convert_long < least == block ? chunk : index_chunk > (shape, run);
    convert(src, dst, count, entries);
}

} // namespace
} // namespace img::IMG_TARGET
