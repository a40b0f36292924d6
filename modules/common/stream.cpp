// SPDX-License-Identifier: MIT
#include "modules/common/stream.h"

#include "modules/common/memory.h"
#include "pictra/backend.h"

#include <algorithm>
#include <string.h>

namespace codec {

namespace {

constexpr uint32_t large_buffer = 64 * 1024;

// The stream's record, if the handle is the face of one. A handle that somebody made by hand has none.
const io_stream *record_of(const io_handle &handle) {
    const auto expected = reinterpret_cast<uintptr_t>(handle.self) + offsetof(io_stream, face);
    return reinterpret_cast<uintptr_t>(&handle) == expected ? handle.self : nullptr;
}

uint32_t request(size_t length) { return static_cast<uint32_t>(std::min<size_t>(length, UINT32_MAX)); }

} // namespace

size_t read_up_to(io_handle &stream, void *dst, size_t length) {
    auto *out = static_cast<uint8_t *>(dst);
    size_t total = 0;
    while (total < length) {
        const uint32_t got = stream.read(stream.self, out + total, request(length - total));
        if (!got) break;
        total += got;
    }
    return total;
}

bool write_all(io_handle &stream, const void *src, size_t length) {
    auto *from = static_cast<const uint8_t *>(src);
    // A flush that wrote only part of the buffer accepts nothing new, but the next call finds room.
    for (int refusals = 0; length;) {
        const uint32_t taken = stream.write(stream.self, from, request(length));
        refusals = taken ? 0 : refusals + 1;
        if (refusals == 2) return false;
        from += taken;
        length -= taken;
    }
    return true;
}

img_status peek(io_handle &stream, Signature &signature) {
    want_large_buffer(stream); // so that reads of a few bytes pass through the buffer
    signature.length = read_up_to(stream, signature.bytes, signature_size);
    return give_back(stream, signature.bytes, signature.length);
}

img_status give_back(io_handle &stream, const uint8_t *bytes, size_t length) {
    if (!length) return ok;
    const io_stream *record = record_of(stream);
    uint32_t count = request(length);
    Bytes all;
    // A stream that keeps bytes given back apart adds more behind those that still wait, so these come out and follow.
    if (const uint32_t waiting = record ? record->pushback_count : 0) {
        if (!(all = make_bytes(size_t{count} + waiting))) return no_memory;
        memcpy(all.get(), bytes, count);
        count += static_cast<uint32_t>(read_up_to(stream, all.get() + count, waiting));
        bytes = all.get();
    }
    // One unread does it, unless reads were short and only the last bytes are still in the buffer: then such a stream
    // would deliver those a second time, so they go back first and by themselves.
    const uint32_t buffered = record ? std::min(record->position, count) : 0;
    const uint32_t before = count - buffered;
    if (buffered && stream.unread(stream.self, bytes + before, buffered) != 0) return no_memory;
    if (before && stream.unread(stream.self, bytes, before) != 0) return no_memory;
    return ok;
}

void want_large_buffer(io_handle &stream) {
    const io_stream *record = record_of(stream);
    if (record && record->buffer_size >= large_buffer) return;
    uint32_t size = large_buffer;
    stream.ctl(stream.self, IO_CTL_SETBUF, &size);
}

} // namespace codec
