// SPDX-License-Identifier: MIT
//
// Copies of pixels: in one run, or with a step between the pixels of the destination.
#include "convert/copy.h"

#include <stddef.h>
#include <string.h>

namespace {

template <size_t bytes> void copy(const void *src, void *dst, uint32_t count) {
    if (src != dst && count) memcpy(dst, src, count * bytes);
}

template <size_t bytes> void copy_strided(const void *src, void *dst, int32_t step, uint32_t count) {
    if (step == int32_t{bytes}) return copy<bytes>(src, dst, count);
    const auto *from = static_cast<const uint8_t *>(src);
    auto *to = static_cast<uint8_t *>(dst);
    for (ptrdiff_t i = 0; i < ptrdiff_t{count}; i++) memcpy(to + i * step, from + i * ptrdiff_t{bytes}, bytes);
}

// Kept: FMT_A8, both FMT_XBGR8888 orders and FMT_ABGR8888OE have no strided copy.
constexpr struct {
    img_format format;
    img_copy_func copy;
} strided[] = {
    {FMT_G8, img_copy_8},          {FMT_PAL8, img_copy_8},        {FMT_XRGB1555HE, img_copy_16},
    {FMT_XRGB1555OE, img_copy_16}, {FMT_ARGB1555HE, img_copy_16}, {FMT_ARGB1555OE, img_copy_16},
    {FMT_RGB565HE, img_copy_16},   {FMT_RGB565OE, img_copy_16},   {FMT_BGR888, img_copy_24},
    {FMT_RGB888, img_copy_24},     {FMT_XRGB8888HE, img_copy_32}, {FMT_XRGB8888OE, img_copy_32},
    {FMT_ARGB8888HE, img_copy_32}, {FMT_ARGB8888OE, img_copy_32}, {FMT_ABGR8888HE, img_copy_32},
};

} // namespace

#define COPY(bits)                                                                                                     \
    void img_cvt_copy##bits(const void *src, void *dst, uint32_t count) { copy<bits / 8>(src, dst, count); }           \
    void img_copy_##bits(const void *src, void *dst, int32_t step, uint32_t count) {                                   \
        copy_strided<bits / 8>(src, dst, step, count);                                                                 \
    }
COPY(8)
COPY(16)
COPY(24)
COPY(32)

img_copy_func img_copy_getfunc(img_format format) {
    for (const auto &row : strided)
        if (row.format == format) return row.copy;
    return nullptr;
}
