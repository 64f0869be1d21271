// What the tests of shared memory and semaphores have in common.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/sandbox.h"
#include "torvane.h"

namespace ipc {

constexpr int key = 0x5e4a;

class Test : public testing::Test {
 protected:
  Test() {
    alarm(30); // a wait that never ends is a failure too
  }
  ~Test() override {
    alarm(0);
  }
  void SetUp() override {
    sandbox::clear_console();
  }

  // Expects one trace, with the short header.
  static void expect_trace(const char *func, const std::string &message) {
    const auto traces = sandbox::console();
    ASSERT_EQ(1u, traces.size());
    EXPECT_FALSE(traces[0].has_process);
    EXPECT_EQ(getpid(), traces[0].thread);
    EXPECT_EQ("quorra_ipc", traces[0].file);
    EXPECT_EQ(func, traces[0].func);
    EXPECT_EQ(message, traces[0].message);
  }
};

} // namespace ipc
