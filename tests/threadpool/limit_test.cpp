// These tests raise and lower a thread limit.
#include <gtest/gtest.h>
#include <limits.h>
#include <stddef.h>

#include <thread>
#include <vector>

#include "faults.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "torvane.h"

RECORD_LAYOUT(ThreadLimit, sizeof(pthread_mutex_t) + 8, FIELD(lock, 0, sizeof(pthread_mutex_t)),
              FIELD(current, sizeof(pthread_mutex_t), 4), FIELD(maximum, sizeof(pthread_mutex_t) + 4, 4));

TEST(ThreadLimit, IsRaisedToItsMaximumAndLoweredToNothing) {
  ThreadLimit *limit = threadlimit_init(3);
  ASSERT_NE(nullptr, limit);
  EXPECT_EQ(0, limit->current);
  EXPECT_EQ(3, limit->maximum);
  for (int current = 1; current <= 3; current++) {
    EXPECT_EQ(0, threadlimit_inc(limit));
    EXPECT_EQ(current, limit->current);
  }
  EXPECT_EQ(-2, threadlimit_inc(limit));
  EXPECT_EQ(3, limit->current);
  for (int current = 2; current >= 0; current--) {
    EXPECT_EQ(0, threadlimit_dec(limit));
    EXPECT_EQ(current, limit->current);
  }
  EXPECT_EQ(-2, threadlimit_dec(limit));
  EXPECT_EQ(0, limit->current);
  EXPECT_EQ(0, threadlimit_inc(limit));
  EXPECT_EQ(0, threadlimit_free(limit));
}

TEST(ThreadLimit, CannotBeRaisedWithoutRoom) {
  for (const int maximum : {0, -1, INT_MIN}) {
    ThreadLimit *limit = threadlimit_init(maximum);
    ASSERT_NE(nullptr, limit);
    EXPECT_EQ(-2, threadlimit_inc(limit)) << maximum;
    EXPECT_EQ(-2, threadlimit_dec(limit)) << maximum;
    EXPECT_EQ(0, threadlimit_free(limit));
  }
}

TEST(ThreadLimit, RefusesNull) {
  EXPECT_EQ(-2, threadlimit_inc(nullptr));
  EXPECT_EQ(-2, threadlimit_dec(nullptr));
  EXPECT_EQ(-2, threadlimit_free(nullptr));
}

TEST(ThreadLimit, FailsWithItsLock) {
  ThreadLimit *limit = threadlimit_init(3);
  faults::lock.fail_call(1);
  EXPECT_EQ(-2, faults::counted([=] { return threadlimit_inc(limit); }));
  EXPECT_EQ(0, limit->current);
  faults::unlock.fail_call(1);
  EXPECT_EQ(-2, faults::counted([=] { return threadlimit_inc(limit); }));
  EXPECT_EQ(1, limit->current);
  faults::lock.fail_call(1);
  EXPECT_EQ(-2, faults::counted([=] { return threadlimit_dec(limit); }));
  EXPECT_EQ(1, limit->current);
  faults::unlock.fail_call(1);
  EXPECT_EQ(-2, faults::counted([=] { return threadlimit_dec(limit); }));
  EXPECT_EQ(0, limit->current);
  EXPECT_EQ(0, threadlimit_inc(limit)); // not left locked
  EXPECT_EQ(0, threadlimit_free(limit));
}

TEST(ThreadLimit, IsNotMadeWithoutMemoryOrMutex) {
  faults::mutexes = 0;
  EXPECT_EQ(1u, sandbox::fail_each_allocation([] { return threadlimit_init(3); },
                                              [](ThreadLimit *limit, bool failed) {
                                                EXPECT_EQ(failed, limit == nullptr);
                                                threadlimit_free(limit);
                                              }));
  faults::mutex_init.fail_call(1);
  EXPECT_EQ(nullptr, faults::counted([] { return threadlimit_init(3); }));
  EXPECT_EQ(0, faults::mutexes);
}

TEST(ThreadLimit, DestroysItsMutex) {
  faults::mutexes = 0;
  const faults::Counting on;
  ThreadLimit *limit = threadlimit_init(3);
  EXPECT_EQ(1, faults::mutexes);
  EXPECT_EQ(0, threadlimit_free(limit));
  EXPECT_EQ(0, faults::mutexes);
}

TEST(ThreadLimit, IsFreedOnceItsLockIsFree) {
  ThreadLimit *limit = threadlimit_init(3);
  std::atomic<bool> freed = false;
  pthread_mutex_lock(&limit->lock);
  std::thread freeing([&] {
    threadlimit_free(limit);
    freed = true;
  });
  std::this_thread::yield();
  EXPECT_FALSE(freed);
  limit->current = 3; // still there
  pthread_mutex_unlock(&limit->lock);
  freeing.join();
  EXPECT_TRUE(freed);
}

TEST(ThreadLimit, HoldsAmongManyThreads) {
  ThreadLimit *limit = threadlimit_init(3);
  std::atomic<int> inside = 0, most = 0, raised = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; i++) {
    threads.emplace_back([&] {
      for (int n = 0; n < 5000; n++) {
        if (threadlimit_inc(limit) != 0)
          continue;
        raised++;
        const int now = ++inside;
        for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
        }
        inside--;
        EXPECT_EQ(0, threadlimit_dec(limit));
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_GE(3, most);
  EXPECT_LT(0, raised);
  EXPECT_EQ(0, limit->current);
  EXPECT_EQ(0, threadlimit_free(limit));
}
