// A test can give a file of /proc/net contents of its own.
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/sandbox.h"

namespace sandbox {

// While it lives, this process alone sees a folder of the test's as /proc/net, with one file in it. (No file can be
// mounted over a single one there: the kernel looks it up anew each time.) set() writes in place, so the next reader
// that opens the file reads the new text.
class ProcNetFile {
 public:
  explicit ProcNetFile(const std::string &name, bool fifo = false) : path_(std::string(folder) + "/" + name) {
    mkdir(folder, 0700);
    if (fifo)
      EXPECT_EQ(0, mkfifo(path_.c_str(), 0600));
    else
      write_file(path_, "");
    if (mount(folder, "/proc/net", nullptr, MS_BIND, nullptr) != 0)
      ADD_FAILURE() << "nothing can stand in for /proc/net";
  }
  ~ProcNetFile() {
    umount2("/proc/net", MNT_DETACH);
    unlink(path_.c_str());
    rmdir(folder);
  }
  ProcNetFile(const ProcNetFile &) = delete;
  ProcNetFile &operator=(const ProcNetFile &) = delete;

  void set(const std::string &text) const {
    write_file(path_, text);
  }
  const char *path() const {
    return path_.c_str();
  }

 private:
  static constexpr char folder[] = "/run/proc-net";
  std::string path_;
};

} // namespace sandbox
