#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

using sandbox::console;
using sandbox::console_messages;
using sandbox::console_text;

namespace {

int kernel_thread_id() {
  return static_cast<int>(syscall(SYS_gettid));
}

int in_a_thread(int (*body)()) {
  int result = -1;
  std::thread([&] { result = body(); }).join();
  return result;
}

// Runs `speak` in the main thread of a process 312 and in its threads 314 to 321, one after the other. A fresh
// process-id namespace gives its numbers out in order. 313 is left out because a sanitizer or an emulator may take it.
int in_process_312(void (*speak)()) {
  return sandbox::in_child([=] {
    if (unshare(CLONE_NEWPID) != 0)
      return 1;
    return sandbox::in_child([=] {
      while (in_a_thread(kernel_thread_id) < 311) {
      }
      return sandbox::in_child([=] {
        if (getpid() != 312)
          return 2;
        speak();
        int id = 0;
        while (id < 321) {
          std::thread([&] {
            id = kernel_thread_id();
            if (id != 313)
              speak();
          }).join();
        }
        return 0;
      });
    });
  });
}

// Replaces line numbers, which change with the library's sources, but checks that they are right-justified to five.
std::string without_line_numbers(const std::string &text) {
  static const std::regex column(":( {4}\\d| {3}\\d\\d| {2}\\d{3}| \\d{4}) ");
  return std::regex_replace(text, column, ":LLLLL ");
}

std::string padded(int id) {
  std::string text = std::to_string(id);
  while (text.size() < 5)
    text += ' ';
  return text;
}

// Returns how every long header of the calling thread begins.
std::string header_start() {
  const int id = kernel_thread_id();
  return "\033[1m\033[40;" + std::to_string(31 + id % 8) + "m[" + padded(getpid()) + "|" + padded(id) + " ";
}

std::string header(const char *file, int line, const char *func, int *result = nullptr) {
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  const int written = __stdprintf_info__(out, file, line, func);
  if (result)
    *result = written;
  fclose(out);
  std::string copy(text, size);
  free(text);
  return copy;
}

class Trace : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
};

} // namespace

TEST(ThreadId, IsTheKernelsNumberOfTheCallingThread) {
  EXPECT_EQ(getpid(), my_gettid());
  int own = 0, asked = 0;
  std::thread([&] {
    own = kernel_thread_id();
    asked = my_gettid();
  }).join();
  EXPECT_EQ(own, asked);
  EXPECT_NE(getpid(), asked);
  EXPECT_EQ(0, sandbox::in_child([] { return my_gettid() == getpid() ? 0 : 1; }));
}

TEST(Header, IsExactForThreadIdsOfEveryResidueModulo8) {
  ASSERT_EQ(0, in_process_312(+[] {
              FILE *out = fopen("/run/headers", "a");
              __stdprintf_info__(out, "quorra_qos", 97, "root_qdisc_find_by_name");
              fputs("eth9 not found!!\n", out);
              fclose(out);
            }));
  EXPECT_EQ(
      "\033[1m\033[40;31m[312  |312   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n"
      "\033[1m\033[40;33m[312  |314   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n"
      "\033[1m\033[40;34m[312  |315   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n"
      "\033[1m\033[40;35m[312  |316   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n"
      "\033[1m\033[40;36m[312  |317   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n"
      "\033[1m\033[40;37m[312  |318   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n"
      "\033[1m\033[40;38m[312  |319   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n"
      "\033[1m\033[40;31m[312  |320   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n"
      "\033[1m\033[40;32m[312  |321   quorra_qos          :   97 root_qdisc_find_by_name()]:::\033[0meth9 not "
      "found!!\n",
      sandbox::read_file("/run/headers"));
  unlink("/run/headers");
}

TEST(Header, WidthsAreMinimaAndLongTextsArePrintedWhole) {
  const struct {
    const char *file;
    int line;
    const char *func;
    const char *rest; // what follows the thread id
  } cases[] = {
      {"cfg", 7, "f", "cfg                 :    7                f()]:::\033[0m"},
      {"", 0, "", "                    :    0                 ()]:::\033[0m"},
      {"a_name_of_19_letter", 1234, "fifteen_letters", "a_name_of_19_letter : 1234  fifteen_letters()]:::\033[0m"},
      {"a_name_of_20_letters", 12345, "sixteen__letters", "a_name_of_20_letters:12345 sixteen__letters()]:::\033[0m"},
      {"a_name_of_21__letters", 123456, "seventeen_letters",
       "a_name_of_21__letters:123456 seventeen_letters()]:::\033[0m"},
      {"quorra_qos", -1, "f", "quorra_qos          :   -1                f()]:::\033[0m"},
      {"%s%n", 3, "%d", "%s%n                :    3               %d()]:::\033[0m"},
  };
  for (const auto &c : cases)
    EXPECT_EQ(header_start() + c.rest, header(c.file, c.line, c.func));

  const std::string file(3000, 'm'), func(3000, 'f');
  EXPECT_EQ(header_start() + file + ":    1 " + func + "()]:::\033[0m", header(file.c_str(), 1, func.c_str()));
}

TEST(Header, ReturnsTheBytesWritten) {
  int written = 0;
  const std::string text = header("quorra_qos", 97, "check", &written);
  EXPECT_EQ(static_cast<int>(text.size()), written);
  EXPECT_LT(0, written);
}

TEST(Header, ReturnsANegativeNumberWhenTheStreamFails) {
  FILE *full = fopen("/dev/full", "w");
  ASSERT_NE(nullptr, full);
  setvbuf(full, nullptr, _IONBF, 0);
  EXPECT_GT(0, __stdprintf_info__(full, "quorra_qos", 97, "check"));
  fclose(full);

  FILE *read_only = fopen("/dev/null", "r");
  EXPECT_GT(0, __stdprintf_info__(read_only, "quorra_qos", 97, "check"));
  fclose(read_only);
}

TEST(Header, LeavesTheStreamOpenAndUnflushed) {
  FILE *out = fopen("/run/stream", "w");
  ASSERT_NE(nullptr, out);
  __stdprintf_info__(out, "cfg", 7, "f");
  EXPECT_EQ("", sandbox::read_file("/run/stream"));
  EXPECT_LT(0, fputs("message\n", out));
  EXPECT_EQ(0, fclose(out));
  EXPECT_EQ(header_start() + "cfg                 :    7                f()]:::\033[0mmessage\n",
            sandbox::read_file("/run/stream"));
  unlink("/run/stream");
}

TEST(Header, StaysWholeWhenThreadsShareAStream) {
  constexpr int threads = 4, rounds = 50;
  FILE *out = fopen("/run/stream", "w");
  ASSERT_NE(nullptr, out);
  std::string expected[threads];
  std::vector<std::thread> writers;
  for (std::string &mine : expected)
    writers.emplace_back([&mine, out] {
      mine = header_start() + "shared              :    7           writer()]:::\033[0m";
      for (int i = 0; i < rounds; i++)
        __stdprintf_info__(out, "shared", 7, "writer");
    });
  for (std::thread &writer : writers)
    writer.join();
  fclose(out);

  std::map<std::string, int> seen;
  const std::string text = sandbox::read_file("/run/stream");
  for (size_t at = 0, next; at < text.size(); at = next) {
    next = std::min(text.find("\033[1m", at + 1), text.size());
    seen[text.substr(at, next - at)]++;
  }
  EXPECT_EQ(static_cast<size_t>(threads), seen.size());
  for (const std::string &mine : expected)
    EXPECT_EQ(rounds, seen[mine]);
  unlink("/run/stream");
}

TEST_F(Trace, OfAQosLookupIsHeaderMessageAndNewline) {
  ASSERT_EQ(0, in_process_312(+[] { root_qdisc_find_by_name("eth9"); }));
  const char *const message = ":LLLLL root_qdisc_find_by_name()]:::\033[0meth9 not found!!\n";
  std::string expected;
  for (const char *start :
       {"31m[312  |312  ", "33m[312  |314  ", "34m[312  |315  ", "35m[312  |316  ", "36m[312  |317  ",
        "37m[312  |318  ", "38m[312  |319  ", "31m[312  |320  ", "32m[312  |321  "})
    expected += std::string("\033[1m\033[40;") + start + " quorra_qos          " + message;
  EXPECT_EQ(expected, without_line_numbers(console_text()));
}

TEST_F(Trace, OfTheOlderModulesHasTheShortHeader) {
  sandbox::Captured errors(STDERR_FILENO);
  ASSERT_EQ(0, in_process_312(+[] { downdown(-1, "caller", 42, "worker", 0); }));
  const char *const rest =
      " quorra_ipc          :LLLLL         downdown()]:::\033[0mcaller:42:::worker:::semid=-1 down fail\n";
  std::string expected;
  for (const char *start : {"31m[  312", "33m[  314", "34m[  315", "35m[  316", "36m[  317", "37m[  318", "38m[  319",
                            "31m[  320", "32m[  321"})
    expected += std::string("\033[1m\033[40;") + start + rest;
  EXPECT_EQ(expected, without_line_numbers(console_text()));
}

TEST_F(Trace, TellsItsSourceAndSpeaker) {
  root_qdisc_find_by_name("eth9");
  const auto traces = console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_TRUE(traces[0].has_process);
  EXPECT_EQ(31 + getpid() % 8, traces[0].colour);
  EXPECT_EQ(getpid(), traces[0].process);
  EXPECT_EQ(getpid(), traces[0].thread);
  EXPECT_EQ("quorra_qos", traces[0].file);
  EXPECT_LT(0, traces[0].line);
  EXPECT_EQ("root_qdisc_find_by_name", traces[0].func);
  EXPECT_EQ("eth9 not found!!\n", traces[0].message);
}

TEST_F(Trace, LongerThanAnyBufferIsWrittenWhole) {
  const std::string name(20000, 'n');
  root_qdisc_find_by_name(name.c_str());
  EXPECT_EQ(std::vector<std::string>{name + " not found!!\n"}, console_messages());
}

TEST_F(Trace, OpensAndClosesTheConsoleOncePerTrace) {
  sandbox::ConsoleWatch watch;
  root_qdisc_find_by_name("eth9");
  EXPECT_EQ(1, watch.counts().opens);
  EXPECT_EQ(1, watch.counts().closes);
  for (int i = 0; i < 9; i++)
    root_qdisc_find_by_name("eth9");
  EXPECT_EQ(10, watch.counts().opens);
  EXPECT_EQ(10, watch.counts().closes);
}

TEST_F(Trace, LeavesNoDescriptorOpen) {
  const int before = sandbox::open_descriptors();
  for (int i = 0; i < 20; i++)
    root_qdisc_find_by_name("eth9");
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(Trace, AppendsToWhatTheConsoleHolds) {
  sandbox::write_file("/dev/console", "boot\n");
  root_qdisc_find_by_name("eth9");
  EXPECT_EQ(0u, console_text().find("boot\n\033[1m"));
  EXPECT_NE(std::string::npos, console_text().find("eth9 not found!!\n"));
}

TEST_F(Trace, ChangesNoErrno) {
  errno = EXDEV;
  EXPECT_EQ(-1, __kill("caller", 1, "stop", 1, 0));
  EXPECT_EQ(EXDEV, errno);
  EXPECT_EQ(std::vector<std::string>{"kill 1\n"}, console_messages());
}

TEST_F(Trace, ThatCannotOpenTheConsoleChangesNeitherResultNorErrno) {
  {
    const sandbox::UnopenableConsole away;
    errno = EXDEV;
    EXPECT_EQ(nullptr, root_qdisc_find_by_name("eth9"));
    EXPECT_EQ(1, del_root_qdisc("eth9"));
    EXPECT_EQ(0u, restart_rule("eth9"));
    EXPECT_EQ(-1, __kill("caller", 1, "stop", 1, 0));
    EXPECT_EQ(-1, __system("caller", 1, "run", "%2000s", ""));
    const void *const action[] = {nullptr};
    show_handler(action);
    EXPECT_EQ(EXDEV, errno);
  }
  EXPECT_EQ("", console_text());
}

TEST_F(Trace, FindsNoConsoleWhereItIsAbsent) {
  ASSERT_EQ(0, rename("/dev/console", "/dev/console.kept"));
  ASSERT_EQ(0, symlink("/run/no/such/console", "/dev/console"));
  errno = EXDEV;
  EXPECT_EQ(-1, __kill("caller", 1, "stop", -1, 0));
  EXPECT_EQ(EXDEV, errno);
  ASSERT_EQ(0, unlink("/dev/console"));
  ASSERT_EQ(0, rename("/dev/console.kept", "/dev/console"));
  EXPECT_EQ("", console_text());
}

TEST_F(Trace, IsLeftOutWithoutDescriptors) {
  {
    const sandbox::NoDescriptors none;
    errno = EXDEV;
    EXPECT_EQ(-1, __kill("caller", 1, "stop", 0, 0));
    EXPECT_EQ(EXDEV, errno);
  }
  EXPECT_EQ("", console_text());
}

TEST_F(Trace, IsLeftOutWithoutMemory) {
  const int descriptors = sandbox::open_descriptors();
  sandbox::fail_allocation(1);
  errno = EXDEV;
  const int result = __kill("caller", 1, "stop", 0, 0);
  const int left = errno;
  EXPECT_TRUE(sandbox::allocation_failed());
  sandbox::fail_allocation(0);
  EXPECT_EQ(-1, result);
  EXPECT_EQ(EXDEV, left);
  EXPECT_EQ("", console_text());
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
}

TEST_F(Trace, OnAFullConsoleChangesNeitherResultNorErrno) {
  ASSERT_EQ(0, rename("/dev/console", "/dev/console.kept"));
  ASSERT_EQ(0, symlink("/dev/full", "/dev/console"));
  const int before = sandbox::open_descriptors();
  errno = EXDEV;
  EXPECT_EQ(-1, __kill("caller", 1, "stop", 0, 0));
  EXPECT_EQ(EXDEV, errno);
  EXPECT_EQ(before, sandbox::open_descriptors());
  ASSERT_EQ(0, unlink("/dev/console"));
  ASSERT_EQ(0, rename("/dev/console.kept", "/dev/console"));
}

TEST_F(Trace, OfManyThreadsAtOnceKeepsEveryLineWhole) {
  constexpr int threads = 6, rounds = 30;
  int ids[threads];
  std::vector<std::thread> speakers;
  for (int t = 0; t < threads; t++)
    speakers.emplace_back([t, &ids] {
      ids[t] = kernel_thread_id();
      for (int i = 0; i < rounds; i++)
        root_qdisc_find_by_name(("eth" + std::to_string(t) + "." + std::to_string(i)).c_str());
    });
  for (std::thread &speaker : speakers)
    speaker.join();

  std::map<int, std::vector<std::string>> messages;
  for (const auto &trace : console()) {
    EXPECT_TRUE(trace.has_process);
    EXPECT_EQ(getpid(), trace.process);
    EXPECT_EQ(31 + trace.thread % 8, trace.colour);
    messages[trace.thread].push_back(trace.message);
  }
  EXPECT_EQ(static_cast<size_t>(threads), messages.size());
  for (int t = 0; t < threads; t++) {
    std::vector<std::string> expected;
    for (int i = 0; i < rounds; i++)
      expected.push_back("eth" + std::to_string(t) + "." + std::to_string(i) + " not found!!\n");
    EXPECT_EQ(expected, messages[ids[t]]);
  }
}
