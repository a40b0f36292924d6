// SPDX-License-Identifier: MIT
//
// The inner loops of geometry, per variant and size of a pixel. Declarations only: this header is compiled for several
// instruction sets.
#pragma once

#include "core/cpu.h"

#include <stddef.h>
#include <stdint.h>

namespace img {

// Mirrors rows of `count` pixels. A row does not overlap its destination. A step is the number of bytes from one row to
// the next, which is negative if rows are taken from the last to the first.
using MirrorRows = void(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t count,
                        uint32_t rows);

// Transposes: pixel x of row y becomes pixel y of row x. src and dst do not overlap.
using TransposeRows = void(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, uint32_t width,
                           uint32_t height);

// Copies rows of `bytes` bytes. src and dst do not overlap.
using CopyRows = void(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t bytes,
                      uint32_t rows);

// mirror[] and transpose[] are indexed by bytes per pixel - 1.
struct GeometryKernels {
    MirrorRows *mirror[4];
    TransposeRows *transpose[4];
    CopyRows *copy;
};

IMG_PER_VARIANT(GeometryKernels, geometry_kernels)

} // namespace img
