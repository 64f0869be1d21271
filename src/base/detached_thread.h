// Starts threads that nobody joins.
#pragma once

#include <pthread.h>
#include <stddef.h>

namespace torvane {

constexpr size_t default_stack = 0; // the C library's own size

// Starts a thread and stores its handle in `thread`. Returns whether it runs; a failure is not traced here.
bool start_detached(pthread_t *thread, size_t stack_bytes, void *(*run)(void *), void *argument);

} // namespace torvane
