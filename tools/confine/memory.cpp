// SPDX-License-Identifier: MIT
#include "tools/confine/memory.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

namespace confine {

namespace {

// Asked first, because a signal would say it.
bool exceeds_file_size(uint64_t size) {
    rlimit most;
    return getrlimit(RLIMIT_FSIZE, &most) == 0 && most.rlim_cur != RLIM_INFINITY && size > most.rlim_cur;
}

} // namespace

Descriptor raised(Descriptor given) {
    if (given.number() < 0 || given.number() > STDERR_FILENO) return given;
    return Descriptor(fcntl(given.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::shared_ptr<const Descriptor> make_memory(uint64_t size, Trouble &trouble) {
    Descriptor memory = raised(Descriptor(memfd_create("pictra-pixels", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
    if (!memory)
        trouble = {"memfd_create", errno};
    else if (exceeds_file_size(size))
        trouble = {"ftruncate", EFBIG};
    else if (ftruncate(memory.number(), static_cast<off_t>(size)) != 0)
        trouble = {"ftruncate", errno};
    else if (fcntl(memory.number(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0)
        trouble = {"fcntl", errno};
    return trouble ? nullptr : std::make_shared<const Descriptor>(std::move(memory));
}

std::shared_ptr<Mapping> Mapping::make(std::shared_ptr<const Descriptor> memory, uint64_t size) {
    void *begin = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, memory->number(), 0);
    if (begin == MAP_FAILED) return nullptr;
    return std::shared_ptr<Mapping>(new Mapping(std::move(memory), static_cast<uint8_t *>(begin), size));
}

Mapping::~Mapping() { munmap(begin_, size_); }

} // namespace confine
