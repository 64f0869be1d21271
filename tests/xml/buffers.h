// The folders and files through which documents become buffers.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>

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
