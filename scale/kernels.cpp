// SPDX-License-Identifier: MIT
//
// The inner loops of scaling: the mean of two lines, and one line scaled to another width. Compiled once per variant,
// with IMG_TARGET naming its namespace; everything but the table has internal linkage.
#include "scale/kernels.h"

#if IMG_VECTORS
#include "scale/stepper.h"
#else
#include "scale/plain.h"
#endif

namespace img::IMG_TARGET {
namespace {

// The line as the stepper takes it, in scratch: averaged with the line below, if there is one, and halved.
template <Kind K>
[[gnu::noinline]] const uint8_t *halved(const uint8_t *line, const uint8_t *below, uint8_t *scratch,
                                        const img_scl_parms &p) {
    // Three bytes a pixel: registers of whole pixels straddle cache lines, which is worth another pass for two lines.
    if (below && (!p.halvings || K.elements == 3)) {
        average<K>(line, below, scratch, size_t{p.src_width} * K.elements * K.bytes, p.rule);
        line = scratch;
        below = nullptr;
    }
    if (p.halvings && p.src_width == 3) {
        // As if the line had been in scratch: after the one pixel comes what was the second.
        constexpr size_t second = K.elements * K.bytes;
        Pixel<K> left = Pixel<K>::load(line + second);
        if (below) left = mean(left, Pixel<K>::load(below + second), p.rule);
        halve<K>(line, below, scratch, 1, p.rule);
        left.store(scratch + second, p.rule);
        return scratch;
    }
    for (uint32_t pass = 0; pass < p.halvings; pass++, below = nullptr, line = scratch)
        halve<K>(line, below, scratch, (p.src_width >> 1) >> pass, p.rule);
    return scratch;
}

// Each case ends in a tail call, which keeps the way to the common one short.
template <Kind K> void scale(const void *from, const void *under, void *scratch, void *to, const img_scl_parms *parms) {
    const img_scl_parms &p = *parms;
    auto *dst = static_cast<uint8_t *>(to);
    const auto *line = static_cast<const uint8_t *>(from), *below = static_cast<const uint8_t *>(under);
    const bool whole = p.frac_step == 0 && p.half > 0;
    if constexpr (least_quartered<K> != 0)
        if (below && whole && p.halvings == 1 && p.int_step == 2 && p.dst_width >= least_quartered<K>)
            return quarter<K>(line, below, dst, p.dst_width, p.rule);
    if (below || p.halvings) line = halved<K>(line, below, static_cast<uint8_t *>(scratch), p);
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
