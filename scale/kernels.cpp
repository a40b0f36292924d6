// SPDX-License-Identifier: MIT
//
// The inner loops of scaling: the mean of two lines, and one line scaled to another width. Compiled once per variant,
// with IMG_TARGET naming its namespace; everything but the table has internal linkage.
#include "scale/kernels.h"

#include "scale/mean.h"

namespace img::IMG_TARGET {
namespace {

template <Family F> void average_block(const Word<F> *a, const Word<F> *b, Word<F> *out) {
    for (size_t i = 0; i < block_words<F>; i++) out[i] = mean<F>(a[i], b[i]) | Word<F>(F.forced);
}

template <Family F> void average(const void *a, const void *b, void *dst, uint32_t count) {
    const auto *x = static_cast<const uint8_t *>(a), *y = static_cast<const uint8_t *>(b);
    auto *out = static_cast<uint8_t *>(dst);
    Word<F> first[block_words<F>], second[block_words<F>];
    size_t bytes = size_t{count} * F.elements * F.bytes;
    for (; bytes >= block_bytes; bytes -= block_bytes, x += block_bytes, y += block_bytes, out += block_bytes) {
        memcpy(first, x, block_bytes);
        memcpy(second, y, block_bytes);
        average_block<F>(first, second, first);
        memcpy(out, first, block_bytes);
    }
    if (!bytes) return;
    memset(first, 0, block_bytes);
    memset(second, 0, block_bytes);
    memcpy(first, x, bytes);
    memcpy(second, y, bytes);
    average_block<F>(first, second, first);
    memcpy(out, first, bytes);
}

// One pixel at an address of any alignment.
template <Family F> struct Pixel {
    Word<F> words[F.elements];

    static Pixel load(const uint8_t *at) {
        Pixel pixel;
        memcpy(pixel.words, at, sizeof pixel.words);
        return pixel;
    }
    void store(uint8_t *at) const {
        Pixel pixel = *this;
        for (Word<F> &word : pixel.words) word |= Word<F>(F.forced);
        memcpy(at, pixel.words, sizeof pixel.words);
    }
};

template <Family F> Pixel<F> mean(const Pixel<F> &a, const Pixel<F> &b) {
    Pixel<F> result;
    for (uint32_t i = 0; i < F.elements; i++) result.words[i] = mean<F>(a.words[i], b.words[i]);
    return result;
}

// Pixel i of the result is the mean of pixels 2 i and 2 i + 1. In place as well: a block is read before it is written.
template <Family F> void halve(const uint8_t *src, uint8_t *dst, size_t count) {
    constexpr size_t pixel_bytes = F.elements * F.bytes, block = 32;
    Word<F> in[2 * block * F.elements], out[block * F.elements];
    while (count) {
        const size_t n = count < block ? count : block;
        memcpy(in, src, 2 * n * pixel_bytes);
        for (size_t i = 0; i < n; i++)
            for (size_t k = 0; k < F.elements; k++)
                out[i * F.elements + k] = mean<F>(in[2 * i * F.elements + k], in[(2 * i + 1) * F.elements + k]);
        memcpy(dst, out, n * pixel_bytes);
        src += 2 * n * pixel_bytes;
        dst += n * pixel_bytes;
        count -= n;
    }
}

template <Family F> void scale(const void *from, void *to, const img_scl_parms *parms) {
    const img_scl_parms &p = *parms;
    auto *dst = static_cast<uint8_t *>(to);
    const auto *src = static_cast<const uint8_t *>(from);
    for (uint32_t pass = 0; pass < p.halvings; pass++) {
        halve<F>(src, dst, (p.src_width >> 1) >> pass);
        src = dst;
    }
    const ptrdiff_t dir = p.dir * ptrdiff_t{F.bytes}, step = p.int_step * ptrdiff_t{F.bytes};
    const uint8_t *at = src + p.src_start * size_t{F.bytes};
    uint8_t *out = dst + p.dst_start * size_t{F.bytes};
    // A line of one pixel has no neighbour; half is 0 then, and any pixel of the line will do.
    const ptrdiff_t neighbour = p.src_width >> p.halvings > 1 ? dir : 0;
    uint32_t fraction = 0;
    for (uint32_t i = 0; i < p.main_count; i++) {
        Pixel<F> pixel = Pixel<F>::load(at);
        if (fraction >= p.half) pixel = mean(pixel, Pixel<F>::load(at + neighbour));
        pixel.store(out);
        at += step;
        out += dir;
        fraction += p.frac_step;
        if (fraction >= p.dst_width) {
            fraction -= p.dst_width;
            at += dir;
        }
    }
    if (!p.edge_count) return;
    const Pixel<F> edge = Pixel<F>::load(at);
    for (uint32_t i = 0; i < p.edge_count; i++, out += dir) edge.store(out);
}

} // namespace

const ScaleKernels scale_kernels = {
#define EACH(name) average<family::name>,
    {FOR_EACH_FAMILY(EACH)},
#undef EACH
#define EACH(name) scale<family::name>,
    {FOR_EACH_FAMILY(EACH)},
#undef EACH
};

} // namespace img::IMG_TARGET
