// SPDX-License-Identifier: MIT
//
// What both directions of a stream use: the buffer, and the calls of the backend. The counters are unsigned and wrap,
// and callers can bring them into any state; the functions here check what the buffer really holds before they touch
// it.
#pragma once

#include "core/record.h"
#include "pictra/backend.h"

#include <stdint.h>

namespace img {

// The initial value of io_stream::limit. Kept: No limit is a limit of 4 GiB - 1. Transfers count it down like any
// other.
inline constexpr uint32_t no_limit = UINT32_MAX;

// Whether the stream has the mode; sets errno to EBADF if not.
bool has_mode(const io_stream &stream, uint32_t mode);

// Allocates the buffer if it is missing. A new one holds nothing to be read, whatever the counters said. False when out
// of memory or if the stream is unbuffered.
bool have_buffer(io_stream &stream);

// Calls the backend's operation for the stream's direction once, and updates the counters.
uint32_t transfer(io_stream &stream, void *bytes, uint32_t length);

// Updates the counters for bytes that the backend took back.
inline void count_back(io_stream &stream, uint32_t count) {
    stream.transferred -= count;
    stream.limit += count;
}

} // namespace img
