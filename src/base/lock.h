// Takes and gives back the library's lock: a System V semaphore, which holds off other threads and other processes.
// Both happen in the name of the function that does so, because failures are traced. No object gives the lock back at
// the end of a scope: threads that take it may be cancelled at any instruction, and no destructor would run there.
//
// A thread that waits for the semaphore holds no lock of the process, because a child that is forked meanwhile would
// find that lock taken for ever.
#pragma once

#include "torvane/ipc.h"

namespace torvane {

// How a wait for the semaphore ended.
enum class Wait {
  taken,
  gone,   // there is no such semaphore any more
  failed, // the semaphore stands, but the kernel refused this taking: it may have had no memory for the undo
};

// A lock that was taken with cancellation held off, or could not be.
struct Lock {
  int id;
  int cancellability; // before
  Wait wait;
};

// Waits for the semaphore with cancellation held off. A signal that interrupts the wait is traced, once, and the wait
// begun again: going on without the semaphore and giving it back in the end would let two holders in from then on. Any
// other failure is traced too, and the work goes on all the same.
Lock take_lock(int id, const char *module, int line, const char *func);

// Gives the lock back and restores cancellation. Returns whether the semaphore was given back. What was refused is not
// given back, for the same reason; that of a semaphore which is gone is tried, and its failure traced.
bool give_lock(const Lock &lock, const char *module, int line, const char *func);

// These are for work that is left out when the semaphore cannot be taken. The first one takes the lock and returns
// true; or it leaves everything as it was.
bool take_lock_or_nothing(Lock *lock, int id, const char *module, int line, const char *func);

// Gives the lock back without a word, whatever comes of it: nobody may hear of its holder any more.
void give_lock_silently(const Lock &lock);

} // namespace torvane

#define TAKE_LOCK(id) torvane::take_lock(id, trace_module, __LINE__, __func__)
#define TAKE_LOCK_OR_NOTHING(lock, id) torvane::take_lock_or_nothing(lock, id, trace_module, __LINE__, __func__)
#define GIVE_LOCK(lock) torvane::give_lock(lock, trace_module, __LINE__, __func__)

// These take and give the lock in the name of another function, for an operation that is several functions here.
#define TAKE_LOCK_AS(func, id) torvane::take_lock(id, trace_module, __LINE__, func)
#define GIVE_LOCK_AS(func, lock) torvane::give_lock(lock, trace_module, __LINE__, func)
