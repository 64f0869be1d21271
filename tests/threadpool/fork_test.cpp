// Pools and limits in a child of a process whose threads are at work.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>

#include "support/child_process.h"
#include "tasks.h"
#include "torvane.h"

TEST(ThreadPoolFork, AChildMakesAPoolOfItsOwn) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer allows a child of threads no threads of its own";
#endif
  tasks::Gate gate;
  ThreadPool *const pool = threadpool_init(2, 4, 128);
  ASSERT_NE(nullptr, pool);
  ASSERT_EQ(0, task_enqueue(pool, tasks::pass, &gate)); // one worker is at work, one waits
  gate.entered.take();
  EXPECT_EQ(0, sandbox::in_child([] {
              alarm(60);
              std::atomic<int> ran = 0;
              ThreadPool *const own = threadpool_init(1, 4, 128);
              if (!own || task_enqueue(own, tasks::count, &ran) != 0 || threadpool_destroy(own, 1) != 0)
                return 1;
              return ran == 1 ? 0 : 2;
            }));
  gate.open.give();
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
}

TEST(ThreadPoolFork, AChildCountsOnInItsCopyOfALimit) {
  ThreadLimit *const limit = threadlimit_init(2);
  ASSERT_EQ(0, threadlimit_inc(limit));
  EXPECT_EQ(0, sandbox::in_child([=] {
              alarm(60);
              return threadlimit_inc(limit) == 0 && threadlimit_inc(limit) == -2 && threadlimit_free(limit) == 0 ? 0
                                                                                                                 : 1;
            }));
  EXPECT_EQ(0, threadlimit_inc(limit)); // the child's counting was its own
  EXPECT_EQ(0, threadlimit_free(limit));
}
