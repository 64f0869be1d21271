// The functions of faults.h, and a test that they work when nothing is told to fail.
#include "faults.h"

#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>

// A race is a failed test.
extern "C" const char *__tsan_default_options() {
  return "halt_on_error=1:atexit_sleep_ms=0";
}

namespace {

template <typename Function>
Function next_definition(std::atomic<Function> &found, const char *name) {
  if (!found)
    found = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
  return found;
}

} // namespace

extern "C" {

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *), void *argument) noexcept {
  static std::atomic<int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> real;
  if (faults::counting) {
    size_t stack = 0;
    if (attributes)
      pthread_attr_getstacksize(attributes, &stack);
    faults::last_stack = stack;
    if (faults::create.fails_now())
      return EAGAIN;
  }
  return next_definition(real, "pthread_create")(thread, attributes, run, argument);
}

int pthread_join(pthread_t thread, void **result) {
  static std::atomic<int (*)(pthread_t, void **)> real;
  const int error = next_definition(real, "pthread_join")(thread, result);
  return faults::counting && faults::join.fails_now() ? ESRCH : error;
}

int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) noexcept {
  static std::atomic<int (*)(pthread_mutex_t *, const pthread_mutexattr_t *)> real;
  if (faults::counting) {
    if (faults::mutex_init.fails_now())
      return EAGAIN;
    faults::mutexes++;
  }
  return next_definition(real, "pthread_mutex_init")(mutex, attributes);
}

int pthread_mutex_destroy(pthread_mutex_t *mutex) noexcept {
  static std::atomic<int (*)(pthread_mutex_t *)> real;
  if (faults::counting)
    faults::mutexes--;
  return next_definition(real, "pthread_mutex_destroy")(mutex);
}

int pthread_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attributes) noexcept {
  static std::atomic<int (*)(pthread_cond_t *, const pthread_condattr_t *)> real;
  if (faults::counting) {
    if (faults::cond_init.fails_now())
      return EAGAIN;
    faults::conditions++;
  }
  return next_definition(real, "pthread_cond_init")(condition, attributes);
}

int pthread_cond_destroy(pthread_cond_t *condition) noexcept {
  static std::atomic<int (*)(pthread_cond_t *)> real;
  if (faults::counting)
    faults::conditions--;
  return next_definition(real, "pthread_cond_destroy")(condition);
}

int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
  static std::atomic<int (*)(pthread_mutex_t *)> real;
  if (faults::counting && faults::lock.fails_now())
    return EINVAL;
  return next_definition(real, "pthread_mutex_lock")(mutex);
}

// Says that it failed, and gave the lock back all the same, so that the test can go on.
int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept {
  static std::atomic<int (*)(pthread_mutex_t *)> real;
  const int error = next_definition(real, "pthread_mutex_unlock")(mutex);
  return faults::counting && faults::unlock.fails_now() ? EPERM : error;
}

int pthread_cond_signal(pthread_cond_t *condition) noexcept {
  static std::atomic<int (*)(pthread_cond_t *)> real;
  const int error = next_definition(real, "pthread_cond_signal")(condition);
  return faults::counting && faults::signal.fails_now() ? EINVAL : error;
}

int pthread_cond_broadcast(pthread_cond_t *condition) noexcept {
  static std::atomic<int (*)(pthread_cond_t *)> real;
  const int error = next_definition(real, "pthread_cond_broadcast")(condition);
  return faults::counting && faults::broadcast.fails_now() ? EINVAL : error;
}

} // extern "C"

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
