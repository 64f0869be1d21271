// Commands through the shell.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "misc/misc.h"
#include "support/child_process.h"
#include "support/mounts.h"
#include "support/sandbox.h"
#include "torvane.h"

using misc::expect_trace;
using sandbox::all_of;
using sandbox::console;
using sandbox::console_messages;
using sandbox::end_of_child;
using sandbox::in_child;
using sandbox::NoDescriptors;
using sandbox::read_file;
using sandbox::start_child;

namespace {

constexpr char too_long[] = "command too long\n";

class System : public misc::Processes {};
class Execl : public misc::Processes {};
class SystemRead : public misc::Processes {};
class ExecSystem : public misc::Processes {};

// A command of exactly `size` bytes. It prints most of them to /run/out, so that a command that was cut would show.
struct Sized {
  explicit Sized(size_t size) : payload(size - strlen("printf %s '' >/run/out"), 'x') {
    payload.front() = '<';
    payload.back() = '>';
    command = "printf %s '" + payload + "' >/run/out";
  }
  std::string payload, command;
};

// Leaves this process unable to have children, because the first process of their namespace is gone. Returns whether
// that worked.
bool have_no_more_children() {
  if (unshare(CLONE_NEWPID) != 0 || in_child([] { return 0; }) != 0)
    return false;
  const pid_t one_more = fork();
  if (one_more == 0)
    _exit(0);
  return one_more == -1;
}

// Waits until a child has ended, but does not reap it.
void await_end(pid_t child) {
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
}

// These lack the attribute by which the compiler objects to a null format.
int (*const system_unchecked)(const char *, int, const char *, const char *, ...) = __system;
int (*const execl_unchecked)(const char *, ...) = _execl;
FILE *(*const system_read_unchecked)(const char *, ...) = _system_read;

} // namespace

TEST_F(System, RunsTheFormattedCommandInTheShell) {
  EXPECT_EQ(0, __system("caller", 42, "run", "echo %s-%d-%c >/run/out && cat </run/out >>/run/out.2", "eth0", -7, 'x'));
  EXPECT_EQ("eth0--7-x\n", read_file("/run/out"));
  EXPECT_EQ("eth0--7-x\n", read_file("/run/out.2"));
  EXPECT_EQ("", sandbox::console_text());
  unlink("/run/out.2");
}

TEST_F(System, GivesTheWaitStatusOfTheCommand) {
  for (const int code : {0, 1, 3, 255}) {
    const int status = __system("caller", 42, "run", "exit %d", code);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(code, WEXITSTATUS(status));
  }
  const int status = __system("caller", 42, "run", "kill -%d $$", SIGKILL);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGKILL, WTERMSIG(status));
}

TEST_F(System, DoesNotUseTheSourcePosition) {
  EXPECT_EQ(0, __system(nullptr, 0, nullptr, "true"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(System, RefusesWhatDoesNotFit) {
  const Sized fits(1023);
  ASSERT_EQ(1023u, fits.command.size());
  EXPECT_EQ(0, __system("caller", 42, "run", "%s", fits.command.c_str()));
  EXPECT_EQ(fits.payload, read_file("/run/out"));
  EXPECT_EQ("", sandbox::console_text());
  unlink("/run/out");
  for (const size_t size : {1024u, 1025u, 2048u, 100000u}) {
    sandbox::clear_console();
    EXPECT_EQ(-1, __system("caller", 42, "run", "%s", Sized(size).command.c_str())) << size;
    EXPECT_FALSE(sandbox::exists("/run/out")) << size;
    expect_trace(true, "__system", too_long);
  }
}

TEST_F(System, RefusesANullFormat) {
  EXPECT_EQ(-1, system_unchecked("caller", 42, "run", nullptr));
  expect_trace(true, "__system", too_long);
}

TEST_F(System, DoesNotSucceedWithoutAProcess) {
  EXPECT_EQ(0, in_child([] { return have_no_more_children() && __system("caller", 42, "run", "true") != 0 ? 0 : 1; }));
}

TEST_F(System, LeavesNoDescriptorOpen) {
  const int before = sandbox::open_descriptors();
  __system("caller", 42, "run", "exit 3");
  __system("caller", 42, "run", "%2000s", "");
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(System, RunsInSeveralThreadsAtOnce) {
  std::vector<std::thread> threads;
  int statuses[4] = {};
  for (int &status : statuses)
    threads.emplace_back([&status, code = &status - statuses] {
      status = __system("caller", 42, "run", "exit %d", static_cast<int>(code));
    });
  for (std::thread &thread : threads)
    thread.join();
  for (int code = 0; code < 4; code++)
    EXPECT_EQ(code, WEXITSTATUS(statuses[code]));
}

TEST_F(Execl, TracesTheCommandAndGivesItsLength) {
  EXPECT_EQ(22, _execl("echo %s-%d >%s", "eth0", 15, "/run/out"));
  EXPECT_EQ("eth0-15\n", read_file("/run/out"));
  expect_trace(false, "_execl", "sys cmd:echo eth0-15 >/run/out\n");
}

TEST_F(Execl, ResultIsNotTheCommandsStatus) {
  EXPECT_EQ(6, _execl("exit %d", 7));
  EXPECT_EQ(10, _execl("kill -9 $$"));
  EXPECT_EQ(29, _execl("/run/no/such/tool 2>/dev/null"));
  EXPECT_EQ(0, _execl("%s", ""));
}

TEST_F(Execl, TracesBeforeItRuns) {
  _execl("cp /dev/console /run/out");
  const std::string seen = read_file("/run/out"), end = "sys cmd:cp /dev/console /run/out\n";
  ASSERT_LE(end.size(), seen.size());
  EXPECT_EQ(end, seen.substr(seen.size() - end.size()));
}

TEST_F(Execl, OpensTheConsoleOnce) {
  sandbox::ConsoleWatch watch;
  _execl("true");
  EXPECT_EQ(1, watch.counts().opens);
  EXPECT_EQ(1, watch.counts().closes);
}

TEST_F(Execl, RunsWithoutAConsoleToo) {
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(19, _execl("echo done >%s", "/run/out"));
  EXPECT_EQ("done\n", read_file("/run/out"));
}

TEST_F(Execl, TheShellIsCalledSh) {
  _execl("printf %%s \"$0\" >/run/out");
  EXPECT_EQ("sh", read_file("/run/out"));
}

TEST_F(Execl, RefusesWhatDoesNotFit) {
  const Sized fits(1023);
  EXPECT_EQ(1023, _execl("%s", fits.command.c_str()));
  EXPECT_EQ(fits.payload, read_file("/run/out"));
  EXPECT_EQ(std::vector<std::string>{"sys cmd:" + fits.command + "\n"}, console_messages());
  unlink("/run/out");
  for (const size_t size : {1024u, 1025u, 2048u, 100000u}) {
    sandbox::clear_console();
    EXPECT_EQ(-1, _execl("%s", Sized(size).command.c_str())) << size;
    EXPECT_FALSE(sandbox::exists("/run/out")) << size;
    expect_trace(false, "_execl", too_long);
  }
}

TEST_F(Execl, RefusesANullFormat) {
  EXPECT_EQ(-1, execl_unchecked(nullptr));
  expect_trace(false, "_execl", too_long);
}

TEST_F(Execl, ARefusedCommandWaitsForNobody) {
  const pid_t child = start_child([] { return 5; });
  await_end(child);
  EXPECT_EQ(-1, _execl("%2000s", ""));
  EXPECT_EQ(5, end_of_child(child));
}

TEST_F(Execl, WaitsForAnyOneChild) {
  ASSERT_EQ(0, mkfifo("/run/gate", 0600));
  const pid_t ended_before = start_child([] { return 5; });
  await_end(ended_before);
  EXPECT_EQ(20, _execl("read line </run/gate"));
  EXPECT_EQ(-1, waitpid(ended_before, nullptr, WNOHANG)); // reaped in place of the command
  EXPECT_EQ(0, waitpid(-1, nullptr, WNOHANG));            // the command still runs

  const int gate = open("/run/gate", O_WRONLY);
  EXPECT_EQ(5, write(gate, "line\n", 5));
  close(gate);
  int status = -1;
  EXPECT_LT(0, wait(&status));
  EXPECT_EQ(0, status);
  unlink("/run/gate");
}

TEST_F(Execl, WaitsForAChildEvenWhenItCanStartNone) {
  EXPECT_EQ(0, in_child([] {
              const pid_t ended_before = start_child([] { return 5; });
              await_end(ended_before);
              if (!have_no_more_children())
                return 1;
              if (_execl("echo >/run/out") != 14)
                return 2;
              return waitpid(ended_before, nullptr, WNOHANG) == -1 && errno == ECHILD ? 0 : 3;
            }));
  EXPECT_FALSE(sandbox::exists("/run/out"));
  EXPECT_EQ(std::vector<std::string>{"sys cmd:echo >/run/out\n"}, console_messages());
}

TEST_F(Execl, ItsChildEndsWhenThereIsNoShell) {
  sandbox::write_file("/run/no-shell", "");
  {
    const sandbox::Replaced shell("/bin/sh", "/run/no-shell");
    EXPECT_EQ(4, _execl("true"));
  }
  EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
  unlink("/run/no-shell");
}

TEST_F(SystemRead, GivesTheCommandsOutputAndStatus) {
  FILE *stream = _system_read("echo %s; echo %d; exit 5", "eth0", 42);
  ASSERT_NE(nullptr, stream);
  EXPECT_EQ("eth0\n42\n", all_of(stream));
  const int status = _system_close(stream);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(5, WEXITSTATUS(status));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(SystemRead, FlushesAllOutputStreamsFirst) {
  FILE *one = fopen("/run/out", "w"), *other = fopen("/run/out.2", "w");
  ASSERT_TRUE(one && other);
  fputs("from one, ", one);
  fputs("from the other", other);
  FILE *stream = _system_read("cat /run/out /run/out.2");
  ASSERT_NE(nullptr, stream);
  EXPECT_EQ("from one, from the other", all_of(stream));
  EXPECT_EQ(0, _system_close(stream));
  fclose(one);
  fclose(other);
  unlink("/run/out.2");
}

TEST_F(SystemRead, RefusesWhatDoesNotFit) {
  const Sized fits(1023);
  FILE *stream = _system_read("%s", fits.command.c_str());
  ASSERT_NE(nullptr, stream);
  EXPECT_EQ(0, _system_close(stream));
  EXPECT_EQ(fits.payload, read_file("/run/out"));
  EXPECT_EQ("", sandbox::console_text());
  unlink("/run/out");
  for (const size_t size : {1024u, 1025u, 2048u, 100000u}) {
    sandbox::clear_console();
    EXPECT_EQ(nullptr, _system_read("%s", Sized(size).command.c_str())) << size;
    EXPECT_FALSE(sandbox::exists("/run/out")) << size;
    expect_trace(true, "_system_read", too_long);
  }
}

TEST_F(SystemRead, RefusesANullFormat) {
  EXPECT_EQ(nullptr, system_read_unchecked(nullptr));
  expect_trace(true, "_system_read", too_long);
}

TEST_F(SystemRead, GivesNullWhenTheCommandCannotBeStarted) {
  FILE *stream;
  {
    const NoDescriptors none;
    stream = _system_read("echo >/run/out");
  }
  EXPECT_EQ(nullptr, stream);
  EXPECT_FALSE(sandbox::exists("/run/out"));
  EXPECT_EQ(0, in_child([] { return have_no_more_children() && _system_read("true") == nullptr ? 0 : 1; }));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(SystemRead, CloseOfNullFails) {
  EXPECT_EQ(-1, _system_close(nullptr));
}

TEST_F(SystemRead, LeavesNoDescriptorOpen) {
  const int before = sandbox::open_descriptors();
  FILE *one = _system_read("echo 1"), *two = _system_read("echo 2");
  EXPECT_EQ("2\n", all_of(two));
  EXPECT_EQ("1\n", all_of(one));
  EXPECT_EQ(0, _system_close(one));
  EXPECT_EQ(0, _system_close(two));
  EXPECT_EQ(nullptr, _system_read("%2000s", ""));
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(ExecSystem, ReportsThatTheCommandCouldBeStarted) {
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, exec_system("echo done >/run/out"));
  EXPECT_EQ("execute command (echo done >/run/out) success\n", output.text());
  EXPECT_EQ("done\n", read_file("/run/out"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(ExecSystem, DoesNotLookAtTheCommandsStatus) {
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, exec_system("exit 9"));
  EXPECT_EQ(0, exec_system("kill -9 $$"));
  EXPECT_EQ(0, exec_system("/run/no/such/tool 2>/dev/null"));
  EXPECT_EQ(0, exec_system(""));
  EXPECT_EQ(
      "execute command (exit 9) success\n"
      "execute command (kill -9 $$) success\n"
      "execute command (/run/no/such/tool 2>/dev/null) success\n"
      "execute command () success\n",
      output.text());
}

TEST_F(ExecSystem, WaitsForTheEndWithoutReading) {
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, exec_system("yes 2>/dev/null")); // the closed pipe ends a command that prints
  EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
  EXPECT_EQ("execute command (yes 2>/dev/null) success\n", output.text());
}

TEST_F(ExecSystem, TakesACommandOfAnyLength) {
  const Sized command(5000);
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(0, exec_system(command.command.c_str()));
  EXPECT_EQ("execute command (" + command.command + ") success\n", output.text());
  EXPECT_EQ(command.payload, read_file("/run/out"));
}

TEST_F(ExecSystem, ReportsThatTheCommandCouldNotBeStarted) {
  sandbox::Captured output(STDOUT_FILENO);
  int result;
  {
    const NoDescriptors none;
    result = exec_system("echo 100% >/run/out");
  }
  EXPECT_EQ(-1, result);
  EXPECT_EQ("execute command (echo 100% >/run/out) fail\n", output.text());
  EXPECT_FALSE(sandbox::exists("/run/out"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(ExecSystem, FailsForNull) {
  sandbox::Captured output(STDOUT_FILENO);
  EXPECT_EQ(-1, exec_system(nullptr));
  EXPECT_EQ("execute command ((null)) fail\n", output.text());
}

TEST_F(ExecSystem, LeavesNoDescriptorOpen) {
  sandbox::Captured output(STDOUT_FILENO);
  const int before = sandbox::open_descriptors();
  exec_system("exit 9");
  exec_system(nullptr);
  EXPECT_EQ(before, sandbox::open_descriptors());
}
