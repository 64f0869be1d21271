#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "ipc/ipc.h"
#include "support/child_process.h"
#include "support/interposed.h"
#include "support/sandbox.h"
#include "support/unprivileged.h"
#include "torvane.h"

using ipc::key;
using sandbox::console;
using sandbox::console_messages;
using sandbox::end_of_child;
using sandbox::Handshake;
using sandbox::in_child;
using sandbox::start_child;

INTERPOSE_VARIADIC(semctl, 3);

namespace {

union SemctlArgument {
  int value;
  semid_ds *status;
  unsigned short *values;
};

const SemctlArgument no_argument = {};

int counter(int id, int number = 0) {
  return semctl(id, number, GETVAL, no_argument);
}

// Returns when a thread waits in the kernel for the semaphore. The kernel wakes nobody for that, so it polls.
void await_waiter(int id) {
  while (semctl(id, 0, GETNCNT, no_argument) == 0)
    usleep(500);
}

int down(int id, int trace = 0) {
  return downdown(id, "caller", 42, "worker", trace);
}

int up(int id, int trace = 0) {
  return upup(id, "caller", 43, "worker", trace);
}

std::string own_tid() {
  return std::to_string(syscall(SYS_gettid));
}

std::string on(int id) {
  return ":::worker:::semid=" + std::to_string(id);
}

class Semaphore : public ipc::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, sem_create(key, &id));
    ipc::Test::SetUp();
  }
  void TearDown() override {
    semctl(id, 0, IPC_RMID, no_argument);
  }
  int id = -1;
};

class Lock : public Semaphore {};
class LockTrace : public Semaphore {};

} // namespace

TEST_F(Semaphore, IsOneCounterForEveryoneAndFree) {
  semid_ds status = {};
  SemctlArgument argument = {};
  argument.status = &status;
  ASSERT_EQ(0, semctl(id, 0, IPC_STAT, argument));
  EXPECT_EQ(0666, status.sem_perm.mode & 07777);
  EXPECT_EQ(1u, status.sem_nsems);
  EXPECT_EQ(1, counter(id));
  EXPECT_EQ(id, semget(key, 0, 0));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Semaphore, CreatedTwiceIsTheSameAndFree) {
  int again = -1;
  EXPECT_EQ(0, sem_create(key, &again));
  EXPECT_EQ(id, again);
  EXPECT_EQ(1, counter(id));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Semaphore, CreatedAgainReleasesALockThatIsHeld) {
  ASSERT_EQ(0, down(id));
  EXPECT_EQ(0, counter(id));
  int again = -1;
  EXPECT_EQ(0, sem_create(key, &again));
  EXPECT_EQ(1, counter(id));
  EXPECT_EQ(0, up(id));
  EXPECT_EQ(0, up(id));
  EXPECT_EQ(0, sem_create(key, &again));
  EXPECT_EQ(1, counter(id)); // a larger value is reset too
}

TEST_F(Semaphore, OfAnExistingLargerSetSetsItsFirstCounterAlone) {
  const int larger = semget(key + 1, 3, IPC_CREAT | 0666);
  unsigned short values[] = {7, 8, 9};
  SemctlArgument argument = {};
  argument.values = values;
  ASSERT_EQ(0, semctl(larger, 0, SETALL, argument));
  int opened = -1;
  EXPECT_EQ(0, sem_create(key + 1, &opened));
  EXPECT_EQ(larger, opened);
  EXPECT_EQ(1, counter(larger, 0));
  EXPECT_EQ(8, counter(larger, 1));
  EXPECT_EQ(9, counter(larger, 2));
  EXPECT_EQ(0, sem_delete(larger));
}

TEST_F(Semaphore, ThatMayNotBeOpenedFails) {
  const int locked_away = semget(-7, 1, IPC_CREAT | 0);
  ASSERT_NE(-1, locked_away);
  EXPECT_EQ(0, sandbox::without_privilege([] {
              int refused = 77;
              const int before = sandbox::open_descriptors();
              if (sem_create(-7, &refused) != 1)
                return 1;
              if (refused != -1)
                return 2;
              return sandbox::open_descriptors() == before ? 0 : 3;
            }));
  const auto traces = console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_FALSE(traces[0].has_process);
  EXPECT_EQ("quorra_ipc", traces[0].file);
  EXPECT_EQ("sem_create", traces[0].func);
  EXPECT_EQ("key=-7 semget fail\n", traces[0].message);
  EXPECT_EQ(0, counter(locked_away));
  EXPECT_EQ(0, sem_delete(locked_away));
}

TEST_F(Semaphore, ThatTakesNoValueFailsAndTellsItsId) {
  // A set that is removed between the two steps of its creation refuses its first value.
  const interposed::StandIn hook(interposed::semctl_call, [](int set, int number, int command, void *argument) {
    return command == SETVAL ? interposed::fail(EIDRM) : interposed::semctl_call.real(set, number, command, argument);
  });
  int opened = -1;
  EXPECT_EQ(1, sem_create(key, &opened));
  EXPECT_EQ(id, opened);
  expect_trace("sem_create", "semid=" + std::to_string(id) + " semctl fail\n");
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(1, sem_create(key, &opened));
}

TEST_F(Semaphore, WithANullIdMakesNothing) {
  EXPECT_EQ(1, sem_create(key + 1, nullptr));
  EXPECT_EQ(-1, semget(key + 1, 0, 0));
}

TEST_F(Semaphore, DeleteRemovesTheSet) {
  EXPECT_EQ(0, sem_delete(id));
  EXPECT_EQ(-1, counter(id));
  EXPECT_EQ(-1, semget(key, 0, 0));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Semaphore, DeleteNeverReportsAFailure) {
  EXPECT_EQ(0, sem_delete(id));
  EXPECT_EQ(0, sem_delete(id));
  EXPECT_EQ(0, sem_delete(-1));
  EXPECT_EQ(0, sem_delete(INT_MAX));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Semaphore, OutlivesItsMaker) {
  EXPECT_EQ(0, in_child([] {
              int made = -1;
              return sem_create(key + 1, &made);
            }));
  const int found = semget(key + 1, 0, 0);
  EXPECT_NE(-1, found);
  EXPECT_EQ(1, counter(found));
  EXPECT_EQ(0, sem_delete(found));
}

TEST_F(Lock, IsTakenAndGivenBackInSteps) {
  EXPECT_EQ(0, down(id));
  EXPECT_EQ(0, counter(id));
  EXPECT_EQ(0, up(id));
  EXPECT_EQ(1, counter(id));
  EXPECT_EQ(0, up(id));
  EXPECT_EQ(2, counter(id)); // upup does not check who took it
}

TEST_F(Lock, UsesTheFirstCounterOfASet) {
  const int larger = semget(IPC_PRIVATE, 2, 0666);
  unsigned short values[] = {1, 5};
  SemctlArgument argument = {};
  argument.values = values;
  ASSERT_EQ(0, semctl(larger, 0, SETALL, argument));
  EXPECT_EQ(0, down(larger));
  EXPECT_EQ(0, counter(larger, 0));
  EXPECT_EQ(0, up(larger));
  EXPECT_EQ(1, counter(larger, 0));
  EXPECT_EQ(5, counter(larger, 1));
  EXPECT_EQ(0, sem_delete(larger));
}

TEST_F(Lock, MakesTheOtherThreadWait) {
  ASSERT_EQ(0, down(id));
  int result = -1;
  std::thread other([&] { result = down(id); });
  await_waiter(id);
  EXPECT_EQ(0, up(id));
  other.join();
  EXPECT_EQ(0, result);
  EXPECT_EQ(0, counter(id));
}

TEST_F(Lock, KeepsProcessesApart) {
  constexpr int processes = 3, rounds = 200;
  int segment = -1;
  ASSERT_EQ(0, shm_create(IPC_PRIVATE, sizeof(int), &segment));
  volatile int *const shared = static_cast<volatile int *>(shmat(segment, nullptr, 0));
  std::vector<pid_t> children;
  for (int i = 0; i < processes; i++)
    children.push_back(start_child([&] {
      for (int round = 0; round < rounds; round++) {
        if (down(id) != 0)
          return 1;
        const int seen = *shared;
        sched_yield();
        *shared = seen + 1;
        if (up(id) != 0)
          return 2;
      }
      return 0;
    }));
  for (const pid_t child : children)
    EXPECT_EQ(0, end_of_child(child));
  EXPECT_EQ(processes * rounds, *shared);
  EXPECT_EQ(1, counter(id));
  shmdt(const_cast<int *>(shared));
  shmctl(segment, IPC_RMID, nullptr);
}

TEST_F(Lock, OfAHolderThatEndsIsGivenBack) {
  EXPECT_EQ(0, in_child([&] { return down(id); }));
  EXPECT_EQ(1, counter(id));
}

TEST_F(Lock, OfAHolderThatIsKilledGoesToTheOneWhoWaits) {
  const Handshake held;
  const pid_t holder = start_child([&] {
    if (down(id) == 0)
      held.give();
    pause();
    return 1;
  });
  ASSERT_TRUE(held.take());
  const pid_t waiter = start_child([&] { return down(id) == 0 && counter(id) == 0 ? 0 : 1; });
  await_waiter(id);
  ASSERT_EQ(0, kill(holder, SIGKILL));
  EXPECT_EQ(-1, end_of_child(holder));
  EXPECT_EQ(0, end_of_child(waiter));
  EXPECT_EQ(1, counter(id));
}

TEST_F(Lock, GivingBackIsUndoneToo) {
  EXPECT_EQ(0, in_child([&] { return up(id) == 0 && counter(id) == 2 ? 0 : 1; }));
  EXPECT_EQ(1, counter(id));
  EXPECT_EQ(0, in_child([&] { return down(id) + up(id); }));
  EXPECT_EQ(1, counter(id));
}

TEST_F(Lock, FailsOnARemovedSemaphoreWithoutBlocking) {
  ASSERT_EQ(0, down(id)); // it would block now
  ASSERT_EQ(0, sem_delete(id));
  const int before = sandbox::open_descriptors();
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(1, down(id));
  expect_trace("downdown", "caller:42" + on(id) + " down fail\n");
  EXPECT_EQ("sem down: Invalid argument\n", errors.text());
  sandbox::clear_console();
  EXPECT_EQ(1, up(id));
  expect_trace("upup", "caller:43" + on(id) + " up fail\n");
  EXPECT_EQ("sem down: Invalid argument\nsem up: Invalid argument\n", errors.text());
  EXPECT_EQ(before + 1, sandbox::open_descriptors()); // `errors` keeps one
}

TEST_F(Lock, TellsTheReasonWithoutAConsoleToo) {
  ASSERT_EQ(0, sem_delete(id));
  sandbox::Captured errors(STDERR_FILENO);
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(1, down(id));
  EXPECT_EQ(1, up(id, 1));
  EXPECT_EQ(1, down(id, 1));
  EXPECT_EQ("sem down: Invalid argument\nsem up: Invalid argument\nsem down: Invalid argument\n", errors.text());
}

TEST_F(Lock, WorksWithoutAConsole) {
  sandbox::Captured errors(STDERR_FILENO);
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(0, down(id, 1));
  EXPECT_EQ(0, up(id, 1));
  EXPECT_EQ("", errors.text());
}

TEST_F(Lock, GivingBackTooOftenFails) {
  SemctlArgument highest = {};
  highest.value = 32767;
  ASSERT_EQ(0, semctl(id, 0, SETVAL, highest));
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(1, up(id, 1));
  expect_trace("upup", "caller:43" + on(id) + " up fail\n");
  EXPECT_EQ("sem up: Numerical result out of range\n", errors.text());
  EXPECT_EQ(32767, counter(id));
}

TEST_F(Lock, FailsWhenItIsRemovedWhileWaiting) {
  ASSERT_EQ(0, down(id));
  sandbox::Captured errors(STDERR_FILENO);
  int result = -1;
  std::thread waiter([&] { result = down(id); });
  await_waiter(id);
  EXPECT_EQ(0, sem_delete(id));
  waiter.join();
  EXPECT_EQ(1, result);
  EXPECT_EQ(std::vector<std::string>{"caller:42" + on(id) + " down fail\n"}, console_messages());
  EXPECT_EQ("sem down: Identifier removed\n", errors.text());
}

TEST_F(Lock, AnInterruptedWaitFailsAndIsNotTriedAgain) {
  struct sigaction interrupt = {}, usual;
  interrupt.sa_handler = [](int) {};
  ASSERT_EQ(0, sigaction(SIGUSR1, &interrupt, &usual));
  ASSERT_EQ(0, down(id));
  sandbox::Captured errors(STDERR_FILENO);
  int result = -1;
  std::thread waiter([&] { result = down(id); });
  await_waiter(id);
  pthread_kill(waiter.native_handle(), SIGUSR1);
  waiter.join();
  EXPECT_EQ(1, result);
  EXPECT_EQ(std::vector<std::string>{"caller:42" + on(id) + " down fail\n"}, console_messages());
  EXPECT_EQ("sem down: Interrupted system call\n", errors.text());
  EXPECT_EQ(0, up(id));
  EXPECT_EQ(1, counter(id));
  sigaction(SIGUSR1, &usual, nullptr);
}

TEST_F(Lock, AnInterruptedWaitIsToldByErrnoAlsoWithoutStandardError) {
  EXPECT_EQ(EINTR, sandbox::in_child([this] {
              struct sigaction interrupt = {};
              interrupt.sa_handler = [](int) {};
              sigaction(SIGALRM, &interrupt, nullptr);
              const itimerval again_and_again = {{0, 50000}, {0, 50000}};
              setitimer(ITIMER_REAL, &again_and_again, nullptr);
              close(STDERR_FILENO);
              down(id);
              return down(id) == 1 ? errno : 0;
            }));
}

TEST_F(LockTrace, TellsStartAndEndOfTakingAndOnceOfGivingBack) {
  const std::string tid = "[" + own_tid() + "]";
  EXPECT_EQ(0, down(id, 1));
  EXPECT_EQ(0, up(id, 1));
  const auto traces = console();
  ASSERT_EQ(3u, traces.size());
  EXPECT_EQ(tid + "caller:42" + on(id) + " down start\n", traces[0].message);
  EXPECT_EQ(tid + "caller:42" + on(id) + " down end\n", traces[1].message);
  EXPECT_EQ(tid + "caller:43" + on(id) + " up success\n", traces[2].message);
  const char *const functions[] = {"downdown", "downdown", "upup"};
  for (size_t i = 0; i < 3; i++) {
    EXPECT_FALSE(traces[i].has_process);
    EXPECT_EQ(getpid(), traces[i].thread);
    EXPECT_EQ("quorra_ipc", traces[i].file);
    EXPECT_EQ(functions[i], traces[i].func);
  }
}

TEST_F(LockTrace, TellsTheCallersPositionAsItIs) {
  const std::string tid = "[" + own_tid() + "]", semid = std::to_string(id), file(2000, 'f');
  EXPECT_EQ(0, downdown(id, "100%s", -3, "%n", 1));
  EXPECT_EQ(0, upup(id, file.c_str(), 2147483647, "", 1));
  EXPECT_EQ((std::vector<std::string>{
                tid + "100%s:-3:::%n:::semid=" + semid + " down start\n",
                tid + "100%s:-3:::%n:::semid=" + semid + " down end\n",
                tid + file + ":2147483647::::::semid=" + semid + " up success\n",
            }),
            console_messages());
}

TEST_F(LockTrace, TellsTheStartBeforeItWaits) {
  ASSERT_EQ(0, down(id));
  std::string tid;
  std::thread waiter([&] {
    tid = "[" + own_tid() + "]";
    EXPECT_EQ(0, down(id, 1));
  });
  await_waiter(id);
  const auto before = console();
  EXPECT_EQ(0, up(id));
  waiter.join();
  ASSERT_EQ(1u, before.size());
  EXPECT_EQ(tid + "caller:42" + on(id) + " down start\n", before[0].message);
  EXPECT_EQ(tid, "[" + std::to_string(before[0].thread) + "]");
  EXPECT_EQ((std::vector<std::string>{before[0].message, tid + "caller:42" + on(id) + " down end\n"}),
            console_messages());
}

TEST_F(LockTrace, OfAFailureHasNoEnd) {
  ASSERT_EQ(0, sem_delete(id));
  sandbox::Captured errors(STDERR_FILENO);
  EXPECT_EQ(1, down(id, 1));
  EXPECT_EQ(1, up(id, 1));
  EXPECT_EQ((std::vector<std::string>{
                "[" + own_tid() + "]caller:42" + on(id) + " down start\n",
                "caller:42" + on(id) + " down fail\n",
                "caller:43" + on(id) + " up fail\n",
            }),
            console_messages());
}

TEST_F(LockTrace, IsWantedByTheLowByteOfTheFlagAlone) {
  const struct {
    int flag;
    size_t traces;
  } cases[] = {{0, 0},     {1, 3},       {2, 3},    {0x80, 3}, {0xFF, 3},       {0x100, 0},
               {0x101, 3}, {0x10000, 0}, {-256, 0}, {-1, 3},   {0x7FFFFF00, 0}, {INT_MIN, 0}};
  for (const auto &c : cases) {
    sandbox::clear_console();
    sandbox::Captured errors(STDERR_FILENO);
    EXPECT_EQ(0, down(id, c.flag));
    EXPECT_EQ(0, up(id, c.flag));
    EXPECT_EQ(c.traces, console().size()) << c.flag;
    EXPECT_EQ("", errors.text()) << c.flag;
  }
}

TEST_F(LockTrace, OpensAndClosesTheConsoleOncePerLine) {
  sandbox::Captured errors(STDERR_FILENO);
  sandbox::ConsoleWatch watch;
  EXPECT_EQ(0, down(id));
  EXPECT_EQ(0, up(id));
  EXPECT_EQ(0, watch.counts().opens);
  EXPECT_EQ(0, down(id, 1));
  EXPECT_EQ(2, watch.counts().opens);
  EXPECT_EQ(2, watch.counts().closes);
  EXPECT_EQ(0, up(id, 1));
  EXPECT_EQ(3, watch.counts().opens);
  EXPECT_EQ(3, watch.counts().closes);
  EXPECT_EQ(0, sem_delete(id));
  EXPECT_EQ(1, down(id));
  EXPECT_EQ(4, watch.counts().opens);
  EXPECT_EQ(4, watch.counts().closes);
}
