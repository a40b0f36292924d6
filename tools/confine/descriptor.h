// SPDX-License-Identifier: MIT
//
// An open file, closed when its object goes.
#pragma once

#include <unistd.h>
#include <utility>

namespace confine {

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(number_, other.number_); // other closes the one that was here
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0) close();
    }

    int number() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    bool close() { return ::close(std::exchange(number_, -1)) == 0; } // false if what was written did not all arrive

private:
    int number_;
};

} // namespace confine
