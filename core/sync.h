// SPDX-License-Identifier: MIT
//
// Mutex, condition variable and thread over pthreads. Creating one may fail; it can be asked whether it did.
#pragma once

#include <pthread.h>

namespace img {

class Condition {
public:
    Condition() : made_(pthread_cond_init(&condition_, nullptr) == 0) {}
    ~Condition() {
        if (made_) pthread_cond_destroy(&condition_);
    }
    Condition(const Condition &) = delete;
    Condition &operator=(const Condition &) = delete;
    explicit operator bool() const { return made_; }
    void signal() { pthread_cond_signal(&condition_); }

private:
    friend class Lock;
    pthread_cond_t condition_;
    bool made_;
};

class Mutex {
public:
    Mutex() : made_(pthread_mutex_init(&mutex_, nullptr) == 0) {}
    ~Mutex() {
        if (made_) pthread_mutex_destroy(&mutex_);
    }
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;
    explicit operator bool() const { return made_; }

private:
    friend class Lock;
    pthread_mutex_t mutex_;
    bool made_;
};

// Holds a mutex for its lifetime.
class Lock {
public:
    explicit Lock(Mutex &mutex) : mutex_(mutex.mutex_), error_(pthread_mutex_lock(&mutex_)) {}
    ~Lock() {
        if (!error_) pthread_mutex_unlock(&mutex_);
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
    int error() const { return error_; } // 0 if the mutex is held

    template <typename Ready> void wait(Condition &condition, Ready ready) {
        while (!ready()) pthread_cond_wait(&condition.condition_, &mutex_);
    }

private:
    pthread_mutex_t &mutex_;
    int error_;
};

class Thread {
public:
    Thread() = default;
    ~Thread() { join(); }
    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;

    bool start(void *(*body)(void *), void *argument) {
        started_ = pthread_create(&thread_, nullptr, body, argument) == 0;
        return started_;
    }
    void join() {
        if (started_) pthread_join(thread_, nullptr);
        started_ = false;
    }

private:
    pthread_t thread_;
    bool started_ = false;
};

} // namespace img
