// SPDX-License-Identifier: MIT
//
// Allocations of the library under test: made to fail at will, and counted. The tests of the library are linked with --wrap
// for malloc and its kin, so everything that their own objects allocate passes through memory.cpp, and nothing of other
// libraries. Those of the modules have memory_everywhere.cpp.
#pragma once

#include <stddef.h>

namespace memory {

// While it lives, the n-th allocation (from 1) fails; 0 lets all succeed. Blocks taken in its time are tracked.
class Watch {
public:
    explicit Watch(size_t fail_at = 0);
    ~Watch();
    bool failed() const; // the n-th allocation was reached
    size_t live() const; // blocks taken since the start and not freed
};

// While it lives, the n-th making of a mutex, a condition or a thread (from 1) fails.
class ThreadFailure {
public:
    explicit ThreadFailure(size_t fail_at);
    ~ThreadFailure();
};

// Runs attempt(n) with the n-th allocation failing, n = 1, 2, ..., until one attempt does not reach its n-th. attempt
// checks the outcome itself.
template <typename Attempt> size_t for_each_failure(Attempt attempt) {
    for (size_t n = 1;; n++) {
        bool reached;
        {
            Watch watch(n);
            attempt(n, watch);
            reached = watch.failed();
        }
        if (!reached) return n - 1;
    }
}

} // namespace memory
