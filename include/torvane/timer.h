/*
 * Timers
 *
 * Callbacks at whole seconds of the monotonic clock. One timer thread in the process sleeps until the earliest timer is
 * due or a notification comes. At every wake-up, also when nothing is due, it starts a short-lived runner thread that
 * calls what is due, one callback after the other.
 *
 *   static TimerNode timer = {{NULL, NULL}, on_due, 1, 2, 0}; // void on_due(uint32_t arg1, uint32_t arg2)
 *   TimerThreadConfig config = {0};
 *   if (sem_create(key, &config.semid) != 0 || createTimerThread(&config) != 1)
 *     return 1;
 *   timer.expire = getCurrentTime(NULL) + 5;
 *   addTimer(&timer);
 *
 * Results: createTimerThread returns 1 for success and 0 for failure. The operations on timers return 0 for success and
 * 1 for failure.
 *
 * Order: runners of several wake-ups run side by side. So a slow callback delays the due timers behind it only until
 * the next wake-up, and two callbacks may run at the same time. Timers with the same expiry are started in the order in
 * which they were added or last modified. Every timer is started exactly once each time it is armed.
 *
 * Life of a timer: timers are one-shot. A timer that has fired stays linked (retired) until it is deleted; modTimer
 * arms it again. The lists are unsorted and walked at every wake-up, which is good for some dozens of timers.
 *
 * Accuracy: a timer never runs before its second, and may run up to two seconds after that second began. The sleep is
 * counted in whole seconds from the moment it is computed. If a notification cuts a sleep short, the next one also
 * keeps the microseconds that were left of it.
 *
 * Locking: one System V semaphore guards all lists. The program makes it with sem_create (torvane/ipc.h); it must be
 * free (1) at the start. addTimer, delTimer, modTimer and destoryTimerThread take it. __delTimer and __modTimer are for
 * callers that hold it already (downdown). Callbacks run without it and may call any of these. A thread that is
 * cancelled inside one of them goes on to its end first. If a down or up fails, downdown or upup traces it, and the
 * work is done all the same, without a lock; what the kernel refused to take is not given back. Runners take the
 * semaphore once more after their last callback, also when the service has been ended, and the timer thread may be
 * waiting for it then. If the semaphore is deleted meanwhile, downdown traces that once for each of them.
 *
 * fork: a child of fork(2) has the lists and the mark that the service runs, but no timer thread, and it can never
 * start one. Its notifications reach the parent's thread. Start the service after daemon(3).
 *
 * Start: do not call the operations on timers before createTimerThread has returned 1. The semaphore's id and the
 * descriptors are 0 until then, so the operations would work on semaphore 0 and send to standard input.
 *
 * End: ending the service cancels a thread. For that the GNU C library loads libgcc_s.so.1 if the program has not.
 *
 * Threads and signals: timer thread and runners are detached, have stacks of 1 MiB, and inherit the signal mask of the
 * thread that starts them, so block signals around createTimerThread. If a signal handler runs on the timer thread in
 * the last second of its sleep, the thread sleeps on until the next notification. If a signal interrupts a wait for the
 * semaphore, downdown traces the first interruption and the wait begins again. The SIGCHLD of a system(3) or __system in another thread
 * is such a signal too: the kernel gives it to any thread that does not block it, whether it is handled or not.
 */
#ifndef TORVANE_TIMER_H
#define TORVANE_TIMER_H

#include <pthread.h>
#include <stdint.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

/* A timer. It is the caller's memory and stays in place, and unchanged, from addTimer to delTimer. */
typedef struct TimerNode {
  list_node node;                                 /* zeroed, or linked by the service */
  void (*callback)(uint32_t arg1, uint32_t arg2); /* run when due; null runs nothing */
  uint32_t arg1;
  uint32_t arg2;
  uint32_t expire; /* second of getCurrentTime's clock; due from that second on, for 2^31 - 1 seconds */
} TimerNode;

/* What createTimerThread needs. */
typedef struct TimerThreadConfig {
  int semid;        /* the semaphore that guards the timers */
  pthread_t thread; /* any value */
} TimerThreadConfig;

/*
 * Starts the timer service of this process. Call it once, from one thread.
 *
 *   config  copied
 *
 * Returns:
 *   1  the timer thread runs
 *   0  one of these:
 *        the service was started before, even if it has been ended since: a process can start it only once
 *        `config` is null
 *        there is no socket pair, or select cannot watch its descriptor; traces "can't create signal pipe\n"
 *        the thread cannot be started; traces "CHECK!!\n". The two descriptors of the socket pair stay open, and
 *        another call makes another pair
 *
 * The descriptors are close-on-exec. For what the timer thread itself traces see timerThread.
 */
int createTimerThread(const TimerThreadConfig *config);

/*
 * Ends the timer service for good: cancels the timer thread, retires every timer, and closes the socket pair.
 *
 * Returns:
 *   0  done, also when the service never ran
 *   1  the semaphore could not be taken or given back
 *
 * From then on no runner and no callback is started, except a callback that a runner has already taken; those that run
 * go on. Nothing is traced any more by the service's threads. The timer thread ends at once or, if it waits for the
 * semaphore, as soon as it has it or the semaphore is gone, which downdown traces once.
 *
 * Timers may still be deleted. Those added or modified afterwards never run; the notification of each operation fails,
 * and is traced. Another call retires those timers, and cancels and closes nothing. Safe from any thread that does not
 * hold the semaphore.
 */
int destoryTimerThread(void);

/*
 * Arms a timer that is on no list. The caller has set callback, arguments and expiry, usually to getCurrentTime(NULL)
 * plus a delay. A timer whose expiry has come already runs at once.
 *
 *   timer  the caller's, in place and unchanged until delTimer. Do not add a timer that has been added already
 *
 * Returns:
 *   0  armed
 *   1  `timer` is null, or the semaphore could not be taken or given back
 *
 * While a timer with the expiry 0 is the earliest that waits, the sleep has no end: that timer runs at the first
 * wake-up at or after its time. Safe from any thread that does not hold the semaphore.
 */
int addTimer(TimerNode *timer);

/*
 * Takes a timer off its list, in whatever state it is. The record may be freed afterwards.
 *
 *   timer  a timer that was added, or whose node is zeroed. Its node then points to itself, so that deleting the timer
 *          again is harmless
 *
 * Returns:
 *   0  the timer is on no list
 *   1  `timer` is null, or the semaphore could not be taken or given back
 *
 * A callback that a runner has taken already is running or still runs, with copies of the two arguments. Safe from any
 * thread that does not hold the semaphore.
 */
int delTimer(TimerNode *timer);

/*
 * Takes a timer off its list for a caller that holds the semaphore.
 *
 *   timer  a timer that was added, or whose node is zeroed; null does nothing
 *
 * The node keeps naming its old neighbours. So until the timer is added again, do not call this twice, nor delTimer,
 * modTimer or __modTimer after it. A callback that a runner has taken already is running or still runs.
 */
void __delTimer(TimerNode *timer);

/*
 * Arms a timer anew, in whatever state it is: waiting, due, fired, deleted with delTimer, or zeroed and never added.
 *
 *   timer   the caller's; it goes behind the timers that are armed
 *   expire  second of getCurrentTime's clock
 *
 * Returns:
 *   0  armed
 *   1  `timer` is null, or the semaphore could not be taken or given back
 *
 * If the timer was due before and no runner has taken it yet, that is forgotten. Safe from any thread that does not
 * hold the semaphore.
 */
int modTimer(TimerNode *timer, uint32_t expire);

/*
 * Arms a timer anew for a caller that holds the semaphore.
 *
 *   timer   a timer that waits, is due, has fired, was deleted with delTimer, or is zeroed and was never added; it goes
 *           behind the timers that are armed. Null does nothing
 *   expire  second of getCurrentTime's clock
 *
 * If the timer was due before and no runner has taken it yet, that is forgotten.
 */
void __modTimer(TimerNode *timer, uint32_t expire);

/*
 * Returns the seconds of the monotonic clock, cut to whole seconds and to 32 bits. Safe from any thread.
 *
 *   out  also receives them, unless it is null
 */
uint32_t getCurrentTime(uint32_t *out);

/*
 * The functions from here on are the steps of the service, for tests and for programs that wake the timer thread
 * themselves.
 */

/*
 * Wakes the timer thread.
 *
 *   code  0 a timer was added, 1 deleted, 2 modified; it appears only in the trace
 *
 * If the service may be ended at the same time, take the semaphore around this call. The function never waits for the
 * timer thread: if the socket is full it takes the oldest notification out and tries again. If nothing can be sent it
 * traces "[%d]Could not send signal: %d\n" with the code twice. What was to be notified of stands, and the timer thread
 * sees it at the next wake-up.
 */
void sendNotifyToTimerThread(int code);

/*
 * Takes the semaphore and finds out which timers are due.
 *
 * Returns:
 *   seconds  until the earliest of the timers that are not due. It is one second less if the expiry is a smaller number
 *            than the clock, which has yet to wrap
 *   0        no timer waits, or the earliest has the expiry 0
 *
 * Safe from any thread that does not hold the semaphore.
 */
uint32_t reSchedule(void);

/*
 * Starts a detached runner thread, processTimerListThread. If the thread cannot be started, traces "CHECK!!\n", and
 * what is due waits for the next wake-up.
 */
void launchProcessTimerListThread(void);

/*
 * Calls the callbacks of the timers that are due, and ends when none is left. It is the runner thread.
 *
 *   unused  not looked at
 *
 * It takes the semaphore for each due timer that it takes, and gives it back before the callback. Returns null.
 */
void *processTimerListThread(void *unused);

/*
 * Sleeps until timers are due or a notification comes, and starts the runners. It is the timer thread.
 *
 *   config  not looked at
 *
 * Returns null when it finds the service ended. It can be cancelled at any moment while it waits.
 *
 * Traces:
 *   "[%d|%d]Thread Create[%s]\n"  at its start, with the process id, the thread id and "timerThread"
 *   "Timer Thread Running\n"      after that; or "CHECK!!\n" if it cannot make itself cancellable, and then it ends
 *   "CHECK!!\n"                   when select fails, with the reason on standard error ("Timer Select:: ..."), and when
 *                                 a runner cannot be started; what is due then waits for the next wake-up
 */
void *timerThread(void *config);

TORVANE_END

#endif
