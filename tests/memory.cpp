// SPDX-License-Identifier: MIT
#include "tests/memory.h"

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>

#include <mutex>
#include <unordered_set>

namespace {

std::mutex guard;
bool watching = false;
size_t countdown = 0;
bool reached = false;
std::unordered_set<void *> blocks;

bool refuse() {
    const std::lock_guard lock(guard);
    if (!watching || !countdown || --countdown) return false;
    reached = true;
    errno = ENOMEM;
    return true;
}

size_t thread_countdown = 0;
bool refuse_thread() { return thread_countdown && --thread_countdown == 0; }

void *track(void *block) {
    const std::lock_guard lock(guard);
    if (watching && block) blocks.insert(block);
    return block;
}

void forget(void *block) {
    const std::lock_guard lock(guard);
    blocks.erase(block);
}

} // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);

void *__wrap_malloc(size_t size) { return refuse() ? nullptr : track(__real_malloc(size)); }
void *__wrap_calloc(size_t count, size_t size) { return refuse() ? nullptr : track(__real_calloc(count, size)); }
void *__wrap_realloc(void *block, size_t size) {
    if (refuse()) return nullptr;
    forget(block);
    return track(__real_realloc(block, size));
}
void __wrap_free(void *block) {
    forget(block);
    __real_free(block);
}

int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __real_pthread_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attributes);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument);

int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
    return refuse_thread() ? EAGAIN : __real_pthread_mutex_init(mutex, attributes);
}
int __wrap_pthread_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attributes) {
    return refuse_thread() ? EAGAIN : __real_pthread_cond_init(condition, attributes);
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument) {
    return refuse_thread() ? EAGAIN : __real_pthread_create(thread, attributes, body, argument);
}
}

namespace memory {

Watch::Watch(size_t fail_at) {
    const std::lock_guard lock(guard);
    watching = true;
    countdown = fail_at;
    reached = false;
    blocks.clear();
}

Watch::~Watch() {
    const std::lock_guard lock(guard);
    watching = false;
    blocks.clear();
}

ThreadFailure::ThreadFailure(size_t fail_at) { thread_countdown = fail_at; }
ThreadFailure::~ThreadFailure() { thread_countdown = 0; }

bool Watch::failed() const { return reached; }

size_t Watch::live() const {
    const std::lock_guard lock(guard);
    return blocks.size();
}

} // namespace memory
