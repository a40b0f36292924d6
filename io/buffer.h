// SPDX-License-Identifier: MIT
//
// What the two directions of a stream share. The counters are unsigned and wrap; whatever they say, memory is reached
// only through helpers here that know what the buffer really holds.
#pragma once

#include "core/record.h"
#include "pictra/backend.h"

#include <stdint.h>

namespace img {

// The value of io_stream::limit that stands for none. Transfers count it down all the same.
inline constexpr uint32_t no_limit = UINT32_MAX;

// Sets errno for an operation that the stream's mode does not have.
bool has_mode(const io_stream &stream, uint32_t mode);

// Makes the buffer if it is missing. A new one holds nothing that is still to be read, whatever was counted before. False
// when memory lacks or the stream is unbuffered.
bool have_buffer(io_stream &stream);

// One call of the backend's operation for the stream's direction; what passed is counted.
uint32_t transfer(io_stream &stream, void *bytes, uint32_t length);

// Counts bytes that the backend took back.
inline void count_back(io_stream &stream, uint32_t count) {
    stream.transferred -= count;
    stream.limit += count;
}

} // namespace img
