// SPDX-License-Identifier: MIT
#include "tools/confine/memory.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

namespace confine {

Descriptor::~Descriptor() {
    if (number_ >= 0) close(number_);
}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

namespace {

// Asked first, because a signal would say it.
bool exceeds_file_size(uint64_t size) {
    rlimit most;
    return getrlimit(RLIMIT_FSIZE, &most) == 0 && most.rlim_cur != RLIM_INFINITY && size > most.rlim_cur;
}

} // namespace

Descriptor make_memory(uint64_t size, Trouble &trouble) {
    Descriptor memory(memfd_create("pictra-pixels", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!memory)
        trouble = {"memfd_create", errno};
    else if (exceeds_file_size(size))
        trouble = {"ftruncate", EFBIG};
    else if (ftruncate(memory.get(), static_cast<off_t>(size)) != 0)
        trouble = {"ftruncate", errno};
    else if (fcntl(memory.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0)
        trouble = {"fcntl", errno};
    return trouble ? Descriptor() : std::move(memory);
}

std::shared_ptr<uint8_t> mapped(int memory, uint64_t size) {
    void *begin = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, memory, 0);
    if (begin == MAP_FAILED) return nullptr;
    return {static_cast<uint8_t *>(begin), [size](uint8_t *at) { munmap(at, size); }};
}

} // namespace confine
