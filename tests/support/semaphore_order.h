// The thread sanitizer does not know that a System V semaphore orders what its holders do. To be included in one file
// of a test program: semop of the C library, which tells it.
#pragma once

#include <dlfcn.h>
#include <stddef.h>
#include <sys/sem.h>

#include <atomic>

extern "C" [[gnu::weak]] void __tsan_acquire(void *address);
extern "C" [[gnu::weak]] void __tsan_release(void *address);

namespace sandbox {

inline std::atomic<int> semaphore_steps; // calls of semop so far

} // namespace sandbox

extern "C" int semop(int id, sembuf *operations, size_t count) noexcept {
  using Function = int (*)(int, sembuf *, size_t);
  static std::atomic<Function> real;
  if (!real)
    real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "semop"));
  static char holders[64]; // one address for each semaphore that a test has
  char *holder = &holders[static_cast<unsigned>(id) % sizeof(holders)];
  sandbox::semaphore_steps++;
  if (__tsan_release && operations->sem_op > 0)
    __tsan_release(holder);
  const int result = real.load()(id, operations, count);
  if (__tsan_acquire && operations->sem_op < 0)
    __tsan_acquire(holder);
  return result;
}
