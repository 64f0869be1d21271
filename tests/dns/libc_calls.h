// Calls of the C library that the client makes, and that a test watches or makes fail.
#pragma once

#include <atomic>
#include <vector>

namespace dns {

struct LibcCalls {
  std::atomic<int> passing_selects{0}; // how many calls from now on are let through before some fail
  std::atomic<int> failing_selects{0}; // how many calls then fail; the same for the others
  std::atomic<int> select_error{0};
  std::atomic<int> failing_receives{0};
  std::atomic<int> receive_error{0};
  std::atomic<int> failing_ioctls{0};
  std::atomic<int> interrupted_selects{0}; // by signals
  std::atomic<long> longest_timeout{-1};   // that select was called with, microseconds
  std::atomic<int> pauses{0};
  std::atomic<unsigned> paused{0}; // microseconds
  std::atomic<bool> skip_pauses{false};
};

extern LibcCalls libc_calls;

} // namespace dns
