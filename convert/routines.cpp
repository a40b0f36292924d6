// SPDX-License-Identifier: MIT
//
// The exported conversion routines that have a loop of their own: each goes on to the active variant. Copies are in
// copy.cpp.
#include "convert/kernels.h"

#define ROUTINE(name, source, destination, rule)                                                                       \
    void img_cvt_##name(const void *src, void *dst, uint32_t count) {                                                  \
        img::convert_kernels.best().name(src, dst, count);                                                             \
    }
#include "convert/routines.inc"

void img_cvt_pal1_pal8(const void *src, void *dst, uint32_t count) {
    img::palette_kernels.best().pal1_pal8(src, dst, count);
}
void img_cvt_pal4_pal8(const void *src, void *dst, uint32_t count) {
    img::palette_kernels.best().pal4_pal8(src, dst, count);
}
