// Where documents are written on their way to a buffer.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>

#include <string>
#include <vector>

#include "support/sandbox.h"

namespace buffers {

inline std::vector<std::string> files_of(const std::string &path) {
  std::vector<std::string> names;
  DIR *dir = opendir(path.c_str());
  while (const dirent *entry = readdir(dir))
    if (entry->d_name[0] != '.')
      names.push_back(path + "/" + entry->d_name);
  closedir(dir);
  return names;
}

// While it lives `path` is an empty file system of this test's own.
class OwnFiles {
 public:
  explicit OwnFiles(const char *path, unsigned long flags = 0, const char *options = "mode=755") : path_(path) {
    EXPECT_EQ(0, mount("tmpfs", path, "tmpfs", flags, options)) << strerror(errno);
  }
  ~OwnFiles() {
    umount2(path_, MNT_DETACH);
  }

 private:
  const char *path_;
};

constexpr char small_document[] =
    "<?xml version=\"1.0\"?>\n"
    "<wancfg><![CDATA[]]><![CDATA[\n"
    "\t<ifname id=\"atm0\" class=\"ioio\"><![CDATA[]]><![CDATA[abcd]]></ifname>\n"
    "\t<ptAddr><![CDATA[]]><![CDATA[\n"
    "\t\t<ipaddr><![CDATA[]]><![CDATA[aabb]]></ipaddr>\n"
    "\t]]></ptAddr>\n"
    "]]></wancfg>\n";

class Test : public testing::Test {
 protected:
  void SetUp() override {
    descriptors_ = sandbox::open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(descriptors_, sandbox::open_descriptors());
  }

 private:
  int descriptors_;
};

} // namespace buffers
