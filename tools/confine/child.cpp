// SPDX-License-Identifier: MIT
#include "tools/confine/child.h"

#include "tools/confine/bytes.h"
#include "tools/interrupt.h"
#include "tools/text.h"

#include <errno.h>
#include <new>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace tool {

namespace {

constexpr uint64_t max_side = 1'000'000, max_pixels = uint64_t{1} << 28; // the codecs' limits
constexpr size_t arena_bytes = max_pixels * 4 + 4096;
constexpr uint64_t max_answer = 64 << 20;

int64_t now_ms() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

bool write_fully(int descriptor, const void *from, size_t size) {
    for (auto *at = static_cast<const char *>(from); size;) {
        const ssize_t written = send(descriptor, at, size, MSG_NOSIGNAL);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        at += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

void be_ordinary() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) signal(number, SIG_DFL);
}

} // namespace

std::shared_ptr<Arena> make_arena() {
    void *memory =
        mmap(nullptr, arena_bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    return {new Arena{static_cast<uint8_t *>(memory), arena_bytes}, [](Arena *arena) {
                munmap(arena->begin, arena->size);
                delete arena;
            }};
}

bool is_sound(const img_record &record, const Arena &arena) {
    if (!(record.flags & IMG_F_DIRECT)) return true; // of which nothing is used
    constexpr img_flags needed = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
    if ((record.flags & needed) != needed || (record.flags & IMG_F_ACCESS) || !is_format(record.format)) return false;
    if (!record.width || !record.height || record.width > max_side || record.height > max_side) return false;
    const uint64_t row = (uint64_t{record.width} * (record.format & IMG_FMT_BPP_MASK) + 7) / 8;
    const auto begin = reinterpret_cast<uintptr_t>(arena.begin), data = reinterpret_cast<uintptr_t>(record.data);
    if (record.stride < row || data < begin || data - begin > arena.size ||
        uint64_t{record.stride} * record.height > arena.size - (data - begin))
        return false;
    const bool indexed = record.format & IMG_FMT_PAL;
    if (!indexed) return !(record.flags & IMG_F_PALETTE);
    return (record.flags & IMG_F_PALETTE) && record.ncolors && record.ncolors <= 256 &&
           reinterpret_cast<uintptr_t>(record.palette) == begin;
}

img_status move_into(img_record &record, const Arena &arena) {
    img_record copy = record;
    copy.flags &= ~img_flags{IMG_F_DIRECT | IMG_F_PALETTE};
    if (const img_status status = place(copy, arena)) return status;
    const img_status status = img_dtransform(&record, &copy);
    free(record.data);
    record = copy;
    return status;
}

bool Channel::wait() const {
    char request;
    ssize_t got;
    do got = recv(descriptor_, &request, 1, 0);
    while (got < 0 && errno == EINTR);
    return got == 1;
}

void Channel::reply(const Answer &answer) const {
    ByteWriter out;
    out.number(answer.status);
    out.number(answer.confined);
    out.number(answer.codec);
    out.text(std::string(reinterpret_cast<const char *>(&answer.record), sizeof answer.record));
    out.text(answer.exchange);
    const uint64_t size = out.bytes().size();
    write_fully(descriptor_, &size, sizeof size) && write_fully(descriptor_, out.bytes().data(), size);
}

Child::Child(const std::function<void(const Channel &)> &serve) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::bad_alloc();
    process_ = fork();
    if (process_ == 0) {
        be_ordinary();
        close(ends[0]);
        try {
            serve(Channel(ends[1]));
        } catch (...) { // the parent sees the channel end
            _exit(failed);
        }
        _exit(done);
    }
    close(ends[1]);
    descriptor_ = ends[0];
    if (process_ > 0) return;
    close(ends[0]);
    throw std::bad_alloc();
}

Child::~Child() {
    close(descriptor_);
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void Child::tell_death(const std::string &name) {
    int how = 0;
    const pid_t dead = waitpid(process_, &how, 0);
    process_ = -1;
    stop_if_asked();
    if (dead > 0 && WIFSIGNALED(how) && WTERMSIG(how) == SIGXCPU)
        throw Failure(name + ": it took longer than --timeout allows; raise that", IMG_ST_RESERVED10);
    if (dead > 0 && WIFSIGNALED(how))
        throw Failure(name + ": its codec crashed (signal " + std::to_string(WTERMSIG(how)) +
                          "), and took nothing along; report it with the file",
                      IMG_ST_RESERVED4);
    throw Failure(name + ": memory ran out while it was decoded; raise --max-memory, or reduce the picture",
                  IMG_ST_NOMEM);
}

void Child::read_fully(void *to, size_t size, const std::string &name, int64_t deadline) {
    for (auto *at = static_cast<char *>(to); size;) {
        pollfd waited{descriptor_, POLLIN, 0};
        const int64_t left = deadline ? std::max<int64_t>(deadline - now_ms(), 0) : -1;
        const int ready = poll(&waited, 1, static_cast<int>(std::min<int64_t>(left, 1'000'000)));
        stop_if_asked();
        if (ready == 0 && deadline && now_ms() >= deadline)
            throw Failure(name + ": it took longer than --timeout allows; raise that", IMG_ST_RESERVED10);
        if (ready <= 0) continue;
        const ssize_t got = recv(descriptor_, at, size, 0);
        if (got <= 0) tell_death(name);
        at += got;
        size -= static_cast<size_t>(got);
    }
}

Answer Child::ask(const std::string &name, uint32_t seconds) {
    const int64_t deadline = seconds ? now_ms() + int64_t{seconds} * 1000 : 0;
    uint64_t size = 0;
    if (!write_fully(descriptor_, "n", 1)) tell_death(name);
    read_fully(&size, sizeof size, name, deadline);
    std::string bytes(std::min(size, max_answer), '\0');
    read_fully(bytes.data(), bytes.size(), name, deadline);
    ByteReader in(bytes);
    Answer answer{};
    answer.status = static_cast<img_status>(in.number());
    answer.confined = in.number() != 0;
    answer.codec = in.number();
    const std::string record = in.text();
    if (record.size() == sizeof answer.record) memcpy(&answer.record, record.data(), sizeof answer.record);
    answer.exchange = in.text();
    return answer;
}

} // namespace tool
