// These tests end the timer service at every moment of its work.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "blocking_timer.h"
#include "controls.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

using namespace controls;
using sandbox::console;

bool every_thread_ended() {
  return eventually(
      [] { return controls::timer_threads_ended() == 1 && controls::runners_ended() == controls::runners_started(); });
}

} // namespace

TEST(TimerService, EndsItsThreadForGood) {
  EXPECT_EQ("0 1 0 0 1 1", scenario([] {
              start_service();
              settle();
              const int before = sandbox::open_descriptors();
              const int result = destoryTimerThread();
              const bool ended = eventually([] { return controls::timer_threads_ended() == 1; });
              TimerThreadConfig config = {};
              config.semid = controls::semaphore;
              const int again = createTimerThread(&config);
              return told(result, static_cast<int>(ended), again, before - sandbox::open_descriptors() - 2,
                          static_cast<int>(controls::started().size()), controls::semaphore_value());
            }));
  EXPECT_EQ(2u, console().size());
}

TEST(TimerService, DestroyingWhatNeverRanDoesNothing) {
  EXPECT_EQ("0 0 0 1", scenario([] {
              const int steps = controls::semaphore_steps();
              const int result = destoryTimerThread();
              const int taken = controls::semaphore_steps() - steps;
              const int cancelled = controls::cancellations;
              return told(result, taken, cancelled, start_service());
            }));
}

TEST(TimerService, DestroyingTwiceTouchesNeitherThreadNorDescriptorsAgain) {
  EXPECT_EQ("0 0 1 1 1", scenario([] {
              start_service();
              settle();
              const int before = sandbox::open_descriptors();
              const int first = destoryTimerThread();
              for (int i = 0; i < 8; i++)
                open("/dev/null", O_RDONLY | O_CLOEXEC); // takes the numbers of the closed descriptors
              const int second = destoryTimerThread();
              return told(first, second, static_cast<int>(sandbox::open_descriptors() == before - 2 + 8),
                          controls::cancellations.load(), controls::semaphore_value());
            }));
}

TEST(TimerService, AfterItsEndOperationsAreToldThatNobodyListens) {
  EXPECT_EQ("0 0 0 1 ", scenario([] {
              start_service();
              settle();
              TimerNode a = timer(1, 1000);
              destoryTimerThread();
              eventually([] { return controls::timer_threads_ended() == 1; });
              const int added = addTimer(&a), modified = modTimer(&a, 999), deleted = delTimer(&a);
              return told(added, modified, deleted, controls::semaphore_value()) + " " + fired();
            }));
  const std::vector<std::string> expected = {"[0]Could not send signal: 0\n", "[2]Could not send signal: 2\n",
                                             "[1]Could not send signal: 1\n"};
  std::vector<std::string> messages = sandbox::console_messages();
  ASSERT_EQ(5u, messages.size());
  EXPECT_EQ(expected, std::vector<std::string>(messages.begin() + 2, messages.end()));
  EXPECT_EQ("sendNotifyToTimerThread", console()[2].func);
}

TEST(TimerService, CallbacksThatRunWhileItEndsGoOn) {
  EXPECT_EQ("0 1 1 1 ", scenario([] {
              make_handshakes();
              start_service();
              TimerNode slow = blocking_timer(1, 1000), behind = timer(2, 1010);
              addTimer(&slow);
              addTimer(&behind);
              began->take();
              const int result = destoryTimerThread();
              may_end->give();
              const bool ended = eventually([] { return controls::runners_ended() == controls::runners_started(); });
              set_clock(1010);
              return told(result, static_cast<int>(ended), controls::semaphore_value()) + " " + fired();
            }));
}

TEST(TimerService, ACallbackMayEndTheService) {
  static std::atomic<int> result;
  EXPECT_EQ("1 0 1", scenario([] {
              result = -1;
              start_service();
              TimerNode a = timer(1, 1000);
              a.callback = [](uint32_t, uint32_t) { result = destoryTimerThread(); };
              addTimer(&a);
              const bool ended = eventually([] { return controls::timer_threads_ended() == 1 && result != -1; });
              return told(static_cast<int>(ended), result.load(), controls::semaphore_value());
            }));
}

// The thread is cancelled while it waits for the semaphore, and must not keep it when it ends.
TEST(TimerService, CancelledInItsListsTheThreadGivesTheSemaphoreBackFirst) {
  EXPECT_EQ("1 0 1 1", scenario([] {
              start_service();
              settle();
              downdown(controls::semaphore, "test", 1, "test", 0);
              sendNotifyToTimerThread(0);
              const bool waits = eventually([] { return controls::semaphore_waiters() == 1; });
              pthread_cancel(controls::timer_thread());
              const int ended_at_once = controls::timer_threads_ended();
              upup(controls::semaphore, "test", 1, "test", 0);
              const bool ended = every_thread_ended();
              return told(static_cast<int>(waits), ended_at_once, static_cast<int>(ended), controls::semaphore_value());
            }));
}

// The service is destroyed at many moments of its work. The semaphore must be neither lost nor given back twice, no
// wait for it may be disturbed, and every timer must be on one list.
TEST(TimerService, EndsCleanlyAtAnyMoment) {
  sandbox::Captured errors(STDERR_FILENO);
  for (int moment = 0; moment < 60; moment++) {
    EXPECT_EQ(
        "0 1 1 1", scenario([=] {
          start_service();
          static TimerNode timers[8];
          std::atomic<bool> stop = false;
          std::thread storm([&] {
            for (uint32_t i = 0; !stop; i++)
              modTimer(&timers[i % 8], 1000 + i % 3);
          });
          eventually([=] { return controls::runners_started() >= moment; });
          const int result = destoryTimerThread();
          stop = true;
          storm.join();
          const bool ended = every_thread_ended();
          bool on_one_list = true;
          for (TimerNode &each : timers)
            on_one_list = on_one_list && (!each.node.next ||
                                          (each.node.next->prev == &each.node && each.node.prev->next == &each.node));
          return told(result, static_cast<int>(ended), static_cast<int>(on_one_list), controls::semaphore_value());
        }));
  }
  EXPECT_EQ("", errors.text());
}

// The thread takes up a notification while the service ends. It must end undisturbed, whether it waits or is busy.
TEST(TimerService, EndsCleanlyWhileItIsNotified) {
  sandbox::Captured errors(STDERR_FILENO);
  for (int round = 0; round < 200; round++) {
    EXPECT_EQ("0 1 1", scenario([=] {
                start_service();
                settle();
                TimerNode far = timer(1, 5000);
                addTimer(&far);
                for (std::atomic<int> i = 0; i < round * 10; i++) {
                }
                const int result = destoryTimerThread();
                const bool ended = every_thread_ended();
                return told(result, static_cast<int>(ended), controls::semaphore_value());
              }));
  }
  EXPECT_EQ("", errors.text());
}

// A thread that waits for the semaphore adds a due timer after the service has ended. The timer thread gets the
// semaphore next, and must leave the timer alone.
TEST(TimerService, WhatIsAddedAfterItsEndNeverRuns) {
  EXPECT_EQ("1 1 0 ", scenario([] {
              start_service();
              settle();
              static TimerNode late = timer(1, 1000);
              downdown(controls::semaphore, "test", 1, "test", 0);
              std::thread destroying([] { destoryTimerThread(); });
              eventually([] { return controls::semaphore_waiters() == 1; });
              std::thread adding([] { addTimer(&late); });
              eventually([] { return controls::semaphore_waiters() == 2; });
              sendNotifyToTimerThread(0);
              const bool waits = eventually([] { return controls::semaphore_waiters() == 3; });
              upup(controls::semaphore, "test", 1, "test", 0);
              destroying.join();
              adding.join();
              const bool ended = every_thread_ended();
              processTimerListThread(nullptr);
              // The busy thread is not cancelled: that would interrupt its wait.
              return told(static_cast<int>(waits), static_cast<int>(ended), controls::cancellations.load()) + " " +
                     fired();
            }));
}

TEST(TimerService, EndsWhileItWaitsForTheSemaphore) {
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ("1 0 1 1", scenario([] {
              start_service();
              settle();
              downdown(controls::semaphore, "test", 1, "test", 0);
              sendNotifyToTimerThread(0);
              const bool waits = eventually([] { return controls::semaphore_waiters() == 1; });
              static std::atomic<int> result;
              result = -1;
              std::thread destroying([] { result = destoryTimerThread(); });
              eventually([] { return controls::semaphore_waiters() == 2; });
              upup(controls::semaphore, "test", 1, "test", 0);
              destroying.join();
              const bool ended = every_thread_ended();
              return told(static_cast<int>(waits), result.load(), static_cast<int>(ended), controls::semaphore_value());
            }));
  EXPECT_EQ("", errors.text());
}

namespace {

// Ends the service while its thread waits for the semaphore behind the end, deletes the semaphore as soon as the end
// has come, and tells whether the thread ended and how many runners were started then. With `held`, another thread
// holds the semaphore between the two.
std::string end_before_the_thread_gets_the_semaphore(bool held) {
  return scenario([=] {
    start_service();
    settle();
    const int runners = controls::runners_started();
    const int id = controls::semaphore;
    downdown(id, "test", 1, "test", 0);
    std::thread destroying([] { destoryTimerThread(); });
    eventually([] { return controls::semaphore_waiters() == 1; });
    std::thread holding([=] {
      if (held)
        downdown(id, "test", 1, "test", 0);
    });
    eventually([=] { return controls::semaphore_waiters() == (held ? 2 : 1); });
    sendNotifyToTimerThread(0);
    const bool waits = eventually([=] { return controls::semaphore_waiters() == (held ? 3 : 2); });
    upup(id, "test", 1, "test", 0);
    destroying.join();
    holding.join();
    sem_delete(id);
    const bool ended = every_thread_ended();
    return told(static_cast<int>(waits), static_cast<int>(ended), controls::runners_started() - runners);
  });
}

} // namespace

TEST(TimerService, AfterItsEndNoRunnerStartsAndNothingIsTraced) {
  sandbox::Captured errors(STDERR_FILENO);
  for (int round = 0; round < 50; round++) {
    EXPECT_EQ("1 1 0", end_before_the_thread_gets_the_semaphore(false));
    EXPECT_EQ(2u, console().size()); // of its start
  }
  EXPECT_EQ("", errors.text());
}

TEST(TimerService, ASemaphoreThatEndsWithItIsMissedOnceAtMost) {
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ("1 1 0", end_before_the_thread_gets_the_semaphore(true));
  EXPECT_EQ("sem down: Identifier removed\n", errors.text());
  ASSERT_EQ(3u, console().size());
  EXPECT_NE(std::string::npos, console()[2].message.find(":::reSchedule:::"));
}

TEST(TimerService, EndedBeforeItsThreadBeginsItStaysSilent) {
  EXPECT_EQ("0 1 1", scenario([] {
              start_service_without_thread();
              controls::cancel_is_pretended = true;
              const int result = destoryTimerThread();
              const bool at_once = timerThread(nullptr) == nullptr;
              return told(result, static_cast<int>(at_once), controls::semaphore_value());
            }));
  EXPECT_TRUE(console().empty());
}
