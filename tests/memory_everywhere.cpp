// SPDX-License-Identifier: MIT
//
// memory::Watch for a program that opens modules: allocations of every shared object come here, those of the library, of
// the modules and of the codec libraries behind them. Only C++'s operators go past it, so that the tests' own strings and
// vectors neither fail nor count.
#include "tests/memory.h"

#include <errno.h>
#include <stdlib.h>

#include <new>

#ifdef __SANITIZE_ADDRESS__
#define BELOW(name) __interceptor_##name
#else
#define BELOW(name) __libc_##name
#endif

extern "C" {
void *BELOW(malloc)(size_t size);
void *BELOW(calloc)(size_t count, size_t size);
void *BELOW(realloc)(void *block, size_t size);
void BELOW(free)(void *block);
}

namespace {

// Of the thread that watches: others may run beside it.
thread_local bool watching, reached;
thread_local size_t countdown, blocks;

bool refuse() {
    if (!watching || !countdown || --countdown) return false;
    reached = true;
    errno = ENOMEM;
    return true;
}

void *count(void *block) {
    if (watching && block) blocks++;
    return block;
}

} // namespace

extern "C" {
void *malloc(size_t size) noexcept { return refuse() ? nullptr : count(BELOW(malloc)(size)); }
void *calloc(size_t number, size_t size) noexcept { return refuse() ? nullptr : count(BELOW(calloc)(number, size)); }
void *realloc(void *block, size_t size) noexcept {
    if (refuse()) return nullptr;
    void *moved = BELOW(realloc)(block, size);
    return block ? moved : count(moved);
}
void free(void *block) noexcept {
    if (watching && block) blocks--;
    BELOW(free)(block);
}
}

void *operator new(size_t size) { return BELOW(malloc)(size); }
void operator delete(void *block) noexcept { BELOW(free)(block); }
void operator delete(void *block, size_t) noexcept { BELOW(free)(block); }

namespace memory {

Watch::Watch(size_t fail_at) {
    reached = false;
    countdown = fail_at;
    blocks = 0;
    watching = true;
}
Watch::~Watch() { watching = false; }
bool Watch::failed() const { return reached; }
size_t Watch::live() const { return blocks; }

} // namespace memory
