// The tests of the timer service control the clock, the creation of threads, the waits of the timer thread and its
// notifications. Each is the C library's function, watched, until a test says otherwise.
#pragma once

#include <pthread.h>
#include <stdint.h>
#include <sys/time.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace controls {

// The monotonic clock stands still at this second until it is set again.
void set_clock(uint32_t seconds);

// The library's threads are detached; a test's own are not, and are left alone.
enum class Creation { real, fails, pretended }; // a pretended thread is reported as started and never runs
inline std::atomic<Creation> timer_creation, runner_creation;
struct Started {
  bool is_runner;
  size_t stack;
};
std::vector<Started> started(); // pretended ones included
int runners_started();
int runners_ended();
int timer_threads_ended();
pthread_t timer_thread();

// These control pthread_cancel and pthread_setcanceltype.
inline std::atomic<int> cancellations;
inline std::atomic<bool> cancel_is_pretended, cancel_type_fails;

// These control the waits of the timer thread.
struct Wait {
  bool endless;
  long seconds, microseconds;
};
std::vector<Wait> waits();
struct Outcome {
  int result;
  int error;
  bool readable;     // whether the descriptor stays in the set
  timeval time_left; // stored in the time-out, if there is one
};
void next_wait(const Outcome &outcome);     // for the next wait that begins
inline std::atomic<bool> waits_without_end; // ignores the time-outs, because the clock stands still

// These control the notifications.
inline std::atomic<int> sends, sent;             // how many were tried, and how many succeeded
inline std::atomic<int> send_error, send_errors; // the error of the next failing ones, and how many fail
inline std::atomic<int> last_code;

// Waits until `condition` holds; returns false if it does not within a minute.
template <typename Condition>
bool eventually(Condition condition) {
  for (int left = 60000; left > 0; left--) {
    if (condition())
      return true;
    usleep(1000);
  }
  return false;
}

// Waits until the timer thread has seen every notification and waits, and every runner has ended. The service must have
// real threads and a clock that stands still, and its socket must not have filled up.
bool settle();

// The callbacks keep a diary.
void fire(uint32_t arg1, uint32_t arg2); // a callback that writes arg1, in decimal, and a blank
std::string fired();
void note(const std::string &text);

TimerNode timer(uint32_t arg1, uint32_t expire); // its callback is fire()

extern int semaphore; // the service in this process has it

// Starts the service with a semaphore of its own, while the clock stands at 1000. Without a thread, the test takes the
// thread's steps itself.
int start_service();
int start_service_without_thread();

// Does what the timer thread does at a wake-up: runs the due timers, and returns the sleep that reSchedule finds.
uint32_t wake_up();

int semaphore_value();
int semaphore_steps(); // how often semop was called
int semaphore_waiters();

// Runs `body` in a process of its own, which can start a service, and returns the text that it returns.
template <typename Body>
std::string scenario(Body body) {
  sandbox::clear_console();
  sandbox::write_file("/run/told", "");
  const int status = sandbox::in_child([&] {
    alarm(100);
    sandbox::write_file("/run/told", body());
    return 0;
  });
  return status == 0 ? sandbox::read_file("/run/told") : "ended with " + std::to_string(status);
}

// Makes such a text of numbers.
template <typename... Values>
std::string told(Values... values) {
  std::string text;
  ((text += std::to_string(values) + " "), ...);
  return text.substr(0, text.size() - 1);
}

} // namespace controls
