/*
 * Thread pool
 *
 * A fixed number of worker threads that take tasks, in the order they were queued, from a ring of fixed size. Apart
 * from it stands the thread limit, a counter for threads that a program starts itself. Nothing here traces.
 *
 *   ThreadPool *pool = threadpool_init(4, 64, 0);
 *   if (pool && task_enqueue(pool, run_job, job) != 0) // void *run_job(void *job)
 *     free(job);
 *   ...
 *   threadpool_destroy(pool, 1); // the workers run what is queued first
 *
 * Results of the pool:
 *    0  success
 *   -1  there is no pool or no function
 *   -2  a lock, signal or broadcast failed
 *   -3  the queue is full
 *   -4  the pool is shutting down
 *   -5  a thread could not be joined
 * Results of the thread limit: 0 for success and -2 for failure.
 *
 * fork: a child of fork(2) has none of the workers of its parent's pools. It makes pools of its own, and leaves those
 * of its parent alone.
 *
 * Threads: any thread may queue tasks, and so may the tasks. A task ends by returning. One that ends its thread
 * (pthread_exit) takes a worker away, and the pool can then not be freed. One that never returns takes a worker away
 * too, and the destruction of the pool waits for ever.
 */
#ifndef TORVANE_THREADPOOL_H
#define TORVANE_THREADPOOL_H

#include <pthread.h>
#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* A task that waits in the queue of a pool. */
typedef struct ThreadPoolTask {
  void *(*function)(void *argument); /* its result is ignored */
  void *argument;
} ThreadPoolTask;

/* A pool of threadpool_init. Its fields may be read only, with `lock` taken while the pool runs. */
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
 * Makes a pool and starts its workers. They are joinable and have the signal mask of the caller.
 *
 *   threads     number of workers; with 0 no task is ever run
 *   queue_size  number of tasks that can wait; with 0 every task is refused because the queue is full
 *   stack_kib   stack of each worker in KiB; 0 for the C library's default. The call fails with a size that the system
 *               refuses: one that is negative, too large, or below PTHREAD_STACK_MIN (with the GNU C library 16 KiB on
 *               x86, 128 KiB on MIPS)
 *
 * Returns:
 *   pool  in use until threadpool_destroy
 *   null  `threads` or `queue_size` is negative, memory is short, or a worker cannot be started. Workers that were
 *         started are ended again, and nothing stays allocated
 */
ThreadPool *threadpool_init(int threads, int queue_size, int stack_kib);

/*
 * Queues a task for the workers of a pool.
 *
 *   pool      the pool
 *   function  run by a worker; its result is ignored
 *   argument  handed to `function`; it stays the caller's. When the pool is shut down at once its tasks may never run
 *
 * Returns:
 *    0  queued
 *   -1  `pool` or `function` is null
 *   -2  the lock failed, and nothing is queued; or waking a worker or unlocking failed, and the task is queued
 *   -3  the queue is full, whether or not the pool is shutting down; prints "queue full!!!!\n" on standard output
 *   -4  the pool is shutting down; prints "shutting down!!!!\n" on standard output
 *
 * Both texts are printed with the pool locked, so a standard output that blocks holds up the workers. Safe from any
 * thread, and from tasks of the pool.
 */
int task_enqueue(ThreadPool *pool, void *(*function)(void *), void *argument);

/*
 * Ends a pool: tells the workers to end, waits for them, and frees the pool.
 *
 *   pool   the pool
 *   flags  bit 0 set: the workers run what is queued first. Clear: each worker ends with the task that it is in, and
 *          what is queued never runs
 *
 * Returns:
 *    0  the pool is gone; but if a task ended its thread, the pool is not freed
 *   -1  `pool` is null
 *   -2  the lock failed, or telling the workers did; nothing is freed. If the broadcast failed the pool stays locked
 *   -4  the pool is being ended already. It is then LEFT LOCKED by this caller, so workers that are still at work never
 *       finish, nor does the first caller, who waits for them
 *   -5  a worker could not be joined; nothing is freed
 *
 * Do not call it from a task of the pool, nor while another thread is inside task_enqueue: the pool may be freed under
 * that thread.
 */
int threadpool_destroy(ThreadPool *pool, int flags);

/*
 * Frees a pool whose workers have all ended. threadpool_destroy does this itself.
 *
 *   pool  the pool; the call waits while anybody holds its lock
 *
 * Returns:
 *    0  freed
 *   -1  `pool` is null, or workers are alive
 */
int threadpool_free(ThreadPool *pool);

/*
 * Runs tasks of a pool until the pool is shut down. It is the thread of a worker.
 *
 *   pool  the pool; with null the function returns at once
 *
 * Returns null.
 */
void *threadpool_worker(void *pool);

/* A thread limit of threadlimit_init. */
typedef struct ThreadLimit {
  pthread_mutex_t lock;
  int current; /* 0 at first */
  int maximum;
} ThreadLimit;

/*
 * Makes a counter that limits the number of threads which a program starts itself. It starts and stops no thread: raise
 * it with threadlimit_inc before a thread is started, and lower it with threadlimit_dec when the thread ends.
 *
 *   maximum  highest count; with 0 or less the counter cannot be raised
 *
 * Returns:
 *   limit  the counter, which stands at 0; in use until threadlimit_free
 *   null   memory is short
 */
ThreadLimit *threadlimit_init(int maximum);

/*
 * Raises a thread limit's counter by 1. The call does not wait until there is room.
 *
 *   limit  the counter
 *
 * Returns:
 *    0  raised
 *   -2  the counter stands at its maximum, the lock failed, or `limit` is null. If only the unlocking failed, it is
 *       raised all the same
 *
 * Safe from any thread.
 */
int threadlimit_inc(ThreadLimit *limit);

/*
 * Lowers a thread limit's counter by 1.
 *
 *   limit  the counter
 *
 * Returns:
 *    0  lowered
 *   -2  the counter stands at 0, the lock failed, or `limit` is null. If only the unlocking failed, it is lowered all
 *       the same
 *
 * Safe from any thread.
 */
int threadlimit_dec(ThreadLimit *limit);

/*
 * Frees a thread limit, whatever its counter stands at.
 *
 *   limit  the counter; the call waits while anybody holds its lock
 *
 * Returns:
 *    0  freed
 *   -2  `limit` is null
 */
int threadlimit_free(ThreadLimit *limit);

TORVANE_END

#endif
