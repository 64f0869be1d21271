// Runs a test program in its private world; where the machine allows none, every test is skipped with the reason.
#include <gtest/gtest.h>

#include "support/sandbox.h"

namespace {

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
  const std::string refusal = sandbox::enter();
  if (!refusal.empty())
    testing::UnitTest::GetInstance()->listeners().Append(new SkipEveryTest(refusal));
  return RUN_ALL_TESTS();
}
