// A test puts its own files and folders in the place of others while an object lives.
#pragma once

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>

#include <string>

namespace sandbox {

// The destructor ends the mount even if a file in it is still open.
class Mount {
 public:
  ~Mount() {
    umount2(path_.c_str(), MNT_DETACH);
  }
  Mount(const Mount &) = delete;
  Mount &operator=(const Mount &) = delete;

 protected:
  Mount(const char *from, const std::string &path, const char *type, unsigned long flags, const char *options)
      : path_(path) {
    EXPECT_EQ(0, mount(from, path.c_str(), type, flags, options)) << path << ": " << strerror(errno);
  }
  // Changes the flags of the mount.
  void remount(unsigned long flags) const {
    EXPECT_EQ(0, mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | flags, nullptr)) << path_ << strerror(errno);
  }

 private:
  std::string path_;
};

// Puts an empty file system at `path`.
class OwnFiles : public Mount {
 public:
  explicit OwnFiles(const std::string &path, unsigned long flags = 0, const char *options = "mode=755")
      : Mount("tmpfs", path, "tmpfs", flags, options) {}
  void make_read_only() const {
    remount(MS_RDONLY);
  }
};

// Puts the file or folder `by` at `path`. If they are the same, it only can no longer be renamed.
class Replaced : public Mount {
 public:
  Replaced(const std::string &path, const std::string &by) : Mount(by.c_str(), path, nullptr, MS_BIND, nullptr) {}
  void make_read_only() const {
    remount(MS_BIND | MS_RDONLY);
  }
};

} // namespace sandbox
