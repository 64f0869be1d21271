// These tests make pools, possible and impossible ones, and let the calls of a pool fail.
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <functional>

#include "faults.h"
#include "support/sandbox.h"
#include "tasks.h"
#include "torvane.h"

using faults::counted;
using tasks::count;
using tasks::is_locked;
using tasks::run_function;

TEST(ThreadPool, ImpossibleCountsMakeNoPool) {
  EXPECT_EQ(nullptr, threadpool_init(-1, 5, 0));
  EXPECT_EQ(nullptr, threadpool_init(5, -1, 0));
  EXPECT_EQ(nullptr, threadpool_init(INT_MIN, INT_MIN, 0));
}

TEST(ThreadPool, ArraysBeyondTheAddressSpaceMakeNoPool) {
  if (sizeof(void *) > 4)
    GTEST_SKIP() << "the address space of this machine holds INT_MAX records";
  EXPECT_EQ(nullptr, threadpool_init(1, INT_MAX, 0));
  EXPECT_EQ(nullptr, threadpool_init(INT_MAX, 1, 0));
  EXPECT_EQ(nullptr, threadpool_init(0x40000000, 1, 0)); // 2^32 bytes of handles
  EXPECT_EQ(nullptr, threadpool_init(1, 0x20000001, 0)); // 2^32 + 8 bytes of slots
}

TEST(ThreadPool, WorkersHaveTheStackThatIsAskedFor) {
  for (const int kib : {256, 1024, 3000}) {
    ThreadPool *pool = counted([=] { return threadpool_init(1, 1, kib); });
    ASSERT_NE(nullptr, pool);
    std::atomic<size_t> bytes = 0;
    std::function<void()> ask = [&] {
      pthread_attr_t attributes;
      if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return;
      size_t size = 0;
      pthread_attr_getstacksize(&attributes, &size);
      pthread_attr_destroy(&attributes);
      bytes = size;
    };
    EXPECT_EQ(0, task_enqueue(pool, run_function, &ask));
    EXPECT_EQ(0, threadpool_destroy(pool, 1));
    EXPECT_EQ(static_cast<size_t>(kib) * 1024, faults::last_stack);
    EXPECT_LE(static_cast<size_t>(kib) * 1024, bytes); // the C library may reuse a larger stack
  }
}

TEST(ThreadPool, WithoutAStackSizeWorkersAreStartedWithoutAttributes) {
  faults::last_stack = 12345;
  ThreadPool *pool = counted([] { return threadpool_init(1, 1, 0); });
  EXPECT_EQ(0u, faults::last_stack);
  EXPECT_EQ(0, threadpool_destroy(pool, 0));
}

TEST(ThreadPool, ImpossibleStacksMakeNoPool) {
  for (const int kib : {1, -1, INT_MIN, -0x3fffff})
    EXPECT_EQ(nullptr, threadpool_init(2, 2, kib)) << kib;
  if (sizeof(void *) == 4) {
    EXPECT_EQ(nullptr, threadpool_init(2, 2, 0x400100)); // 2^32 bytes and 256 KiB
    EXPECT_EQ(nullptr, threadpool_init(2, 2, INT_MAX));
  }
}

TEST(ThreadPool, EveryFailureOfMemoryMakesNoPoolAndLeaksNothing) {
  faults::mutexes = faults::conditions = 0;
  const faults::Counting on;
  const auto check = [](ThreadPool *pool, bool failed) {
    EXPECT_EQ(failed, pool == nullptr);
    threadpool_free(pool);
    EXPECT_EQ(0, faults::mutexes);
    EXPECT_EQ(0, faults::conditions);
  };
  // The pool allocates its record and two arrays. It has no worker, for which the C library allocates as it likes.
  EXPECT_EQ(3u, sandbox::fail_each_allocation([] { return threadpool_init(0, 4, 256); }, check));
}

TEST(ThreadPool, FailuresOfLockAndConditionMakeNoPool) {
  faults::mutexes = faults::conditions = 0;
  const faults::Counting on;
  faults::mutex_init.fail_call(1);
  EXPECT_EQ(nullptr, threadpool_init(2, 4, 0));
  faults::cond_init.fail_call(1);
  EXPECT_EQ(nullptr, threadpool_init(2, 4, 0));
  EXPECT_EQ(0, faults::mutexes);
  EXPECT_EQ(0, faults::conditions);
}

TEST(ThreadPool, AWorkerThatDoesNotStartEndsTheOthers) {
  for (const int stack : {0, 256}) {
    for (int n = 1; n <= 4; n++) {
      faults::mutexes = faults::conditions = 0;
      const faults::Counting on;
      faults::join.calls = 0;
      faults::create.fail_call(n);
      EXPECT_EQ(nullptr, threadpool_init(4, 4, stack)) << n;
      EXPECT_EQ(n, faults::create.calls);
      EXPECT_EQ(n - 1, faults::join.calls);
      EXPECT_EQ(0, faults::mutexes);
      EXPECT_EQ(0, faults::conditions);
    }
  }
}

TEST(ThreadPool, DestroysItsLockAndCondition) {
  faults::mutexes = faults::conditions = 0;
  const faults::Counting on;
  ThreadPool *pool = threadpool_init(2, 4, 0);
  EXPECT_EQ(1, faults::mutexes);
  EXPECT_EQ(1, faults::conditions);
  EXPECT_EQ(0, threadpool_destroy(pool, 0));
  EXPECT_EQ(0, faults::mutexes);
  EXPECT_EQ(0, faults::conditions);
}

TEST(ThreadPool, EnqueueTellsFailuresOfLockSignalAndUnlock) {
  ThreadPool *pool = threadpool_init(0, 4, 0);
  std::atomic<int> ran = 0;
  const auto enqueue = [&] { return task_enqueue(pool, count, &ran); };
  faults::lock.fail_call(1);
  EXPECT_EQ(-2, counted(enqueue));
  EXPECT_EQ(0, pool->count);
  faults::signal.fail_call(1);
  EXPECT_EQ(-2, counted(enqueue));
  EXPECT_EQ(1, pool->count); // it is queued
  EXPECT_FALSE(is_locked(pool));
  faults::unlock.fail_call(1);
  EXPECT_EQ(-2, counted(enqueue));
  EXPECT_EQ(2, pool->count);
  EXPECT_EQ(0, counted(enqueue));
  EXPECT_EQ(0, counted(enqueue));
  faults::unlock.fail_call(1);
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(-2, counted(enqueue)); // this comes before -3
  EXPECT_EQ("queue full!!!!\n", output.text());
  EXPECT_EQ(0, threadpool_destroy(pool, 0));
}

TEST(ThreadPool, OneSignalGoesOutForEachTask) {
  ThreadPool *pool = threadpool_init(0, 2, 0);
  std::atomic<int> ran = 0;
  sandbox::Captured output(STDOUT_FILENO);
  faults::signal.fail_call(0);
  for (int i = 0; i < 5; i++)
    counted([&] { return task_enqueue(pool, count, &ran); });
  EXPECT_EQ(2, faults::signal.calls);
  EXPECT_EQ(0, threadpool_destroy(pool, 0));
}

TEST(ThreadPool, DestroyTellsFailures) {
  ThreadPool *pool = threadpool_init(0, 4, 0);
  faults::lock.fail_call(1);
  EXPECT_EQ(-2, counted([=] { return threadpool_destroy(pool, 1); }));
  EXPECT_EQ(0, pool->shutdown);
  faults::broadcast.fail_call(1);
  EXPECT_EQ(-2, counted([=] { return threadpool_destroy(pool, 1); }));
  EXPECT_EQ(2, pool->shutdown);
  EXPECT_TRUE(is_locked(pool));
  pthread_mutex_unlock(&pool->lock);
  EXPECT_EQ(0, threadpool_free(pool));

  ThreadPool *other = threadpool_init(0, 4, 0);
  faults::unlock.fail_call(1);
  EXPECT_EQ(-2, counted([=] { return threadpool_destroy(other, 0); }));
  EXPECT_EQ(1, other->shutdown);
  EXPECT_EQ(0, threadpool_free(other));
}

TEST(ThreadPool, AWorkerThatCannotBeJoinedLeavesThePool) {
  for (int n = 1; n <= 3; n++) {
    ThreadPool *pool = threadpool_init(3, 4, 0);
    faults::join.fail_call(n);
    EXPECT_EQ(-5, counted([=] { return threadpool_destroy(pool, 1); }));
    EXPECT_EQ(3, faults::join.calls); // the others are joined all the same
    EXPECT_FALSE(is_locked(pool));
    EXPECT_EQ(0, pool->started);
    EXPECT_EQ(3, pool->threadCount);
    EXPECT_EQ(0, threadpool_free(pool));
  }
}
