// Traces of a child that is forked while a thread waits for the console.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "support/child_process.h"
#include "support/sandbox.h"
#include "torvane.h"

TEST(TraceFork, AChildTracesWhileAThreadOfItsParentWaitsForTheConsole) {
  sandbox::clear_console();
  sandbox::Captured errors(STDERR_FILENO);
  ASSERT_EQ(0, rename("/dev/console", "/dev/console.usual"));
  ASSERT_EQ(0, mkfifo("/dev/console", 0600)); // opening it waits for a reader
  std::thread waiting([] { downdown(-1, "test", 1, "thread", 0); });
  usleep(50000);
  EXPECT_EQ(
      0, sandbox::in_child([] {
        alarm(60);
        if (rename("/dev/console", "/dev/console.waiting") != 0 || rename("/dev/console.usual", "/dev/console") != 0)
          return 2;
        downdown(-1, "test", 1, "child", 0);
        return sandbox::console_messages().size() == 1 ? 0 : 1;
      }));
  const int reader = open("/dev/console.waiting", O_RDONLY | O_CLOEXEC);
  waiting.join();
  close(reader);
  unlink("/dev/console.waiting");
  EXPECT_EQ(1u, sandbox::console_messages().size());
}
