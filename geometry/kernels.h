// SPDX-License-Identifier: MIT
//
// The inner loops of geometry, per variant and size of a pixel. Declarations only: this header is compiled for several
// instruction sets.
#pragma once

#include "core/cpu.h"

#include <stddef.h>
#include <stdint.h>

namespace img {

// Copies rows of so many pixels from right to left. A row does not overlap where it goes. Steps lead from one row to the
// next, up or down.
using MirrorRows = void(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t count,
                        uint32_t rows);

// Copies rows to columns: pixel x of row y becomes pixel y of row x.
using TransposeRows = void(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, uint32_t width,
                           uint32_t height);

// Copies rows of so many bytes. None of them overlaps one of the other side.
using CopyRows = void(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t bytes,
                      uint32_t rows);

// Two of them by the bytes of a pixel, less one.
struct GeometryKernels {
    MirrorRows *mirror[4];
    TransposeRows *transpose[4];
    CopyRows *copy;
};

IMG_PER_VARIANT(GeometryKernels, geometry_kernels)

} // namespace img
