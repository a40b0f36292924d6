// SPDX-License-Identifier: MIT
//
// Ctrl-C and similar signals: the work is asked to stop, temporary files are removed, and the program ends with 128
// plus the number of the signal.
#pragma once

#include <stddef.h>
#include <string>

namespace tool {

// From now on a signal requests a stop; the process is ended if it has not stopped within one second.
void watch_for_signals();

// The signal that asked, or 0.
int stop_signal();

// Thrown to give up work because of a signal.
class Interrupted {};
inline void stop_if_asked() {
    if (stop_signal()) throw Interrupted();
}

// A file that is removed if the program is stopped while this object lives.
class RemovedWhenStopped {
public:
    void remember(int directory, const std::string &name); // directory stays open for as long
    void forget();
    RemovedWhenStopped() = default;
    ~RemovedWhenStopped() { forget(); }
    RemovedWhenStopped(const RemovedWhenStopped &) = delete;
    RemovedWhenStopped &operator=(const RemovedWhenStopped &) = delete;

private:
    static constexpr size_t none = ~size_t{0};
    size_t slot_ = none;
};

} // namespace tool
