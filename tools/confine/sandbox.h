// SPDX-License-Identifier: MIT
//
// Confining a process that decodes files of strangers: it reads the descriptors that it has, computes, and nothing else.
#pragma once

#include "tools/exchange.h"

#include <string>

namespace tool {

enum class Confinement {
    off,
    automatic, // where the system allows it
    required
};
Confinement parse_confinement(const std::string &text); // off, auto, on

// Confines the calling process for good: no new files, sockets, processes or programs, and limits to memory and time.
// False if the system does not allow it.
bool confine(const Limits &limits);

// Closes every descriptor but two, and makes the first three lead nowhere.
void close_descriptors_but(int a, int b);

} // namespace tool
