// The tests of sockets share endpoints, connections and a fixture that sees to it that no descriptor is left open.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "network.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace network {

inline ipport endpoint(const char *text, uint16_t port) {
  return {address(text), htons(port)};
}

inline sockaddr_in as_sockaddr(const ipport &from) {
  sockaddr_in result = {};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = from.ip;
  result.sin_port = from.port;
  return result;
}

class Sockets : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    descriptors = sandbox::open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors, sandbox::open_descriptors());
  }

  static std::vector<std::string> traces_of(const char *func) {
    std::vector<std::string> messages;
    for (const sandbox::Trace &trace : sandbox::console()) {
      EXPECT_FALSE(trace.has_process);
      EXPECT_EQ("quorra_network", trace.file);
      if (trace.func == func)
        messages.push_back(trace.message);
    }
    sandbox::clear_console();
    return messages;
  }
  static void expect_trace(const char *func, const std::string &message) {
    const std::vector<std::string> all = sandbox::console_messages();
    EXPECT_EQ(1u, all.size());
    EXPECT_EQ(std::vector<std::string>{message}, traces_of(func));
  }
  static void expect_silence() {
    EXPECT_EQ("", sandbox::console_text());
  }

  int descriptors = 0;
};

// Two connected TCP sockets on loopback, both blocking. The library gets `near`; the test speaks through `far`.
struct Connection {
  Connection() {
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at = as_sockaddr(endpoint("127.0.0.1", 0));
    socklen_t length = sizeof(at);
    EXPECT_EQ(0, bind(listening, reinterpret_cast<sockaddr *>(&at), sizeof(at)));
    EXPECT_EQ(0, listen(listening, 1));
    EXPECT_EQ(0, getsockname(listening, reinterpret_cast<sockaddr *>(&at), &length));
    far = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, connect(far, reinterpret_cast<sockaddr *>(&at), sizeof(at)));
    near = accept(listening, nullptr, nullptr);
    close(listening);
  }
  ~Connection() {
    close_near();
    close_far();
  }
  void close_near() {
    if (near >= 0)
      close(near);
    near = -1;
  }
  void close_far() {
    if (far >= 0)
      close(far);
    far = -1;
  }
  int near, far;
};

// A bound datagram socket of the test's own.
struct Receiver {
  Receiver() {
    fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in at = as_sockaddr(endpoint("127.0.0.1", 0));
    socklen_t length = sizeof(at);
    EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr *>(&at), sizeof(at)));
    EXPECT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr *>(&at), &length));
    self = {at.sin_addr.s_addr, at.sin_port};
  }
  ~Receiver() {
    close(fd);
  }
  std::string take() const {
    char bytes[4096];
    const ssize_t count = recv(fd, bytes, sizeof(bytes), MSG_DONTWAIT);
    return count < 0 ? "nothing" : std::string(bytes, static_cast<size_t>(count));
  }
  int fd;
  ipport self;
};

} // namespace network
