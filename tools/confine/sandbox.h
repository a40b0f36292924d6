// SPDX-License-Identifier: MIT
//
// Confining a process that decodes files of strangers, or encodes their pictures: it reads or writes the descriptors that it
// has, computes, and nothing else.
#pragma once

#include "tools/confine/report.h"

namespace confine {

// The descriptors of a worker, and all that it has.
struct Ends {
    int file, channel, memory;
};

// Closes every other descriptor, one by one where the system refuses to close a range.
Trouble close_others(const Ends &ends);

// Has the process end with its parent.
Trouble end_with_parent();

// Confines the calling process for good: no new files, sockets, processes or programs, nothing written but to the channel
// and, if it writes, the file; no more memory than that, if not 0. Goes as far as the system lets it, and tells the first
// refusal.
Trouble lock_down(const Ends &ends, bool writes, uint64_t memory);

} // namespace confine
