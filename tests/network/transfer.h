// The tests of sending and receiving count the calls of the C library and skip the pauses between them.
#pragma once

#include <gtest/gtest.h>

#include <atomic>

#include "interposed.h"
#include "sockets.h"
#include "torvane.h"

namespace network {

// The stand-ins for sending, receiving and sleeping count here.
struct Calls {
  std::atomic<int> transfers, failures, sleeps, wrong_sleeps;
  std::atomic<int> flags, address_length;
  std::atomic<bool> has_address;
  void reset() {
    transfers = failures = sleeps = wrong_sleeps = flags = 0;
    address_length = -1;
    has_address = false;
  }
};
inline Calls calls;

inline int count_sleep(unsigned microseconds) {
  calls.sleeps++;
  calls.wrong_sleeps += microseconds != 100;
  return 0;
}

class Transfer : public Sockets {
 protected:
  void SetUp() override {
    Sockets::SetUp();
    calls.reset();
  }
  const interposed::StandIn<int(unsigned)> no_sleep{interposed::usleep_call, count_sleep};
};

inline int fail(int error) {
  calls.failures++;
  return interposed::fail(error);
}

} // namespace network
