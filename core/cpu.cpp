// SPDX-License-Identifier: MIT
//
// Asks the CPU which instruction sets it has. The compiler's __builtin_cpu_supports is not used because a constructor
// fills its data, which would run when the library is loaded.
#include "core/cpu.h"

#include <stdint.h>

#include <initializer_list>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace img::cpu {

constinit Variant chosen = Variant::undecided;

#if defined(__x86_64__)
namespace {

// A bit of CPUID leaf 7, named after the compiler's flag, with the register state that the operating system must save.
enum Register { ebx, ecx };
struct Feature {
    Register where;
    int bit;
    uint32_t state;
};

constexpr uint32_t avx_state = 0x06, avx512_state = 0xe6; // bits of XCR0: registers that the system saves

[[maybe_unused]] constexpr Feature avx2{ebx, 5, avx_state}, bmi2{ebx, 8, 0}, avx512f{ebx, 16, avx512_state},
    avx512dq{ebx, 17, avx512_state}, avx512bw{ebx, 30, avx512_state}, avx512vl{ebx, 31, avx512_state},
    avx512vbmi{ecx, 1, avx512_state}, avx512vnni{ecx, 11, avx512_state};

uint32_t saved_state() {
    uint32_t a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & bit_OSXSAVE)) return 0;
    uint32_t low, high;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return low;
}

bool has_all(std::initializer_list<Feature> features) {
    uint32_t a, registers[2] = {}, d;
    if (!__get_cpuid_count(7, 0, &a, &registers[ebx], &registers[ecx], &d)) return features.size() == 0;
    const uint32_t state = saved_state();
    for (const Feature &f : features)
        if (!(registers[f.where] >> f.bit & 1) || (state & f.state) != f.state) return false;
    return true;
}

} // namespace
#else
namespace {
bool has_all(std::initializer_list<int>) { return true; } // base needs nothing
} // namespace
#endif

bool runs(Variant variant) {
    switch (variant) {
#define EACH(name)                                                                                                     \
    case Variant::name:                                                                                                \
        return has_all({IMG_FEATURES_##name});
        IMG_FOR_EACH_VARIANT(EACH)
#undef EACH
    default:
        return false;
    }
}

Variant choose() {
    Variant best{};
    for (int v = 0; v < int(Variant::count); v++)
        if (runs(Variant(v))) best = Variant(v);
    force(best);
    return best;
}

void force(Variant variant) { __atomic_store(&chosen, &variant, __ATOMIC_RELAXED); }

} // namespace img::cpu
