// Signals to processes, and the dispositions of signals.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdint.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "misc/misc.h"
#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

using sandbox::console_messages;
using sandbox::end_of_child;
using sandbox::Handshake;
using sandbox::in_child;
using sandbox::start_child;

namespace {

class Kill : public misc::Processes {};
class ShowHandler : public misc::Test {};

} // namespace

TEST_F(Kill, SignalsAProcess) {
  const pid_t child = start_child([] {
    pause();
    return 0;
  });
  EXPECT_EQ(0, __kill("caller", 42, "stop", child, 0));
  EXPECT_EQ(0, __kill("caller", 42, "stop", child, SIGTERM));
  int status = 0;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGTERM, WTERMSIG(status));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Kill, DoesNotReadTheSourcePosition) {
  const pid_t child = start_child([] {
    pause();
    return 0;
  });
  EXPECT_EQ(0, __kill(nullptr, 0, nullptr, child, SIGKILL));
  EXPECT_EQ(child, waitpid(child, nullptr, 0));
}

TEST_F(Kill, PassesProcessGroupsOn) {
  const auto wait_to_be_killed = [] {
    pause();
    return 0;
  };
  const pid_t leader = start_child(wait_to_be_killed);
  ASSERT_EQ(0, setpgid(leader, leader));
  const pid_t member = start_child(wait_to_be_killed);
  ASSERT_EQ(0, setpgid(member, leader));
  EXPECT_EQ(0, __kill("caller", 42, "stop", -leader, SIGKILL));
  for (const pid_t child : {leader, member}) {
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  }
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Kill, GivesTheResultOfKill) {
  const pid_t gone = start_child([] { return 0; });
  EXPECT_EQ(0, end_of_child(gone));
  errno = 0;
  EXPECT_EQ(-1, __kill("caller", 42, "stop", gone, SIGTERM));
  EXPECT_EQ(ESRCH, errno);
  EXPECT_EQ(-1, __kill("caller", 42, "stop", -gone, SIGTERM));
  EXPECT_EQ(ESRCH, errno);
  EXPECT_EQ(-1, __kill("caller", 42, "stop", getpid(), 9999));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(Kill, RefusesEveryProcessTheOwnGroupAndInit) {
  for (const int pid : {0, -1, 1}) {
    sandbox::clear_console();
    EXPECT_EQ(-1, __kill("caller", 42, "stop", pid, 0));
    misc::expect_trace(true, "__kill", "kill " + std::to_string(pid) + "\n");
  }
}

// A process and its child are in a group of their own, block the signal and look whether it is pending.
TEST_F(Kill, SignalsNobodyWhenItRefuses) {
  const auto signalled = [] {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGUSR1);
  };
  EXPECT_EQ(0, in_child([&] {
              setpgid(0, 0);
              sigset_t held;
              sigemptyset(&held);
              sigaddset(&held, SIGUSR1);
              sigprocmask(SIG_BLOCK, &held, nullptr);
              const Handshake called;
              const pid_t member = start_child([&] { return called.take() ? signalled() : 2; });
              for (const int pid : {0, -1, 1})
                if (__kill("caller", 42, "stop", pid, SIGUSR1) != -1)
                  return 3;
              called.give();
              const int of_member = end_of_child(member);
              return of_member != 0 ? of_member : signalled();
            }));
  EXPECT_EQ((std::vector<std::string>{"kill 0\n", "kill -1\n", "kill 1\n"}), console_messages());
}

TEST_F(Kill, RefusesWithoutAConsoleToo) {
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(-1, __kill("caller", 42, "stop", 1, 0));
}

TEST_F(ShowHandler, TellsTheDispositionOfASignal) {
  const struct {
    void (*handler)(int);
    const char *message;
  } cases[] = {
      {SIG_DFL, "Default\n"},
      {SIG_IGN, "Ignore\n"},
      {[](int) {}, "This signal is not using default or ignore handler\n"},
  };
  for (const auto &c : cases) {
    sandbox::clear_console();
    struct sigaction action = {};
    action.sa_handler = c.handler;
    ASSERT_EQ(0, sigaction(SIGUSR2, &action, nullptr));
    struct sigaction current = {};
    ASSERT_EQ(0, sigaction(SIGUSR2, nullptr, &current));
    show_handler(&current.sa_handler); // on MIPS the record begins with its flags
    misc::expect_trace(true, "show_handler", c.message);
  }
  signal(SIGUSR2, SIG_DFL);
}

TEST_F(ShowHandler, ReadsOneWordOfPointerSize) {
  const uintptr_t words[][2] = {{0, ~uintptr_t{0}}, {1, ~uintptr_t{0}}, {2, 0}, {~uintptr_t{0}, 1}};
  for (const auto &record : words)
    show_handler(record);
  if constexpr (sizeof(uintptr_t) == 8) {
    const uintptr_t high[] = {uintptr_t{1} << 63, (uintptr_t{1} << 63) + 1};
    show_handler(&high[0]);
    show_handler(&high[1]);
  } else {
    show_handler(&words[2]);
    show_handler(&words[2]);
  }
  const char *const other = "This signal is not using default or ignore handler\n";
  EXPECT_EQ((std::vector<std::string>{"Default\n", "Ignore\n", other, other, other, other}), console_messages());
}

TEST_F(ShowHandler, IgnoresNull) {
  show_handler(nullptr);
  EXPECT_EQ("", sandbox::console_text());
}
