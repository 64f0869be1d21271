// These tests put the thread pool under load.
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/sandbox.h"
#include "tasks.h"
#include "torvane.h"

using tasks::count;

// Producers that find the queue full try again, and every task must run exactly once.
TEST(ThreadPoolStress, EveryTaskRunsExactlyOnce) {
  constexpr int producers = 4, tasks_each = 20000;
  std::vector<std::atomic<unsigned char>> runs(producers * tasks_each);
  std::atomic<int> refused = 0;
  {
    sandbox::Captured output(STDOUT_FILENO);
    ThreadPool *pool = threadpool_init(3, 64, 128);
    ASSERT_NE(nullptr, pool);
    std::vector<std::thread> threads;
    for (int producer = 0; producer < producers; producer++) {
      threads.emplace_back([=, &refused, &runs] {
        for (int i = 0; i < tasks_each; i++) {
          void *task = &runs[static_cast<size_t>(producer * tasks_each + i)];
          const auto run = [](void *counter) -> void * {
            ++*static_cast<std::atomic<unsigned char> *>(counter);
            return nullptr;
          };
          for (int result; (result = task_enqueue(pool, run, task)) != 0;) {
            EXPECT_EQ(-3, result);
            refused++;
            sched_yield();
          }
        }
      });
    }
    for (std::thread &thread : threads)
      thread.join();
    EXPECT_EQ(0, threadpool_destroy(pool, 1));
    std::string full;
    for (int i = 0; i < refused; i++)
      full += "queue full!!!!\n";
    EXPECT_TRUE(full == output.text()) << refused;
  }
  int wrong = 0;
  for (const auto &count_of_runs : runs)
    wrong += count_of_runs != 1;
  EXPECT_EQ(0, wrong);
}

// The pool is destroyed in the middle of its work, and no task may run afterwards.
TEST(ThreadPoolStress, ImmediateShutdownUnderLoad) {
  for (int round = 0; round < 50; round++) {
    ThreadPool *pool = threadpool_init(3, 1000, 128);
    std::atomic<int> ran = 0;
    for (int i = 0; i < 1000; i++)
      ASSERT_EQ(0, task_enqueue(pool, count, &ran));
    ASSERT_EQ(0, threadpool_destroy(pool, 0));
    const int at_end = ran;
    EXPECT_GE(1000, at_end);
    sched_yield();
    EXPECT_EQ(at_end, ran);
  }
}

TEST(ThreadPoolStress, GracefulShutdownUnderLoad) {
  for (int round = 0; round < 50; round++) {
    ThreadPool *pool = threadpool_init(3, 1000, 128);
    std::atomic<int> ran = 0;
    for (int i = 0; i < 1000; i++)
      ASSERT_EQ(0, task_enqueue(pool, count, &ran));
    ASSERT_EQ(0, threadpool_destroy(pool, 1));
    EXPECT_EQ(1000, ran);
  }
}
