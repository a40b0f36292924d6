// SPDX-License-Identifier: MIT
//
// Speed of every conversion and expansion, in each variant that this machine runs, over 4096 pixels in the cache and over
// an image of 4096 x 4096. memcpy/<n> moves as many bytes as a conversion with n bytes for a pixel of both sides:
// --benchmark_filter='^(argb8888he_g8|memcpy/5)/' shows one beside the other.
#include "convert/layout.h"
#include "core/cpu.h"
#include "pictra/pictra.h"

#include <benchmark/benchmark.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

namespace {

constexpr size_t sizes[] = {4096, 4096 * 4096};

struct Case {
    std::string name;
    size_t src_bits, dst_bits;
    std::function<void(const uint8_t *src, uint8_t *dst, uint32_t count)> run;
};

void measure(benchmark::State &state, const Case &c, img::cpu::Variant variant, size_t count) {
    img::cpu::force(variant);
    const size_t src_bytes = (count * c.src_bits + 7) / 8, dst_bytes = count * c.dst_bits / 8;
    std::vector<uint8_t> src(src_bytes), dst(dst_bytes);
    for (size_t i = 0; i < src_bytes; i++) src[i] = uint8_t(i * 2654435761u >> 13);
    for (auto _ : state) {
        c.run(src.data(), dst.data(), uint32_t(count));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t(src_bytes + dst_bytes));
    using benchmark::Counter;
    state.counters["time_per_pixel"] = Counter(double(count), Counter::kIsIterationInvariantRate | Counter::kInvert);
}

std::vector<Case> cases() {
    std::vector<Case> all = {{"pal1_pal8", 1, 8, img_cvt_pal1_pal8}, {"pal4_pal8", 4, 8, img_cvt_pal4_pal8}};
#define ROUTINE(name, source, destination, rule)                                                                       \
    all.push_back({#name, img::layout::source.bytes * 8, img::layout::destination.bytes * 8, img_cvt_##name});
#include "convert/routines.inc"
    static const std::vector<uint32_t> palette(256, 0x12345678);
    for (const uint32_t index_bits : {1u, 4u, 8u})
        for (const uint32_t pixel_bits : {8u, 16u, 24u, 32u})
            all.push_back({"expand_" + std::to_string(index_bits) + "_" + std::to_string(pixel_bits), index_bits,
                           pixel_bits, [expand = img_expand_getfunc(index_bits, pixel_bits)](auto... run) {
                               expand(run..., palette.data());
                           }});
    return all;
}

void add(const Case &c, img::cpu::Variant variant, const char *variant_name) {
    if (!img::cpu::runs(variant)) return;
    for (const size_t count : sizes)
        benchmark::RegisterBenchmark((c.name + "/" + variant_name + "/" + std::to_string(count)).c_str(),
                                     [=](benchmark::State &state) { measure(state, c, variant, count); });
}

const bool added = [] {
    for (size_t bytes = 2; bytes <= 8; bytes++) {
        const Case copy{"memcpy/" + std::to_string(bytes), bytes * 4, bytes * 4,
                        [bytes](auto src, auto dst, auto count) { memcpy(dst, src, count * bytes / 2); }};
        add(copy, img::cpu::Variant::base, "libc");
    }
    for (const Case &c : cases()) {
#define EACH(name) add(c, img::cpu::Variant::name, #name);
        IMG_FOR_EACH_VARIANT(EACH)
#undef EACH
    }
    return true;
}();

} // namespace
