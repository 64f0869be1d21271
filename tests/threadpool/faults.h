// The tests of the thread pool make calls of the C library's thread functions fail: the n-th from now on, once.
#pragma once

#include <pthread.h>
#include <stddef.h>

#include <atomic>

namespace faults {

struct Fault {
  std::atomic<int> calls_left = 0; // 0 if none is to fail
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

// Only calls of a thread with this flag set are counted, because gtest and the sanitizers lock too.
inline thread_local bool counting;

inline Fault create, join, mutex_init, cond_init, lock, unlock, signal, broadcast;
inline std::atomic<size_t> last_stack; // the stack size of the last thread, in bytes; 0 if no attributes were given
inline std::atomic<int> mutexes, conditions; // how many are initialised and not yet destroyed

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

// Makes a call whose thread functions are counted, and returns its result.
template <typename Call>
auto counted(Call call) {
  const Counting on;
  return call();
}

} // namespace faults
