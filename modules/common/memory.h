// SPDX-License-Identifier: MIT
//
// Memory of codec modules. It comes from malloc, so that a module needs no C++ run time, and is null where there is none.
#pragma once

#include <algorithm>
#include <memory>
#include <new>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <utility>

namespace codec {

template <typename T> struct Delete {
    void operator()(T *object) const {
        object->~T();
        free(object);
    }
};

// A new object, zero-filled before it is made, or null. Its address never changes, so codec libraries may keep it.
template <typename T, typename... Args> std::unique_ptr<T, Delete<T>> make(Args &&...args) {
    void *memory = calloc(1, sizeof(T));
    return std::unique_ptr<T, Delete<T>>(memory ? new (memory) T(std::forward<Args>(args)...) : nullptr);
}

using Bytes = std::unique_ptr<uint8_t, Delete<uint8_t>>;
inline Bytes make_bytes(size_t size) { return Bytes(static_cast<uint8_t *>(calloc(size, 1))); } // zero-filled, or null

// Bytes whose number becomes known only while they come: memory follows what is there, not what a file says that it has.
class Buffer {
public:
    uint8_t *data() const { return bytes_.get(); }
    size_t capacity() const { return capacity_; }

    // Makes room for size bytes and keeps those that are there. To next_capacity, so that few calls copy anything.
    bool grow(size_t size, size_t most = SIZE_MAX / 2) {
        if (size <= capacity_) return true;
        const size_t capacity = next_capacity(size, most);
        auto *larger = static_cast<uint8_t *>(realloc(bytes_.get(), capacity));
        if (!larger) return false;
        static_cast<void>(bytes_.release());
        bytes_.reset(larger);
        capacity_ = capacity;
        return true;
    }

    // What grow makes of a size: the double, but beyond most only if the size is.
    size_t next_capacity(size_t size, size_t most) const {
        return size <= capacity_ ? capacity_ : std::max(size, std::min(2 * capacity_, most));
    }

private:
    Bytes bytes_;
    size_t capacity_ = 0;
};

} // namespace codec
