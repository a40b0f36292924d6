// SPDX-License-Identifier: MIT
//
// Owning types: each releases what it holds when it goes out of scope. Memory always comes from malloc, because some of
// it is given to callers, who call free().
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace img {

// Memory for a T, or for an array of bytes when T is uint8_t.
template <typename T> class Owned {
public:
    Owned() = default;
    explicit Owned(T *pointer) : pointer_(pointer) {}
    Owned(Owned &&other) : pointer_(other.release()) {}
    Owned &operator=(Owned &&other) {
        reset(other.release());
        return *this;
    }
    ~Owned() { free(pointer_); }

    T *get() const { return pointer_; }
    T *operator->() const { return pointer_; }
    T &operator[](size_t i) const { return pointer_[i]; }
    explicit operator bool() const { return pointer_ != nullptr; }

    T *release() {
        T *pointer = pointer_;
        pointer_ = nullptr;
        return pointer;
    }
    void reset(T *pointer = nullptr) {
        free(pointer_);
        pointer_ = pointer;
    }

private:
    T *pointer_ = nullptr;
};

// Null when out of memory. A count of 0 may give null as well.
template <typename T> Owned<T> allocate(uint64_t count) {
    return Owned<T>(count > SIZE_MAX / sizeof(T) ? nullptr : static_cast<T *>(malloc(count * sizeof(T))));
}

template <typename T> Owned<T> allocate_zeroed() { return Owned<T>(static_cast<T *>(calloc(1, sizeof(T)))); }

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (fd_ >= 0) close(fd_);
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

class File {
public:
    explicit File(FILE *file) : file_(file) {}
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File() {
        if (file_) fclose(file_);
    }
    FILE *get() const { return file_; }
    explicit operator bool() const { return file_ != nullptr; }

private:
    FILE *file_;
};

} // namespace img
