// Tests of interface queries use a pair of interfaces that they make themselves.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/sandbox.h"

namespace network {

// The interfaces are the two ends of one cable. The far end has no address and the longest possible name.
inline constexpr char near_end[] = "tvn0", far_end[] = "tvnabcdefghijkl";

inline sandbox::Outcome ip(const std::string &arguments) {
  return sandbox::run("ip " + arguments);
}

inline void expect_ip(const std::string &arguments) {
  const sandbox::Outcome outcome = ip(arguments);
  EXPECT_EQ(0, outcome.status) << arguments << ": " << outcome.output;
}

// Makes this the only address of the near end.
inline void set_address(const std::string &address_and_prefix) {
  expect_ip(std::string("addr flush dev ") + near_end);
  expect_ip("addr add " + address_and_prefix + " dev " + near_end);
}

class Interface : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    const sandbox::Outcome made = ip(std::string("link add ") + near_end + " type veth peer name " + far_end);
    refusal = made.status == 0 ? "" : "no pair of veth interfaces: " + made.output;
    if (!refusal.empty())
      return;
    expect_ip(std::string("link set ") + near_end + " address 02:00:5e:10:00:01 up");
    expect_ip(std::string("link set ") + far_end + " up");
  }
  static void TearDownTestSuite() {
    ip(std::string("link del ") + near_end);
  }
  void SetUp() override {
    if (!refusal.empty())
      GTEST_SKIP() << refusal;
    set_address("192.0.2.10/24 broadcast 192.0.2.255");
    sandbox::clear_console();
    descriptors = sandbox::open_descriptors();
  }
  void TearDown() override {
    if (refusal.empty()) {
      EXPECT_EQ(descriptors, sandbox::open_descriptors());
    }
  }

  static inline std::string refusal;
  int descriptors = 0;
};

} // namespace network
