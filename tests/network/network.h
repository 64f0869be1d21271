// All tests of the network module share these helpers.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <unistd.h>

#include <string>

#include "support/sandbox.h"
#include "torvane.h"

namespace network {

inline uint32_t address(const char *text) {
  in_addr result;
  EXPECT_EQ(1, inet_pton(AF_INET, text, &result));
  return result.s_addr;
}

// Returns the number that the next descriptor of this process will have.
inline int next_descriptor() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

// Expects one trace on the console. The network functions trace with the thread alone in the header.
inline void expect_trace(const char *func, const std::string &message) {
  const auto traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_FALSE(traces[0].has_process);
  EXPECT_EQ(getpid(), traces[0].thread);
  EXPECT_EQ("quorra_network", traces[0].file);
  EXPECT_EQ(func, traces[0].func);
  EXPECT_EQ(message, traces[0].message);
}

} // namespace network
