// Thread pool: a fixed number of workers on a bounded ring of tasks; and a counter that limits threads.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

#include "torvane/threadpool.h"

static_assert(sizeof(void *) != 4 || sizeof(ThreadPoolTask) == 8);

namespace {

enum { done = 0, invalid = -1, lock_failed = -2, queue_full = -3, shutting_down = -4, join_failed = -5 };
enum { running = 0, immediate_shutdown = 1, graceful_shutdown = 2 }; // ThreadPool.shutdown
constexpr int graceful = 1;                                          // bit of threadpool_destroy's flags

constexpr int limit_failed = -2;

// Zeroed; null when there is no room. An array of nothing is there too, whatever the C library makes of it.
template <typename Item>
Item *allocate_array(int count) {
  return static_cast<Item *>(calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(Item)));
}

// Lock, condition and both arrays. After a failure what threadpool_free would not free is freed.
bool prepare(ThreadPool *pool, int threads) {
  if (pthread_mutex_init(&pool->lock, nullptr) != 0)
    return false;
  if (pthread_cond_init(&pool->notify, nullptr) != 0) {
    pthread_mutex_destroy(&pool->lock);
    return false;
  }
  pool->threads = allocate_array<pthread_t>(threads);
  if (!pool->threads) {
    pthread_cond_destroy(&pool->notify);
    pthread_mutex_destroy(&pool->lock);
    return false;
  }
  pool->queue = allocate_array<ThreadPoolTask>(pool->queueSize);
  return pool->queue != nullptr;
}

bool start_worker(ThreadPool *pool, int stack_kib) {
  pthread_t *thread = &pool->threads[pool->threadCount];
  if (stack_kib == 0)
    return pthread_create(thread, nullptr, threadpool_worker, pool) == 0;

  size_t stack_bytes;
  pthread_attr_t attributes;
  if (__builtin_mul_overflow(stack_kib, 1024, &stack_bytes) || pthread_attr_init(&attributes) != 0)
    return false;
  const bool started = pthread_attr_setstacksize(&attributes, stack_bytes) == 0 &&
                       pthread_create(thread, &attributes, threadpool_worker, pool) == 0;
  pthread_attr_destroy(&attributes);
  return started;
}

int next_slot(const ThreadPool *pool, int slot) {
  return slot + 1 == pool->queueSize ? 0 : slot + 1;
}

// With the pool's lock taken.
int append_task(ThreadPool *pool, void *(*function)(void *), void *argument) {
  if (pool->count == pool->queueSize) {
    puts("queue full!!!!");
    return queue_full;
  }
  if (pool->shutdown != running) {
    puts("shutting down!!!!");
    return shutting_down;
  }
  pool->queue[pool->tail] = {function, argument};
  pool->tail = next_slot(pool, pool->tail);
  pool->count++;
  return pthread_cond_signal(&pool->notify) == 0 ? done : lock_failed;
}

} // namespace

extern "C" {

ThreadPool *threadpool_init(int threads, int queue_size, int stack_kib) {
  if (threads < 0 || queue_size < 0)
    return nullptr;
  auto *pool = static_cast<ThreadPool *>(calloc(1, sizeof(ThreadPool)));
  if (!pool)
    return nullptr;
  pool->queueSize = queue_size;
  if (!prepare(pool, threads)) {
    threadpool_free(pool);
    return nullptr;
  }
  // The workers look at neither count before a shutdown.
  while (pool->threadCount < threads) {
    if (!start_worker(pool, stack_kib)) {
      threadpool_destroy(pool, 0);
      return nullptr;
    }
    pool->threadCount++;
    pool->started++;
  }
  return pool;
}

int task_enqueue(ThreadPool *pool, void *(*function)(void *), void *argument) {
  if (!pool || !function)
    return invalid;
  if (pthread_mutex_lock(&pool->lock) != 0)
    return lock_failed;
  const int result = append_task(pool, function, argument);
  return pthread_mutex_unlock(&pool->lock) == 0 ? result : lock_failed;
}

int threadpool_destroy(ThreadPool *pool, int flags) {
  if (!pool)
    return invalid;
  if (pthread_mutex_lock(&pool->lock) != 0)
    return lock_failed;
  if (pool->shutdown != running)
    return shutting_down; // with the lock taken: whoever destroys a pool twice finds it locked
  pool->shutdown = (flags & graceful) ? graceful_shutdown : immediate_shutdown;
  if (pthread_cond_broadcast(&pool->notify) != 0 || pthread_mutex_unlock(&pool->lock) != 0)
    return lock_failed;

  int result = done;
  for (int i = 0; i < pool->threadCount; i++)
    if (pthread_join(pool->threads[i], nullptr) != 0)
      result = join_failed;
  if (result == done)
    threadpool_free(pool);
  return result;
}

int threadpool_free(ThreadPool *pool) {
  if (!pool || pool->started > 0)
    return invalid;
  if (pool->threads) {
    free(pool->threads);
    free(pool->queue);
    // Taken once more, so that whoever still holds the lock is done with it.
    pthread_mutex_lock(&pool->lock);
    pthread_mutex_unlock(&pool->lock);
    pthread_mutex_destroy(&pool->lock);
    pthread_cond_destroy(&pool->notify);
  }
  free(pool);
  return done;
}

void *threadpool_worker(void *argument) {
  auto *pool = static_cast<ThreadPool *>(argument);
  if (!pool)
    return nullptr;
  for (;;) {
    pthread_mutex_lock(&pool->lock);
    while (pool->count == 0 && pool->shutdown == running)
      pthread_cond_wait(&pool->notify, &pool->lock);
    if (pool->shutdown == immediate_shutdown || (pool->shutdown == graceful_shutdown && pool->count == 0))
      break;
    const ThreadPoolTask task = pool->queue[pool->head];
    pool->head = next_slot(pool, pool->head);
    pool->count--;
    pthread_mutex_unlock(&pool->lock);
    task.function(task.argument);
  }
  pool->started--;
  pthread_mutex_unlock(&pool->lock);
  return nullptr;
}

ThreadLimit *threadlimit_init(int maximum) {
  auto *limit = static_cast<ThreadLimit *>(calloc(1, sizeof(ThreadLimit)));
  if (!limit)
    return nullptr;
  limit->maximum = maximum;
  if (pthread_mutex_init(&limit->lock, nullptr) != 0) {
    free(limit);
    return nullptr;
  }
  return limit;
}

int threadlimit_inc(ThreadLimit *limit) {
  if (!limit || pthread_mutex_lock(&limit->lock) != 0)
    return limit_failed;
  int result = limit_failed;
  if (limit->current < limit->maximum) {
    limit->current++;
    result = done;
  }
  return pthread_mutex_unlock(&limit->lock) == 0 ? result : limit_failed;
}

int threadlimit_dec(ThreadLimit *limit) {
  if (!limit || pthread_mutex_lock(&limit->lock) != 0)
    return limit_failed;
  int result = limit_failed;
  if (limit->current >= 1) {
    limit->current--;
    result = done;
  }
  return pthread_mutex_unlock(&limit->lock) == 0 ? result : limit_failed;
}

int threadlimit_free(ThreadLimit *limit) {
  if (!limit)
    return limit_failed;
  // Taken once more, so that whoever still holds the lock is done with it.
  pthread_mutex_lock(&limit->lock);
  pthread_mutex_unlock(&limit->lock);
  pthread_mutex_destroy(&limit->lock);
  free(limit);
  return done;
}

} // extern "C"
