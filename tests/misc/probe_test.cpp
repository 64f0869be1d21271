// Probes for files and kernel modules.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "misc/misc.h"
#include "support/mounts.h"
#include "support/sandbox.h"
#include "torvane.h"

namespace {

class FileProbe : public misc::Test {};
class ModuleProbe : public misc::Test {};

} // namespace

TEST_F(FileProbe, TellsWhatStatSucceedsOn) {
  sandbox::write_file("/run/file", "");
  mkdir("/run/dir", 0700);
  ASSERT_EQ(0, symlink("/run/file", "/run/link"));
  ASSERT_EQ(0, symlink("/run/nothing", "/run/dangling"));
  for (const char *there : {"/run/file", "/run/dir", "/run/link", "/dev/null", "/"})
    EXPECT_EQ(1, _isFileExist(there)) << there;
  for (const char *missing : {"/run/nothing", "/run/dangling", "/run/file/below", ""})
    EXPECT_EQ(0, _isFileExist(missing)) << missing;
  EXPECT_EQ(0, _isFileExist(nullptr));
  EXPECT_EQ("", sandbox::console_text());
  for (const char *made : {"/run/file", "/run/link", "/run/dangling"})
    unlink(made);
  rmdir("/run/dir");
}

TEST_F(ModuleProbe, AnswersNoEvenForALoadedModule) {
  const sandbox::OwnFiles proc("/proc");
  sandbox::write_file("/proc/modules", "loaded 16384 0 - Live 0x0000000000000000\n");
  EXPECT_EQ(0, _isModuleExist("loaded"));
  EXPECT_EQ(0, _isModuleExist("missing"));
  EXPECT_EQ(0, _isModuleExist(""));
  EXPECT_EQ(0, _isModuleExist(nullptr));
  sandbox::write_file("/proc/modules", "");
  EXPECT_EQ(0, _isModuleExist("loaded"));
  EXPECT_EQ("", sandbox::console_text());
}

TEST_F(ModuleProbe, TracesAListThatCannotBeOpened) {
  {
    const sandbox::OwnFiles proc("/proc");
    EXPECT_EQ(0, _isModuleExist("loaded"));
  }
  misc::expect_trace(true, "_isModuleExist", "open /proc/modules fail!\n");
}

TEST_F(ModuleProbe, AnswersTheSameWithoutAConsole) {
  const sandbox::OwnFiles proc("/proc");
  const sandbox::UnopenableConsole away;
  EXPECT_EQ(0, _isModuleExist("loaded"));
}

TEST_F(ModuleProbe, ClosesTheListAgain) {
  const int before = sandbox::open_descriptors();
  {
    const sandbox::OwnFiles proc("/proc");
    _isModuleExist("loaded"); // there is no list
    sandbox::write_file("/proc/modules", "loaded 16384 0 - Live 0x0\n");
    _isModuleExist("loaded");
    _isModuleExist("missing");
  }
  EXPECT_EQ(before, sandbox::open_descriptors());
}
