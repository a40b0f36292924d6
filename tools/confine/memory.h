// SPDX-License-Identifier: MIT
//
// Memory that one worker shares with the program: the pixels of its own picture. Its size is fixed for both sides, so that
// neither can take it away from the other.
#pragma once

#include "tools/confine/descriptor.h"
#include "tools/confine/report.h"

#include <memory>
#include <stddef.h>
#include <stdint.h>
#include <utility>

namespace confine {

// The same open file with a number above those of the standard streams, which libraries write to.
Descriptor raised(Descriptor given);

// Makes memory of so many bytes, zero; pages are used when they are written. Null, with the trouble, if the system refuses.
std::shared_ptr<const Descriptor> make_memory(uint64_t size, Trouble &trouble);

// The first bytes of such memory, for both to see as long as it lives.
class Mapping {
public:
    // Null if the system refuses.
    static std::shared_ptr<Mapping> make(std::shared_ptr<const Descriptor> memory, uint64_t size);
    ~Mapping();
    Mapping(const Mapping &) = delete;
    Mapping &operator=(const Mapping &) = delete;

    uint8_t *begin() const { return begin_; }
    const std::shared_ptr<const Descriptor> &memory() const { return memory_; }

private:
    Mapping(std::shared_ptr<const Descriptor> memory, uint8_t *begin, uint64_t size)
        : memory_(std::move(memory)), begin_(begin), size_(size) {}
    std::shared_ptr<const Descriptor> memory_;
    uint8_t *begin_;
    uint64_t size_;
};

} // namespace confine
