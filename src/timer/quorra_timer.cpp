// Runs timers: one thread waits for the earliest timer, and short-lived ones call back for those that are due.
#include <errno.h>
#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "base/cancellation.h"
#include "base/detached_thread.h"
#include "base/lock.h"
#include "base/records.h"
#include "base/trace.h"
#include "torvane/list.h"
#include "torvane/timer.h"

static_assert(offsetof(TimerNode, node) == 0 && sizeof(TimerThreadConfig::semid) == 4);
static_assert(sizeof(void *) != 4 || (sizeof(TimerNode) == 24 && sizeof(TimerThreadConfig) == 8));

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_timer";

constexpr size_t thread_stack = 1 << 20; // bytes

// These are the codes of notifications. They mean nothing to the timer thread, which looks at the lists after each.
enum { timer_added, timer_deleted, timer_modified };

// Every linked timer is on one of these lists.
constinit list_node timerList = {&timerList, &timerList};       // waits for its time; in the order of adding
constinit list_node expiredList = {&expiredList, &expiredList}; // its time has come; in the order it was found so
constinit list_node retiredList = {&retiredList, &retiredList}; // its callback was started, or the service ended

TimerThreadConfig configuration;
int signal_pair[2]; // notifications go into the second, which is -1 once the service has ended, and out of the first
unsigned char running;

// These are the states of the timer thread. It may be cancelled only while it waits in select: the signal that a
// cancellation sends would also interrupt its wait for the semaphore. A thread that was busy when the service ended
// ends by itself.
enum { thread_busy, thread_waits, thread_is_to_end };
int thread_state;

using Timers = Records<TimerNode, offsetof(TimerNode, node)>;

bool change_thread_state(int from, int to) {
  return __atomic_compare_exchange_n(&thread_state, &from, to, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

bool thread_is_to_stop() {
  return __atomic_load_n(&thread_state, __ATOMIC_ACQUIRE) == thread_is_to_end;
}

// A zeroed timer is on no list yet and has nothing to unlink from.
void unlink_timer(TimerNode *timer) {
  if (timer->node.next)
    list_del(&timer->node);
}

void retire_all(list_node *list) {
  for (TimerNode &timer : Timers(list))
    list_move(&timer.node, &retiredList);
}

// Takes the oldest notification out of the socket, if there is one.
void drop_notification() {
  int code;
  if (signal_pair[1] != -1)
    recv(signal_pair[0], &code, sizeof(code), MSG_DONTWAIT);
}

// Moves the timers that are due at `now`. Returns the seconds until the next one, 0 when there is none. The caller has
// the semaphore.
uint32_t move_due_timers(uint32_t now) {
  uint32_t earliest = 0;
  bool pending = false;
  for (TimerNode &timer : Timers(&timerList)) {
    // The 32-bit seconds may wrap, so differences are signed.
    if (static_cast<int32_t>(now - timer.expire) >= 0) {
      list_move(&timer.node, &expiredList);
    } else if (!pending || static_cast<int32_t>(timer.expire - earliest) < 0) {
      earliest = timer.expire;
      pending = true;
    }
  }
  // This is meant: a timer at second 0 does not shorten the sleep, and past the wrap of the clock the sleep is a second
  // shorter.
  if (earliest == 0)
    return 0;
  return now < earliest ? earliest - now : earliest - now - 1;
}

bool start_runner() {
  pthread_t runner;
  return start_detached(&runner, thread_stack, processTimerListThread, nullptr);
}

// Does what the timer thread does at a wake-up: takes its notification, looks at the timers, starts a runner. Returns
// false when the service was ended before the thread got the semaphore; then nobody hears of it any more. All of it
// happens under the semaphore: it keeps the socket from being closed meanwhile, and its number from becoming another's,
// and no runner starts after the end.
bool wake_up(bool notified, timeval *timeout) {
  constexpr char func[] = "reSchedule";
  const uint32_t now = getCurrentTime(nullptr);
  const Lock lock = TAKE_LOCK_AS(func, configuration.semid);
  if (thread_is_to_stop()) {
    give_lock_silently(lock);
    return false;
  }
  if (notified)
    drop_notification();
  timeout->tv_sec = static_cast<int32_t>(move_due_timers(now));
  // This is meant: a runner is started at every wake-up, also when nothing is due.
  const bool started = start_runner();
  GIVE_LOCK_AS(func, lock);
  if (!started)
    TRACE_AS("launchProcessTimerListThread", "CHECK!!\n");
  return true;
}

} // namespace

extern "C" {

int createTimerThread(const TimerThreadConfig *config) {
  if (!config || __atomic_load_n(&running, __ATOMIC_ACQUIRE))
    return 0;
  configuration = *config;
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signal_pair) != 0) {
    TRACE("can't create signal pipe\n");
    return 0;
  }
  if (signal_pair[0] >= FD_SETSIZE) { // select could not wait for it
    close(signal_pair[0]);
    close(signal_pair[1]);
    TRACE("can't create signal pipe\n");
    return 0;
  }
  // The thread may run before its handle is stored, and never looks at it; destoryTimerThread does once it runs.
  if (!start_detached(&configuration.thread, thread_stack, timerThread, &configuration)) {
    TRACE("CHECK!!\n"); // this is meant: the socket pair stays open
    return 0;
  }
  __atomic_store_n(&running, 1, __ATOMIC_RELEASE);
  return 1;
}

// This is meant: programs know the function by this spelling, and the service stays marked as running, so that no
// process starts it twice.
int destoryTimerThread(void) {
  if (!__atomic_load_n(&running, __ATOMIC_ACQUIRE))
    return 0;
  const Lock lock = TAKE_LOCK(configuration.semid);
  if (__atomic_exchange_n(&thread_state, thread_is_to_end, __ATOMIC_ACQ_REL) == thread_waits)
    pthread_cancel(configuration.thread);
  retire_all(&timerList);
  retire_all(&expiredList);
  if (signal_pair[1] != -1) { // else both are closed already, and their numbers may be another's
    close(signal_pair[0]);    // its number stays: a timer thread that has yet to begin looks at it
    close(signal_pair[1]);
    signal_pair[1] = -1;
  }
  return GIVE_LOCK(lock) ? 0 : 1;
}

int addTimer(TimerNode *timer) {
  if (!timer)
    return 1;
  const Lock lock = TAKE_LOCK(configuration.semid);
  list_add_tail(&timer->node, &timerList);
  sendNotifyToTimerThread(timer_added);
  return GIVE_LOCK(lock) ? 0 : 1;
}

int delTimer(TimerNode *timer) {
  if (!timer)
    return 1;
  const Lock lock = TAKE_LOCK(configuration.semid);
  // This is meant: only this function empties the node. After __delTimer alone it names its old neighbours.
  __delTimer(timer);
  list_make_empty(&timer->node);
  return GIVE_LOCK(lock) ? 0 : 1;
}

void __delTimer(TimerNode *timer) {
  if (!timer)
    return;
  unlink_timer(timer);
  sendNotifyToTimerThread(timer_deleted);
}

int modTimer(TimerNode *timer, uint32_t expire) {
  if (!timer)
    return 1;
  const Lock lock = TAKE_LOCK(configuration.semid);
  __modTimer(timer, expire);
  return GIVE_LOCK(lock) ? 0 : 1;
}

void __modTimer(TimerNode *timer, uint32_t expire) {
  if (!timer)
    return;
  unlink_timer(timer);
  timer->expire = expire;
  list_add_tail(&timer->node, &timerList);
  sendNotifyToTimerThread(timer_modified);
}

uint32_t getCurrentTime(uint32_t *out) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto seconds = static_cast<uint32_t>(now.tv_sec);
  if (out)
    *out = seconds;
  return seconds;
}

void sendNotifyToTimerThread(int code) {
  while (send(signal_pair[1], &code, sizeof(code), MSG_DONTWAIT | MSG_NOSIGNAL) == -1) {
    if (errno == EAGAIN) {
      // The socket is full. The timer thread may be waiting for the semaphore that this caller holds, so nobody else
      // would ever make room. The notifications that are left wake it all the same.
      drop_notification();
    } else if (errno != EINTR) {
      TRACE("[%d]Could not send signal: %d\n", code, code);
      return;
    }
  }
}

uint32_t reSchedule(void) {
  const uint32_t now = getCurrentTime(nullptr);
  const Lock lock = TAKE_LOCK(configuration.semid);
  const uint32_t seconds = move_due_timers(now);
  GIVE_LOCK(lock);
  return seconds;
}

void *timerThread(void *) {
  if (thread_is_to_stop())
    return nullptr; // the service was ended before this thread began
  TRACE_THREAD_START();
  if (pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr) != 0 ||
      pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr) != 0) { // NOLINT(cert-pos47-c,concurrency-*)
    TRACE("CHECK!!\n");
    change_thread_state(thread_busy, thread_is_to_end);
    return nullptr;
  }
  TRACE("Timer Thread Running\n");
  const int notifications = signal_pair[0];
  struct timeval timeout = {};
  while (change_thread_state(thread_busy, thread_waits)) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(notifications, &readable);
    const int ready = select(notifications + 1, &readable, nullptr, nullptr, timeout.tv_sec > 0 ? &timeout : nullptr);
    const int error = errno;
    while (!change_thread_state(thread_waits, thread_busy))
      pause(); // the cancellation is on its way

    // This is meant: an interrupted sleep goes on with what select left of the time, which has no end once less than a
    // second is left. Any other failure is handled as a notification.
    if (ready == -1) {
      if (error == EINTR || error == EAGAIN)
        continue;
      errno = error;
      perror("Timer Select:");
      TRACE("CHECK!!\n");
    }
    if (ready != 0 && !FD_ISSET(notifications, &readable))
      continue;
    if (!wake_up(ready != 0, &timeout))
      return nullptr;
  }
  return nullptr;
}

void launchProcessTimerListThread(void) {
  const int cancellability = hold_cancellation();
  if (!start_runner())
    TRACE("CHECK!!\n");
  restore_cancellation(cancellability);
}

void *processTimerListThread(void *) {
  for (;;) {
    const Lock lock = TAKE_LOCK(configuration.semid);
    const bool ended = thread_is_to_stop(); // then the semaphore may be gone, and nobody hears of the service any more
    if (list_empty(&expiredList) || (ended && lock.wait != Wait::taken)) {
      if (ended)
        give_lock_silently(lock);
      else
        GIVE_LOCK(lock);
      return nullptr;
    }
    TimerNode *timer = record_of<TimerNode>(expiredList.next, offsetof(TimerNode, node));
    list_move(&timer->node, &retiredList);
    // Once the semaphore is given back the owner may take the timer out and free it.
    const TimerNode due = *timer;
    GIVE_LOCK(lock);
    if (due.callback)
      due.callback(due.arg1, due.arg2);
  }
}

} // extern "C"
