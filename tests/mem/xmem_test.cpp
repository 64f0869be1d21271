#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

// Sanitizers end a program that asks for more memory than there is, unless they are told that it knows.
extern "C" __attribute__((visibility("default"), used)) const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}
extern "C" __attribute__((visibility("default"), used)) const char *__tsan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

bool semget_fails, setval_fails;

} // namespace

// semget and semctl of the C library, but they can be made to fail.
extern "C" int semget(key_t key, int count, int flags) noexcept {
  if (semget_fails) {
    errno = ENOSPC;
    return -1;
  }
  return reinterpret_cast<int (*)(key_t, int, int)>(dlsym(RTLD_NEXT, "semget"))(key, count, flags);
}

extern "C" int semctl(int id, int number, int command, ...) noexcept {
  union {
    int value;
    void *pointer;
  } argument = {};
  argument.value = 1; // the one value that the library sets
  if (setval_fails && command == SETVAL) {
    errno = EIDRM;
    return -1;
  }
  const auto real = reinterpret_cast<int (*)(int, int, int, ...)>(dlsym(RTLD_NEXT, "semctl"));
  return real(id, number, command, argument);
}

namespace {

RECORD_LAYOUT(XmemPool, 3 * sizeof(void *), FIELD(semid, 0, 4), FIELD(blocks, sizeof(void *), 2 * sizeof(void *)));
RECORD_LAYOUT_32(XmemRecord, 24, FIELD(ptr, 0, 4), FIELD(size, 4, 4), FIELD(members, 8, 4), FIELD(flag, 12, 4),
                 FIELD(node, 16, 8));

constexpr key_t key = 0x3e3;
constexpr unsigned table_size = 256;

int semaphore() {
  return semget(key, 0, 0);
}

int counter() {
  return semctl(semaphore(), 0, GETVAL);
}

bool is_zero(const void *block, size_t size) {
  const char *bytes = static_cast<const char *>(block);
  return std::all_of(bytes, bytes + size, [](char byte) { return byte == 0; });
}

std::string printed() {
  sandbox::Captured output(STDOUT_FILENO);
  xprint();
  return output.text();
}

// The dump's lines about a block, up to its bytes.
std::string heading(int number, const void *block, uint32_t flag, uint32_t size, uint32_t members) {
  char text[400];
  snprintf(text, sizeof(text),
           "***************************************************\n"
           "No.\t\t:%d\nAddr\t\t:%p\nFlag\t\t:%lu\nAlloc size\t:%u\nMembers\t\t:%u\nData map \t:\n"
           "-00|01|02|03|04|05|06|07-",
           number, block, static_cast<unsigned long>(flag), size, members);
  return text;
}

// How many blocks are live.
size_t live() {
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

  // Every test but those of failing semaphores ends with it free and nothing traced.
  static void expect_free() {
    EXPECT_EQ(1, counter());
    EXPECT_EQ("", sandbox::console_text());
  }

  // That the operation `func` had a down and an up that failed.
  static void expect_failed_lock(const char *func) {
    const auto messages = sandbox::console_messages();
    ASSERT_EQ(2u, messages.size()) << func;
    const std::string start = "pintakrel_mem:\\d+:::" + std::string(func) + ":::semid=-?\\d+ ";
    EXPECT_TRUE(std::regex_match(messages[0], std::regex(start + "down fail\n"))) << messages[0];
    EXPECT_TRUE(std::regex_match(messages[1], std::regex(start + "up fail\n"))) << messages[1];
    sandbox::clear_console();
  }
};

} // namespace

TEST(TrackedMemoryGroup, IsThree) {
  EXPECT_EQ(3, G_nTraceGroupVEMTA_MEM);
}

TEST(TrackedMemoryWithoutAPool, GivesNothing) {
  sandbox::clear_console();
  char block;
  EXPECT_EQ(nullptr, xmalloc(10, 0));
  EXPECT_EQ(nullptr, xcalloc(1, 10, 0));
  EXPECT_EQ(nullptr, xrealloc(&block, 10, 0));
  xfree(&block);
  xfree(nullptr);
  EXPECT_EQ("POOL EMPTY\n", printed());
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(TrackedMemory, BlocksAreZeroed) {
  std::vector<void *> dirty;
  for (int i = 0; i < 20; i++) {
    dirty.push_back(malloc(100));
    memset(dirty.back(), 0xee, 100);
  }
  for (void *block : dirty)
    free(block);
  for (int i = 0; i < 20; i++) {
    void *block = xmalloc(100, 0);
    ASSERT_NE(nullptr, block);
    EXPECT_TRUE(is_zero(block, 100));
    block = xcalloc(10, 10, 0);
    ASSERT_NE(nullptr, block);
    EXPECT_TRUE(is_zero(block, 100));
  }
  expect_free();
}

TEST_F(TrackedMemory, ASizeOrCountOf0GivesNothing) {
  void *const block = xmalloc(10, 1);
  const std::string before = printed();
  EXPECT_EQ(nullptr, xmalloc(0, 0));
  EXPECT_EQ(nullptr, xcalloc(0, 10, 0));
  EXPECT_EQ(nullptr, xcalloc(10, 0, 0));
  EXPECT_EQ(nullptr, xrealloc(block, 0, 0));
  EXPECT_EQ(nullptr, xrealloc(nullptr, 10, 0));
  EXPECT_EQ(before, printed());
  expect_free();
}

TEST_F(TrackedMemory, TakesNoSemaphoreForWhatIsRefusedAnyway) {
  void *const block = xmalloc(10, 1);
  ASSERT_EQ(0, downdown(semaphore(), "test", 1, "test", 0)); // whoever takes it now waits for ever
  EXPECT_EQ(nullptr, xmalloc(0, 0));
  EXPECT_EQ(nullptr, xcalloc(0, 10, 0));
  EXPECT_EQ(nullptr, xrealloc(block, 0, 0));
  EXPECT_EQ(nullptr, xrealloc(nullptr, 10, 0));
  EXPECT_NE("POOL EMPTY\n", printed()); // nor for printing
  EXPECT_EQ(0, upup(semaphore(), "test", 1, "test", 0));
  expect_free();
}

TEST_F(TrackedMemory, The257thBlockIsRefusedAndAFreedPlaceIsTakenAgain) {
  std::vector<void *> blocks;
  for (unsigned i = 0; i < table_size; i++) {
    blocks.push_back(i % 2 ? xmalloc(8, i) : xcalloc(2, 4, i));
    ASSERT_NE(nullptr, blocks.back()) << i;
  }
  EXPECT_EQ(table_size, live());
  EXPECT_EQ(nullptr, xmalloc(8, 0));
  EXPECT_EQ(nullptr, xcalloc(1, 8, 0));
  EXPECT_EQ(table_size, live());
  xfree(blocks[100]);
  EXPECT_EQ(table_size - 1, live());
  EXPECT_NE(nullptr, xmalloc(8, 0));
  EXPECT_EQ(nullptr, xmalloc(8, 0));
  void *const renewed = xrealloc(blocks[7], 16, 0); // a full table has room for a new block in an old place
  EXPECT_NE(nullptr, renewed);
  expect_free();
}

TEST_F(TrackedMemory, ABlockThatIsNotTrackedIsNotFreed) {
  void *const tracked = xmalloc(8, 1);
  char *const other = static_cast<char *>(malloc(8));
  strcpy(other, "mine");
  const std::string before = printed();
  xfree(other);
  xfree(static_cast<char *>(tracked) + 1);
  EXPECT_EQ(nullptr, xrealloc(other, 100, 0));
  EXPECT_EQ(nullptr, xrealloc(static_cast<char *>(tracked) + 1, 100, 0));
  EXPECT_STREQ("mine", other);
  EXPECT_EQ(before, printed());
  free(other);
  expect_free();
}

TEST_F(TrackedMemory, ABlockIsFreedOnce) {
  void *const stays = xmalloc(8, 1);
  void *const block = xmalloc(8, 2);
  xfree(block);
  const std::string before = printed();
  xfree(block); // not tracked any more
  EXPECT_EQ(before, printed());
  EXPECT_EQ(heading(0, stays, 1, 8, 1) + "\n  0| 0| 0| 0| 0| 0| 0| 0|\n", printed());
  expect_free();
}

TEST_F(TrackedMemory, RenewingZeroesAndKeepsThePlaceInTheOrder) {
  void *const oldest = xmalloc(1, 1);
  char *const middle = static_cast<char *>(xcalloc(3, 8, 2));
  void *const newest = xmalloc(1, 3);
  memset(middle, 'x', 24);
  char *block = middle;
  for (const uint32_t size : {24u, 8u, 100u, 4u}) {
    block = static_cast<char *>(xrealloc(block, size, 7));
    ASSERT_NE(nullptr, block);
    EXPECT_TRUE(is_zero(block, size));
    memset(block, 'y', size);
  }
  EXPECT_EQ(heading(0, newest, 3, 1, 1) + "\n  0|\n" + heading(1, block, 7, 4, 1) + "\n 79|79|79|79|\n" +
                heading(2, oldest, 1, 1, 1) + "\n  0|\n",
            printed());
  expect_free();
}

TEST_F(TrackedMemory, TheLastFreeEndsThePoolUntilItIsMadeAgain) {
  void *const one = xmalloc(8, 0), *const two = xmalloc(8, 0);
  const int first_id = semaphore();
  xfree(one);
  EXPECT_EQ(first_id, semaphore());
  xfree(two);
  EXPECT_EQ(-1, semaphore());
  EXPECT_EQ(nullptr, xmalloc(8, 0));
  EXPECT_EQ(nullptr, xcalloc(8, 8, 0));
  EXPECT_EQ(nullptr, xrealloc(one, 8, 0));
  xfree(nullptr);
  EXPECT_EQ("POOL EMPTY\n", printed());
  ASSERT_EQ(0, xmem_init(key));
  EXPECT_EQ("POOL EMPTY\n", printed());
  EXPECT_NE(nullptr, xmalloc(8, 0));
  expect_free();
}

TEST_F(TrackedMemory, FreeingNullFreesEverythingAndEndsThePool) {
  for (unsigned i = 0; i < table_size; i++)
    ASSERT_NE(nullptr, xmalloc(8, i));
  xfree(nullptr);
  EXPECT_EQ(-1, semaphore());
  EXPECT_EQ(nullptr, xmalloc(8, 0));
  ASSERT_EQ(0, xmem_init(key));
  for (unsigned i = 0; i < table_size; i++)
    ASSERT_NE(nullptr, xmalloc(8, i)) << i;
  EXPECT_EQ(nullptr, xmalloc(8, 0));
  expect_free();
}

TEST_F(TrackedMemory, FreeingNullOnAnEmptyPoolEndsIt) {
  xfree(nullptr);
  EXPECT_EQ(-1, semaphore());
  EXPECT_EQ(nullptr, xmalloc(8, 0));
}

TEST_F(TrackedMemory, FreeingAnUntrackedBlockOnAnEmptyPoolEndsIt) {
  char block;
  xfree(&block);
  EXPECT_EQ(-1, semaphore());
  EXPECT_EQ(nullptr, xmalloc(8, 0));
}

TEST_F(TrackedMemory, ALivePoolIsNotMadeAgain) {
  void *const block = xmalloc(8, 5);
  const int id = semaphore();
  ASSERT_EQ(0, downdown(id, "test", 1, "test", 0));
  EXPECT_EQ(-1, xmem_init(key));
  EXPECT_EQ(0, counter()); // and nobody's lock is released
  EXPECT_EQ(-1, xmem_init(key + 1));
  EXPECT_EQ(-1, semget(key + 1, 0, 0));
  EXPECT_EQ(0, upup(id, "test", 1, "test", 0));
  EXPECT_EQ(heading(0, block, 5, 8, 1) + "\n  0| 0| 0| 0| 0| 0| 0| 0|\n", printed());
  xfree(block);
  EXPECT_EQ(-1, semget(id, 0, 0));
}

TEST_F(TrackedMemory, WithoutMemoryThereIsNoPool) {
  xfree(nullptr);
  sandbox::fail_allocation(1);
  EXPECT_EQ(-1, xmem_init(key));
  sandbox::fail_allocation(0);
  EXPECT_EQ(-1, semaphore());
  EXPECT_EQ(nullptr, xmalloc(8, 0));
  EXPECT_EQ(0, xmem_init(key));
  EXPECT_NE(nullptr, xmalloc(8, 0));
}

TEST_F(TrackedMemory, APoolWhoseSemaphoreCannotBeHadWorksUnlockedUntilItIsMadeAgain) {
  xfree(nullptr);
  sandbox::Captured errors(STDERR_FILENO);
  for (bool *failing : {&semget_fails, &setval_fails}) {
    *failing = true;
    EXPECT_EQ(-1, xmem_init(key));
    *failing = false;
    EXPECT_EQ(1u, sandbox::console().size()); // of sem_create
    sandbox::clear_console();
    void *block = xmalloc(8, 5);
    ASSERT_NE(nullptr, block);
    expect_failed_lock("xmalloc");
    EXPECT_EQ(0, xmem_init(key));
    block = xrealloc(block, 1, 6);
    EXPECT_EQ(heading(0, block, 6, 1, 1) + "\n  0|\n", printed());
    expect_free();
    xfree(block);
    EXPECT_EQ(-1, semaphore());
  }
}

TEST_F(TrackedMemory, ASemaphoreThatIsGoneIsReportedAndTheWorkIsDone) {
  ASSERT_EQ(0, sem_delete(semaphore()));
  sandbox::Captured errors(STDERR_FILENO);
  void *const stays = xmalloc(8, 1);
  ASSERT_NE(nullptr, stays);
  expect_failed_lock("xmalloc");
  void *block = xcalloc(2, 1, 2);
  ASSERT_NE(nullptr, block);
  expect_failed_lock("xcalloc");
  block = xrealloc(block, 3, 3);
  ASSERT_NE(nullptr, block);
  expect_failed_lock("xrealloc");
  xfree(block);
  expect_failed_lock("xfree");
  std::string expected;
  for (int i = 0; i < 4; i++)
    expected += "sem down: Invalid argument\nsem up: Invalid argument\n";
  EXPECT_EQ(expected, errors.text());
  xfree(stays); // ends the pool: there is nothing to give back
  EXPECT_EQ(expected + "sem down: Invalid argument\n", errors.text());
  EXPECT_EQ(nullptr, xmalloc(8, 0));
}

TEST_F(TrackedMemory, GivesTheSemaphoreBackOnEveryPath) {
  void *const stays = xmalloc(8, 0);
  EXPECT_EQ(1, counter());
  EXPECT_EQ(1u, sandbox::fail_each_allocation([] { return xmalloc(8, 0); },
                                              [](void *block, bool failed) {
                                                EXPECT_EQ(failed, block == nullptr);
                                                EXPECT_EQ(1, counter());
                                                xfree(block ? block : &block);
                                              }));
  EXPECT_EQ(1u, sandbox::fail_each_allocation([] { return xcalloc(8, 2, 0); },
                                              [](void *block, bool failed) {
                                                EXPECT_EQ(failed, block == nullptr);
                                                EXPECT_EQ(1, counter());
                                                xfree(block ? block : &block);
                                              }));
  EXPECT_EQ(1u, live());
  char untracked;
  EXPECT_EQ(nullptr, xrealloc(&untracked, 8, 0));
  EXPECT_EQ(1, counter());
  xfree(&untracked);
  EXPECT_EQ(1, counter());
  for (unsigned i = 1; i < table_size; i++)
    xmalloc(1, 0);
  EXPECT_EQ(nullptr, xmalloc(1, 0));
  EXPECT_EQ(1, counter());
  EXPECT_NE(nullptr, xrealloc(stays, 8, 0));
  expect_free();
}

TEST_F(TrackedMemory, RenewingWithoutMemoryFreesTheBlockAndItsPlace) {
  void *const stays = xmalloc(1, 1);
  void *const block = xmalloc(8, 2);
  sandbox::fail_allocation(1);
  EXPECT_EQ(nullptr, xrealloc(block, 100, 3));
  EXPECT_TRUE(sandbox::allocation_failed());
  sandbox::fail_allocation(0);
  EXPECT_EQ(heading(0, stays, 1, 1, 1) + "\n  0|\n", printed());
  EXPECT_EQ(nullptr, xrealloc(block, 100, 3)); // not tracked any more
  for (unsigned i = 1; i < table_size; i++)
    EXPECT_NE(nullptr, xmalloc(1, 0));
  expect_free();
}

TEST_F(TrackedMemory, RenewingTheLastBlockWithoutMemoryDoesNotEndThePool) {
  void *const block = xmalloc(8, 2);
  sandbox::fail_allocation(1);
  EXPECT_EQ(nullptr, xrealloc(block, 100, 3));
  sandbox::fail_allocation(0);
  EXPECT_EQ("POOL EMPTY\n", printed());
  expect_free();
  EXPECT_NE(nullptr, xmalloc(8, 0));
}

TEST_F(TrackedMemory, AProductThatCannotBeAddressedIsRefused) {
  EXPECT_EQ(nullptr, xcalloc(0xFFFFFFFF, 0xFFFFFFFF, 0));
  if (sizeof(void *) == 4) {
    EXPECT_EQ(nullptr, xcalloc(0x10000, 0x10000, 0)); // 0 when it is cut to 32 bits
    EXPECT_EQ(nullptr, xcalloc(0x10001, 0x10000, 0));
  }
  EXPECT_EQ("POOL EMPTY\n", printed());
  expect_free();
}

TEST_F(TrackedMemory, IsPrintedFromTheNewestBlockToTheOldest) {
  unsigned char *const first = static_cast<unsigned char *>(xmalloc(10, 0xFFFFFFFF));
  for (unsigned char i = 0; i < 10; i++)
    first[i] = static_cast<unsigned char>(i * 28);
  char *const second = static_cast<char *>(xcalloc(2, 9, 300));
  strcpy(second, "abcdefghi");
  strcpy(second + 9, "jk");
  void *const third = xmalloc(8, 0);
  EXPECT_EQ(heading(0, third, 0, 8, 1) + "\n  0| 0| 0| 0| 0| 0| 0| 0|\n" + heading(1, second, 300, 9, 2) +
                "\n 61|62|63|64|65|66|67|68|\n 69|\n 6a|6b| 0| 0| 0| 0| 0| 0|\n  0|\n" +
                heading(2, first, 4294967295u, 10, 1) + "\n  0|1c|38|54|70|8c|a8|c4|\n e0|fc|\n",
            printed());
  expect_free();
}

TEST_F(TrackedMemory, AnEmptyPoolIsPrintedAsEmpty) {
  EXPECT_EQ("POOL EMPTY\n", printed());
}

TEST_F(TrackedMemory, WaitsForAnotherProcessThatHoldsTheSemaphore) {
  const int id = semaphore();
  void *const stays = xmalloc(1, 0);
  ASSERT_NE(nullptr, stays);
  ASSERT_EQ(0, downdown(id, "test", 1, "test", 0));
  std::atomic<bool> done = false;
  std::thread other([&] {
    EXPECT_NE(nullptr, xmalloc(8, 0));
    done = true;
  });
  while (semctl(id, 0, GETNCNT) == 0 && !done)
    usleep(500);
  EXPECT_FALSE(done);
  EXPECT_EQ(0, upup(id, "test", 1, "test", 0));
  other.join();
  EXPECT_EQ(2u, live());
  expect_free();
}

TEST_F(TrackedMemory, AnInterruptedWaitIsReportedAndBegunAgain) {
  struct sigaction interrupt = {}, usual;
  interrupt.sa_handler = [](int) {};
  ASSERT_EQ(0, sigaction(SIGUSR1, &interrupt, &usual));
  const int id = semaphore();
  ASSERT_EQ(0, downdown(id, "test", 1, "test", 0));
  sandbox::Captured errors(STDERR_FILENO);
  void *block = nullptr;
  std::thread other([&] { block = xmalloc(8, 0); });
  while (semctl(id, 0, GETNCNT) == 0)
    usleep(500);
  pthread_kill(other.native_handle(), SIGUSR1);
  while (errors.text() != "sem down: Interrupted system call\n")
    usleep(500);
  EXPECT_EQ(0, upup(id, "test", 1, "test", 0));
  other.join();
  EXPECT_NE(nullptr, block);
  EXPECT_EQ(1u, sandbox::console().size());
  EXPECT_EQ(1, counter());
  sigaction(SIGUSR1, &usual, nullptr);
}

TEST_F(TrackedMemory, ThreadsShareTheTable) {
  constexpr int rounds = 400, held = 8;
  void *const stays = xmalloc(1, 0);
  const auto work = [](unsigned char mark) {
    unsigned char *blocks[held] = {};
    for (int round = 0; round < rounds; round++) {
      unsigned char *&block = blocks[round % held];
      const uint32_t size = 1 + static_cast<uint32_t>(round) % 40;
      if (block && round % 3 == 0) {
        ASSERT_EQ(mark, *block);
        block = static_cast<unsigned char *>(xrealloc(block, size, mark));
      } else {
        if (block)
          xfree(block);
        block = static_cast<unsigned char *>(round % 2 ? xmalloc(size, mark) : xcalloc(2, size, mark));
      }
      ASSERT_NE(nullptr, block);
      ASSERT_TRUE(is_zero(block, size));
      memset(block, mark, size);
    }
    for (unsigned char *block : blocks)
      xfree(block);
  };
  std::thread one([&] { work(1); }), two([&] { work(2); });
  one.join();
  two.join();
  EXPECT_EQ(heading(0, stays, 0, 1, 1) + "\n  0|\n", printed());
  expect_free();
}

TEST_F(TrackedMemory, EndsAndBeginsBetweenThreads) {
  // Each free may be the one that ends the pool, under the feet of the other thread.
  const auto work = [] {
    for (int round = 0; round < 300; round++) {
      xmem_init(key);
      if (void *block = xmalloc(8, 0)) {
        memset(block, 1, 8);
        xfree(block);
      }
    }
  };
  std::thread one(work), two(work);
  one.join();
  two.join();
  EXPECT_EQ("", sandbox::console_text());
}
