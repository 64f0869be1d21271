// Makes the library wait in the middle of what it does: at a trace, for which the console takes no more bytes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/sandbox.h"

namespace sandbox {

class PausedAtTrace {
 public:
  // Starts `work` in a thread of its own. Returns when that has opened the console; it waits there until finish().
  template <typename Work>
  explicit PausedAtTrace(Work work) {
    EXPECT_EQ(0, rename("/dev/console", "/dev/console.away"));
    EXPECT_EQ(0, mkfifo("/dev/console", 0600));
    const int pipe = open("/dev/console", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    pipe_ = fcntl(pipe, F_DUPFD_CLOEXEC, 20); // what is closed in this process stays closed
    close(pipe);
    const char full[512] = {};
    while (write(pipe_, full, sizeof(full)) > 0) {
    }
    thread_ = std::thread([this, work] {
      work();
      done_ = true;
    });
    while (descriptors_of("/dev/console").size() < 2 && !done_)
      usleep(1000);
  }
  ~PausedAtTrace() {
    finish();
    close(pipe_);
    unlink("/dev/console");
    rename("/dev/console.away", "/dev/console");
  }
  PausedAtTrace(const PausedAtTrace &) = delete;
  PausedAtTrace &operator=(const PausedAtTrace &) = delete;

  // Takes what is traced until the work is done.
  void finish() {
    char taken[4096];
    while (!done_)
      if (read(pipe_, taken, sizeof(taken)) <= 0)
        usleep(1000);
    if (thread_.joinable())
      thread_.join();
  }

 private:
  int pipe_ = -1;
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

} // namespace sandbox
