// SPDX-License-Identifier: MIT
//
// Streams as codec modules use them: reads are short, and whatever was read to look at it is put back.
#pragma once

#include "modules/common/status.h"

#include <stddef.h>
#include <stdint.h>

namespace codec {

// Reads up to length bytes, over any number of short reads; fewer only at the end of the data.
size_t read_up_to(io_handle &stream, void *dst, size_t length);

// Writes all of length bytes, or fails.
bool write_all(io_handle &stream, const void *src, size_t length);

// What the stream begins with. The stream is left where it was.
inline constexpr size_t signature_size = 64;
struct Signature {
    uint8_t bytes[signature_size];
    size_t length; // less than signature_size only if the data ends there
};
img_status peek(io_handle &stream, Signature &signature);

// Puts back the last length bytes of one read, or of several in a row that were shorter than the stream's buffer.
img_status give_back(io_handle &stream, const uint8_t *bytes, size_t length);

// Asks for a buffer that suits whole images, never for a smaller one than there is. A refusal costs speed only.
void want_large_buffer(io_handle &stream);

} // namespace codec
