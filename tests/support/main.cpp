// Runs a test program in its private world; where the machine allows none, every test is skipped with the reason.
#include <gtest/gtest.h>

#include "support/sandbox.h"

namespace {

class PrivateWorld : public testing::Environment {
 public:
  explicit PrivateWorld(std::string refusal) : refusal_(std::move(refusal)) {}
  void SetUp() override {
    if (!refusal_.empty())
      GTEST_SKIP() << refusal_;
  }

 private:
  std::string refusal_;
};

} // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::AddGlobalTestEnvironment(new PrivateWorld(sandbox::enter()));
  return RUN_ALL_TESTS();
}
