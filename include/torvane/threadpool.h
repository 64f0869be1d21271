/*
 * Thread pool
 *
 * A fixed number of worker threads that take tasks, in the order queued, from a ring of fixed size; and, apart from it,
 * a counter that limits threads which a program starts itself. Nothing here traces.
 *
 * Results of the pool: 0 success, -1 no pool or no function, -2 a lock, signal or broadcast failed, -3 the queue is
 * full, -4 shutting down, -5 a thread could not be joined. Results of the limit: 0 or -2.
 *
 * Any thread may queue tasks, tasks included. A task returns to end; one that ends its thread (pthread_exit), or never
 * ends, takes a worker away, and the pool can then not be freed, or its destruction waits for ever.
 */
#ifndef TORVANE_THREADPOOL_H
#define TORVANE_THREADPOOL_H

#include <pthread.h>
#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

typedef struct ThreadPoolTask {
  void *(*function)(void *argument); /* its result is ignored */
  void *argument;
} ThreadPoolTask;

/* To be read only; with `lock` taken while the pool runs. */
typedef struct ThreadPool {
  pthread_mutex_t lock;
  pthread_cond_t notify; /* signalled for each task, broadcast at shutdown */
  pthread_t *threads;    /* threadCount of them */
  ThreadPoolTask *queue; /* queueSize slots, a ring */
  int threadCount;       /* workers that were started */
  int queueSize;
  int head;     /* slot of the next task to take */
  int tail;     /* next free slot */
  int count;    /* tasks that wait */
  int shutdown; /* 0 running, 1 immediate, 2 graceful */
  int started;  /* workers alive */
} ThreadPool;

/*
 * Makes a pool and starts its workers, joinable and with the signal mask of the caller.
 *
 *   threads     number of workers; with 0 nothing is ever run
 *   queue_size  tasks that can wait; with 0 every task is refused as "queue full"
 *   stack_kib   stack of each worker in KiB, 0 for the C library's default. What the system refuses fails: negative,
 *               too large, or below PTHREAD_STACK_MIN (with the GNU C library 16 KiB on x86, 128 KiB on MIPS)
 *
 * Returns the pool, which ends with threadpool_destroy; or null when a number is negative, memory is short or a worker
 * cannot be started: those that were started are ended again, and nothing stays allocated.
 */
ThreadPool *threadpool_init(int threads, int queue_size, int stack_kib);

/*
 * Queues a task.
 *
 *   argument  handed to `function`; the caller's. When the pool is shut down at once its tasks may never run
 *
 * Returns 0; -1 when `pool` or `function` is null; -2 when the lock fails (nothing is queued), or waking a worker or
 * unlocking does (the task is queued); -3 when the queue is full, whether or not the pool is shutting down, printing
 * "queue full!!!!\n" on standard output; -4 when the pool is shutting down, printing "shutting down!!!!\n". Both are
 * printed with the pool locked: a standard output that blocks holds up the workers.
 */
int task_enqueue(ThreadPool *pool, void *(*function)(void *), void *argument);

/*
 * Ends the pool: bit 0 of `flags` set, the workers run what is queued first; else each ends with the task it is in, and
 * what is queued never runs. Waits for them and frees the pool. Not to be called from a task of the pool, nor while
 * another thread is inside task_enqueue: the pool may be freed under it.
 *
 * Returns 0: the pool is gone (unless a task ended its thread: then it is not freed). -1 when it is null.
 * -2 when the lock, or telling the workers, fails: nothing is freed, and when the broadcast failed the pool stays
 * locked. -4 when it is being ended already: the pool is then LEFT LOCKED, by this caller, so that workers still at
 * work, and the first caller who waits for them, never finish. -5 when a worker could not be joined: nothing is freed.
 */
int threadpool_destroy(ThreadPool *pool, int flags);

/*
 * Frees a pool whose workers have all ended; threadpool_destroy does it. Waits for whoever holds the lock.
 *
 * Returns 0; or -1 when it is null or workers are alive.
 */
int threadpool_free(ThreadPool *pool);

/* The thread of a worker. Returns null when the pool is shut down, or `pool` is null. */
void *threadpool_worker(void *pool);

typedef struct ThreadLimit {
  pthread_mutex_t lock;
  int current; /* 0 at first */
  int maximum;
} ThreadLimit;

/*
 * A counter from 0 to `maximum` that starts and stops nothing itself: raise it before a thread is started, lower it
 * when the thread ends. With a maximum of 0 or less it cannot be raised.
 *
 * Returns the counter, which ends with threadlimit_free; or null when memory is short.
 */
ThreadLimit *threadlimit_init(int maximum);

/* Raises the counter: 0; or -2 when it stands at its maximum, the lock fails or `limit` is null. Waits for no room. */
int threadlimit_inc(ThreadLimit *limit);

/* Lowers the counter: 0; or -2 when it stands at 0, the lock fails or `limit` is null. */
int threadlimit_dec(ThreadLimit *limit);

/* Frees the counter, whatever it stands at, as soon as nobody holds its lock: 0; or -2 when it is null. */
int threadlimit_free(ThreadLimit *limit);

TORVANE_END

#endif
