// The tests watch these calls that the client makes of the C library, or make them fail.
#pragma once

#include <atomic>
#include <vector>

namespace dns {

struct LibcCalls {
  std::atomic<int> selects{0};
  std::atomic<int> passing_selects{0}; // so many calls from now on are let through before some fail
  std::atomic<int> failing_selects{0}; // so many calls then fail; likewise for the other functions
  std::atomic<int> select_error{0};
  std::atomic<int> failing_receives{0};
  std::atomic<int> receive_error{0};
  std::atomic<int> failing_ioctls{0};
  std::atomic<int> interrupted_selects{0}; // waits that a signal cut short
  std::atomic<long> longest_timeout{-1};   // the longest that select was called with, in microseconds
  std::atomic<int> pauses{0};
  std::atomic<unsigned> paused{0}; // all pauses together, in microseconds
  std::atomic<bool> skip_pauses{false};
};

extern LibcCalls libc_calls;

} // namespace dns
