// SPDX-License-Identifier: MIT
#include "tools/confine/sandbox.h"

#include "tools/confine/memory.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace confine {

namespace {

// What decoding takes beside what the rules below allow: reading, memory, threads of its own process, the clock.
constexpr int allowed[] = {
    SCMP_SYS(read),
    SCMP_SYS(readv),
    SCMP_SYS(pread64),
    SCMP_SYS(recvfrom),
    SCMP_SYS(lseek),
    SCMP_SYS(_llseek),
    SCMP_SYS(close),
    SCMP_SYS(fstat),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
    SCMP_SYS(brk),
    SCMP_SYS(munmap),
    SCMP_SYS(mremap),
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

// Of the advice that there is, some harms the machine where root gives it. Allocators give this.
constexpr int advice[] = {MADV_DONTNEED, MADV_FREE, MADV_HUGEPAGE, MADV_NOHUGEPAGE};

struct Release {
    void operator()(void *filter) const { seccomp_release(filter); }
};

// The calls that a filter allows. Whatever goes wrong is told at its end.
class Filter {
public:
    Filter() : filter_(seccomp_init(SCMP_ACT_ERRNO(EPERM))) {
        if (!filter_) error_ = -ENOMEM;
        note(seccomp_attr_set(filter_.get(), SCMP_FLTATR_API_SYSRAWRC, 1)); // the kernel's own errors
    }
    void add(int call, uint32_t action = SCMP_ACT_ALLOW) { note(seccomp_rule_add(filter_.get(), action, call, 0)); }
    template <typename... Conditions> void add_if(int call, Conditions... conditions) {
        const scmp_arg_cmp list[] = {conditions...};
        note(seccomp_rule_add_array(filter_.get(), SCMP_ACT_ALLOW, call, sizeof...(conditions), list));
    }
    int load() { return error_ ? error_ : seccomp_load(filter_.get()); } // 0, or a negative error

private:
    void note(int result) { error_ = error_ ? error_ : result; }
    std::unique_ptr<void, Release> filter_;
    int error_ = 0;
};

scmp_arg_cmp equals(unsigned argument, uint64_t value) { return {argument, SCMP_CMP_EQ, value, 0}; }
scmp_arg_cmp has(unsigned argument, uint64_t mask, uint64_t value) {
    return {argument, SCMP_CMP_MASKED_EQ, mask, value};
}

int filter_calls(const Ends &ends, bool writes) {
    Filter filter;
    for (const int call : allowed) filter.add(call);
    for (const int call : {SCMP_SYS(write), SCMP_SYS(sendto)})
        filter.add_if(call, equals(0, static_cast<uint64_t>(ends.channel)));
    if (writes) filter.add_if(SCMP_SYS(write), equals(0, static_cast<uint64_t>(ends.file)));
    for (const int what : advice) filter.add_if(SCMP_SYS(madvise), equals(2, static_cast<uint64_t>(what)));
    // Memory that is never code: the process' own, and the picture's.
    filter.add_if(SCMP_SYS(mprotect), has(2, PROT_EXEC, 0));
    for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mmap2)}) {
        filter.add_if(call, has(2, PROT_EXEC, 0), has(3, MAP_ANONYMOUS, MAP_ANONYMOUS));
        filter.add_if(call, has(2, PROT_EXEC, 0), equals(4, static_cast<uint64_t>(ends.memory)));
    }
    // Threads, but no processes. The C library falls back from clone3, whose flags no filter sees.
    constexpr uint64_t of_a_thread = CLONE_VM | CLONE_THREAD;
#ifdef __s390__
    constexpr unsigned flags = 1;
#else
    constexpr unsigned flags = 0;
#endif
    filter.add_if(SCMP_SYS(clone), has(flags, of_a_thread, of_a_thread));
    filter.add(SCMP_SYS(clone3), SCMP_ACT_ERRNO(ENOSYS));
    return filter.load();
}

int limit(__rlimit_resource resource, uint64_t most) {
    rlimit now;
    if (getrlimit(resource, &now) != 0) return errno;
    now.rlim_max = std::min<rlim_t>(now.rlim_max, most);
    now.rlim_cur = std::min<rlim_t>(now.rlim_cur, now.rlim_max);
    return setrlimit(resource, &now) == 0 ? 0 : errno;
}

// The bytes that the process has mapped by now, or 0 with an error.
uint64_t mapped_bytes(int &error) {
    const Descriptor file(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    char text[64] = {};
    if (!file || read(file.number(), text, sizeof text - 1) <= 0) {
        error = errno;
        return 0;
    }
    return strtoull(text, nullptr, 10) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// Stacks of threads and what allocators reserve without using it.
constexpr uint64_t own_address_space = 64 << 20;

void note(Trouble &trouble, const char *call, int error) {
    if (error && !trouble) trouble = {call, error};
}

} // namespace

Trouble close_others(const Ends &ends) {
    Trouble trouble;
    unsigned kept[] = {static_cast<unsigned>(ends.file), static_cast<unsigned>(ends.channel),
                       static_cast<unsigned>(ends.memory), ~0u};
    std::sort(std::begin(kept), std::end(kept));
    unsigned from = 0;
    for (const unsigned next : kept) {
        if (next > from && close_range(from, next - 1, 0) != 0) {
            note(trouble, "close_range", errno);
            const auto most = static_cast<unsigned>(std::max(sysconf(_SC_OPEN_MAX), 1024L));
            for (unsigned i = from; i < std::min(next, most); i++) close(static_cast<int>(i));
        }
        from = next + 1;
    }
    return trouble;
}

Trouble end_with_parent() { return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 ? Trouble{} : Trouble{"prctl", errno}; }

Trouble lock_down(const Ends &ends, bool writes, uint64_t memory) {
    Trouble trouble;
    if (memory) {
        int error = 0;
        const uint64_t mapped = mapped_bytes(error);
        note(trouble, "open", error);
        if (mapped) note(trouble, "setrlimit", limit(RLIMIT_AS, mapped + memory + own_address_space));
    }
    note(trouble, "setrlimit", limit(RLIMIT_CORE, 0));
    if (!writes) note(trouble, "setrlimit", limit(RLIMIT_FSIZE, 0));
    note(trouble, "seccomp", -filter_calls(ends, writes));
    return trouble;
}

} // namespace confine
