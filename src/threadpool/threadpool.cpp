// Runs tasks in a pool: a fixed number of worker threads on a bounded ring.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

#include "torvane/threadpool.h"

static_assert(sizeof(void *) != 4 || sizeof(ThreadPoolTask) == 8);

namespace {

enum { done = 0, invalid = -1, lock_failed = -2, queue_full = -3, shutting_down = -4, join_failed = -5 };
enum { running = 0, immediate_shutdown = 1, graceful_shutdown = 2 }; // ThreadPool.shutdown
constexpr int graceful = 1;                                          // a bit of the flags of threadpool_destroy

// Returns a zeroed array, or null without memory. An array of nothing is not null, whatever the C library makes of it.
template <typename Item>
Item *allocate_array(int count) {
  return static_cast<Item *>(calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(Item)));
}

// Makes lock, condition and both arrays. Returns false when one of them cannot be had; everything that threadpool_free
// would not free is freed then.
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

// Appends a task and wakes a worker. Returns whether one could be woken. The caller has taken the pool's lock and knows
// that a slot is free.
bool append_task(ThreadPool *pool, void *(*function)(void *), void *argument) {
  pool->queue[pool->tail] = {function, argument};
  pool->tail = next_slot(pool, pool->tail);
  pool->count++;
  return pthread_cond_signal(&pool->notify) == 0;
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
  int result = done;
  if (pool->count == pool->queueSize) {
    puts("queue full!!!!");
    result = queue_full;
  } else if (pool->shutdown != running) {
    puts("shutting down!!!!");
    result = shutting_down;
  } else if (!append_task(pool, function, argument)) {
    result = lock_failed;
  }
  return pthread_mutex_unlock(&pool->lock) == 0 ? result : lock_failed;
}

int threadpool_destroy(ThreadPool *pool, int flags) {
  if (!pool)
    return invalid;
  if (pthread_mutex_lock(&pool->lock) != 0)
    return lock_failed;
  if (pool->shutdown != running)
    return shutting_down; // this is meant: the lock stays taken, and a pool that is destroyed twice stays locked
  pool->shutdown = (flags & graceful) ? graceful_shutdown : immediate_shutdown;
  // This is meant: the lock stays taken when nobody could be woken.
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
    // A thread that still holds the lock is done with it once it can be taken here.
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

} // extern "C"
