// These tests follow the timer service at work: its thread and its runners.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <vector>

#include "blocking_timer.h"
#include "controls.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using namespace controls;
using sandbox::console;
using sandbox::Trace;

std::string last_wait() {
  const Wait wait = controls::waits().back();
  return wait.endless ? "endless" : told(wait.seconds, wait.microseconds);
}

} // namespace

TEST(TimerService, TracesItsStart) {
  EXPECT_EQ("1 1", scenario([] {
              const int result = start_service();
              const bool waits = eventually([] { return !controls::waits().empty(); });
              return told(result, static_cast<int>(waits));
            }));
  const std::vector<Trace> traces = console();
  ASSERT_EQ(2u, traces.size());
  for (const Trace &trace : traces) {
    EXPECT_TRUE(trace.has_process);
    EXPECT_EQ("quorra_timer", trace.file);
    EXPECT_EQ("timerThread", trace.func);
    EXPECT_NE(trace.process, trace.thread);
    EXPECT_EQ(traces[0].thread, trace.thread);
  }
  EXPECT_EQ("[" + std::to_string(traces[0].process) + "|" + std::to_string(traces[0].thread) +
                "]Thread Create[timerThread]\n",
            traces[0].message);
  EXPECT_EQ("Timer Thread Running\n", traces[1].message);
}

TEST(TimerService, ItsThreadsAreDetachedWithStacksOfOneMebibyte) {
  EXPECT_EQ("0 1048576 1 1048576", scenario([] {
              start_service();
              sendNotifyToTimerThread(0);
              settle();
              const auto threads = controls::started(); // the detached ones
              return told(static_cast<int>(threads[0].is_runner), threads[0].stack,
                          static_cast<int>(threads[1].is_runner), threads[1].stack);
            }));
}

TEST(TimerService, StartsOncePerProcess) {
  EXPECT_EQ("1 0 0 1 4", scenario([] {
              const int first = start_service();
              settle(); // the thread has closed the console
              const int before = sandbox::open_descriptors();
              TimerThreadConfig config = {};
              config.semid = -1; // a second start does not take it over
              const int second = createTimerThread(&config), third = createTimerThread(nullptr);
              TimerNode a = timer(4, 1000);
              addTimer(&a);
              settle();
              const bool alike = before == sandbox::open_descriptors();
              return told(first, second, third, static_cast<int>(alike)) + " " + fired().substr(0, 1);
            }));
  EXPECT_EQ(2u, console().size());
}

TEST(TimerService, SleepsWithoutEndWhenThereIsNoTimer) {
  EXPECT_EQ("endless endless endless", scenario([] {
              start_service();
              settle();
              std::string text = last_wait() + " ";
              TimerNode a = timer(1, 1000);
              addTimer(&a); // it is due
              settle();
              text += last_wait() + " ";
              delTimer(&a);
              settle();
              return text + last_wait();
            }));
}

TEST(TimerService, SleepsUntilTheEarliestTimer) {
  EXPECT_EQ("30 0|20 0|20 0|5 0|10 0|endless|", scenario([] {
              start_service();
              std::string text;
              TimerNode a = timer(1, 1030), b = timer(2, 1020), c = timer(3, 1040);
              for (TimerNode *each : {&a, &b, &c}) {
                addTimer(each);
                settle();
                text += last_wait() + "|";
              }
              set_clock(1015);
              modTimer(&c, 1050);
              settle();
              text += last_wait() + "|";
              delTimer(&c);
              set_clock(1020);
              sendNotifyToTimerThread(1);
              settle();
              text += last_wait() + "|";
              delTimer(&a);
              settle();
              return text + last_wait() + "|";
            }));
}

TEST(TimerService, AnAddedTimerThatIsDueRunsAtOnce) {
  EXPECT_EQ("0 1 7 ", scenario([] {
              start_service();
              TimerNode a = timer(7, 1000);
              const int result = addTimer(&a);
              const bool ran = eventually([] { return fired() == "7 "; });
              return told(result, static_cast<int>(ran)) + " " + fired();
            }));
}

TEST(TimerService, OneRunnerRunsTheDueTimersInTheirOrder) {
  std::string expected;
  for (int i = 0; i < 300; i++)
    expected += std::to_string(i) + " ";
  EXPECT_EQ(expected, scenario([] {
              start_service();
              std::vector<TimerNode> timers(300);
              for (uint32_t i = 0; i < timers.size(); i++) {
                timers[i] = timer(i, 1100 - i % 7);
                addTimer(&timers[i]);
                if (i % 50 == 49) // well before the socket is full
                  settle();
              }
              settle();
              set_clock(1100);
              sendNotifyToTimerThread(0);
              settle();
              return fired();
            }));
}

TEST(TimerService, HundredsOfTimersRunEachInItsSecond) {
  static std::atomic<int> ran, early, late, wrong_order;
  static uint32_t last_of_second[50];
  EXPECT_EQ("500 0 0 0", scenario([] {
              start_service();
              static TimerNode timers[500];
              for (uint32_t i = 0; i < 500; i++) {
                timers[i] = timer(i, 1001 + i * 37 % 50);
                timers[i].arg2 = timers[i].expire;
                timers[i].callback = [](uint32_t arg1, uint32_t arg2) {
                  const uint32_t now = getCurrentTime(nullptr);
                  ran++;
                  early += now < arg2;
                  late += now > arg2;
                  uint32_t &last = last_of_second[arg2 - 1001];
                  wrong_order += last > arg1;
                  last = arg1;
                };
                addTimer(&timers[i]);
                if (i % 50 == 49)
                  settle();
              }
              for (uint32_t now = 1001; now <= 1050; now++) {
                set_clock(now);
                sendNotifyToTimerThread(0);
                settle();
              }
              return told(ran.load(), early.load(), late.load(), wrong_order.load());
            }));
}

TEST(TimerService, StartsARunnerAtEveryWakeUp) {
  EXPECT_EQ("3 4 5", scenario([] {
              start_service();
              TimerNode a = timer(1, 1010);
              addTimer(&a);
              settle();
              for (const int code : {0, 1}) {
                sendNotifyToTimerThread(code);
                settle();
              }
              const int notified = controls::runners_started();
              controls::next_wait({0, 0, false, {0, 0}}); // the wait after the next one times out
              sendNotifyToTimerThread(2);
              eventually([] { return controls::waits().size() >= 6 && controls::runners_ended() >= 5; });
              return told(notified, controls::sent.load(), controls::runners_started());
            }));
}

TEST(TimerService, OnlyTheSecondsOfTheSleepAreSet) {
  EXPECT_EQ("10 0|10 250000|10 250000", scenario([] {
              start_service();
              settle();
              TimerNode a = timer(1, 1010);
              addTimer(&a);
              settle();
              std::string text = last_wait() + "|";
              // A notification cut the sleep short, and select leaves the rest of it.
              controls::next_wait({1, 0, true, {7, 250000}});
              sendNotifyToTimerThread(0);
              eventually([] { return controls::waits().size() >= 4; });
              text += last_wait() + "|";
              sendNotifyToTimerThread(0);
              eventually([] { return controls::waits().size() >= 5; });
              return text + last_wait();
            }));
}

TEST(TimerService, AnInterruptedSleepGoesOnWithWhatIsLeft) {
  EXPECT_EQ("7 250000|3 5|1", scenario([] {
              start_service();
              settle();
              TimerNode a = timer(1, 1010);
              controls::next_wait({-1, EINTR, true, {7, 250000}});
              controls::next_wait({-1, EAGAIN, true, {3, 5}});
              addTimer(&a);
              eventually([] { return controls::waits().size() >= 4; });
              const std::vector<Wait> waits = controls::waits();
              return told(waits[2].seconds, waits[2].microseconds) + "|" +
                     told(waits[3].seconds, waits[3].microseconds) + "|" + told(controls::runners_started());
            }));
  EXPECT_EQ(2u, console().size());
}

TEST(TimerService, InterruptedInItsLastSecondItSleepsUntilNotified) {
  EXPECT_EQ("endless", scenario([] {
              start_service();
              settle();
              TimerNode a = timer(1, 1010);
              controls::next_wait({-1, EINTR, true, {0, 999999}});
              addTimer(&a);
              eventually([] { return controls::waits().size() >= 3; });
              return last_wait();
            }));
}

TEST(TimerService, AFailedSleepIsToldAndTakenForAWakeUp) {
  std::string errors;
  {
    sandbox::Captured captured(STDERR_FILENO);
    EXPECT_EQ("1 2", scenario([] {
                start_service();
                settle();
                controls::next_wait({-1, EBADF, true, {0, 0}});
                sendNotifyToTimerThread(0);
                const bool waits_again = eventually([] { return controls::waits().size() >= 3; });
                return told(static_cast<int>(waits_again), controls::runners_started());
              }));
    errors = captured.text();
  }
  EXPECT_EQ("Timer Select:: Bad file descriptor\n", errors);
  const std::vector<Trace> traces = console();
  ASSERT_EQ(3u, traces.size());
  EXPECT_EQ("timerThread", traces[2].func);
  EXPECT_EQ("CHECK!!\n", traces[2].message);
}

TEST(TimerService, ADescriptorThatIsNotReadyIsNoWakeUp) {
  EXPECT_EQ("1 1", scenario([] {
              start_service();
              settle();
              controls::next_wait({1, 0, false, {0, 0}});
              sendNotifyToTimerThread(0);
              const bool waits_again = eventually([] { return controls::waits().size() >= 3; });
              return told(static_cast<int>(waits_again), controls::runners_started());
            }));
}

TEST(TimerService, ASlowCallbackDoesNotDelayTheTimersOfLaterWakeUps) {
  EXPECT_EQ("1 2 3 1 ", scenario([] {
              make_handshakes();
              start_service();
              TimerNode slow = blocking_timer(1, 1000), behind = timer(2, 1000), later = timer(3, 1010);
              addTimer(&later);
              settle();
              downdown(controls::semaphore, "test", 1, "test", 0); // both timers are found at one wake-up, or at two
              __modTimer(&slow, 1000);
              __modTimer(&behind, 1000);
              upup(controls::semaphore, "test", 1, "test", 0);
              began->take();
              sendNotifyToTimerThread(0);
              const bool went_past = eventually([] { return fired() == "2 "; });
              set_clock(1010);
              sendNotifyToTimerThread(0);
              eventually([] { return fired() == "2 3 "; });
              may_end->give();
              settle();
              return told(static_cast<int>(went_past)) + " " + fired();
            }));
}

TEST(TimerService, CallbacksRunWithoutTheSemaphoreAndSideBySide) {
  EXPECT_EQ("1 1", scenario([] {
              make_handshakes();
              start_service();
              TimerNode timers[3] = {blocking_timer(1, 1000), blocking_timer(2, 1000), blocking_timer(3, 1000)};
              for (TimerNode &each : timers)
                addTimer(&each);
              for (int i = 0; i < 3; i++)
                began->take();
              const int value = controls::semaphore_value();
              for (int i = 0; i < 3; i++)
                may_end->give();
              settle();
              return told(value, static_cast<int>(fired().size() == 6));
            }));
}

TEST(TimerService, RunsOnTheRealClock) {
  static uint32_t expire;
  static std::atomic<int> early, calls;
  EXPECT_EQ("1 0 2", scenario([] {
              TimerThreadConfig config = {};
              sem_create(0, &config.semid);
              createTimerThread(&config);
              static TimerNode a;
              a.callback = [](uint32_t, uint32_t) {
                early += getCurrentTime(nullptr) < expire;
                if (calls++ == 0) {
                  expire = getCurrentTime(nullptr) + 1;
                  modTimer(&a, expire); // arms the timer for its next period
                }
              };
              getCurrentTime(&expire);
              expire += 1;
              a.expire = expire;
              addTimer(&a);
              const bool ran = eventually([] { return calls == 2; });
              return told(static_cast<int>(ran), early.load(), calls.load());
            }));
}

TEST(TimerService, AThreadCancelledInsideAnOperationFinishesItFirst) {
  EXPECT_EQ("0 0 0 1 1 1", scenario([] {
              start_service();
              static TimerNode a = timer(1, 2000);
              std::string text;
              for (const int operation : {0, 1, 2}) {
                static int which;
                which = operation;
                static std::atomic<int> result;
                result = -1;
                pthread_t thread;
                pthread_create(
                    &thread, nullptr,
                    [](void *) -> void * {
                      pthread_cancel(pthread_self()); // it takes effect at the next cancellation point, which is send
                      result = which == 0 ? addTimer(&a) : which == 1 ? modTimer(&a, 2001) : delTimer(&a);
                      return nullptr;
                    },
                    nullptr);
                pthread_join(thread, nullptr);
                text += std::to_string(result) + " ";
              }
              settle();
              const int linked = a.node.next != &a.node;
              return text + told(controls::semaphore_value(), 1 - linked, static_cast<int>(a.expire == 2001));
            }));
}
