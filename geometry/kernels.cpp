// SPDX-License-Identifier: MIT
//
// The inner loops of geometry: runs mirrored, rows turned to columns. Compiled once per variant, with IMG_TARGET naming
// its namespace; everything but the table has internal linkage.
#include "geometry/kernels.h"

#include <string.h>

namespace img::IMG_TARGET {
namespace {

template <size_t bytes> void mirror_pixels(const uint8_t *src, uint8_t *dst, size_t count) {
    for (size_t i = 0; i < count; i++) memcpy(dst + (count - 1 - i) * bytes, src + i * bytes, bytes);
}

// A band of rows is turned together: enough to fill the cache lines that a column touches.
template <size_t bytes>
void turn_pixels(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, uint32_t width,
                 uint32_t height) {
    constexpr uint32_t band = 32;
    for (uint32_t y0 = 0; y0 < height; y0 += band) {
        const uint32_t end = height - y0 < band ? height : y0 + band;
        for (uint32_t x = 0; x < width; x++)
            for (uint32_t y = y0; y < end; y++)
                memcpy(dst + x * dst_step + y * bytes, src + y * src_step + x * bytes, bytes);
    }
}

void copy_each_row(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t bytes,
                   uint32_t rows) {
    for (; rows; rows--, src += src_step, dst += dst_step) memcpy(dst, src, bytes);
}

} // namespace
} // namespace img::IMG_TARGET

#if defined(__AVX2__)
#include "geometry/vector.h"
#endif

namespace img::IMG_TARGET {
namespace {

#if !defined(__AVX2__)
template <size_t bytes>
void mirror_rows(const uint8_t *src, ptrdiff_t src_step, uint8_t *dst, ptrdiff_t dst_step, size_t count,
                 uint32_t rows) {
    for (; rows; rows--, src += src_step, dst += dst_step) mirror_pixels<bytes>(src, dst, count);
}
template <size_t bytes> constexpr TurnRows *turn = turn_pixels<bytes>;
constexpr CopyRows *copy_rows = copy_each_row;
#endif

} // namespace

const GeometryKernels geometry_kernels = {
    {mirror_rows<1>, mirror_rows<2>, mirror_rows<3>, mirror_rows<4>}, {turn<1>, turn<2>, turn<3>, turn<4>}, copy_rows};

} // namespace img::IMG_TARGET
