// The thread pool.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <semaphore.h>
#include <stddef.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "faults.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

using faults::counted;
using sandbox::in_child;

static_assert(offsetof(ThreadPoolTask, argument) == sizeof(void *) && sizeof(ThreadPoolTask) == 2 * sizeof(void *));
static_assert(offsetof(ThreadPool, lock) == 0 && offsetof(ThreadPool, notify) == sizeof(pthread_mutex_t));
static_assert(offsetof(ThreadPool, queue) == offsetof(ThreadPool, threads) + sizeof(void *));
static_assert(offsetof(ThreadPool, threadCount) == offsetof(ThreadPool, queue) + sizeof(void *));
static_assert(offsetof(ThreadPool, queueSize) == offsetof(ThreadPool, threadCount) + 4);
static_assert(offsetof(ThreadPool, head) == offsetof(ThreadPool, threadCount) + 8);
static_assert(offsetof(ThreadPool, tail) == offsetof(ThreadPool, threadCount) + 12);
static_assert(offsetof(ThreadPool, count) == offsetof(ThreadPool, threadCount) + 16);
static_assert(offsetof(ThreadPool, shutdown) == offsetof(ThreadPool, threadCount) + 20);
static_assert(offsetof(ThreadPool, started) == offsetof(ThreadPool, threadCount) + 24);

namespace {

class Signal {
 public:
  Signal() {
    sem_init(&semaphore_, 0, 0);
  }
  ~Signal() {
    sem_destroy(&semaphore_);
  }
  Signal(const Signal &) = delete;
  Signal &operator=(const Signal &) = delete;
  void give() {
    sem_post(&semaphore_);
  }
  void take() {
    while (sem_wait(&semaphore_) != 0 && errno == EINTR) {
    }
  }

 private:
  sem_t semaphore_;
};

// A task that says that it runs, and ends when it is told to.
struct Gate {
  Signal entered, open;
};

void *pass(void *gate) {
  static_cast<Gate *>(gate)->entered.give();
  static_cast<Gate *>(gate)->open.take();
  return nullptr;
}

void *count(void *counter) {
  ++*static_cast<std::atomic<int> *>(counter);
  return counter; // ignored
}

struct Diary {
  std::mutex lock;
  std::string text;
};

struct Entry {
  Diary *diary;
  const char *name;
};

void *write_entry(void *argument) {
  const auto *entry = static_cast<Entry *>(argument);
  const std::lock_guard<std::mutex> hold(entry->diary->lock);
  entry->diary->text += entry->name;
  return nullptr;
}

void *run_function(void *function) {
  (*static_cast<std::function<void()> *>(function))();
  return nullptr;
}

bool is_locked(ThreadPool *pool) {
  if (pthread_mutex_trylock(&pool->lock) == EBUSY)
    return true;
  pthread_mutex_unlock(&pool->lock);
  return false;
}

int field(ThreadPool *pool, int ThreadPool::*which) {
  pthread_mutex_lock(&pool->lock);
  const int value = pool->*which;
  pthread_mutex_unlock(&pool->lock);
  return value;
}

} // namespace

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
  for (int round = 0; round < 5; round++) { // three slots for each: its gate and two entries
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
    std::thread destroying([=] { EXPECT_EQ(0, threadpool_destroy(pool, flags)); });
    while (field(pool, &ThreadPool::shutdown) == 0)
      sched_yield();
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
  std::thread destroying([=] { EXPECT_EQ(0, threadpool_destroy(pool, 1)); });
  while (field(pool, &ThreadPool::shutdown) == 0)
    sched_yield();
  {
    sandbox::Captured output(STDOUT_FILENO);
    EXPECT_EQ(-3, task_enqueue(pool, count, &ran));
    EXPECT_EQ("queue full!!!!\n", output.text());
  }
  gate.open.give();
  destroying.join();
}

TEST(ThreadPool, GracefulShutdownDrainsTheQueueFirst) {
  ThreadPool *pool = threadpool_init(2, 100, 0);
  Gate gates[2];
  std::atomic<int> ran = 0;
  for (Gate &gate : gates)
    task_enqueue(pool, pass, &gate);
  for (Gate &gate : gates)
    gate.entered.take();
  for (int i = 0; i < 100; i++)
    EXPECT_EQ(0, task_enqueue(pool, count, &ran));
  std::thread destroying([=] { EXPECT_EQ(0, threadpool_destroy(pool, 1)); });
  while (field(pool, &ThreadPool::shutdown) == 0)
    sched_yield();
  EXPECT_EQ(0, ran);
  for (Gate &gate : gates)
    gate.open.give();
  destroying.join();
  EXPECT_EQ(100, ran);
}

TEST(ThreadPool, ImmediateShutdownDropsTheQueue) {
  for (const int flags : {0, 2, 0x10, -2}) { // bit 0 alone counts
    ThreadPool *pool = threadpool_init(2, 100, 0);
    Gate gates[2];
    std::atomic<int> ran = 0;
    for (Gate &gate : gates)
      task_enqueue(pool, pass, &gate);
    for (Gate &gate : gates)
      gate.entered.take();
    for (int i = 0; i < 100; i++)
      EXPECT_EQ(0, task_enqueue(pool, count, &ran));
    std::thread destroying([=] { EXPECT_EQ(0, threadpool_destroy(pool, flags)); });
    while (field(pool, &ThreadPool::shutdown) == 0)
      sched_yield();
    for (Gate &gate : gates)
      gate.open.give();
    destroying.join();
    EXPECT_EQ(0, ran) << flags;
  }
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
  std::thread destroying([=] { EXPECT_EQ(0, threadpool_destroy(pool, 1)); });
  while (field(pool, &ThreadPool::shutdown) == 0)
    sched_yield();
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
    EXPECT_LE(static_cast<size_t>(kib) * 1024, bytes); // a larger one that the C library had left will do
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
  // The record and two arrays. No worker: starting one takes what the C library takes.
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
  EXPECT_EQ(-2, counted(enqueue)); // in place of -3
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
    EXPECT_EQ(3, faults::join.calls); // the rest is joined all the same
    EXPECT_FALSE(is_locked(pool));
    EXPECT_EQ(0, pool->started);
    EXPECT_EQ(3, pool->threadCount);
    EXPECT_EQ(0, threadpool_free(pool));
  }
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

// Producers that are faster than the workers try again; every task runs exactly once.
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

// Destroyed at once in the middle of the work: what ran, ran once, and nothing runs afterwards.
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
