// SPDX-License-Identifier: MIT
//
// A buffer that grows: memory follows what is there, not what a file says that it has.
#pragma once

#include "modules/common/module.h"

#include <algorithm>

namespace module {

class Buffer {
public:
    uint8_t *data() const { return bytes_.get(); }
    size_t capacity() const { return capacity_; }

    // Makes room for size bytes and keeps those that are there. Doubles, but goes beyond most only if size does.
    bool grow(size_t size, size_t most = SIZE_MAX / 2) { return size <= capacity_ || resize(next(size, most)); }

    // The same for a picture that is read: what is added counts as held by it.
    img_status grow(Decoding &picture, size_t size, size_t most) {
        if (size <= capacity_) return ok;
        const size_t capacity = next(size, most);
        if (const img_status status = picture.hold(capacity - capacity_)) return status;
        return resize(capacity) ? ok : no_memory;
    }

private:
    size_t next(size_t size, size_t most) const { return std::max(size, std::min(2 * capacity_, most)); }
    bool resize(size_t capacity) {
        auto *larger = static_cast<uint8_t *>(realloc(bytes_.get(), capacity));
        if (!larger) return false;
        static_cast<void>(bytes_.release());
        bytes_.reset(larger);
        capacity_ = capacity;
        return true;
    }

    Bytes bytes_;
    size_t capacity_ = 0;
};

// Reads what is left of the stream, at most so many bytes. They are held by the picture.
inline img_status read_all(Decoding &picture, io_handle &stream, size_t most, Buffer &buffer, size_t &length) {
    constexpr size_t first = 64 * 1024, portion = 4 * 1024 * 1024;
    for (length = 0;;) {
        const size_t wanted = std::clamp(buffer.capacity() - length, size_t{1}, portion);
        if (const img_status status = buffer.grow(picture, std::max(first, length + wanted), most + 1)) return status;
        const size_t got = read_up_to(stream, buffer.data() + length, wanted);
        length += got;
        if (got < wanted) return ok;
        if (length > most) return picture.refuse({"file size", length, most});
        if (const img_status status = picture.keep_alive(0)) return status;
    }
}

} // namespace module
