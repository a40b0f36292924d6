// SPDX-License-Identifier: MIT
//
// Computes the scale parameters and chooses the inner loops.
#include "scale/params.h"

#include "scale/kernels.h"

namespace img {

namespace {

constexpr Family families[] = {
#define EACH(name) family::name,
    FOR_EACH_FAMILY(EACH)
#undef EACH
};

} // namespace

uint32_t count_halvings(uint32_t &from, uint32_t to) {
    if (from <= to) return 0;
    uint32_t halvings = 0;
    // Kept: Sizes from 65536 up are halved less often than they could be. The ratio is 16.16 fixed point in 32 bits.
    for (uint32_t ratio = (from << 16) / to; ratio > 0x20000; ratio >>= 1) {
        from >>= 1;
        halvings++;
    }
    return halvings;
}

int img_scl_calc_parms(img_format format, uint32_t src_width, uint32_t dst_width, img_scl_parms *parms) {
    *parms = {};
    parms->dir = 1;
    const FamilyIndex index = family_of(format);
    if (index == family_count) return -1;
    const uint32_t elements = families[index].kind.elements;
    parms->rule = families[index].rule;
    uint32_t src = src_width;
    parms->dir = static_cast<int32_t>(elements);
    parms->scaler = scale_kernels.best().scale[index];
    parms->src_width = src_width;
    parms->dst_width = dst_width;
    parms->halvings = count_halvings(src, dst_width);
    if (src < dst_width) {
        parms->dir = -parms->dir;
        parms->src_start = (uint64_t{src} - 1) * elements;
        parms->dst_start = (uint64_t{dst_width} - 1) * elements;
        parms->edge_count = repeated_at_edge(src, dst_width);
    }
    parms->half = dst_width >> 1;
    parms->main_count = dst_width - parms->edge_count;
    parms->frac_step = src % dst_width;
    parms->int_step = static_cast<int32_t>(src / dst_width) * parms->dir;
    if (parms->edge_count)
        parms->edge_src = src - 1 - static_cast<uint32_t>(uint64_t{parms->main_count} * src / dst_width);
    if (parms->frac_step) parms->planner = scale_kernels.best().plan[index];
    return 0;
}

} // namespace img
