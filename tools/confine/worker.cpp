// SPDX-License-Identifier: MIT
#include "tools/confine/worker.h"

#include <algorithm>
#include <array>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace confine {

namespace {

int64_t now_ms() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// How a process is started: with no signal blocked or ignored, and no descriptors but those passed on.
class Start {
public:
    Start() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~Start() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    Start(const Start &) = delete;
    Start &operator=(const Start &) = delete;

    int pass_on(int descriptor) { // under its own number
        return posix_spawn_file_actions_adddup2(&actions_, descriptor, descriptor);
    }
    int run(const char *program, char *const *arguments, pid_t &process) {
        char *const environment[] = {nullptr};
        return posix_spawn(&process, program, &actions_, &attributes_, arguments, environment);
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

int run(const std::string &program, const std::array<int, 3> &passed, pid_t &process) {
    Start start;
    std::array<std::string, 4> words{"pictra-worker"};
    std::array<char *, 5> arguments{words[0].data()};
    for (size_t i = 0; i < passed.size(); i++) {
        if (const int error = start.pass_on(passed[i])) return error;
        words[i + 1] = std::to_string(passed[i]);
        arguments[i + 1] = words[i + 1].data();
    }
    return start.run(program.c_str(), arguments.data(), process);
}

} // namespace

std::unique_ptr<Worker> Worker::start(const std::string &program, int file, const Task &task, Trouble &trouble,
                                      std::shared_ptr<const Descriptor> memory) {
    if (!memory) memory = make_memory(task.limits.most_bytes(), trouble);
    if (!memory) return nullptr;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        trouble = {"socketpair", errno};
        return nullptr;
    }
    Descriptor ours = raised(Descriptor(ends[0])), theirs = raised(Descriptor(ends[1]));
    if (!ours || !theirs) {
        trouble = {"fcntl", errno};
        return nullptr;
    }
    pid_t process;
    if (const int error = run(program, {file, theirs.number(), memory->number()}, process)) {
        trouble = {error == ENOENT || error == EACCES ? program : "posix_spawn", error};
        return nullptr;
    }
    std::unique_ptr<Worker> worker(new Worker(task, std::move(memory), std::move(ours), process));
    worker->request(nullptr); // so that it works while its starter does something else; a failure shows later
    return worker;
}

Worker::~Worker() { stop(); }

// Killed before it is waited for, because it may have closed its channel and live on. What ends by itself at this moment
// keeps its own status.
void Worker::stop() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    while (waitpid(process_, &how_, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
}

Worker::End Worker::transfer(short direction, char *bytes, size_t size, int64_t deadline, bool (*stopped)()) {
    constexpr int64_t pause = 100; // milliseconds between questions whether to stop
    while (size) {
        const int64_t left = deadline ? deadline - now_ms() : pause;
        if (left <= 0) return End::late;
        pollfd waited{channel_.number(), direction, 0};
        const int ready = poll(&waited, 1, static_cast<int>(std::min(left, pause)));
        if (stopped && stopped()) return End::stopped;
        if (ready < 0 && errno != EINTR) return End::died;
        if (ready <= 0) continue;
        const ssize_t moved = direction == POLLIN ? recv(channel_.number(), bytes, size, MSG_DONTWAIT)
                                                  : send(channel_.number(), bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (moved < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (moved <= 0) return End::died;
        bytes += moved;
        size -= static_cast<size_t>(moved);
    }
    return End::reported;
}

// The task comes first, once; then a byte for each picture.
Worker::End Worker::request(bool (*stopped)()) {
    std::string bytes;
    if (!told_) {
        const std::string task = packed(task_);
        const auto size = static_cast<uint32_t>(task.size());
        bytes.assign(reinterpret_cast<const char *>(&size), sizeof size);
        bytes += task;
        told_ = true;
    }
    bytes += 'n';
    asked_ = true;
    began_ = now_ms();
    return transfer(POLLOUT, bytes.data(), bytes.size(), deadline(), stopped);
}

int64_t Worker::deadline() const { return task_.limits.seconds ? began_ + int64_t{task_.limits.seconds} * 1000 : 0; }

Worker::End Worker::next(Report &report, bool (*stopped)()) {
    const End end = exchange(report, stopped);
    if (end != End::reported) stop();
    return end;
}

Worker::End Worker::greet(bool (*stopped)()) {
    char bytes[trouble_size];
    if (const End end = transfer(POLLIN, bytes, sizeof bytes, deadline(), stopped); end != End::reported) return end;
    const std::optional<Trouble> told = trouble_in({bytes, sizeof bytes});
    flaw_ = "its confinement";
    if (!told) return End::forged;
    trouble_ = *told;
    greeted_ = true;
    return trouble_ && task_.confined ? End::unconfined : End::reported;
}

Worker::End Worker::exchange(Report &report, bool (*stopped)()) {
    if (!asked_)
        if (const End end = request(stopped); end != End::reported) return end;
    asked_ = false;
    // An answer that waits already came in time, however late it is fetched.
    pollfd waiting{channel_.number(), POLLIN, 0};
    if (poll(&waiting, 1, 0) > 0) began_ = now_ms();
    if (!greeted_)
        if (const End end = greet(stopped); end != End::reported) return end;
    uint32_t size = 0;
    char head[sizeof size];
    if (const End end = transfer(POLLIN, head, sizeof head, deadline(), stopped); end != End::reported) return end;
    memcpy(&size, head, sizeof size);
    flaw_ = "its length";
    if (size > most_report) return End::forged;
    std::string bytes(size, '\0');
    if (const End end = transfer(POLLIN, bytes.data(), size, deadline(), stopped); end != End::reported) return end;
    std::optional<Report> told = report_in(bytes);
    flaw_ = told ? flaw_of(*told, task_) : "its form";
    if (flaw_) return End::forged;
    report = std::move(*told);
    return End::reported;
}

} // namespace confine
