// The tests of the DNS client share the addresses of their servers, the usual answers, and a fixture that sees to it
// that no descriptor is left open.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "dns/records.h"
#include "support/dns_message.h"
#include "support/dns_server.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace dns {

using Texts = std::vector<std::string>;

constexpr const char *addresses[] = {"127.0.0.1", "127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.5"};
constexpr const char *here = addresses[0];

// Returns a reply with this address for the name of the query.
inline Bytes yes(const Bytes &query, const char *address) {
  return reply(query, 1, a(to_question(), address));
}

// Returns a reply that ends a call, if `name` is at slot 0.
inline Bytes last_for(const Bytes &query, const std::string &name) {
  return reply(query, 1, a(labels(name), "203.0.113.99"));
}

// Answers every query with one reply.
inline Server::Answer with(const Bytes &answers, unsigned count) {
  return [=](const Bytes &query) { return std::vector<Bytes>{reply(query, count, answers)}; };
}
inline Server::Answer with_address(const char *address) {
  return with(a(to_question(), address), 1);
}

class ClientTest : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    descriptors_ = sandbox::open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors_, sandbox::open_descriptors());
  }
  // Asks for one type of address and expects the result 1.
  void ask(const Query &query, uint16_t type = 1) {
    EXPECT_EQ(1, dnsQuery4_main(query.get(), &responded_, type));
    EXPECT_TRUE(query.intact());
  }

  int responded_ = 0;

 private:
  int descriptors_;
};

} // namespace dns
