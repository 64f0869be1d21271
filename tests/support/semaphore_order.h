// semop for a test program whose threads meet at System V semaphores. The thread sanitizer does not know that they
// order what their holders do, and is told here:
//
//   INTERPOSE(semop, 3, sandbox::ordered_semop);
#pragma once

#include <stddef.h>
#include <sys/sem.h>

#include <atomic>

#include "support/interposed.h"

extern "C" [[gnu::weak]] void __tsan_acquire(void *address);
extern "C" [[gnu::weak]] void __tsan_release(void *address);

INTERPOSED(semop);

namespace sandbox {

inline std::atomic<int> semaphore_steps; // counts the calls of semop

inline int ordered_semop(int id, sembuf *operations, size_t count) {
  static char holders[64]; // each semaphore of a test has an address of its own
  char *holder = &holders[static_cast<unsigned>(id) % sizeof(holders)];
  semaphore_steps++;
  if (__tsan_release && operations->sem_op > 0)
    __tsan_release(holder);
  const int result = interposed::semop_call.real(id, operations, count);
  if (__tsan_acquire && result == 0 && operations->sem_op < 0)
    __tsan_acquire(holder);
  return result;
}

} // namespace sandbox
