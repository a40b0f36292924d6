// SPDX-License-Identifier: MIT
//
// Runs of pixels put where a fault shows: against unreadable pages, between guard bytes, at every alignment, in place.
#pragma once

#include "core/cpu.h"

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

namespace runs {

// Memory between two pages that cannot be touched.
class Fenced {
public:
    explicit Fenced(size_t bytes);
    ~Fenced();
    Fenced(const Fenced &) = delete;
    Fenced &operator=(const Fenced &) = delete;

    size_t size() const { return size_; }
    uint8_t *first() const { return first_; }
    uint8_t *before_end(size_t bytes) const { return first_ + size_ - bytes; }

private:
    uint8_t *base_, *first_;
    size_t size_, whole_;
};

// Random bytes after one run through all 16-bit values: enough for every count at 32 bits a pixel.
std::vector<uint8_t> pixels();

struct Routine {
    uint32_t src_bits, dst_bits; // of a pixel
    uint32_t least_count;        // 1 where 0 is not allowed
    // wanted writes one pixel after the other.
    std::function<void(const uint8_t *src, uint8_t *dst, uint32_t count)> run, wanted;
    std::vector<uint8_t> source = pixels();
};

size_t run_bytes(size_t count, uint32_t bits);

// Every count from 0 to 130 and some large ones, at the front and the back of fenced memory and off by up to 63 bytes,
// apart and in place. What went wrong first, or nothing.
std::string first_fault(const Routine &routine);

// Calls test(name) with each variant forced that this machine runs, and goes back to the best one.
void for_each_variant(const std::function<void(const char *name)> &test);

} // namespace runs
