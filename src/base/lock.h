// Takes and gives back the library's lock: a System V semaphore, which holds off other threads and other processes.
// Both happen in the name of the function that does so, because failures are traced. No object gives the lock back at
// the end of a scope: threads that take it may be cancelled at any instruction, and no destructor would run there.
#pragma once

#include "torvane/ipc.h"

namespace torvane {

// Takes a semaphore. Returns whether it was taken. A signal that interrupts the wait is traced and the wait begun
// again: going on without the semaphore and giving it back in the end would let two holders in from then on. So a
// failure, which is traced as well, means that the semaphore is gone.
bool take_semaphore(int id, const char *module, int line, const char *func);

// Gives a semaphore back. Returns whether that worked; a failure is traced.
inline bool give_semaphore(int id, const char *module, int line, const char *func) {
  return upup(id, module, line, func, 0) == 0;
}

// Takes the lock with cancellation held off. The work under the lock goes on even when the semaphore is gone. Returns
// the state of cancellation before, for give_lock.
int take_lock(int id, const char *module, int line, const char *func);

// Gives the lock back and restores cancellation. Returns whether the semaphore could be given back.
bool give_lock(int id, int cancellability, const char *module, int line, const char *func);

} // namespace torvane

#define TAKE_SEMAPHORE(id) torvane::take_semaphore(id, trace_module, __LINE__, __func__)
#define GIVE_SEMAPHORE(id) torvane::give_semaphore(id, trace_module, __LINE__, __func__)

#define TAKE_LOCK(id) torvane::take_lock(id, trace_module, __LINE__, __func__)
#define GIVE_LOCK(id, cancellability) torvane::give_lock(id, cancellability, trace_module, __LINE__, __func__)

// These take and give the lock in the name of another function, for an operation that is several functions here.
#define TAKE_LOCK_AS(func, id) torvane::take_lock(id, trace_module, __LINE__, func)
#define GIVE_LOCK_AS(func, id, cancellability) torvane::give_lock(id, cancellability, trace_module, __LINE__, func)
