// SPDX-License-Identifier: MIT
#include "tools/interrupt.h"

#include "pictra/pictra.h"

#include <atomic>
#include <errno.h>
#include <iterator>
#include <signal.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

namespace tool {

namespace {

// Signal handlers may run at any time and must not allocate, so names are kept in arrays of fixed size.
struct Slot {
    std::atomic<bool> taken;
    std::atomic<bool> valid;
    int directory;
    char name[256];
};
Slot slots[256];

std::atomic<int> asked{0};
constexpr suseconds_t tick = 50'000; // microseconds
constexpr int patience = 20;         // ticks

// A resize that starts clears the request to stop, so the request is repeated.
void repeat(int) {
    static std::atomic<int> ticks{0};
    const int error = errno;
    img_resize_set_abort(1);
    if (++ticks > patience) {
        for (Slot &slot : slots)
            if (slot.valid) unlinkat(slot.directory, slot.name, 0);
        _exit(128 + asked);
    }
    errno = error;
}

void ask_to_stop(int number) {
    const int error = errno;
    asked = number;
    img_resize_set_abort(1);
    const itimerval timer{{0, tick}, {0, tick}};
    setitimer(ITIMER_REAL, &timer, nullptr);
    errno = error;
}

void handle(int number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
}

} // namespace

void watch_for_signals() {
    handle(SIGALRM, repeat);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction now {};
        sigaction(number, nullptr, &now);
        if (now.sa_handler != SIG_IGN) handle(number, ask_to_stop); // as nohup asks
    }
}

int stop_signal() { return asked; }

void RemovedWhenStopped::remember(int directory, const std::string &name) {
    if (name.size() >= sizeof slots[0].name) return;
    for (size_t i = 0; i < std::size(slots); i++) {
        if (slots[i].taken.exchange(true)) continue;
        memcpy(slots[i].name, name.c_str(), name.size() + 1);
        slots[i].directory = directory;
        slots[i].valid = true;
        slot_ = i;
        return;
    }
}

void RemovedWhenStopped::forget() {
    if (slot_ == none) return;
    slots[slot_].valid = false;
    slots[slot_].taken = false;
    slot_ = none;
}

} // namespace tool
