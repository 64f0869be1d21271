// Runs a test program in its private world. Where the machine allows none, every test is skipped with the reason. Else
// every test starts with an empty console, whatever ran before it.
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/sandbox.h"

namespace {

constexpr unsigned longest_test = 120; // seconds, under the slowest sanitizer on a busy machine

// An alarm ends a test that hangs, and the program with it.
class EndHangingTest : public testing::EmptyTestEventListener {
 public:
  void OnTestStart(const testing::TestInfo &) override {
    alarm(longest_test);
  }
  void OnTestEnd(const testing::TestInfo &) override {
    alarm(0);
  }
};

class StartWithEmptyConsole : public testing::EmptyTestEventListener {
 public:
  void OnTestStart(const testing::TestInfo &) override {
    sandbox::clear_console();
  }
};

class SkipEveryTest : public testing::EmptyTestEventListener {
 public:
  explicit SkipEveryTest(std::string reason) : reason_(std::move(reason)) {}
  void OnTestStart(const testing::TestInfo &) override {
    GTEST_SKIP() << reason_;
  }

 private:
  std::string reason_;
};

} // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new EndHangingTest);
  const std::string refusal = sandbox::enter();
  if (refusal.empty())
    testing::UnitTest::GetInstance()->listeners().Append(new StartWithEmptyConsole);
  else
    testing::UnitTest::GetInstance()->listeners().Append(new SkipEveryTest(refusal));
  return RUN_ALL_TESTS();
}
