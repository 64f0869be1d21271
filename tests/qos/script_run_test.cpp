// Scripts that are written to their files and run.
#include <sys/mount.h>
#include <sys/stat.h>

#include "qos/scripts.h"
#include "qos/tree_builders.h"
#include "support/mounts.h"
#include "support/script_goldens.h"

namespace {

using goldens::banner;
using goldens::chain_removal;
using goldens::chain_removal_calls;
using goldens::chain_renewal;
using goldens::chain_renewal_calls;
using sandbox::console_messages;
using sandbox::read_file;
using scripts::removal_of_root;
using scripts::start_script;
using scripts::stop_script;
using scripts::tools;
using trees::Messages;

using ScriptRun = trees::Test;

const Messages stop_pfifo_calls = [] {
  Messages calls = {"tc [qdisc] [del] [dev] [eth1] [root]"};
  calls.insert(calls.end(), chain_removal_calls.begin(), chain_removal_calls.end());
  return calls;
}();

const Messages start_pfifo_calls = [] {
  Messages calls = {"tc [qdisc] [del] [dev] [eth1] [root]", "ifconfig [eth1] [txqueuelen] [1000]"};
  calls.insert(calls.end(), chain_renewal_calls.begin(), chain_renewal_calls.end());
  return calls;
}();

void expect_no_run() {
  EXPECT_EQ(0, start_qos("eth1"));
  EXPECT_EQ(0, stop_qos("eth1"));
  EXPECT_EQ(0, restart_qos("eth1"));
}

TEST_F(ScriptRun, CallsTheToolsInTheOrderOfTheScript) {
  trees::add_htb("eth1");
  const sandbox::StandIns stand_ins(tools);
  ASSERT_EQ(1, start_qos("eth1"));
  Messages expected = {
      "tc [qdisc] [del] [dev] [eth1] [root]",
      "tc [qdisc] [add] [dev] [eth1] [handle] [1:0] [root] [htb] [default] [0x3]",
      "tc [class] [add] [dev] [eth1] [parent] [1:0x0] [classid] [1:0x1] [htb] [rate] [100000kbit] [ceil] [100000kbit] "
      "[prio] [0] [burst] [1000000] [cburst] [1000000]",
      "tc [class] [add] [dev] [eth1] [parent] [1:0x1] [classid] [1:0x2] [htb] [rate] [100000kbit] [ceil] [100000kbit] "
      "[prio] [0] [burst] [6000] [cburst] [6000]",
      "tc [qdisc] [add] [dev] [eth1] [parent] [1:0x2] [handle] [0x20:] [sfq] [perturb] [10]",
      "tc [filter] [add] [dev] [eth1] [parent] [1:0] [protocol] [ip] [prio] [50] [handle] [0x2] [fw] [classid] [1:0x2]",
      "tc [class] [add] [dev] [eth1] [parent] [1:0x1] [classid] [1:0x3] [htb] [rate] [20000kbit] [ceil] [20000kbit] "
      "[prio] [0] [burst] [6000] [cburst] [6000]",
      "tc [qdisc] [add] [dev] [eth1] [parent] [1:0x3] [handle] [0x30:] [pfifo]",
      "tc [filter] [add] [dev] [eth1] [parent] [1:0] [protocol] [ip] [prio] [50] [handle] [0x3] [fw] [classid] [1:0x3]",
  };
  expected.insert(expected.end(), chain_renewal_calls.begin(), chain_renewal_calls.end());
  EXPECT_EQ(expected, stand_ins.calls());
}

TEST_F(ScriptRun, PfifoFastCallsIfconfig) {
  trees::add_pfifo_fast("eth1");
  const sandbox::StandIns stand_ins(tools);
  ASSERT_EQ(1, start_qos("eth1"));
  EXPECT_EQ(start_pfifo_calls, stand_ins.calls());
}

TEST_F(ScriptRun, StopCallsTheTools) {
  trees::add_htb("eth1");
  const sandbox::StandIns stand_ins(tools);
  ASSERT_EQ(1, stop_qos("eth1"));
  EXPECT_EQ(stop_pfifo_calls, stand_ins.calls());
}

TEST_F(ScriptRun, ReplacesThePreviousScriptAndSetsItsMode) {
  trees::add_pfifo_fast("eth1");
  const sandbox::StandIns stand_ins(tools);
  const std::string start = std::string(banner) + removal_of_root + "ifconfig eth1 txqueuelen 1000\n" + chain_renewal;
  const std::string stop = std::string(banner) + removal_of_root + chain_removal;
  for (const mode_t mask : {0u, 022u, 0777u}) {
    for (const char *script : {start_script, stop_script}) {
      sandbox::write_file(script, std::string(100000, 'x'));
      chmod(script, 0644);
    }
    const mode_t old_mask = umask(mask);
    EXPECT_EQ(1, start_qos("eth1"));
    EXPECT_EQ(1, stop_qos("eth1"));
    umask(old_mask);
    EXPECT_EQ(start, read_file(start_script));
    EXPECT_EQ(stop, read_file(stop_script));
    EXPECT_EQ(0700, sandbox::mode_of(start_script));
    EXPECT_EQ(0700, sandbox::mode_of(stop_script));
    if (mask == 0777) { // a new file gets its mode in spite of the mask
      unlink(start_script);
      const mode_t none = umask(0777);
      EXPECT_EQ(1, start_qos("eth1"));
      umask(none);
      EXPECT_EQ(0700, sandbox::mode_of(start_script));
    }
  }
}

TEST_F(ScriptRun, LastInterfaceLeavesItsScript) {
  trees::add_pfifo_fast("eth2");
  trees::add_pfifo_fast("eth1");
  const sandbox::StandIns stand_ins(tools);
  EXPECT_EQ(1, start_qos("eth2"));
  EXPECT_EQ(1, start_qos("eth1"));
  EXPECT_EQ(std::string(banner) + removal_of_root + "ifconfig eth1 txqueuelen 1000\n" + chain_renewal,
            read_file(start_script));
}

TEST_F(ScriptRun, ResultOfTheScriptIsNotExamined) {
  trees::add_pfifo_fast("eth1");
  sandbox::Captured errors(2);
  const sandbox::OwnFiles unrunnable("/var/tmp", MS_NOEXEC);
  EXPECT_EQ(1, start_qos("eth1"));
  EXPECT_EQ(1, stop_qos("eth1"));
}

TEST_F(ScriptRun, LeavesNoDescriptorOpen) {
  trees::add_htb("eth1");
  const sandbox::StandIns stand_ins(tools);
  const int before = sandbox::open_descriptors();
  EXPECT_EQ(1, restart_qos("eth1"));
  EXPECT_EQ(0, start_qos("eth9"));
  EXPECT_EQ(before, sandbox::open_descriptors());
}

TEST_F(ScriptRun, UnknownInterfaceIsTracedAndTouchesNoFile) {
  trees::add_htb("eth1");
  const sandbox::StandIns stand_ins(tools);
  for (const char *script : {start_script, stop_script})
    sandbox::write_file(script, "previous");
  for (int (*const run)(const char *) : {start_qos, stop_qos, restart_qos}) {
    sandbox::clear_console();
    EXPECT_EQ(0, run("eth9"));
    const std::vector<sandbox::Trace> traces = sandbox::console();
    ASSERT_EQ(1u, traces.size()); // a restart looks up once and does not go on
    EXPECT_EQ("eth9 not found!!\n", traces[0].message);
    EXPECT_EQ("root_qdisc_find_by_name", traces[0].func);
    EXPECT_EQ(0, run(nullptr));
  }
  EXPECT_EQ("previous", read_file(start_script));
  EXPECT_EQ("previous", read_file(stop_script));
  EXPECT_EQ(Messages{}, stand_ins.calls());
}

TEST_F(ScriptRun, ScriptThatCannotBeOpenedIsASilentFailureAndThePreviousStays) {
  trees::add_htb("eth1");
  const sandbox::StandIns stand_ins(tools);
  for (const char *script : {start_script, stop_script})
    sandbox::write_file(script, "previous");
  {
    const sandbox::Replaced folder("/var/tmp", "/var/tmp");
    folder.make_read_only();
    expect_no_run();
  }
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ("previous", read_file(start_script));
  EXPECT_EQ("previous", read_file(stop_script));
  EXPECT_EQ(Messages{}, stand_ins.calls());
}

TEST_F(ScriptRun, MissingDirectoryIsASilentFailure) {
  trees::add_htb("eth1");
  const sandbox::StandIns stand_ins(tools);
  {
    const sandbox::OwnFiles nothing("/var");
    expect_no_run();
  }
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(Messages{}, stand_ins.calls());
}

TEST_F(ScriptRun, ScriptThatDoesNotFitTheDiskIsNotRun) {
  trees::add_htb("eth1");
  for (uint16_t id = 10; id < 200; id++)
    trees::add_htb_class("eth1", 1, id);
  const sandbox::StandIns stand_ins(tools);
  const int descriptors = sandbox::open_descriptors();
  {
    // There is room for a part of the script, then for nothing at all.
    const sandbox::OwnFiles disk("/var/tmp", 0, "size=12k");
    EXPECT_EQ(0, start_qos("eth1"));
    unlink(start_script);
    sandbox::write_file("/var/tmp/filler", std::string(12 * 1024, 'x'));
    expect_no_run();
  }
  EXPECT_EQ(Messages{}, stand_ins.calls());
  EXPECT_EQ(Messages{}, console_messages());
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
}

TEST_F(ScriptRun, WithoutMemoryForTheStreamThereIsNoScript) {
  trees::add_pfifo_fast("eth1");
  const sandbox::StandIns stand_ins(tools);
  sandbox::fail_allocation(1);
  EXPECT_EQ(0, start_qos("eth1"));
  EXPECT_TRUE(sandbox::allocation_failed());
  EXPECT_FALSE(sandbox::exists(start_script));
  EXPECT_EQ(Messages{}, stand_ins.calls());
}

TEST_F(ScriptRun, RestartStopsThenStarts) {
  trees::add_pfifo_fast("eth1");
  const sandbox::StandIns stand_ins(tools);
  EXPECT_EQ(1, restart_qos("eth1"));
  Messages expected = stop_pfifo_calls;
  expected.insert(expected.end(), start_pfifo_calls.begin(), start_pfifo_calls.end());
  EXPECT_EQ(expected, stand_ins.calls());
}

TEST_F(ScriptRun, RestartDoesNotStartWhatItCouldNotStop) {
  trees::add_pfifo_fast("eth1");
  const sandbox::StandIns stand_ins(tools);
  mkdir(stop_script, 0700);
  EXPECT_EQ(0, restart_qos("eth1"));
  EXPECT_FALSE(sandbox::exists(start_script));
  EXPECT_EQ(Messages{}, stand_ins.calls());
}

TEST_F(ScriptRun, RestartGivesTheResultOfTheStart) {
  trees::add_pfifo_fast("eth1");
  const sandbox::StandIns stand_ins(tools);
  mkdir(start_script, 0700);
  EXPECT_EQ(0, restart_qos("eth1"));
  EXPECT_EQ(stop_pfifo_calls, stand_ins.calls());
}

TEST_F(ScriptRun, RestartOfAllWithoutATreeIsTraced) {
  const sandbox::StandIns stand_ins(tools);
  restart_qos_all();
  const std::vector<sandbox::Trace> traces = sandbox::console();
  ASSERT_EQ(1u, traces.size());
  EXPECT_EQ("Qos list empty!!\n", traces[0].message);
  EXPECT_EQ("quorra_qos", traces[0].file);
  EXPECT_EQ("restart_qos_all", traces[0].func);
  EXPECT_EQ(Messages{}, stand_ins.calls());
  EXPECT_FALSE(sandbox::exists(stop_script));
}

TEST_F(ScriptRun, RestartOfAllGoesOnPastAnInterfaceWhoseScriptCannotBeMade) {
  trees::add_pfifo_fast("eth1");
  trees::add_pfifo_fast("eth2");
  trees::add_pfifo_fast("eth3");
  // A tc that records its calls and, while eth2 stops, puts a directory where the start script goes, until eth3 stops.
  const sandbox::StandIns stand_ins({"ifconfig", "iptables"});
  const std::string dir = "/run/obstructing", tc = dir + "/tc";
  mkdir(dir.c_str(), 0700);
  sandbox::write_file(tc,
                      "#!/bin/sh\n"
                      "script=/var/tmp/qos_start\n"
                      "echo \"$3 $4\" >>${0%/*}/calls\n"
                      "case $4 in\n"
                      "eth2) rm $script; mkdir $script ;;\n"
                      "eth3) test ! -d $script || rmdir $script ;;\n"
                      "esac\n");
  chmod(tc.c_str(), 0700);
  const std::string path = getenv("PATH");
  setenv("PATH", (dir + ":" + path).c_str(), 1);
  restart_qos_all();
  setenv("PATH", path.c_str(), 1);

  EXPECT_EQ((Messages{"Start eth1's Qos!!\n", "Start eth2's Qos!!\n", "Start eth3's Qos!!\n"}), console_messages());
  for (const sandbox::Trace &trace : sandbox::console())
    EXPECT_EQ("restart_qos_all", trace.func);
  EXPECT_EQ("dev eth1\ndev eth1\ndev eth2\ndev eth3\ndev eth3\n", read_file(dir + "/calls"));
  Messages queue_lengths;
  for (const std::string &call : stand_ins.calls())
    if (call.starts_with("ifconfig"))
      queue_lengths.push_back(call);
  EXPECT_EQ((Messages{"ifconfig [eth1] [txqueuelen] [1000]", "ifconfig [eth3] [txqueuelen] [1000]"}), queue_lengths);
  unlink((dir + "/calls").c_str());
  unlink(tc.c_str());
  rmdir(dir.c_str());
}

TEST_F(ScriptRun, RestartOfAllTracesEveryInterfaceWhateverCameOfIt) {
  trees::add_htb("eth2");
  trees::add_pfifo_fast("eth1");
  const sandbox::StandIns stand_ins(tools);
  mkdir(stop_script, 0700);
  restart_qos_all();
  EXPECT_EQ((Messages{"Start eth2's Qos!!\n", "Start eth1's Qos!!\n"}), console_messages());
  EXPECT_EQ(Messages{}, stand_ins.calls());
}

} // namespace
