// SPDX-License-Identifier: MIT
//
// The conversions between layouts. Compiled once per variant, with IMG_TARGET naming its namespace. All but the table
// has internal linkage and only headers without linkage are included, so that nothing of one variant can be linked into
// another.
#include "convert/kernels.h"

#include "convert/layout.h"
#include "convert/run.h"

namespace img::IMG_TARGET {
namespace {

template <Layout S, Layout D, Rule R>
void convert_blocks(const uint8_t *src, uint8_t *dst, size_t count, const uint8_t *) {
    const uint8_t *last = src + (count - block) / block * block * S.bytes;
    for (size_t rest = count % block;;) {
        convert_block<S, D, R>(src, dst);
        if (src != last) [[likely]] {
            src += block * S.bytes;
            dst += block * D.bytes;
            continue;
        }
        if (rest == 0) return;
        src += rest * S.bytes; // one more, which overlaps the block before
        dst += rest * D.bytes;
        last = src;
        rest = 0;
    }
}

// Repacking is the same when red and blue change names on both sides. Of such twins one is compiled.
template <Layout S, Layout D, Rule R> void convert(const void *src, void *dst, uint32_t count) {
    constexpr bool twin =
        R == Rule::repack && D.bytes > 2 && (S.r.shift == S.b.shift ? D.r.shift < D.b.shift : S.r.shift < S.b.shift);
    constexpr Layout s = twin ? red_as_blue(S) : S, d = twin ? red_as_blue(D) : D;
    convert_run<s.bytes * 8, d.bytes, block>(src, dst, count, nullptr, convert_blocks<s, d, R>);
}

} // namespace

const ConvertKernels convert_kernels = {
#define ROUTINE(name, source, destination, rule) .name = convert<layout::source, layout::destination, Rule::rule>,
#include "convert/routines.inc"
};

} // namespace img::IMG_TARGET
