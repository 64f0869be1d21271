// Counts threads up to a maximum.
#include <pthread.h>
#include <stdlib.h>

#include "base/owners.h"
#include "torvane/threadpool.h"

using namespace torvane;

namespace {

enum { done = 0, failed = -2 };

} // namespace

extern "C" {

ThreadLimit *threadlimit_init(int maximum) {
  HeapBlock<ThreadLimit> limit(allocate_zeroed<ThreadLimit>());
  if (!limit || pthread_mutex_init(&limit->lock, nullptr) != 0)
    return nullptr;
  limit->maximum = maximum;
  return limit.release();
}

int threadlimit_inc(ThreadLimit *limit) {
  if (!limit || pthread_mutex_lock(&limit->lock) != 0)
    return failed;
  int result = failed;
  if (limit->current < limit->maximum) {
    limit->current++;
    result = done;
  }
  return pthread_mutex_unlock(&limit->lock) == 0 ? result : failed;
}

int threadlimit_dec(ThreadLimit *limit) {
  if (!limit || pthread_mutex_lock(&limit->lock) != 0)
    return failed;
  int result = failed;
  if (limit->current >= 1) {
    limit->current--;
    result = done;
  }
  return pthread_mutex_unlock(&limit->lock) == 0 ? result : failed;
}

int threadlimit_free(ThreadLimit *limit) {
  if (!limit)
    return failed;
  // A thread that still holds the lock is done with it once it can be taken here.
  pthread_mutex_lock(&limit->lock);
  pthread_mutex_unlock(&limit->lock);
  pthread_mutex_destroy(&limit->lock);
  free(limit);
  return done;
}

} // extern "C"
