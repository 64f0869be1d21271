// These tests follow the thread pool at work: its queue, its workers and its end.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <stddef.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "support/child_process.h"
#include "support/record_layout.h"
#include "support/sandbox.h"
#include "tasks.h"
#include "torvane.h"

constexpr size_t word = sizeof(void *);
constexpr size_t lists_at = sizeof(pthread_mutex_t) + sizeof(pthread_cond_t);
constexpr size_t counts_at = lists_at + 2 * word;

RECORD_LAYOUT(ThreadPoolTask, 2 * word, FIELD(function, 0, word), FIELD(argument, word, word));
RECORD_FIELDS(ThreadPool, FIELD(lock, 0, sizeof(pthread_mutex_t)),
              FIELD(notify, sizeof(pthread_mutex_t), sizeof(pthread_cond_t)), FIELD(threads, lists_at, word),
              FIELD(queue, lists_at + word, word), FIELD(threadCount, counts_at, 4), FIELD(queueSize, counts_at + 4, 4),
              FIELD(head, counts_at + 8, 4), FIELD(tail, counts_at + 12, 4), FIELD(count, counts_at + 16, 4),
              FIELD(shutdown, counts_at + 20, 4), FIELD(started, counts_at + 24, 4));

using sandbox::in_child;
using namespace tasks;

TEST(ThreadPool, StartsAsItsFieldsSay) {
  ThreadPool *pool = threadpool_init(3, 7, 0);
  ASSERT_NE(nullptr, pool);
  pthread_mutex_lock(&pool->lock);
  EXPECT_EQ(3, pool->threadCount);
  EXPECT_EQ(3, pool->started);
  EXPECT_EQ(7, pool->queueSize);
  EXPECT_TRUE(pool->head == 0 && pool->tail == 0 && pool->count == 0 && pool->shutdown == 0);
  EXPECT_TRUE(pool->threads && pool->queue);
  pthread_mutex_unlock(&pool->lock);
  EXPECT_EQ(0, threadpool_destroy(pool, 0));
}

TEST(ThreadPool, RunsTasksInTheOrderQueued) {
  ThreadPool *pool = threadpool_init(1, 10, 0);
  Diary diary;
  Entry entries[] = {{&diary, "a"}, {&diary, "b"}, {&diary, "c"}, {&diary, "d"}, {&diary, "e"}};
  for (Entry &entry : entries)
    EXPECT_EQ(0, task_enqueue(pool, write_entry, &entry));
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
  EXPECT_EQ("abcde", diary.text);
}

TEST(ThreadPool, TheRingGoesRound) {
  ThreadPool *pool = threadpool_init(1, 3, 0);
  Diary diary;
  Entry entries[] = {{&diary, "0"}, {&diary, "1"}, {&diary, "2"}, {&diary, "3"}, {&diary, "4"},
                     {&diary, "5"}, {&diary, "6"}, {&diary, "7"}, {&diary, "8"}, {&diary, "9"}};
  int queued = 0;
  for (int round = 0; round < 5; round++) { // each round takes three slots: a gate and two entries
    Gate gate;
    EXPECT_EQ(0, task_enqueue(pool, pass, &gate));
    gate.entered.take();
    EXPECT_EQ(1, field(pool, &ThreadPool::head));
    for (int i = 0; i < 2; i++)
      EXPECT_EQ(0, task_enqueue(pool, write_entry, &entries[queued++]));
    EXPECT_EQ(2, field(pool, &ThreadPool::count));
    EXPECT_EQ(0, field(pool, &ThreadPool::tail));
    gate.open.give();
    while (field(pool, &ThreadPool::count) != 0)
      sched_yield();
  }
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
  EXPECT_EQ("0123456789", diary.text);
}

TEST(ThreadPool, WorkersRunSideBySide) {
  ThreadPool *pool = threadpool_init(3, 3, 0);
  Gate gates[3];
  for (Gate &gate : gates)
    EXPECT_EQ(0, task_enqueue(pool, pass, &gate));
  for (Gate &gate : gates)
    gate.entered.take();
  for (Gate &gate : gates)
    gate.open.give();
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
}

TEST(ThreadPool, RefusesTasksWhenTheQueueIsFull) {
  ThreadPool *pool = threadpool_init(1, 2, 0);
  Gate gate;
  std::atomic<int> ran = 0;
  task_enqueue(pool, pass, &gate);
  gate.entered.take();
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, task_enqueue(pool, count, &ran));
  EXPECT_EQ(0, task_enqueue(pool, count, &ran));
  EXPECT_EQ("", output.text());
  EXPECT_EQ(-3, task_enqueue(pool, count, &ran));
  EXPECT_EQ("queue full!!!!\n", output.text());
  EXPECT_EQ(-3, task_enqueue(pool, count, &ran));
  EXPECT_FALSE(is_locked(pool));
  gate.open.give();
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
  EXPECT_EQ(2, ran);
  EXPECT_EQ("queue full!!!!\nqueue full!!!!\n", output.text());
}

TEST(ThreadPool, RefusesTasksWhileItShutsDown) {
  for (const int flags : {0, 1}) {
    ThreadPool *pool = threadpool_init(1, 2, 0);
    Gate gate;
    std::atomic<int> ran = 0;
    task_enqueue(pool, pass, &gate);
    gate.entered.take();
    task_enqueue(pool, count, &ran);
    std::thread destroying = begin_destroying(pool, flags);
    EXPECT_EQ(flags == 1 ? 2 : 1, field(pool, &ThreadPool::shutdown));
    {
      sandbox::Captured output(STDOUT_FILENO);
      EXPECT_EQ(-4, task_enqueue(pool, count, &ran));
      EXPECT_EQ("shutting down!!!!\n", output.text());
    }
    EXPECT_FALSE(is_locked(pool));
    gate.open.give();
    destroying.join();
    EXPECT_EQ(flags, ran);
  }
}

TEST(ThreadPool, AFullQueueIsToldBeforeTheShutdown) {
  ThreadPool *pool = threadpool_init(1, 1, 0);
  Gate gate;
  std::atomic<int> ran = 0;
  task_enqueue(pool, pass, &gate);
  gate.entered.take();
  task_enqueue(pool, count, &ran);
  std::thread destroying = begin_destroying(pool, 1);
  {
    sandbox::Captured output(STDOUT_FILENO);
    EXPECT_EQ(-3, task_enqueue(pool, count, &ran));
    EXPECT_EQ("queue full!!!!\n", output.text());
  }
  gate.open.give();
  destroying.join();
}

namespace {

// Destroys a pool whose workers are all busy. Returns how many of a hundred queued tasks run.
int run_after_all(int flags) {
  ThreadPool *pool = threadpool_init(2, 100, 0);
  Gate gates[2];
  std::atomic<int> ran = 0;
  for (Gate &gate : gates)
    task_enqueue(pool, pass, &gate);
  for (Gate &gate : gates)
    gate.entered.take();
  for (int i = 0; i < 100; i++)
    EXPECT_EQ(0, task_enqueue(pool, count, &ran));
  std::thread destroying = begin_destroying(pool, flags);
  EXPECT_EQ(0, ran);
  for (Gate &gate : gates)
    gate.open.give();
  destroying.join();
  return ran;
}

} // namespace

TEST(ThreadPool, GracefulShutdownDrainsTheQueueFirst) {
  EXPECT_EQ(100, run_after_all(1));
}

TEST(ThreadPool, ImmediateShutdownDropsTheQueue) {
  for (const int flags : {0, 2, 0x10, -2}) // bit 0 alone counts
    EXPECT_EQ(0, run_after_all(flags)) << flags;
}

TEST(ThreadPool, IdleWorkersEndInBothModes) {
  for (const int flags : {0, 1}) {
    ThreadPool *pool = threadpool_init(8, 1, 0);
    EXPECT_EQ(0, threadpool_destroy(pool, flags));
  }
}

TEST(ThreadPool, DestroyedTwiceItIsLeftLocked) {
  ThreadPool *pool = threadpool_init(1, 1, 0);
  Gate gate;
  task_enqueue(pool, pass, &gate);
  gate.entered.take();
  std::thread destroying = begin_destroying(pool, 1);
  EXPECT_EQ(-4, threadpool_destroy(pool, 1));
  EXPECT_TRUE(is_locked(pool));
  pthread_mutex_unlock(&pool->lock); // by its holder, this thread
  gate.open.give();
  destroying.join();
}

TEST(ThreadPool, RefusesNull) {
  ThreadPool *pool = threadpool_init(1, 1, 0);
  EXPECT_EQ(-1, task_enqueue(nullptr, count, pool));
  EXPECT_EQ(-1, task_enqueue(pool, nullptr, pool));
  EXPECT_EQ(-1, threadpool_destroy(nullptr, 1));
  EXPECT_EQ(-1, threadpool_free(nullptr));
  EXPECT_EQ(nullptr, threadpool_worker(nullptr));
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
}

TEST(ThreadPool, IsNotFreedWhileWorkersAreAlive) {
  ThreadPool *pool = threadpool_init(1, 1, 0);
  EXPECT_EQ(-1, threadpool_free(pool));
  std::atomic<int> ran = 0;
  EXPECT_EQ(0, task_enqueue(pool, count, &ran));
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
  EXPECT_EQ(1, ran);
}

TEST(ThreadPool, WithoutWorkersNothingRuns) {
  ThreadPool *pool = threadpool_init(0, 2, 0);
  ASSERT_NE(nullptr, pool);
  EXPECT_EQ(0, pool->threadCount);
  std::atomic<int> ran = 0;
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, task_enqueue(pool, count, &ran));
  EXPECT_EQ(1, pool->tail);
  EXPECT_EQ(0, task_enqueue(pool, count, &ran));
  EXPECT_EQ(0, pool->tail);
  EXPECT_EQ(-3, task_enqueue(pool, count, &ran));
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
  EXPECT_EQ(0, ran);
}

TEST(ThreadPool, WithoutSlotsItIsAlwaysFull) {
  ThreadPool *pool = threadpool_init(2, 0, 0);
  ASSERT_NE(nullptr, pool);
  std::atomic<int> ran = 0;
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(-3, task_enqueue(pool, count, &ran));
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
  EXPECT_EQ("queue full!!!!\n", output.text());

  pool = threadpool_init(0, 0, 0);
  ASSERT_NE(nullptr, pool);
  EXPECT_EQ(0, threadpool_free(pool));
}

TEST(ThreadPool, ATaskMayQueueTasks) {
  ThreadPool *pool = threadpool_init(2, 10, 0);
  std::atomic<int> ran = 0;
  std::function<void()> more = [&] {
    for (int i = 0; i < 5; i++)
      EXPECT_EQ(0, task_enqueue(pool, count, &ran));
  };
  EXPECT_EQ(0, task_enqueue(pool, run_function, &more));
  while (ran != 5)
    sched_yield();
  EXPECT_EQ(0, threadpool_destroy(pool, 1));
}

TEST(ThreadPool, AThreadOfTheProgramMayWork) {
  ThreadPool *pool = threadpool_init(0, 10, 0);
  std::atomic<int> ran = 0;
  for (int i = 0; i < 3; i++)
    task_enqueue(pool, count, &ran);
  pool->started = 1;
  pool->shutdown = 2;
  EXPECT_EQ(nullptr, threadpool_worker(pool));
  EXPECT_EQ(3, ran);
  EXPECT_EQ(0, pool->started);
  EXPECT_EQ(0, threadpool_free(pool));
}

TEST(ThreadPool, SleepingWorkersUseNoProcessor) {
  EXPECT_EQ(0, in_child([] {
              ThreadPool *pool = threadpool_init(4, 4, 0);
              timespec before, after;
              clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
              usleep(200000);
              clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
              threadpool_destroy(pool, 0);
              const long long used = (after.tv_sec - before.tv_sec) * 1000000000LL + after.tv_nsec - before.tv_nsec;
              return used < 150000000 ? 0 : 1;
            }));
}
