// SPDX-License-Identifier: MIT
//
// Without registers, everything goes pixel by pixel. Part of kernels.cpp.
#pragma once

#include "geometry/pixels.h"

namespace img::IMG_TARGET {
namespace {

template <size_t bytes>
void mirror_rows(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t count,
                 uint32_t rows) {
    for (; rows; rows--, src += src_step, dst += dst_step) mirror_pixels<bytes>(src, dst, count);
}
template <size_t bytes> constexpr TransposeRows *transpose = transpose_pixels<bytes>;
constexpr CopyRows *copy_rows = copy_each_row;

} // namespace
} // namespace img::IMG_TARGET
