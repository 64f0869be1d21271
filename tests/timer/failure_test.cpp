// These tests refuse the timer service something that it needs.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>

#include "controls.h"
#include "support/contended_semaphore.h"
#include "support/interposed.h"

using controls::Creation;
using controls::eventually;
using controls::fired;
using controls::scenario;
using controls::settle;
using controls::start_service;
using controls::start_service_without_thread;
using controls::timer;
using controls::told;
using sandbox::console;
using sandbox::Trace;

INTERPOSED(semop);

namespace {

TimerThreadConfig config_of_a_new_semaphore() {
  TimerThreadConfig config = {};
  sem_create(0, &config.semid);
  return config;
}

void expect_first_trace(const char *func, const std::string &message) {
  const std::vector<Trace> traces = console();
  ASSERT_FALSE(traces.empty());
  EXPECT_EQ("quorra_timer", traces[0].file);
  EXPECT_EQ(func, traces[0].func);
  EXPECT_EQ(message, traces[0].message);
}

} // namespace

TEST(TimerFailure, WithoutAConfigurationNothingStarts) {
  EXPECT_EQ("0 0 1", scenario([] {
              const int before = sandbox::open_descriptors();
              const int result = createTimerThread(nullptr);
              const int left = sandbox::open_descriptors() - before;
              return told(result, left, start_service());
            }));
}

TEST(TimerFailure, WithoutDescriptorsItCanBeStartedLater) {
  EXPECT_EQ("0 0 1", scenario([] {
              const TimerThreadConfig config = config_of_a_new_semaphore();
              const int before = sandbox::open_descriptors();
              int result;
              {
                const sandbox::NoDescriptors none; // the console cannot be opened either
                result = createTimerThread(&config);
              }
              const int left = sandbox::open_descriptors() - before;
              const int later = createTimerThread(&config);
              return told(result, left, later);
            }));
}

TEST(TimerFailure, TracesThatThereIsNoSocketPair) {
  EXPECT_EQ("0 0", scenario([] {
              const TimerThreadConfig config = config_of_a_new_semaphore();
              // There is room for the console's descriptor, but not for a pair.
              const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
              close(next);
              rlimit limit;
              getrlimit(RLIMIT_NOFILE, &limit);
              const rlimit usual = limit;
              limit.rlim_cur = static_cast<rlim_t>(next) + 1;
              setrlimit(RLIMIT_NOFILE, &limit);
              const int result = createTimerThread(&config);
              setrlimit(RLIMIT_NOFILE, &usual);
              const int first_free = open("/dev/null", O_RDONLY | O_CLOEXEC);
              return told(result, first_free - next);
            }));
  ASSERT_EQ(1u, console().size());
  expect_first_trace("createTimerThread", "can't create signal pipe\n");
}

TEST(TimerFailure, ADescriptorBeyondSelectsSetIsNotUsed) {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < FD_SETSIZE + 8)
    GTEST_SKIP() << "no more than " << limit.rlim_max << " descriptors here";
  EXPECT_EQ("0 0 1", scenario([] {
              rlimit more;
              getrlimit(RLIMIT_NOFILE, &more);
              more.rlim_cur = FD_SETSIZE + 8;
              setrlimit(RLIMIT_NOFILE, &more);
              const TimerThreadConfig config = config_of_a_new_semaphore();
              int last;
              do
                last = dup(STDIN_FILENO);
              while (last < FD_SETSIZE - 1);
              const int result = createTimerThread(&config);
              const int left = dup(STDIN_FILENO) - FD_SETSIZE;
              for (int fd = FD_SETSIZE - 2; fd <= FD_SETSIZE; fd++)
                close(fd);
              const int later = createTimerThread(&config);
              return told(result, left, later);
            }));
  expect_first_trace("createTimerThread", "can't create signal pipe\n");
}

TEST(TimerFailure, WithoutAThreadTheSocketPairStaysOpen) {
  EXPECT_EQ("0 2 0 1", scenario([] {
              const TimerThreadConfig config = config_of_a_new_semaphore();
              const int before = sandbox::open_descriptors();
              controls::timer_creation = Creation::fails;
              const int result = createTimerThread(&config);
              const int left = sandbox::open_descriptors() - before;
              const int destroyed = destoryTimerThread(); // the service does not run
              controls::timer_creation = Creation::real;
              const int later = createTimerThread(&config);
              return told(result, left, destroyed, later);
            }));
  expect_first_trace("createTimerThread", "CHECK!!\n");
}

TEST(TimerFailure, ItsDescriptorsAreNotInherited) {
  EXPECT_EQ("2 0", scenario([] {
              const auto opened = [](bool inherited) {
                int count = 0;
                for (int fd = 0; fd < 64; fd++) {
                  const int flags = fcntl(fd, F_GETFD);
                  count += flags != -1 && inherited == ((flags & FD_CLOEXEC) == 0);
                }
                return count;
              };
              const int closed_before = opened(false), inherited_before = opened(true);
              start_service_without_thread();
              const int closed = opened(false) - closed_before, inherited = opened(true) - inherited_before;
              return told(closed, inherited);
            }));
}

TEST(TimerFailure, AThreadThatCannotBeCancellableEnds) {
  EXPECT_EQ("1 1 0", scenario([] {
              controls::cancel_type_fails = true;
              const int result = start_service();
              const bool ended = eventually([] { return controls::timer_threads_ended() == 1; });
              return told(result, static_cast<int>(ended), static_cast<int>(controls::waits().size()));
            }));
  const std::vector<Trace> traces = console();
  ASSERT_EQ(2u, traces.size());
  EXPECT_EQ("timerThread", traces[1].func);
  EXPECT_EQ("CHECK!!\n", traces[1].message);
}

TEST(TimerFailure, WhatIsDueWithoutARunnerWaitsForTheNextWakeUp) {
  EXPECT_EQ("1 |1 ", scenario([] {
              start_service();
              settle();
              controls::runner_creation = Creation::fails;
              TimerNode a = timer(1, 1000);
              addTimer(&a);
              const bool told_of_it = eventually([] { return controls::waits().size() >= 2; });
              const std::string before = fired();
              controls::runner_creation = Creation::real;
              sendNotifyToTimerThread(0);
              settle();
              return told(static_cast<int>(told_of_it)) + " " + before + "|" + fired();
            }));
  const std::vector<Trace> traces = console();
  ASSERT_EQ(3u, traces.size());
  EXPECT_EQ("launchProcessTimerListThread", traces[2].func);
  EXPECT_EQ("CHECK!!\n", traces[2].message);
}

TEST(TimerFailure, InterruptedAndFullNotificationsAreTriedAgain) {
  for (const int error : {EINTR, EAGAIN})
    EXPECT_EQ("6 1 0", scenario([=] {
                start_service_without_thread();
                controls::send_error = error;
                controls::send_errors = 5;
                TimerNode a = timer(1, 1000);
                const int result = addTimer(&a);
                return told(controls::sends.load(), controls::sent.load(), result);
              }));
  EXPECT_EQ("", sandbox::console_text());
}

TEST(TimerFailure, ANotificationThatCannotBeSentIsTracedAndDropped) {
  for (const int code : {0, 1, 2}) {
    EXPECT_EQ("0 1 |1 ", scenario([=] {
                start_service_without_thread();
                controls::send_error = ENOBUFS;
                TimerNode a = timer(1, 1000);
                if (code != 0)
                  addTimer(&a);
                controls::send_errors = 1;
                const int result = code == 0 ? addTimer(&a) : code == 1 ? delTimer(&a) : modTimer(&a, 1000);
                if (code == 1)
                  addTimer(&a);
                controls::wake_up(); // the change was made all the same
                return told(result, controls::semaphore_value()) + " |" + fired();
              }));
    ASSERT_EQ(1u, console().size());
    expect_first_trace("sendNotifyToTimerThread",
                       "[" + std::to_string(code) + "]Could not send signal: " + std::to_string(code) + "\n");
  }
}

TEST(TimerFailure, AFullSocketDoesNotStopWhoNotifies) {
  EXPECT_EQ("5000 1", scenario([] {
              start_service_without_thread(); // nobody reads
              for (int i = 0; i < 5000; i++)
                sendNotifyToTimerThread(2);
              return told(controls::sent.load(), static_cast<int>(controls::sends > controls::sent));
            }));
  EXPECT_EQ("", sandbox::console_text());
}

// The timer thread waits for the semaphore that the notifier holds, so it cannot make room in the socket.
TEST(TimerFailure, AFullSocketDoesNotStopTheHolderOfTheSemaphore) {
  EXPECT_EQ("1 1 1 ", scenario([] {
              start_service();
              settle();
              TimerNode a = timer(1, 1000);
              downdown(controls::semaphore, "test", 1, "test", 0);
              for (int i = 0; i < 5000; i++)
                __modTimer(&a, 1000);
              upup(controls::semaphore, "test", 1, "test", 0);
              const bool ran = eventually([] { return fired() == "1 "; });
              return told(static_cast<int>(ran), controls::semaphore_value() >= 0 ? 1 : 0) + " " + fired();
            }));
}

TEST(TimerFailure, AnInterruptedWaitForTheSemaphoreIsReportedOnceAndBegunAgain) {
  std::string errors;
  {
    sandbox::Captured captured(STDERR_FILENO);
    EXPECT_EQ("0 1 ", scenario([] {
                start_service_without_thread();
                const interposed::StandIn hook(interposed::semop_call, sandbox::counting_semop);
                static TimerNode a = timer(1, 1000);
                int result = -1;
                sandbox::interrupt_waiting(controls::semaphore, 3, [&] { result = addTimer(&a); });
                return told(result, controls::semaphore_value()) + " " + fired();
              }));
    errors = captured.text();
  }
  EXPECT_EQ("sem down: Interrupted system call\n", errors);
  ASSERT_EQ(1u, console().size());
}

// The semaphore stands, so giving back what was not taken would let two holders in from then on.
TEST(TimerFailure, WhatTheKernelRefusesIsNotGivenBack) {
  std::string errors;
  {
    sandbox::Captured captured(STDERR_FILENO);
    EXPECT_EQ("1 1 1 1 1 1 1", scenario([] {
                start_service_without_thread();
                const interposed::StandIn hook(interposed::semop_call, sandbox::refusing_semop);
                static TimerNode a = timer(1, 1000), b = timer(2, 1500);
                const int added = addTimer(&a), modified = modTimer(&b, 1200), deleted = delTimer(&b);
                reSchedule();
                processTimerListThread(nullptr);
                const int ran = fired() == "1 " ? 1 : 0; // the steps go on
                const int after = controls::semaphore_value();
                const int ended = destoryTimerThread();
                return told(added, modified, deleted, ran, after, ended, controls::semaphore_value());
              }));
    errors = captured.text();
  }
  EXPECT_EQ(std::string::npos, errors.find("sem up")) << errors;
}

TEST(TimerFailure, AChildForkedWhileAThreadWaitsCanAddTimers) {
  EXPECT_EQ("1 1", scenario([] {
              start_service_without_thread();
              static TimerNode a = timer(1, 1000);
              const bool works =
                  sandbox::works_in_a_child_of_waiting_threads(controls::semaphore, [] { return addTimer(&a) == 0; });
              return told(static_cast<int>(works), controls::semaphore_value());
            }));
}

TEST(TimerFailure, WithoutAConsoleItWorksAlike) {
  EXPECT_EQ("1 0 1 ", scenario([] {
              const sandbox::UnopenableConsole away;
              const int result = start_service();
              TimerNode a = timer(1, 1000);
              const int added = addTimer(&a);
              settle();
              return told(result, added) + " " + fired();
            }));
  EXPECT_EQ("", sandbox::console_text());
}
