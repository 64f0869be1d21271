// This file makes the faults of faults.h, and tests that calls work when none is to fail.
#include "faults.h"

#include <errno.h>
#include <gtest/gtest.h>

#include "support/interposed.h"

// A data race ends the program, so that the test fails.
extern "C" const char *__tsan_default_options() {
  return "halt_on_error=1:atexit_sleep_ms=0";
}

namespace {

// Returns whether this initialisation fails; one that does not is counted in `made`.
bool init_fails(faults::Fault &fault, std::atomic<int> &made) {
  if (!faults::counting)
    return false;
  if (fault.fails_now())
    return true;
  made++;
  return false;
}

} // namespace

INTERPOSE(pthread_create, 4,
          [](pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *), void *argument) {
            if (faults::counting) {
              size_t stack = 0;
              if (attributes)
                pthread_attr_getstacksize(attributes, &stack);
              faults::last_stack = stack;
              if (faults::create.fails_now())
                return EAGAIN;
            }
            return pthread_create_call.real(thread, attributes, run, argument);
          });

INTERPOSE(pthread_join, 2, [](pthread_t thread, void **result) {
  const int error = pthread_join_call.real(thread, result);
  return faults::counting && faults::join.fails_now() ? ESRCH : error;
});

INTERPOSE(pthread_mutex_init, 2, [](pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
  return init_fails(faults::mutex_init, faults::mutexes) ? EAGAIN : pthread_mutex_init_call.real(mutex, attributes);
});

INTERPOSE(pthread_mutex_destroy, 1, [](pthread_mutex_t *mutex) {
  if (faults::counting)
    faults::mutexes--;
  return pthread_mutex_destroy_call.real(mutex);
});

INTERPOSE(pthread_cond_init, 2, [](pthread_cond_t *condition, const pthread_condattr_t *attributes) {
  return init_fails(faults::cond_init, faults::conditions) ? EAGAIN
                                                           : pthread_cond_init_call.real(condition, attributes);
});

INTERPOSE(pthread_cond_destroy, 1, [](pthread_cond_t *condition) {
  if (faults::counting)
    faults::conditions--;
  return pthread_cond_destroy_call.real(condition);
});

INTERPOSE(pthread_mutex_lock, 1, [](pthread_mutex_t *mutex) {
  return faults::counting && faults::lock.fails_now() ? EINVAL : pthread_mutex_lock_call.real(mutex);
});

// The mutex is unlocked even if this call is to fail, so that the test can go on.
INTERPOSE(pthread_mutex_unlock, 1, [](pthread_mutex_t *mutex) {
  const int error = pthread_mutex_unlock_call.real(mutex);
  return faults::counting && faults::unlock.fails_now() ? EPERM : error;
});

INTERPOSE(pthread_cond_signal, 1, [](pthread_cond_t *condition) {
  const int error = pthread_cond_signal_call.real(condition);
  return faults::counting && faults::signal.fails_now() ? EINVAL : error;
});

INTERPOSE(pthread_cond_broadcast, 1, [](pthread_cond_t *condition) {
  const int error = pthread_cond_broadcast_call.real(condition);
  return faults::counting && faults::broadcast.fails_now() ? EINVAL : error;
});

TEST(ThreadFaults, AreCountedAndMadeWhereAskedFor) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  faults::lock.fail_call(2);
  EXPECT_EQ(0, pthread_mutex_lock(&mutex)); // not counted
  EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
  const int expected[] = {0, EINVAL, 0};
  for (const int error : expected) {
    EXPECT_EQ(error, faults::counted([&] { return pthread_mutex_lock(&mutex); }));
    if (error == 0) {
      EXPECT_EQ(0, pthread_mutex_unlock(&mutex));
    }
  }
  EXPECT_EQ(3, faults::lock.calls);
}
