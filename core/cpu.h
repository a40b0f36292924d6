// SPDX-License-Identifier: MIT
//
// Which of the compiled variants of the inner loops this CPU runs. The variants are listed by the build
// (cmake/variants.cmake), from the least to the best; what they are of is the user's business.
#pragma once

#include <stddef.h>

#include <atomic>

namespace img::cpu {

enum class Variant : int {
#define VARIANT(name, ...) name,
#include "core/variants.inc"
    count,
    undecided = count
};

extern std::atomic<Variant> chosen;

// Chooses the best variant that runs here.
Variant choose();

// The variant in use. The CPU is asked on first use, because the library runs no code when it is loaded.
inline Variant variant() {
    const Variant v = chosen.load(std::memory_order_relaxed);
    return v != Variant::undecided ? v : choose();
}

bool runs(Variant variant);

// For tests and measurements: the variant that all later calls use. It must run here.
void force(Variant variant);

} // namespace img::cpu
