// Faults of the C library's thread functions, made in the test program: the n-th call from now on fails, once.
#pragma once

#include <pthread.h>
#include <stddef.h>

#include <atomic>

namespace faults {

struct Fault {
  std::atomic<int> calls_left = 0; // 0: none fails
  std::atomic<int> calls = 0;

  void fail_call(int n) {
    calls = 0;
    calls_left = n;
  }
  bool fails_now() {
    calls++;
    return calls_left > 0 && calls_left-- == 1;
  }
};

// Those of this thread's calls that go out while `counting` is set there: gtest and the sanitizers lock too.
inline thread_local bool counting;

inline Fault create, join, mutex_init, cond_init, lock, unlock, signal, broadcast;
inline std::atomic<size_t> last_stack;       // that a thread was to be created with, in bytes; 0 without attributes
inline std::atomic<int> mutexes, conditions; // initialised and not destroyed

class Counting {
 public:
  Counting() {
    counting = true;
  }
  ~Counting() {
    counting = false;
  }
  Counting(const Counting &) = delete;
  Counting &operator=(const Counting &) = delete;
};

// The result of a call whose thread functions count.
template <typename Call>
auto counted(Call call) {
  const Counting on;
  return call();
}

} // namespace faults
