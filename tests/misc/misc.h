// What the tests of commands, probes, signals and random numbers have in common.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/sandbox.h"
#include "torvane.h"

namespace misc {

// Expects one trace of the calling thread.
inline void expect_trace(bool has_process, const char *func, const std::string &message) {
  const auto traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_EQ(has_process, traces[0].has_process);
  EXPECT_EQ(getpid(), traces[0].thread);
  EXPECT_EQ("quorra_misc", traces[0].file);
  EXPECT_EQ(func, traces[0].func);
  EXPECT_EQ(message, traces[0].message);
}

class Test : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
};

// At the end of every test, all its children have been waited for.
class Processes : public Test {
 protected:
  void SetUp() override {
    alarm(30); // a wait that never ends is a failure too
    Test::SetUp();
  }
  void TearDown() override {
    alarm(0);
    unlink("/run/out");
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "a child is left";
  }
};

} // namespace misc
