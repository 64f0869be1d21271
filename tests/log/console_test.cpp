// How the console is opened: one that is absent is not made, it takes no descriptor of standard input, output or error,
// and it never becomes the terminal that controls the process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <string>

#include "support/interposed.h"
#include "support/sandbox.h"
#include "support/standard_descriptors.h"
#include "torvane.h"

INTERPOSE_VARIADIC(open, 2);

namespace {

class Console : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
    ASSERT_EQ(0, sem_create(0x10a, &semid));
  }
  void TearDown() override {
    sem_delete(semid);
  }

  // Traces a line, and shows one as the event log does. Returns whether the results are those of every other call.
  bool speak() const {
    return root_qdisc_find_by_name("eth9") == nullptr &&
           __syslogprintf(semid, "router", "caller", 7, "main", -1, "hello\n") == 0;
  }

  static constexpr size_t lines_spoken = 2;
  int semid = -1;
};

size_t lines_of(const std::string &text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

// How the console was opened last: the flags of open(2), 0 if nobody did.
int flags_of_console;

int watched_open(const char *path, int flags, void *mode) {
  if (std::string(path) == "/dev/console")
    flags_of_console = flags;
  return interposed::open_call.real(path, flags, mode);
}

} // namespace

TEST_F(Console, ThatIsAbsentIsNotMade) {
  ASSERT_EQ(0, rename("/dev/console", "/dev/console.kept"));
  EXPECT_TRUE(speak());
  EXPECT_FALSE(sandbox::exists("/dev/console"));
  EXPECT_EQ(0, rename("/dev/console.kept", "/dev/console"));
  EXPECT_EQ("", sandbox::console_text());
}

// The kernel of today gives no process a controlling terminal that it can only write to; earlier ones did.
TEST_F(Console, NeverBecomesTheTerminalThatControlsTheProcess) {
  const interposed::StandIn watch(interposed::open_call, watched_open);
  flags_of_console = 0;
  EXPECT_TRUE(speak());
  EXPECT_EQ(O_WRONLY | O_APPEND | O_NOCTTY, flags_of_console & (O_ACCMODE | O_APPEND | O_CREAT | O_NOCTTY));
  EXPECT_EQ(lines_spoken, lines_of(sandbox::console_text()));
}

TEST_F(Console, TakesNoDescriptorOfStandardInputOutputOrError) {
  EXPECT_EQ(0, sandbox::without_standard_descriptors(
                   [&] { return speak() && sandbox::standard_descriptors_are_closed() ? 0 : 1; }));
  EXPECT_EQ(lines_spoken, lines_of(sandbox::console_text()));
  sandbox::clear_console();
  EXPECT_EQ(0, sandbox::with_only_standard_descriptors(
                   [&] { return speak() && sandbox::standard_descriptors_are_closed() ? 0 : 1; }));
  EXPECT_EQ("", sandbox::console_text());
}
