// What somebody may have left where the library makes a file: links, pipes, files of other users.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/sandbox.h"

namespace sandbox {

constexpr uid_t another_user = 65534;

// A file that links lead to, and one that does not exist, in the folder of `path`.
inline std::string kept_beside(const std::string &path) {
  return path.substr(0, path.rfind('/')) + "/kept";
}
inline std::string absent_beside(const std::string &path) {
  return path.substr(0, path.rfind('/')) + "/absent";
}

struct LeftBehind {
  const char *what;
  void (*put)(const std::string &path);
};

constexpr LeftBehind left_behind[] = {
    {"a link", [](const std::string &path) { EXPECT_EQ(0, symlink(kept_beside(path).c_str(), path.c_str())); }},
    {"a link to nothing",
     [](const std::string &path) { EXPECT_EQ(0, symlink(absent_beside(path).c_str(), path.c_str())); }},
    {"another file's second name",
     [](const std::string &path) { EXPECT_EQ(0, link(kept_beside(path).c_str(), path.c_str())); }},
    {"a pipe", [](const std::string &path) { EXPECT_EQ(0, mkfifo(path.c_str(), 0666)); }},
    {"a file that nobody may write to",
     [](const std::string &path) {
       write_file(path, "previous");
       EXPECT_EQ(0, chmod(path.c_str(), 0));
     }},
    {"another user's file",
     [](const std::string &path) {
       write_file(path, "previous");
       EXPECT_EQ(0, chmod(path.c_str(), 0777));
       chown(path.c_str(), another_user, another_user); // refused where there is no other user
     }},
};

inline void make_kept(const std::string &path) {
  write_file(kept_beside(path), "kept");
}

// Returns whether nothing was written through a link at `path`.
inline bool is_kept(const std::string &path) {
  return read_file(kept_beside(path)) == "kept" && !exists(absent_beside(path));
}

// Returns whether `path` is a file of this user's own, with this mode and no other name.
inline bool is_own_file(const std::string &path, mode_t mode) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
         status.st_nlink == 1 && (status.st_mode & 07777) == mode;
}

} // namespace sandbox
