// What the tests of the timer service hold in their hands: the clock, the starting of threads, the waits of the timer
// thread, its notifications. Each is the C library's function, watched, until a test says otherwise.
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

// Threads of the library, told from a test's own by their attributes: they are detached.
enum class Creation { real, fails, pretended }; // pretended: said to be started, and never run
inline std::atomic<Creation> timer_creation, runner_creation;
struct Started {
  bool is_runner;
  size_t stack;
};
std::vector<Started> started(); // or pretended to be
int runners_started();
int runners_ended();
int timer_threads_ended();
pthread_t timer_thread();

// pthread_cancel, pthread_setcanceltype
inline std::atomic<int> cancellations;
inline std::atomic<bool> cancel_is_pretended, cancel_type_fails;

// Waits of the timer thread.
struct Wait {
  bool endless;
  long seconds, microseconds;
};
std::vector<Wait> waits();
struct Outcome {
  int result;
  int error;
  bool readable;     // leaves the descriptor in the set
  timeval time_left; // stored in the time-out, if there is one
};
void next_wait(const Outcome &outcome);     // of the next wait that begins
inline std::atomic<bool> waits_without_end; // whatever time-out is given; for a clock that stands still

// Notifications.
inline std::atomic<int> sends, sent;             // tried, and gone out
inline std::atomic<int> send_error, send_errors; // the next so many fail with this
inline std::atomic<int> last_code;

// Until `condition` holds; false when it does not within a minute.
template <typename Condition>
bool eventually(Condition condition) {
  for (int left = 60000; left > 0; left--) {
    if (condition())
      return true;
    usleep(1000);
  }
  return false;
}

// Until the timer thread has seen every notification and waits, and every runner has ended. For a service with real
// threads whose clock stands still and whose socket never filled up.
bool settle();

// The callbacks' diary.
void fire(uint32_t arg1, uint32_t arg2); // a callback: writes arg1, in decimal, and a blank
std::string fired();
void note(const std::string &text);

TimerNode timer(uint32_t arg1, uint32_t expire); // with `fire`

extern int semaphore; // of the service in this process

// Starts the service with a semaphore of its own: its thread runs, or is pretended to, so that a test takes its steps.
// The clock stands at 1000.
int start_service();
int start_service_without_thread();

// What the timer thread does at a wake-up, done here: the sleep that reSchedule finds, after the due timers have run.
uint32_t wake_up();

int semaphore_value();
int semaphore_steps(); // calls of semop so far
int semaphore_waiters();

// Runs `body` in a process of its own, which has a service to start, and gives the text that it returns.
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

// Pieces of such texts.
template <typename... Values>
std::string told(Values... values) {
  std::string text;
  ((text += std::to_string(values) + " "), ...);
  return text.substr(0, text.size() - 1);
}

} // namespace controls
