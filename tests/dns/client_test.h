// What the tests of the DNS client share: their servers' addresses, what a server answers, and a test that leaves no
// descriptor open.
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

// Says that the name asked for has this address, and nothing else.
inline Bytes yes(const Bytes &query, const char *address) {
  return reply(query, 1, a(to_question(), address));
}

// A reply that ends a call: an answer to the name at slot 0.
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
  // Asks for one type and expects 1.
  void ask(const Query &query, uint16_t type = 1) {
    EXPECT_EQ(1, dnsQuery4_main(query.get(), &responded_, type));
    EXPECT_TRUE(query.intact());
  }

  int responded_ = 0;

 private:
  int descriptors_;
};

} // namespace dns
