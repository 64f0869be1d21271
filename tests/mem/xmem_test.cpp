// Tracked memory: blocks, the pool, the dump.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sem.h>
#include <unistd.h>

#include <vector>

#include "mem/tracked_memory.h"
#include "support/interposed.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

// Sanitizers end a program that asks for more memory than there is, unless this option is set.
extern "C" __attribute__((visibility("default"), used)) const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}
extern "C" __attribute__((visibility("default"), used)) const char *__tsan_default_options() {
  return "allocator_may_return_null=1";
}

INTERPOSE(semget, 3);
INTERPOSE_VARIADIC(semctl, 3);

using memory::counter;
using memory::heading;
using memory::is_zero;
using memory::key;
using memory::live;
using memory::printed;
using memory::semaphore;
using memory::table_size;
using memory::TrackedMemory;

namespace {

RECORD_LAYOUT(XmemPool, 3 * sizeof(void *), FIELD(semid, 0, 4), FIELD(blocks, sizeof(void *), 2 * sizeof(void *)));
RECORD_LAYOUT_32(XmemRecord, 24, FIELD(ptr, 0, 4), FIELD(size, 4, 4), FIELD(members, 8, 4), FIELD(flag, 12, 4),
                 FIELD(node, 16, 8));

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
  void *const renewed = xrealloc(blocks[7], 16, 0); // in a full table the new block takes the old place
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
  EXPECT_EQ(0, counter()); // the lock that is held is not released
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
  const auto without_a_set = [] {
    const interposed::StandIn hook(interposed::semget_call, [](key_t, int, int) { return interposed::fail(ENOSPC); });
    return xmem_init(key);
  };
  const auto without_a_value = [] {
    const interposed::StandIn hook(interposed::semctl_call, [](int set, int number, int command, void *argument) {
      return command == SETVAL ? interposed::fail(EIDRM) : interposed::semctl_call.real(set, number, command, argument);
    });
    return xmem_init(key);
  };
  for (int (*const failed_start)() : {+without_a_set, +without_a_value}) {
    EXPECT_EQ(-1, failed_start());
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
