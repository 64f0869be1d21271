// The semaphore of tracked memory, and threads that share a pool.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/sem.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "mem/tracked_memory.h"
#include "support/child_process.h"
#include "support/contended_semaphore.h"
#include "support/interposed.h"
#include "support/sandbox.h"
#include "torvane.h"

using memory::counter;
using memory::heading;
using memory::is_zero;
using memory::key;
using memory::live;
using memory::printed;
using memory::semaphore;
using memory::table_size;
using memory::TrackedMemory;

INTERPOSE(semop, 3, sandbox::ordered_semop);

TEST_F(TrackedMemory, TakesNoSemaphoreForWhatIsRefusedAnyway) {
  void *const block = xmalloc(10, 1);
  ASSERT_EQ(0, downdown(semaphore(), "test", 1, "test", 0)); // the next to take it would wait for ever
  EXPECT_EQ(nullptr, xmalloc(0, 0));
  EXPECT_EQ(nullptr, xcalloc(0, 10, 0));
  EXPECT_EQ(nullptr, xrealloc(block, 0, 0));
  EXPECT_EQ(nullptr, xrealloc(nullptr, 10, 0));
  EXPECT_NE("POOL EMPTY\n", printed()); // printing does not take it either
  EXPECT_EQ(0, upup(semaphore(), "test", 1, "test", 0));
  expect_free();
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
  xfree(stays); // it ends the pool, so that there is no semaphore to give back
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

TEST_F(TrackedMemory, AnInterruptedWaitIsReportedOnceAndBegunAgain) {
  const interposed::StandIn hook(interposed::semop_call, sandbox::counting_semop);
  sandbox::Captured errors(STDERR_FILENO);
  void *block = nullptr;
  sandbox::interrupt_waiting(semaphore(), 4, [&] { block = xmalloc(8, 0); });
  EXPECT_NE(nullptr, block);
  EXPECT_EQ("sem down: Interrupted system call\n", errors.text());
  EXPECT_EQ(1u, sandbox::console().size());
  EXPECT_EQ(1, counter());
}

// The semaphore stands, so giving back what was not taken would let two holders in from then on.
TEST_F(TrackedMemory, WhatTheKernelRefusesIsNotGivenBack) {
  void *const stays = xmalloc(1, 0);
  ASSERT_NE(nullptr, stays);
  const interposed::StandIn hook(interposed::semop_call, sandbox::refusing_semop);
  sandbox::Captured errors(STDERR_FILENO);
  void *block = xmalloc(8, 0);
  EXPECT_NE(nullptr, block);
  block = xrealloc(block, 9, 0);
  EXPECT_NE(nullptr, block);
  xfree(block);
  EXPECT_EQ("sem down: Cannot allocate memory\nsem down: Cannot allocate memory\nsem down: Cannot allocate memory\n",
            errors.text());
  EXPECT_EQ(3u, sandbox::console().size());
  EXPECT_EQ(1, counter());
}

TEST_F(TrackedMemory, AChildForkedWhileAThreadWaitsCanAllocate) {
  EXPECT_TRUE(sandbox::works_in_a_child_of_waiting_threads(semaphore(), [] { return xmalloc(8, 0) != nullptr; }));
  EXPECT_EQ(1u, live());
  expect_free();
}

// Each child may be forked while the threads change the table.
TEST_F(TrackedMemory, AChildForkedInTheMiddleOfWorkCanAllocate) {
  ASSERT_NE(nullptr, xmalloc(1, 0)); // so that no xfree ends the pool
  std::atomic<bool> stop = false;
  const auto work = [&] {
    while (!stop)
      xfree(xcalloc(30, 30, 0));
  };
  std::thread one(work), two(work);
  int children = 0;
  for (int result = 0; children < 100 && result == 0; children++)
    result = sandbox::in_child([] {
      alarm(60);
      void *const block = xmalloc(8, 0);
      xfree(block);
      return block ? 0 : 1;
    });
  EXPECT_EQ(100, children);
  stop = true;
  one.join();
  two.join();
  EXPECT_EQ(1u, live());
  expect_free();
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

// Each free may end the pool while the other thread is using it. Who waits for its semaphore then hears that it is gone.
TEST_F(TrackedMemory, EndsAndBeginsBetweenThreads) {
  sandbox::Captured errors(STDERR_FILENO);
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
  for (const std::string &message : sandbox::console_messages())
    EXPECT_NE(std::string::npos, message.find(" down fail\n")) << message;
}
