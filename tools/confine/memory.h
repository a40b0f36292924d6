// SPDX-License-Identifier: MIT
//
// Memory that one worker shares with the program: the pixels of its own picture. Its size is fixed for both sides, so that
// neither can take it from under the other.
#pragma once

#include "tools/confine/report.h"

#include <memory>
#include <stddef.h>
#include <stdint.h>

namespace confine {

// An open file, closed when it goes.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor();
    Descriptor(Descriptor &&other) noexcept : number_(other.number_) { other.number_ = -1; }
    Descriptor &operator=(Descriptor &&other) noexcept;

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

private:
    int number_;
};

// Makes memory of so many bytes, zero; pages are used when they are written. Nothing, with the trouble, if the system
// refuses.
Descriptor make_memory(uint64_t size, Trouble &trouble);

// The first so many bytes of it, as long as the result lives. Null if the system refuses.
std::shared_ptr<uint8_t> mapped(int memory, uint64_t size);

} // namespace confine
