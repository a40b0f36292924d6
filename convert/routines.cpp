// SPDX-License-Identifier: MIT
//
// The exported conversion routines that have a loop of their own: each goes on to the active variant. Copies are in
// copy.cpp.
#include "convert/kernels.h"
#include "core/cpu.h"

namespace img {

const Kernels &active_kernels() {
    static constexpr const Kernels *of[] = {
#define VARIANT(name, ...) &name::kernels,
#include "core/variants.inc"
    };
    return *of[int(cpu::variant())];
}

} // namespace img

#define ROUTINE(name, source, destination, rule)                                                                       \
    void img_cvt_##name(const void *src, void *dst, uint32_t count) { img::active_kernels().name(src, dst, count); }
#include "convert/routines.inc"

void img_cvt_pal1_pal8(const void *src, void *dst, uint32_t count) { img::active_kernels().pal1_pal8(src, dst, count); }
void img_cvt_pal4_pal8(const void *src, void *dst, uint32_t count) { img::active_kernels().pal4_pal8(src, dst, count); }
