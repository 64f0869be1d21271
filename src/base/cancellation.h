// Steps in the middle of which a thread must not be cancelled: with a lock of the C library or a semaphore taken, which
// nobody would give back before the process ends.
#pragma once

#include <pthread.h>

namespace torvane {

// Returns what was before, for restore_cancellation.
inline int hold_cancellation() {
  int before;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
  return before;
}

inline void restore_cancellation(int before) {
  pthread_setcancelstate(before, nullptr);
}

} // namespace torvane
