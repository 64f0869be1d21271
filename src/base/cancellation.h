// Holds cancellation off where a thread must not end: while it has a lock of the C library or a semaphore, which nobody
// would give back before the process ends.
#pragma once

#include <pthread.h>

namespace torvane {

// Holds off the cancellation of the calling thread. Returns its state before, for restore_cancellation.
inline int hold_cancellation() {
  int before;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
  return before;
}

inline void restore_cancellation(int before) {
  pthread_setcancelstate(before, nullptr);
}

} // namespace torvane
