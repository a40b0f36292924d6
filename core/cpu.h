// SPDX-License-Identifier: MIT
//
// Which of the compiled variants of the inner loops this CPU runs, and tables of functions with one entry per variant.
// The build lists the variants (cmake/variants.cmake), from the slowest to the fastest.
#pragma once

#include "core/variants.h"

namespace img::cpu {

enum class Variant : int {
#define EACH(name) name,
    IMG_FOR_EACH_VARIANT(EACH)
#undef EACH
        count,
    undecided = count
};

// Accessed atomically with the compiler's builtins: <atomic> would be included in every kernel.
extern Variant chosen;

// Chooses the best variant that runs here.
Variant choose();

// The variant in use. The CPU is asked on first use, because the library runs no code when it is loaded.
inline Variant variant() {
    Variant v;
    __atomic_load(&chosen, &v, __ATOMIC_RELAXED);
    return v != Variant::undecided ? v : choose();
}

bool runs(Variant variant);

// For tests and measurements: the variant that all later calls use. It must run here.
void force(Variant variant);

// One table for each variant.
template <class Table> struct PerVariant {
    const Table *of[int(Variant::count)];

    const Table &best() const { return *of[int(variant())]; }
};

} // namespace img::cpu

// Within namespace img: declares a table called `name` in the namespace of each variant, to be defined by the source
// that is compiled per variant, and img::name, whose best() is the one to use.
#define IMG_EXTERN_TABLE(variant, Table, name)                                                                         \
    namespace variant {                                                                                                \
    extern const Table name;                                                                                           \
    }
#define IMG_TABLE_ADDRESS(variant, name) &variant::name,
#define IMG_PER_VARIANT(Table, name)                                                                                   \
    IMG_FOR_EACH_VARIANT(IMG_EXTERN_TABLE, Table, name)                                                                \
    inline constexpr cpu::PerVariant<Table> name{{IMG_FOR_EACH_VARIANT(IMG_TABLE_ADDRESS, name)}};
