// This file implements the controls, and tests that they leave alone what no test has changed.
#include "controls.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <time.h>

#include <deque>

#include "support/interposed.h"
#include "support/semaphore_order.h"

// A data race ends the process, also a child, so that the test fails.
extern "C" const char *__tsan_default_options() {
  return "halt_on_error=1:atexit_sleep_ms=0";
}

// A cancelled thread leaves its stack marked as in use, and the sanitizer stumbles over that when it removes its own
// signal stack.
extern "C" const char *__asan_default_options() {
  return "use_sigaltstack=0";
}

INTERPOSED(clock_gettime);
INTERPOSED(pthread_create);
INTERPOSED(pthread_cancel);
INTERPOSED(pthread_setcanceltype);
INTERPOSED(select);
INTERPOSED(send);

namespace {

std::atomic<bool> clock_stands;
std::atomic<uint32_t> clock_seconds;

std::mutex lock;
std::vector<controls::Started> threads;
std::atomic<int> runners, ended_runners, ended_timer_threads;
pthread_t timer_thread_handle;
std::vector<controls::Wait> seen_waits;
std::deque<controls::Outcome> coming_outcomes;
std::string diary;

thread_local bool is_timer_thread;

struct Start {
  void *(*run)(void *);
  void *argument;
  bool is_runner;
};

// The destructor of a key runs however the thread ends, so it can count the ends.
pthread_key_t at_end() {
  static const pthread_key_t key = [] {
    pthread_key_t made;
    pthread_key_create(&made, [](void *kind) { (kind == &runners ? ended_runners : ended_timer_threads)++; });
    return made;
  }();
  return key;
}

void *run_watched(void *argument) {
  const Start start = *static_cast<Start *>(argument);
  delete static_cast<Start *>(argument);
  pthread_setspecific(at_end(), start.is_runner ? static_cast<void *>(&runners) : &ended_timer_threads);
  is_timer_thread = !start.is_runner;
  return start.run(start.argument);
}

// Returns whether a test has set the outcome of this wait of the timer thread, and stores that outcome.
bool take_over_wait(fd_set *readable, timeval *&timeout, int *result) {
  const std::lock_guard<std::mutex> hold(lock);
  seen_waits.push_back({!timeout, timeout ? timeout->tv_sec : 0, timeout ? timeout->tv_usec : 0});
  if (coming_outcomes.empty()) {
    if (controls::waits_without_end)
      timeout = nullptr;
    return false;
  }
  const controls::Outcome outcome = coming_outcomes.front();
  coming_outcomes.pop_front();
  if (timeout)
    *timeout = outcome.time_left;
  if (!outcome.readable)
    FD_ZERO(readable);
  errno = outcome.error;
  *result = outcome.result;
  return true;
}

int stopped_clock_gettime(clockid_t clock, timespec *now) {
  if (clock == CLOCK_MONOTONIC && clock_stands) {
    *now = {static_cast<time_t>(clock_seconds.load()), 999999999};
    return 0;
  }
  return interposed::clock_gettime_call.real(clock, now);
}

int watched_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *), void *argument) {
  int detached = PTHREAD_CREATE_JOINABLE;
  if (attributes)
    pthread_attr_getdetachstate(attributes, &detached);
  if (detached != PTHREAD_CREATE_DETACHED)
    return interposed::pthread_create_call.real(thread, attributes, run, argument);

  const bool is_runner = argument == nullptr;
  const controls::Creation how = is_runner ? controls::runner_creation : controls::timer_creation;
  if (how == controls::Creation::fails)
    return EAGAIN;
  size_t stack;
  pthread_attr_getstacksize(attributes, &stack);
  {
    const std::lock_guard<std::mutex> hold(lock);
    threads.push_back({is_runner, stack});
  }
  if (how == controls::Creation::pretended) {
    *thread = pthread_self();
    return 0;
  }
  if (is_runner)
    runners++;
  auto *start = new Start{run, argument, is_runner};
  const int error = interposed::pthread_create_call.real(thread, attributes, run_watched, start);
  if (error != 0) {
    delete start;
    if (is_runner)
      runners--;
  } else if (!is_runner) {
    timer_thread_handle = *thread;
  }
  return error;
}

int watched_pthread_cancel(pthread_t thread) {
  controls::cancellations++;
  return controls::cancel_is_pretended ? 0 : interposed::pthread_cancel_call.real(thread);
}

int failing_pthread_setcanceltype(int type, int *old_type) {
  return controls::cancel_type_fails ? EINVAL : interposed::pthread_setcanceltype_call.real(type, old_type);
}

// The timer thread may be cancelled at any instruction here that does not hold cancellation off. The function has no
// object with a destructor, because the end of a cancelled thread cannot find its way through such a function.
int watched_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *timeout) {
  if (is_timer_thread) {
    int cancelability, result;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelability);
    const bool done = take_over_wait(readable, timeout, &result);
    pthread_setcancelstate(cancelability, nullptr);
    if (done)
      return result;
  }
  return interposed::select_call.real(count, readable, writable, exceptional, timeout);
}

ssize_t watched_send(int fd, const void *bytes, size_t size, int flags) {
  controls::sends++;
  if (controls::send_errors > 0 && controls::send_errors-- > 0)
    return interposed::fail(controls::send_error);
  int code = -1;
  if (size == sizeof(code))
    memcpy(&code, bytes, size);
  controls::last_code = code;
  const ssize_t result = interposed::send_call.real(fd, bytes, size, flags);
  if (result == static_cast<ssize_t>(size))
    controls::sent++;
  return result;
}

} // namespace

INTERPOSE(clock_gettime, 2, stopped_clock_gettime);
INTERPOSE(pthread_create, 4, watched_pthread_create);
INTERPOSE(pthread_cancel, 1, watched_pthread_cancel);
INTERPOSE(pthread_setcanceltype, 2, failing_pthread_setcanceltype);
INTERPOSE(select, 5, watched_select);
INTERPOSE(semop, 3, sandbox::ordered_semop);
INTERPOSE(send, 4, watched_send);

namespace controls {

int semaphore;

void set_clock(uint32_t seconds) {
  clock_seconds = seconds;
  clock_stands = true;
}

std::vector<Started> started() {
  const std::lock_guard<std::mutex> hold(lock);
  return threads;
}

int runners_started() {
  return runners;
}

int runners_ended() {
  return ended_runners;
}

int timer_threads_ended() {
  return ended_timer_threads;
}

pthread_t timer_thread() {
  return timer_thread_handle;
}

std::vector<Wait> waits() {
  const std::lock_guard<std::mutex> hold(lock);
  return seen_waits;
}

void next_wait(const Outcome &outcome) {
  const std::lock_guard<std::mutex> hold(lock);
  coming_outcomes.push_back(outcome);
}

bool settle() {
  return eventually([] {
    // There is one wait for each notification, and the one that goes on.
    return waits().size() >= static_cast<size_t>(sent) + 1 && ended_runners == runners;
  });
}

void fire(uint32_t arg1, uint32_t) {
  note(std::to_string(arg1) + " ");
}

std::string fired() {
  const std::lock_guard<std::mutex> hold(lock);
  return diary;
}

void note(const std::string &text) {
  const std::lock_guard<std::mutex> hold(lock);
  diary += text;
}

TimerNode timer(uint32_t arg1, uint32_t expire) {
  TimerNode made = {};
  made.callback = fire;
  made.arg1 = arg1;
  made.expire = expire;
  return made;
}

int start_service() {
  at_end();
  set_clock(1000);
  waits_without_end = true;
  if (sem_create(IPC_PRIVATE, &semaphore) != 0)
    return -1;
  TimerThreadConfig config = {};
  config.semid = semaphore;
  return createTimerThread(&config);
}

int start_service_without_thread() {
  timer_creation = runner_creation = Creation::pretended;
  cancel_is_pretended = true;
  return start_service();
}

uint32_t wake_up() {
  const uint32_t sleep = reSchedule();
  processTimerListThread(nullptr);
  return sleep;
}

int semaphore_value() {
  return semctl(semaphore, 0, GETVAL);
}

int semaphore_steps() {
  return sandbox::semaphore_steps;
}

int semaphore_waiters() {
  return semctl(semaphore, 0, GETNCNT);
}

} // namespace controls

TEST(TimerControls, TheClockGoesOnUntilItIsSet) {
  timespec first, second;
  ASSERT_EQ(0, clock_gettime(CLOCK_MONOTONIC, &first));
  do
    ASSERT_EQ(0, clock_gettime(CLOCK_MONOTONIC, &second));
  while (second.tv_sec == first.tv_sec && second.tv_nsec == first.tv_nsec);
  EXPECT_EQ("4294967295", controls::scenario([] {
              controls::set_clock(0xFFFFFFFF);
              return std::to_string(getCurrentTime(nullptr));
            }));
}
