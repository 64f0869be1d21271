// Threads that nobody joins.
#pragma once

#include <pthread.h>
#include <stddef.h>

namespace torvane {

constexpr size_t default_stack = 0;

// False when there is no thread; nothing is traced. `stack_bytes` is default_stack or the stack's size.
bool start_detached(pthread_t *thread, size_t stack_bytes, void *(*run)(void *), void *argument);

} // namespace torvane
