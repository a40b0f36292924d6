// SPDX-License-Identifier: MIT
//
// The inner loops of scaling: the mean of two lines, and one line scaled to another width. Compiled once per variant,
// with IMG_TARGET naming its namespace; everything but the table has internal linkage.
#include "scale/kernels.h"

#include "scale/mean.h"

#if defined(__AVX2__)
#include "scale/stepper.h"
#else
#include "scale/plain.h"
#endif

namespace img::IMG_TARGET {
namespace {

// The stepper in the manner of Bresenham, from the first pixel to the last, and the edge.
template <Kind K> [[gnu::noinline]] void step_pixels(const uint8_t *line, uint8_t *dst, const img_scl_parms &p) {
    const ptrdiff_t dir = p.dir * ptrdiff_t{K.bytes}, step = p.int_step * ptrdiff_t{K.bytes};
    const uint8_t *at = line + p.src_start * size_t{K.bytes};
    uint8_t *out = dst + p.dst_start * size_t{K.bytes};
    // Kept: the neighbour of a line that was halved to one pixel is what the halving before left behind it. A line that
    // was one pixel to begin with has none.
    const ptrdiff_t neighbour = p.src_width > 1 ? dir : 0;
    uint32_t fraction = 0;
    for (uint32_t i = 0; i < p.main_count; i++) {
        Pixel<K> pixel = Pixel<K>::load(at);
        if (fraction >= p.half) pixel = mean(pixel, Pixel<K>::load(at + neighbour), p.rule);
        pixel.store(out, p.rule);
        at += step;
        out += dir;
        fraction += p.frac_step;
        if (fraction >= p.dst_width) {
            fraction -= p.dst_width;
            at += dir;
        }
    }
    if (!p.edge_count) return;
    const Pixel<K> edge = Pixel<K>::load(at);
    for (uint32_t i = 0; i < p.edge_count; i++, out += dir) edge.store(out, p.rule);
}

#if defined(__AVX2__)
template <Kind K>
void halve(const uint8_t *src, const uint8_t *below, uint8_t *dst, size_t count, const MeanRule &rule) {
    if constexpr (K.elements == 1)
        if (below) return fold_pairs<K, Fold::square>(src, below, dst, count, rule);
    fold_pairs<K, Fold::pair>(src, nullptr, dst, count, rule);
}
template <Kind K> [[gnu::noinline]] void thin(const uint8_t *src, uint8_t *dst, size_t count, const MeanRule &rule) {
    fold_pairs<K, Fold::first>(src, nullptr, dst, count, rule);
}

template <Kind K> [[gnu::noinline]] void step(const uint8_t *line, uint8_t *dst, const img_scl_parms &p) {
    if (!p.plan) return step_pixels<K>(line, dst, p);
    const Stepper<K> stepper{line, dst, p};
    if (p.dir > 0)
        stepper.reduce();
    else
        stepper.enlarge();
}
template <Kind K> constexpr img_scl_planner planner = Stepper<K>::plan;
#else
template <Kind K> constexpr auto halve = halve_pixels<K>;
template <Kind K> constexpr auto thin = thin_pixels<K>;
template <Kind K> constexpr auto step = step_pixels<K>;
template <Kind K> constexpr img_scl_planner planner = nullptr;
#endif

// The line as it comes to the stepper: made one with the line below and halved, in room.
template <Kind K>
[[gnu::noinline]] const uint8_t *halved(const uint8_t *line, const uint8_t *below, uint8_t *room,
                                        const img_scl_parms &p) {
    // Three bytes a pixel: vectors of whole pixels straddle cache lines, which is worth another pass for two lines.
    if (below && (!p.halvings || K.elements == 3)) {
        average<K>(line, below, room, size_t{p.src_width} * K.elements * K.bytes, p.rule);
        line = room;
        below = nullptr;
    }
    if (p.halvings &&
        p.src_width == 3) { // As if it had been in the room: what is left behind the one pixel is the second.
        constexpr size_t second = K.elements * K.bytes;
        Pixel<K> left = Pixel<K>::load(line + second);
        if (below) left = mean(left, Pixel<K>::load(below + second), p.rule);
        halve<K>(line, below, room, 1, p.rule);
        left.store(room + second, p.rule);
        return room;
    }
    for (uint32_t pass = 0; pass < p.halvings; pass++, below = nullptr, line = room)
        halve<K>(line, below, room, (p.src_width >> 1) >> pass, p.rule);
    return room;
}

// What a line needs is called last, for the way there to be short.
template <Kind K> void scale(const void *from, const void *under, void *room, void *to, const img_scl_parms *parms) {
    const img_scl_parms &p = *parms;
    auto *dst = static_cast<uint8_t *>(to);
    const auto *line = static_cast<const uint8_t *>(from), *below = static_cast<const uint8_t *>(under);
    const bool whole = p.frac_step == 0 && p.half > 0;
#if defined(__AVX2__)
    if constexpr (K.bytes == 4)
        if (below && whole && p.halvings == 1 && p.int_step == 2 && p.dst_width >= lanes)
            return quarter<K>(line, below, dst, p.dst_width, p.rule);
#endif
    if (below || p.halvings) line = halved<K>(line, below, static_cast<uint8_t *>(room), p);
    if (whole && p.int_step == p.dir) // As long as before: a mean of equal pixels is the pixel.
        return average<K>(line, line, dst, size_t{p.dst_width} * K.elements * K.bytes, p.rule);
    if (whole && p.int_step == 2 * p.dir) return thin<K>(line, dst, p.dst_width, p.rule);
    step<K>(line, dst, p);
}

template <Family F> void average_pixels(const void *a, const void *b, void *dst, uint32_t count) {
    static constexpr MeanRule rule = F.rule; // A reference to the argument would export it with clang.
    average<F.kind>(a, b, dst, size_t{count} * F.kind.elements * F.kind.bytes, rule);
}

} // namespace

const ScaleKernels scale_kernels = {
#define EACH(name) average_pixels<family::name>,
    {FOR_EACH_FAMILY(EACH)},
#undef EACH
#define EACH(name) scale<family::name.kind>,
    {FOR_EACH_FAMILY(EACH)},
#undef EACH
#define EACH(name) planner<family::name.kind>,
    {FOR_EACH_FAMILY(EACH)},
#undef EACH
};

} // namespace img::IMG_TARGET
