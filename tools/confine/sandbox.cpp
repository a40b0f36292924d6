// SPDX-License-Identifier: MIT
#include "tools/confine/sandbox.h"

#include "tools/text.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <sys/resource.h>
#include <unistd.h>

namespace tool {

namespace {

// What decoding takes: reading and answering, memory, threads of its own process, the clock.
constexpr int allowed[] = {
    SCMP_SYS(read),
    SCMP_SYS(readv),
    SCMP_SYS(pread64),
    SCMP_SYS(write),
    SCMP_SYS(writev),
    SCMP_SYS(sendto),
    SCMP_SYS(recvfrom),
    SCMP_SYS(lseek),
    SCMP_SYS(_llseek),
    SCMP_SYS(close),
    SCMP_SYS(fstat),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
    SCMP_SYS(brk),
    SCMP_SYS(mmap),
    SCMP_SYS(mmap2),
    SCMP_SYS(munmap),
    SCMP_SYS(mremap),
    SCMP_SYS(mprotect),
    SCMP_SYS(madvise),
    SCMP_SYS(futex),
    SCMP_SYS(futex_time64),
    SCMP_SYS(set_robust_list),
    SCMP_SYS(rseq),
    SCMP_SYS(rt_sigaction),
    SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn),
    SCMP_SYS(sigaltstack),
    SCMP_SYS(sched_yield),
    SCMP_SYS(sched_getaffinity),
    SCMP_SYS(getpid),
    SCMP_SYS(gettid),
    SCMP_SYS(clock_gettime),
    SCMP_SYS(gettimeofday),
    SCMP_SYS(nanosleep),
    SCMP_SYS(clock_nanosleep),
    SCMP_SYS(getrandom),
    SCMP_SYS(membarrier),
    SCMP_SYS(restart_syscall),
};

struct Release {
    void operator()(void *filter) const { seccomp_release(filter); }
};

bool filter_calls() {
    const std::unique_ptr<void, Release> filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)));
    if (!filter) return false;
    for (const int call : allowed)
        if (seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0) != 0) return false;
    // Threads, but no processes. The C library falls back from clone3, whose flags no filter sees.
    constexpr scmp_datum_t of_a_thread = CLONE_VM | CLONE_THREAD;
    const scmp_arg_cmp thread{0, SCMP_CMP_MASKED_EQ, of_a_thread, of_a_thread}; // of the first argument
    return seccomp_rule_add_array(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(clone), 1, &thread) == 0 &&
           seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0) == 0 &&
           seccomp_load(filter.get()) == 0;
}

void limit(__rlimit_resource resource, uint64_t most) {
    rlimit now;
    if (getrlimit(resource, &now) != 0) return;
    now.rlim_max = std::min<rlim_t>(now.rlim_max, most);
    now.rlim_cur = std::min<rlim_t>(now.rlim_cur, now.rlim_max);
    setrlimit(resource, &now);
}

// What the process has mapped by now does not count.
uint64_t mapped_bytes() {
    uint64_t pages = 0;
    const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen("/proc/self/statm", "r"), fclose);
    if (file && fscanf(file.get(), "%lu", &pages) != 1) pages = 0;
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

} // namespace

Confinement parse_confinement(const std::string &text) {
    if (text == "off") return Confinement::off;
    return text == "on" ? Confinement::required : Confinement::automatic;
}

void close_descriptors_but(int a, int b) {
    const int nowhere = open("/dev/null", O_RDWR);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (standard != a && standard != b) dup2(nowhere, standard);
    unsigned from = STDERR_FILENO + 1;
    for (const int kept : {std::min(a, b), std::max(a, b)}) {
        if (kept <= STDERR_FILENO) continue;
        if (static_cast<unsigned>(kept) > from) close_range(from, static_cast<unsigned>(kept) - 1, 0);
        from = static_cast<unsigned>(kept) + 1;
    }
    close_range(from, ~0u, 0);
}

bool confine(const Limits &limits) {
    if (limits.memory) limit(RLIMIT_AS, mapped_bytes() + limits.memory);
    if (limits.seconds) limit(RLIMIT_CPU, limits.seconds + 1);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
    return filter_calls();
}

} // namespace tool
