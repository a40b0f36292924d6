// SPDX-License-Identifier: MIT
//
// Palette indices unpacked and looked up. Compiled once per variant, like kernels.cpp.
#include "convert/kernels.h"
#include "convert/run.h"

namespace img::IMG_TARGET {
namespace {

template <uint32_t bits> void unpack(const void *src, void *dst, uint32_t count) {
    convert_run<bits, 1, 1>(src, dst, count, nullptr, unpack_indices<bits>);
}

template <uint32_t bits, uint32_t bytes> void expand(const void *src, void *dst, uint32_t count, const void *palette) {
    convert_run<bits, bytes, 1>(src, dst, count, palette, expand_indices<bits, bytes>);
}

} // namespace

const PaletteKernels palette_kernels = {
    .pal1_pal8 = unpack<1>,
    .pal4_pal8 = unpack<4>,
    .expand = {{expand<1, 1>, expand<1, 2>, expand<1, 3>, expand<1, 4>},
               {expand<4, 1>, expand<4, 2>, expand<4, 3>, expand<4, 4>},
               {expand<8, 1>, expand<8, 2>, expand<8, 3>, expand<8, 4>}},
};

} // namespace img::IMG_TARGET
