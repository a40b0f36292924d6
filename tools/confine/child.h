// SPDX-License-Identifier: MIT
//
// A process that answers requests with pictures in shared memory. Nothing that it says is trusted.
#pragma once

#include "tools/exchange.h"

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>

namespace tool {

// Memory that a child shares, large enough for the largest picture; pages are used when they are written. Null if the
// system gives none.
std::shared_ptr<Arena> make_arena();

// Whether the record is one that the library can work on, with its storage in the arena.
bool is_sound(const img_record &record, const Arena &arena);

// Moves a record's storage, which is freed, into the arena.
img_status move_into(img_record &record, const Arena &arena);

struct Answer {
    img_status status;
    bool confined;
    uint64_t codec; // its place in the registry's list
    img_record record;
    std::string exchange;
};

// The child's end.
class Channel {
public:
    explicit Channel(int descriptor) : descriptor_(descriptor) {}
    int descriptor() const { return descriptor_; }
    bool wait() const; // for a request; false when there will be none
    void reply(const Answer &answer) const;

private:
    int descriptor_;
};

// The parent's end.
class Child {
public:
    explicit Child(const std::function<void(const Channel &)> &serve);
    ~Child(); // stops it
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Fails if the child dies, or takes longer than so many seconds, if not 0. name is the picture's.
    Answer ask(const std::string &name, uint32_t seconds);

private:
    void read_fully(void *to, size_t size, const std::string &name, int64_t deadline);
    [[noreturn]] void tell_death(const std::string &name);

    pid_t process_ = -1;
    int descriptor_ = -1;
};

} // namespace tool
