// The tests of the thread pool share these tasks and looks into a pool.
#pragma once

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "torvane.h"

namespace tasks {

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

// The task pass() tells that it has entered the gate, and ends when the test opens it.
struct Gate {
  Signal entered, open;
};

inline void *pass(void *gate) {
  static_cast<Gate *>(gate)->entered.give();
  static_cast<Gate *>(gate)->open.take();
  return nullptr;
}

inline void *count(void *counter) {
  ++*static_cast<std::atomic<int> *>(counter);
  return counter; // the pool ignores it
}

struct Diary {
  std::mutex lock;
  std::string text;
};

struct Entry {
  Diary *diary;
  const char *name;
};

inline void *write_entry(void *argument) {
  const auto *entry = static_cast<Entry *>(argument);
  const std::lock_guard<std::mutex> hold(entry->diary->lock);
  entry->diary->text += entry->name;
  return nullptr;
}

inline void *run_function(void *function) {
  (*static_cast<std::function<void()> *>(function))();
  return nullptr;
}

inline bool is_locked(ThreadPool *pool) {
  if (pthread_mutex_trylock(&pool->lock) == EBUSY)
    return true;
  pthread_mutex_unlock(&pool->lock);
  return false;
}

inline int field(ThreadPool *pool, int ThreadPool::*which) {
  pthread_mutex_lock(&pool->lock);
  const int value = pool->*which;
  pthread_mutex_unlock(&pool->lock);
  return value;
}

// Destroys the pool in a thread of its own; returns when the pool has begun to shut down.
inline std::thread begin_destroying(ThreadPool *pool, int flags) {
  std::thread thread([=] { EXPECT_EQ(0, threadpool_destroy(pool, flags)); });
  while (field(pool, &ThreadPool::shutdown) == 0)
    sched_yield();
  return thread;
}

} // namespace tasks
