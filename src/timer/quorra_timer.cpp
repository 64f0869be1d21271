// Timer service: one thread that waits for the earliest timer, and short-lived ones that run what is due.
#include <errno.h>
#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "ipc/semaphore.h"
#include "list/records.h"
#include "log/trace.h"
#include "misc/detached_thread.h"

static_assert(offsetof(TimerNode, node) == 0 && sizeof(TimerThreadConfig::semid) == 4);
static_assert(sizeof(void *) != 4 || (sizeof(TimerNode) == 24 && sizeof(TimerThreadConfig) == 8));

namespace {

constexpr char trace_module[] = "quorra_timer";

constexpr size_t thread_stack = 1 << 20; // bytes

// What a notification says. The timer thread looks at the lists whatever it is.
enum { timer_added, timer_deleted, timer_modified };

// One of these holds every linked timer.
constinit list_node timerList = {&timerList, &timerList};       // waits for its time; in the order of adding
constinit list_node expiredList = {&expiredList, &expiredList}; // its time has come; in the order it was found so
constinit list_node retiredList = {&retiredList, &retiredList}; // its callback was started, or the service ended

TimerThreadConfig configuration;
int signal_pair[2]; // notifications come out of the first; they go into the second, -1 once the service has ended
unsigned char running;

using Timers = torvane::Records<TimerNode, offsetof(TimerNode, node)>;

// A thread that is cancelled with the semaphore taken, or while it starts another thread, would leave both unusable:
// the kernel gives a semaphore back when the process ends, not when a thread does. Returns what was, for
// pthread_setcancelstate afterwards.
int hold_cancellation() {
  int cancelability;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelability);
  return cancelability;
}

// A timer that is zeroed and on no list yet has nothing to unlink from.
void unlink_timer(TimerNode *timer) {
  if (timer->node.next)
    list_del(&timer->node);
}

void retire_all(list_node *list) {
  for (TimerNode &timer : Timers(list))
    list_move(&timer.node, &retiredList);
}

// The oldest one, if there is any.
void drop_notification() {
  int code;
  if (signal_pair[1] != -1)
    recv(signal_pair[0], &code, sizeof(code), MSG_DONTWAIT);
}

// What reSchedule does. A wake-up that was notified takes its notification here: the semaphore keeps the socket from
// being closed, and its number from becoming another's, on the way.
uint32_t look_at_timers(bool notified) {
  constexpr char func[] = "reSchedule";
  const uint32_t now = getCurrentTime(nullptr);
  const int cancelability = hold_cancellation();
  downdown(configuration.semid, trace_module, __LINE__, func, 0);
  if (notified)
    drop_notification();
  uint32_t earliest = 0;
  bool pending = false;
  for (TimerNode &timer : Timers(&timerList)) {
    // Signed differences: the 32-bit seconds may wrap.
    if (static_cast<int32_t>(now - timer.expire) >= 0) {
      list_move(&timer.node, &expiredList);
    } else if (!pending || static_cast<int32_t>(timer.expire - earliest) < 0) {
      earliest = timer.expire;
      pending = true;
    }
  }
  upup(configuration.semid, trace_module, __LINE__, func, 0);
  pthread_setcancelstate(cancelability, nullptr);
  if (earliest == 0)
    return 0;
  return now < earliest ? earliest - now : earliest - now - 1;
}

void report_failed_select() {
  const int cancelability = hold_cancellation();
  perror("Timer Select:");
  TRACE_AS("timerThread", "CHECK!!\n");
  pthread_setcancelstate(cancelability, nullptr);
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
  if (!torvane::start_detached(&configuration.thread, thread_stack, timerThread, &configuration)) {
    TRACE("CHECK!!\n");
    return 0;
  }
  __atomic_store_n(&running, 1, __ATOMIC_RELEASE);
  return 1;
}

int destoryTimerThread(void) {
  if (!__atomic_load_n(&running, __ATOMIC_ACQUIRE))
    return 0;
  const int cancelability = hold_cancellation();
  SEMAPHORE_DOWN(configuration.semid);
  const bool first_time = signal_pair[1] != -1;
  if (first_time) // neither the handle nor the descriptors are the service's any more afterwards
    pthread_cancel(configuration.thread);
  retire_all(&timerList);
  retire_all(&expiredList);
  if (first_time) {
    close(signal_pair[0]); // its number stays: a thread that has yet to begin looks at it
    close(signal_pair[1]);
    signal_pair[1] = -1;
  }
  const int result = SEMAPHORE_UP(configuration.semid);
  pthread_setcancelstate(cancelability, nullptr);
  return result;
}

int addTimer(TimerNode *timer) {
  if (!timer)
    return 1;
  const int cancelability = hold_cancellation();
  SEMAPHORE_DOWN(configuration.semid);
  list_add_tail(&timer->node, &timerList);
  sendNotifyToTimerThread(timer_added);
  const int result = SEMAPHORE_UP(configuration.semid);
  pthread_setcancelstate(cancelability, nullptr);
  return result;
}

int delTimer(TimerNode *timer) {
  if (!timer)
    return 1;
  const int cancelability = hold_cancellation();
  SEMAPHORE_DOWN(configuration.semid);
  __delTimer(timer);
  torvane::list_make_empty(&timer->node);
  const int result = SEMAPHORE_UP(configuration.semid);
  pthread_setcancelstate(cancelability, nullptr);
  return result;
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
  const int cancelability = hold_cancellation();
  SEMAPHORE_DOWN(configuration.semid);
  __modTimer(timer, expire);
  const int result = SEMAPHORE_UP(configuration.semid);
  pthread_setcancelstate(cancelability, nullptr);
  return result;
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
      // Full. The timer thread may be waiting for the semaphore that this caller holds, so that nobody else would
      // ever make room. The notifications left wake it all the same.
      drop_notification();
    } else if (errno != EINTR) {
      TRACE("[%d]Could not send signal: %d\n", code, code);
      return;
    }
  }
}

uint32_t reSchedule(void) {
  return look_at_timers(false);
}

void *timerThread(void *) {
  TRACE_THREAD_START();
  // Nothing that this thread does between two waits may be cut: what takes the semaphore, starts threads or writes to a
  // stream holds the cancellation off.
  if (pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr) != 0 ||
      pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr) != 0) { // NOLINT(cert-pos47-c,concurrency-*)
    TRACE("CHECK!!\n");
    return nullptr;
  }
  TRACE("Timer Thread Running\n");
  const int notifications = signal_pair[0];
  struct timeval timeout = {};
  for (;;) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(notifications, &readable);
    const int ready = select(notifications + 1, &readable, nullptr, nullptr, timeout.tv_sec > 0 ? &timeout : nullptr);
    if (ready == -1) {
      if (errno == EINTR || errno == EAGAIN)
        continue;
      report_failed_select();
    }
    if (ready != 0 && !FD_ISSET(notifications, &readable))
      continue;
    timeout.tv_sec = static_cast<int32_t>(look_at_timers(ready != 0));
    launchProcessTimerListThread();
  }
}

void launchProcessTimerListThread(void) {
  const int cancelability = hold_cancellation();
  pthread_t runner;
  if (!torvane::start_detached(&runner, thread_stack, processTimerListThread, nullptr))
    TRACE("CHECK!!\n");
  pthread_setcancelstate(cancelability, nullptr);
}

void *processTimerListThread(void *) {
  for (;;) {
    SEMAPHORE_DOWN(configuration.semid);
    if (list_empty(&expiredList)) {
      SEMAPHORE_UP(configuration.semid);
      return nullptr;
    }
    TimerNode *timer = torvane::record_of<TimerNode>(expiredList.next, offsetof(TimerNode, node));
    list_move(&timer->node, &retiredList);
    // Once the semaphore is given back the owner may take the timer out and free it.
    const TimerNode due = *timer;
    SEMAPHORE_UP(configuration.semid);
    if (due.callback)
      due.callback(due.arg1, due.arg2);
  }
}

} // extern "C"
