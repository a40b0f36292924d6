// SPDX-License-Identifier: MIT
//
// Workers as the user wants them, and what there is to say where they fail.
#pragma once

#include "tools/confine/worker.h"

#include <string>

namespace tool {

enum class Confinement {
    off,
    automatic, // where the system allows it
    required
};
Confinement parse_confinement(const std::string &text); // off, auto, on

std::string worker_program();

// Confinement that could not be had: a failure for who requires it, else a warning, once. name is the picture's.
void tell(const confine::Trouble &trouble, const std::string &name, Confinement confinement);

// Fails with why a worker did not report. work is what it should have done: "decoded", "written".
[[noreturn]] void fail(const confine::Worker &worker, confine::Worker::End end, const std::string &name,
                       const char *work, uint32_t seconds);

// Fails with a report that is no success; the task is the one that it answers.
[[noreturn]] void fail(const confine::Report &report, const std::string &name, const confine::Task &task);

bool stop_wanted(); // by the user

} // namespace tool
