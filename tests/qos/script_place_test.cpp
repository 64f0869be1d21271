// Scripts are made anew: whatever somebody left in their places is replaced, and neither followed, filled nor run.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include "qos/scripts.h"
#include "qos/tree_builders.h"
#include "support/child_process.h"
#include "support/interposed.h"
#include "support/left_behind.h"
#include "support/paused_console.h"
#include "support/script_goldens.h"
#include "support/standard_descriptors.h"
#include "support/unprivileged.h"

INTERPOSE(unlink, 1);

namespace {

using sandbox::console_messages;
using sandbox::exists;
using sandbox::is_own_file;
using sandbox::read_file;
using scripts::start_script;
using scripts::stop_script;
using trees::Messages;

constexpr struct {
  const char *path;
  int (*make)(const char *ifname);
} both[] = {{start_script, start_qos}, {stop_script, stop_qos}};

const std::string start_text = std::string(goldens::banner) + scripts::removal_of_root +
                               "ifconfig eth1 txqueuelen 1000\n" + goldens::chain_renewal;
const std::string stop_text = std::string(goldens::banner) + scripts::removal_of_root + goldens::chain_removal;

std::string text_of(const char *path) {
  return path == std::string(start_script) ? start_text : stop_text;
}

std::string beside(const char *path) {
  return std::string(path) + ":new";
}

// A user namespace may know only one user.
bool has_other_users() {
  return sandbox::in_child([] { return setresuid(-1u, sandbox::another_user, -1u); }) == 0;
}

// The scripts find no tool, and what they say about it is not shown.
class ScriptPlace : public trees::Test {
 protected:
  void SetUp() override {
    trees::Test::SetUp();
    descriptors_ = sandbox::open_descriptors();
    trees::add_pfifo_fast("eth1");
    path_ = getenv("PATH");
    setenv("PATH", "/nowhere", 1);
  }
  void TearDown() override {
    setenv("PATH", path_.c_str(), 1);
    EXPECT_EQ(descriptors_, sandbox::open_descriptors());
    sandbox::run("rm -rf /var/tmp/* /run/ran_as");
    trees::Test::TearDown();
  }

 private:
  std::string path_;
  int descriptors_ = 0;
  sandbox::Captured errors_{2};
};

TEST_F(ScriptPlace, WhateverIsThereIsReplaced) {
  for (const auto &script : both) {
    for (const auto &thing : sandbox::left_behind) {
      SCOPED_TRACE(thing.what);
      sandbox::make_kept(script.path);
      unlink(script.path);
      thing.put(script.path);
      EXPECT_EQ(1, script.make("eth1"));
      EXPECT_TRUE(sandbox::is_kept(script.path));
      EXPECT_TRUE(is_own_file(script.path, 0700));
      EXPECT_EQ(text_of(script.path), read_file(script.path));
      EXPECT_FALSE(exists(beside(script.path)));
    }
  }
}

TEST_F(ScriptPlace, WhateverIsBesideItDoesNotMatter) {
  for (const auto &script : both) {
    for (const auto &thing : sandbox::left_behind) {
      SCOPED_TRACE(thing.what);
      sandbox::make_kept(script.path);
      thing.put(beside(script.path));
      EXPECT_EQ(1, script.make("eth1"));
      EXPECT_TRUE(sandbox::is_kept(script.path));
      EXPECT_TRUE(is_own_file(script.path, 0700));
      EXPECT_FALSE(exists(beside(script.path)));
    }
  }
}

TEST_F(ScriptPlace, ADirectoryStaysAndNothingIsMadeBesideIt) {
  for (const auto &script : both) {
    ASSERT_EQ(0, mkdir(script.path, 0700));
    EXPECT_EQ(0, script.make("eth1"));
    EXPECT_EQ(0, rmdir(script.path));
    EXPECT_FALSE(exists(beside(script.path)));

    sandbox::write_file(script.path, "previous");
    ASSERT_EQ(0, mkdir(beside(script.path).c_str(), 0700));
    EXPECT_EQ(0, script.make("eth1"));
    EXPECT_EQ("previous", read_file(script.path));
    EXPECT_EQ(0, rmdir(beside(script.path).c_str()));
  }
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(ScriptPlace, WhoHasTheOldFileOpenDoesNotWriteToTheNewOne) {
  for (const auto &script : both) {
    sandbox::write_file(script.path, "previous");
    const int old = open(script.path, O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(1, script.make("eth1"));
    EXPECT_EQ(8, write(old, "#!/bin/f", 8));
    close(old);
    EXPECT_EQ(text_of(script.path), read_file(script.path));
  }
}

TEST_F(ScriptPlace, ThePreviousStaysWithoutADescriptorOrMemory) {
  for (const auto &script : both) {
    sandbox::write_file(script.path, "previous");
    {
      const sandbox::NoDescriptors none;
      EXPECT_EQ(0, script.make("eth1"));
    }
    sandbox::fail_allocation(1);
    EXPECT_EQ(0, script.make("eth1"));
    EXPECT_TRUE(sandbox::allocation_failed());
    sandbox::fail_allocation(0);
    EXPECT_EQ("previous", read_file(script.path));
    EXPECT_FALSE(exists(beside(script.path)));
  }
  EXPECT_EQ(Messages{}, console_messages());
}

TEST_F(ScriptPlace, AnotherUsersFileStaysWhereItCannotBeRemoved) {
  if (!has_other_users())
    GTEST_SKIP() << "this machine has no other user here";
  for (const std::string &path : {std::string(start_script), beside(start_script)}) {
    sandbox::write_file(path, "previous");
    chmod(path.c_str(), 0666);
    EXPECT_EQ(0, sandbox::as_another_user([] { return start_qos("eth1"); }));
    EXPECT_EQ("previous", read_file(path));
    EXPECT_EQ(path == beside(start_script), exists(beside(start_script)));
    unlink(path.c_str());
  }
  EXPECT_FALSE(exists(start_script));
}

// Keeps a file of another user's at `path` that says with whose rights it was run.
int keep_writing(const char *path) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (setresuid(sandbox::another_user, sandbox::another_user, sandbox::another_user) != 0)
    return 1;
  umask(0);
  static const std::string text = "#!/bin/sh\necho ran >/run/ran_as\n";
  for (;;) {
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0777);
    if (fd < 0 || write(fd, text.data(), text.size()) < 0)
      usleep(100);
    close(fd);
  }
}

TEST_F(ScriptPlace, WhatAnotherUserKeepsWritingIsNeverRun) {
  if (!has_other_users())
    GTEST_SKIP() << "this machine has no other user here";
  for (const auto &script : both) {
    const pid_t writer = sandbox::start_child([&] { return keep_writing(script.path); });
    for (int round = 0; round < 20; round++) {
      unlink(script.path);
      struct stat status = {};
      while (stat(script.path, &status) != 0 || status.st_uid != sandbox::another_user)
        usleep(100);
      EXPECT_EQ(1, script.make("eth1"));
      EXPECT_TRUE(is_own_file(script.path, 0700));
      EXPECT_EQ(text_of(script.path), read_file(script.path));
      ASSERT_FALSE(exists("/run/ran_as")) << "in round " << round;
    }
    kill(writer, SIGKILL);
    EXPECT_EQ(-1, sandbox::end_of_child(writer));
  }
}

// Puts a file of another user's where one was just removed, before anything else can be made there.
int unlink_and_be_too_late(const char *path) {
  const int result = interposed::unlink_call.real(path);
  sandbox::write_file(path, "squatted");
  return result;
}

TEST_F(ScriptPlace, WhoIsFasterStopsTheScriptAndNothingMore) {
  for (const auto &script : both) {
    sandbox::write_file(script.path, "previous");
    {
      const interposed::StandIn hook(interposed::unlink_call, unlink_and_be_too_late);
      EXPECT_EQ(0, script.make("eth1"));
    }
    EXPECT_EQ("previous", read_file(script.path));
    EXPECT_EQ("squatted", read_file(beside(script.path)));
  }
}

// Gives the tree a leaf whose type is traced in the middle of a start script.
void add_traced_leaf() {
  del_root_qdisc("eth1");
  trees::add_htb("eth1");
  leaf_qdisc leaf = {};
  leaf.type = 9;
  EXPECT_EQ(0, add_leaf_qdisc("eth1", 2, &leaf));
}

TEST_F(ScriptPlace, IsTheCallersAloneAndClosedOnExecWhileItIsWritten) {
  add_traced_leaf();
  const mode_t mask = umask(0);
  int result = 0;
  {
    const sandbox::PausedAtTrace pause([&] { result = start_qos("eth1"); });
    const std::vector<int> descriptors = sandbox::descriptors_of(start_script);
    EXPECT_EQ(1u, descriptors.size());
    for (const int fd : descriptors)
      EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
    EXPECT_TRUE(is_own_file(start_script, 0600));
  }
  umask(mask);
  EXPECT_EQ(1, result);
  EXPECT_TRUE(is_own_file(start_script, 0700));
}

TEST_F(ScriptPlace, KeepsOffTheDescriptorsOfStandardInputOutputAndError) {
  add_traced_leaf();
  EXPECT_EQ(0, sandbox::without_standard_descriptors([] {
              int result = 0;
              sandbox::PausedAtTrace pause([&] { result = start_qos("eth1"); });
              const std::vector<int> descriptors = sandbox::descriptors_of(start_script);
              pause.finish();
              return result == 1 && descriptors.size() == 1 && descriptors[0] > 2 ? 0 : 1;
            }));
  EXPECT_TRUE(is_own_file(start_script, 0700));

  sandbox::write_file(start_script, "previous");
  EXPECT_EQ(0, sandbox::with_only_standard_descriptors([] { return start_qos("eth1"); }));
  EXPECT_EQ("previous", read_file(start_script));
  EXPECT_FALSE(exists(beside(start_script)));
}

} // namespace
