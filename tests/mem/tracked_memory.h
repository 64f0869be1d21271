// A pool of tracked memory, and what tests see of it.
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <string>

#include "support/sandbox.h"
#include "torvane.h"

namespace memory {

constexpr key_t key = 0x3e3;
constexpr unsigned table_size = 256;

inline int semaphore() {
  return semget(key, 0, 0);
}

inline int counter() {
  return semctl(semaphore(), 0, GETVAL);
}

inline bool is_zero(const void *block, size_t size) {
  const char *bytes = static_cast<const char *>(block);
  return std::all_of(bytes, bytes + size, [](char byte) { return byte == 0; });
}

inline std::string printed() {
  sandbox::Captured output(STDOUT_FILENO);
  xprint();
  return output.text();
}

// Returns the dump's lines about a block, up to its bytes.
inline std::string heading(int number, const void *block, uint32_t flag, uint32_t size, uint32_t members) {
  char text[400];
  snprintf(text, sizeof(text),
           "***************************************************\n"
           "No.\t\t:%d\nAddr\t\t:%p\nFlag\t\t:%lu\nAlloc size\t:%u\nMembers\t\t:%u\nData map \t:\n"
           "-00|01|02|03|04|05|06|07-",
           number, block, static_cast<unsigned long>(flag), size, members);
  return text;
}

// Returns the number of live blocks.
inline size_t live() {
  const std::string dump = printed();
  size_t count = 0;
  for (size_t at = dump.find("No.\t"); at != std::string::npos; at = dump.find("No.\t", at + 1))
    count++;
  return count;
}

class TrackedMemory : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    ASSERT_EQ(0, xmem_init(key));
  }
  void TearDown() override {
    xfree(nullptr);
    EXPECT_EQ(-1, semaphore());
    EXPECT_EQ("POOL EMPTY\n", printed());
  }

  // Every test ends with this, save those of failing semaphores.
  static void expect_free() {
    EXPECT_EQ(1, counter());
    EXPECT_EQ("", sandbox::console_text());
  }

  // Expects the traces of a down and an up that failed in `func`.
  static void expect_failed_lock(const char *func) {
    const auto messages = sandbox::console_messages();
    ASSERT_EQ(2u, messages.size()) << func;
    const std::string start = "pintakrel_mem:\\d+:::" + std::string(func) + ":::semid=-?\\d+ ";
    EXPECT_TRUE(std::regex_match(messages[0], std::regex(start + "down fail\n"))) << messages[0];
    EXPECT_TRUE(std::regex_match(messages[1], std::regex(start + "up fail\n"))) << messages[1];
    sandbox::clear_console();
  }
};

} // namespace memory
