/*
 * Timers
 *
 * Callbacks at whole seconds of the monotonic clock. One timer thread per process sleeps until the earliest timer is
 * due or a notification comes, and at every wake-up, also when nothing is due, starts a short-lived runner thread that
 * calls what is due, one after the other. Runners of several wake-ups run side by side: a slow callback delays the due
 * timers behind it only until the next wake-up, and two callbacks may run at the same time. Timers with the same expiry
 * are started in the order in which they were added or last modified; every one is started exactly once per arming.
 *
 * Timers are one-shot. A timer that has fired stays linked (retired) until it is deleted; modTimer arms it again. The
 * lists are unsorted and walked at every wake-up: good for some dozens of timers.
 *
 * A timer never runs before its second, and may run up to two seconds after it began: the sleep is counted in whole
 * seconds from the moment it is computed, and keeps the microseconds that were left of the one before when a
 * notification cut that short.
 *
 * Locking. One System V semaphore, made by the program with sem_create and free (1) at the start, guards all lists.
 * addTimer, delTimer, modTimer and destoryTimerThread take it; __delTimer and __modTimer are for callers that hold it
 * already (downdown); callbacks run without it and may call any of these. A thread that is cancelled inside one of
 * them goes on to its end first. A down or up that fails is traced by downdown and upup, and the work is done all the
 * same, without a lock. Runners take the semaphore once more after their last callback, also when the service has been
 * ended: delete it from another process, when this one has ended.
 *
 * A child of fork(2) has the lists and the mark that the service runs, but no timer thread, and can never start one:
 * its notifications reach the parent's thread. Start the service after daemon(3).
 *
 * Ending the service cancels a thread, for which the GNU C library loads libgcc_s.so.1 when the program has not.
 *
 * Before createTimerThread has returned 1 the operations on timers must not be called: the semaphore's id and the
 * descriptors are 0 until then, so they would work on semaphore 0 and send to standard input.
 *
 * Both kinds of threads are detached, have stacks of 1 MiB and inherit the signal mask of the thread that starts them:
 * block signals around createTimerThread. A handler that runs on the timer thread in the last second of its sleep makes
 * it sleep on until the next notification; a signal that interrupts a wait for the semaphore is told by downdown, and
 * the wait begun again. Such a signal is also the SIGCHLD of a system(3) or __system in another thread: the kernel
 * gives it to any thread that does not block it, handled or not.
 */
#ifndef TORVANE_TIMER_H
#define TORVANE_TIMER_H

#include <pthread.h>
#include <stdint.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

typedef struct TimerNode {
  list_node node;                                 /* zeroed, or linked by the service */
  void (*callback)(uint32_t arg1, uint32_t arg2); /* run when due; null runs nothing */
  uint32_t arg1;
  uint32_t arg2;
  uint32_t expire; /* second of getCurrentTime's clock; due from that second on, for 2^31 - 1 seconds */
} TimerNode;

typedef struct TimerThreadConfig {
  int semid;        /* the semaphore that guards the timers */
  pthread_t thread; /* any value */
} TimerThreadConfig;

/*
 * Starts the timer service of this process. Call it once, from one thread.
 *
 *   config  copied
 *
 * Returns 1; or 0: it was started before (also when it has been ended since: it can be started once per process only),
 * `config` is null, there is no socket pair ("can't create signal pipe\n", also when its descriptor is beyond what
 * select takes), or there is no thread ("CHECK!!\n": the two descriptors of the socket pair stay open, and calling
 * again makes another pair). The descriptors are close-on-exec.
 *
 * The timer thread traces "[%d|%d]Thread Create[%s]\n" with process id, thread id and "timerThread", then "Timer Thread
 * Running\n". If it cannot make itself cancellable it traces "CHECK!!\n" and ends. A select that fails is told on
 * standard error ("Timer Select:: ...") and traced "CHECK!!\n". If a runner cannot be started it traces "CHECK!!\n",
 * and what is due waits for the next wake-up.
 */
int createTimerThread(const TimerThreadConfig *config);

/*
 * Ends the service for good: cancels the timer thread, retires every timer, and closes the socket pair. No callback is
 * started from then on but one that a runner has already taken; those that run go on. The timer thread ends at once or,
 * when it is in the middle of its lists, as soon as the semaphore is free.
 *
 * Timers may still be deleted. Those added or modified afterwards never run; the notification of each operation fails,
 * and is traced. Calling it again retires those, and cancels and closes nothing.
 *
 * Returns 0, also when the service never ran; or 1 when the semaphore could not be given back.
 */
int destoryTimerThread(void);

/*
 * Arms a timer that is on no list: callback, arguments and expiry are set by the caller, usually with
 * getCurrentTime(NULL) plus a delay. An expiry that has come already runs at once.
 *
 *   timer  the caller's, in place and unchanged until delTimer; a timer already added must not be added again
 *
 * A timer that waits with the expiry 0 counts as none when the sleep is computed; it runs at the first wake-up at or
 * after its time.
 *
 * Returns 0; or 1 when the semaphore could not be given back, or `timer` is null.
 */
int addTimer(TimerNode *timer);

/*
 * Takes a timer off its list, in whatever state, and makes its node point to itself, so that deleting it again is
 * harmless; so is deleting a timer that was never added when its node is zeroed. Afterwards the record may be freed.
 * A callback that a runner has taken already still runs, or is running, with copies of the two arguments.
 *
 * Returns as addTimer.
 */
int delTimer(TimerNode *timer);

/*
 * delTimer for a caller that holds the semaphore. The node keeps naming its old neighbours: not to be called twice, nor
 * followed by delTimer or a modification, until the timer is added again. Null does nothing.
 */
void __delTimer(TimerNode *timer);

/*
 * Arms a timer anew, in whatever state: waiting, due, fired, deleted with delTimer, or zeroed and never added. What it
 * was due for before and no runner has taken is forgotten. It goes behind the timers that are armed.
 *
 *   expire  second of getCurrentTime's clock
 *
 * Returns as addTimer.
 */
int modTimer(TimerNode *timer, uint32_t expire);

/* modTimer for a caller that holds the semaphore. Null does nothing. */
void __modTimer(TimerNode *timer, uint32_t expire);

/* Seconds of the monotonic clock, cut to whole ones and to 32 bits; also stored in `out` unless null. Any thread. */
uint32_t getCurrentTime(uint32_t *out);

/*
 * The steps of the service, for tests and for programs that wake the timer thread themselves.
 *
 * sendNotifyToTimerThread wakes the timer thread; `code` is 0 for added, 1 for deleted, 2 for modified, and only told
 * in the trace. Call it with the semaphore taken where the service may be ended at the same time. When the socket is
 * full it takes the oldest notification out and tries again, so that it never waits for the timer thread. When nothing
 * can be sent it traces "[%d]Could not send signal: %d\n" with the code twice; what was to be notified of stands, and
 * is seen at the next wake-up.
 *
 * reSchedule takes the semaphore, finds out which timers are due, and returns the seconds until the earliest of the
 * others, 0 when there is none. When the expiry is a smaller number than the clock, which has yet to wrap, the result
 * is one second less.
 *
 * launchProcessTimerListThread starts a runner thread; processTimerListThread is that thread: it takes the semaphore
 * for each due timer that it takes and returns null when there is none left. timerThread is the timer thread; its
 * argument is not looked at; it is cancellable at any moment while it waits, and returns null when it finds the service
 * ended.
 */
void sendNotifyToTimerThread(int code);
uint32_t reSchedule(void);
void launchProcessTimerListThread(void);
void *processTimerListThread(void *unused);
void *timerThread(void *config);

TORVANE_END

#endif
