// SPDX-License-Identifier: MIT
//
// A process that reads the pictures of one file, or writes one, and can do nothing else, as its starter sees it. Nothing that it says is
// trusted: what it reports was checked against what the task allows, and it may take no longer than that.
#pragma once

#include "tools/confine/memory.h"

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

namespace confine {

class Worker {
public:
    // Starts the worker's program for an open file, which the worker sees as it is: it reads or writes on from where that
    // stands. memory has the pixels of a picture to write. Null, with the trouble, if the system refuses. The task must
    // outlive it.
    static std::unique_ptr<Worker> start(const std::string &program, int file, const Task &task, Trouble &trouble,
                                         std::shared_ptr<const Descriptor> memory = nullptr);
    ~Worker(); // stops it, whatever it does
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    enum class End {
        reported,
        unconfined, // which the task does not allow; trouble() tells why
        late,       // it took longer than the task allows
        stopped,    // by the user
        died,       // how() tells
        forged      // flaw() tells what of its report cannot be
    };
    // Waits for the next picture, or the one to be written. stopped is asked every now and then.
    End next(Report &report, bool (*stopped)());

    // The reported picture's pixels; they stay until the next one is asked for. Null if the system refuses.
    std::shared_ptr<Mapping> pixels(const Shape &shape) const { return Mapping::make(memory_, shape.bytes()); }

    const Trouble &trouble() const { return trouble_; } // on its way into the cage; known once it was waited for
    const char *flaw() const { return flaw_; }
    int how() const { return how_; } // as waitpid tells it

private:
    Worker(const Task &task, std::shared_ptr<const Descriptor> memory, Descriptor channel, pid_t process)
        : task_(task), memory_(std::move(memory)), channel_(std::move(channel)), process_(process) {}
    End request(bool (*stopped)());
    End greet(bool (*stopped)());
    End exchange(Report &report, bool (*stopped)());
    int64_t deadline() const;
    End transfer(short direction, char *bytes, size_t size, int64_t deadline, bool (*stopped)());
    void stop();

    const Task &task_;
    std::shared_ptr<const Descriptor> memory_;
    Descriptor channel_;
    pid_t process_;
    bool told_ = false, asked_ = false; // what to do; for a picture
    bool greeted_ = false;              // it has said how far it is confined
    int64_t began_ = 0;                 // when a picture was asked for
    Trouble trouble_{};
    const char *flaw_ = nullptr;
    int how_ = 0;
};

} // namespace confine
