// Scripts that renew and remove the chains of an interface, and their run.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "iptables/rule_builders.h"
#include "support/left_behind.h"
#include "support/paused_console.h"
#include "support/script_goldens.h"
#include "support/standard_descriptors.h"

namespace {

using goldens::banner;
using goldens::chain_renewal;
using goldens::chain_renewal_calls;
using rules::bits;
using rules::Lines;
using rules::make_automark;
using rules::make_rule;
using rules::marking_rule;
using rules::put;
using rules::traced;
using sandbox::written;

constexpr char script_path[] = "/var/tmp/qos_rule_eth1";

class RuleScripts : public rules::World {};

TEST_F(RuleScripts, AnInterfaceWithoutANameGetsNoCommands) {
  add_tree("eth1");
  ASSERT_EQ(1u, add(1, marking_rule()));
  list_node *rules = find_rule_list_by_name("eth1");
  EXPECT_EQ("", written([=](FILE *out) {
              renew_qos_rule(out, nullptr, rules);
              remove_qos_rule(out, nullptr);
            }));
  EXPECT_EQ(0u, restart_rule(nullptr));
}

TEST_F(RuleScripts, RemovalUnhooksThenDeletesBothChains) {
  EXPECT_EQ(
      "iptables -t mangle -D FORWARD -o ppp0.1 -g QOS_ppp0.1 2>/dev/null\n"
      "iptables -t mangle -D OUTPUT -o ppp0.1 -g QOS_ppp0.1 2>/dev/null\n"
      "iptables -t mangle -D QOS_ppp0.1 -m connmark ! --mark 0 -j QOS_ppp0.1_AUTO 2>/dev/null\n"
      "iptables -t mangle -F QOS_ppp0.1 2>/dev/null\n"
      "iptables -t mangle -F QOS_ppp0.1_AUTO 2>/dev/null\n"
      "iptables -t mangle -X QOS_ppp0.1 2>/dev/null\n"
      "iptables -t mangle -X QOS_ppp0.1_AUTO 2>/dev/null\n",
      written([](FILE *out) { remove_qos_rule(out, "ppp0.1"); }));
  EXPECT_EQ(Lines(), traced()); // removal needs no tree
}

constexpr char automatic_marks[] =
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 100 -j MARK --set-mark 0xa 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 200 -j MARK --set-mark 0xb 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 300 -j MARK --set-mark 0x2 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 400 -j MARK --set-mark 0x3 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 500 -j MARK --set-mark 0x0 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 600 -j MARK --set-mark 0xff 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 700 -j MARK --set-mark 0x100 2>/dev/null\n"
    "iptables -t mangle -A QOS_eth1_AUTO -m connmark --mark 800 -j MARK --set-mark 0xffff 2>/dev/null\n";

std::string renewed(const char *ifname = "eth1") {
  return written([&](FILE *out) { renew_qos_rule(out, ifname, find_rule_list_by_name(ifname)); });
}

TEST_F(RuleScripts, AutomaticMarksAreWrittenWhereTheTreeHasThemOn) {
  const struct {
    uint32_t type;
    uint8_t enable;
    bool marks;
  } cases[] = {{QOS_ROOT_HTB, 1, true},   {QOS_ROOT_HTB, 0, false},  {QOS_ROOT_HTB, 255, true},
               {QOS_ROOT_HFSC, 1, true},  {QOS_ROOT_HFSC, 0, false}, {QOS_ROOT_PRIO, 1, true},
               {QOS_ROOT_PRIO, 0, false}, {QOS_ROOT_PRIO, 2, true},  {QOS_ROOT_PFIFO_FAST, 1, false}};
  for (const auto &row : cases) {
    add_tree("eth1", row.type, make_automark(row.enable));
    EXPECT_EQ(std::string(chain_renewal) + (row.marks ? automatic_marks : ""), renewed()) << row.type;
    ASSERT_EQ(0, del_root_qdisc("eth1"));
  }
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleScripts, RenewalWritesTheRulesBetweenHooksAndMarks) {
  add_tree("eth1", QOS_ROOT_HTB, make_automark(1));
  qos_rule second = marking_rule();
  second.target.mark = 3;
  ASSERT_EQ(1u, add(200, second));
  ASSERT_EQ(1u, add(0, marking_rule()));
  EXPECT_EQ(std::string(chain_renewal) +
                "iptables -t mangle -A QOS_eth1 -j MARK --set-mark 0x2 \n"
                "iptables -t mangle -A QOS_eth1 -j MARK --set-mark 0x3 \n" +
                automatic_marks,
            renewed());
}

TEST_F(RuleScripts, RenewalWithoutTreeLacksTheMarksAndTheLookupTellsIt) {
  add_tree("eth2", QOS_ROOT_HTB, make_automark(1));
  ASSERT_EQ(1u, add(1, marking_rule(), "eth2"));
  EXPECT_EQ(std::string(chain_renewal) + "iptables -t mangle -A QOS_eth1 -j MARK --set-mark 0x2 \n",
            written([](FILE *out) { renew_qos_rule(out, "eth1", find_rule_list_by_name("eth2")); }));
  EXPECT_EQ(Lines{"quorra_qos root_qdisc_find_by_name: eth1 not found!!\n"}, traced());
}

TEST_F(RuleScripts, ALongInterfaceNameIsUsedWhole) {
  const char name[] = "interface-with-31-characters-01";
  ASSERT_EQ(31u, strlen(name));
  add_tree(name);
  ASSERT_EQ(1u, add(1, marking_rule(), name));
  const sandbox::StandIns tools({"iptables"});
  EXPECT_EQ(1u, restart_rule(name));
  const std::string script = sandbox::read_file("/var/tmp/qos_rule_interface-with-31-characters-01");
  EXPECT_NE(std::string::npos, script.find("\niptables -t mangle -A QOS_interface-with-31-characters-01 "
                                           "-j MARK --set-mark 0x2 \n"));
  EXPECT_EQ(13u, tools.calls().size());
  unlink("/var/tmp/qos_rule_interface-with-31-characters-01");
}

// The script of these three rules shows most of what rules can do.
class RestartRule : public rules::World {
 protected:
  void SetUp() override {
    World::SetUp();
    add_tree("eth1", QOS_ROOT_HTB, make_automark(1));
    add_office_hours(3, 0x3E);
    qos_rule dns = make_rule(bits(QOS_MATCH_PROTOCOL, QOS_MATCH_802_1Q), bits(QOS_TARGET_MARK, QOS_TARGET_LOG));
    dns.match.protocol = QOS_PROTO_BOTH;
    dns.match.dport_min = dns.match.dport_max = 53;
    dns.match.vlan_id = 12;
    dns.target.mark = 3;
    qos_rule video = make_rule(bits(QOS_MATCH_IP, QOS_MATCH_DOMAIN), bits(QOS_TARGET_MARK, QOS_TARGET_VLAN));
    video.match.src_ip_start = 0xC0A80102;
    video.match.src_ip_end = 0xC0A801FE;
    video.match.dst_ip_end = 0x08080808;
    put(video.match.domain, "video.example");
    video.match.sched_index = 3;
    video.target.mark = 2;
    video.target.vlan_tag_id = 35;
    video.target.vlan_prio = 5;
    qos_rule silent = make_rule(bits(QOS_MATCH_ALG), 0);
    ASSERT_EQ(1u, add(40, silent));
    ASSERT_EQ(1u, add(20, video));
    ASSERT_EQ(1u, add(5, dns));
  }

  void TearDown() override {
    unlink(script_path);
    World::TearDown();
  }
};

const std::string whole_script =
    std::string(banner) + chain_renewal +
    "iptables -t mangle -A QOS_eth1 -p tcp --dport 53:53 -m VLAN --vlan-id 12 -j MARK --set-mark 0x3 \n"
    "iptables -t mangle -A QOS_eth1 -p udp --dport 53:53 -m VLAN --vlan-id 12 -j MARK --set-mark 0x3 \n"
    "iptables -t mangle -A QOS_eth1 -m iprange --src-range 192.168.1.2-192.168.1.254 "
    "-m domain --name \"video.example\" -m time --timestart 8:00 --timestop 18:30 --days Mon,Tue,Wed,Thu,Fri "
    "-j MARK --set-mark 0x2 \n"
    "iptables -t mangle -A QOS_eth1 -m iprange --src-range 192.168.1.2-192.168.1.254 "
    "-m domain --name \"video.example\" -m time --timestart 8:00 --timestop 18:30 --days Mon,Tue,Wed,Thu,Fri "
    "-j MKVLAN --set-vlan-id 35 --set-vlan-prio 5  \n" +
    automatic_marks;

TEST_F(RestartRule, WritesTheScriptAndRunsIt) {
  const sandbox::StandIns tools({"iptables", "tc", "ifconfig"});
  const int descriptors = sandbox::open_descriptors();
  EXPECT_EQ(1u, restart_rule("eth1"));
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
  EXPECT_EQ(whole_script, sandbox::read_file(script_path));
  EXPECT_EQ(0700, sandbox::mode_of(script_path));
  EXPECT_EQ((Lines{"quorra_iptables draw_rule: get QF_PROTOCOL match type\n",
                   "quorra_iptables draw_rule: LOG target not implement!!\n"}),
            traced());

  const Lines rules_and_marks = {
      "iptables [-t] [mangle] [-A] [QOS_eth1] [-p] [tcp] [--dport] [53:53] [-m] [VLAN] [--vlan-id] [12] "
      "[-j] [MARK] [--set-mark] [0x3]",
      "iptables [-t] [mangle] [-A] [QOS_eth1] [-p] [udp] [--dport] [53:53] [-m] [VLAN] [--vlan-id] [12] "
      "[-j] [MARK] [--set-mark] [0x3]",
      "iptables [-t] [mangle] [-A] [QOS_eth1] [-m] [iprange] [--src-range] [192.168.1.2-192.168.1.254] "
      "[-m] [domain] [--name] [video.example] [-m] [time] [--timestart] [8:00] [--timestop] [18:30] "
      "[--days] [Mon,Tue,Wed,Thu,Fri] [-j] [MARK] [--set-mark] [0x2]",
      "iptables [-t] [mangle] [-A] [QOS_eth1] [-m] [iprange] [--src-range] [192.168.1.2-192.168.1.254] "
      "[-m] [domain] [--name] [video.example] [-m] [time] [--timestart] [8:00] [--timestop] [18:30] "
      "[--days] [Mon,Tue,Wed,Thu,Fri] [-j] [MKVLAN] [--set-vlan-id] [35] [--set-vlan-prio] [5]",
      "iptables [-t] [mangle] [-A] [QOS_eth1_AUTO] [-m] [connmark] [--mark] [100] [-j] [MARK] [--set-mark] [0xa]",
      "iptables [-t] [mangle] [-A] [QOS_eth1_AUTO] [-m] [connmark] [--mark] [200] [-j] [MARK] [--set-mark] [0xb]",
      "iptables [-t] [mangle] [-A] [QOS_eth1_AUTO] [-m] [connmark] [--mark] [300] [-j] [MARK] [--set-mark] [0x2]",
      "iptables [-t] [mangle] [-A] [QOS_eth1_AUTO] [-m] [connmark] [--mark] [400] [-j] [MARK] [--set-mark] [0x3]",
      "iptables [-t] [mangle] [-A] [QOS_eth1_AUTO] [-m] [connmark] [--mark] [500] [-j] [MARK] [--set-mark] [0x0]",
      "iptables [-t] [mangle] [-A] [QOS_eth1_AUTO] [-m] [connmark] [--mark] [600] [-j] [MARK] [--set-mark] [0xff]",
      "iptables [-t] [mangle] [-A] [QOS_eth1_AUTO] [-m] [connmark] [--mark] [700] [-j] [MARK] [--set-mark] [0x100]",
      "iptables [-t] [mangle] [-A] [QOS_eth1_AUTO] [-m] [connmark] [--mark] [800] [-j] [MARK] [--set-mark] [0xffff]"};
  Lines expected = chain_renewal_calls;
  expected.insert(expected.end(), rules_and_marks.begin(), rules_and_marks.end());
  EXPECT_EQ(expected, tools.calls());
}

TEST_F(RestartRule, ReplacesThePreviousScriptAndItsMode) {
  sandbox::write_file(script_path, std::string(20000, '#'));
  chmod(script_path, 0644);
  const sandbox::StandIns tools({"iptables"});
  const mode_t old_mask = umask(0777); // the mask has no influence on the mode
  EXPECT_EQ(1u, restart_rule("eth1"));
  umask(old_mask);
  EXPECT_EQ(whole_script, sandbox::read_file(script_path));
  EXPECT_EQ(0700, sandbox::mode_of(script_path));
}

TEST_F(RestartRule, CommandsThatFailChangeNoResult) {
  const std::string path = getenv("PATH");
  setenv("PATH", "/nonexistent", 1);
  sandbox::Captured errors(STDERR_FILENO);
  const uint32_t result = restart_rule("eth1");
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(1u, result);
  EXPECT_EQ(whole_script, sandbox::read_file(script_path));
}

TEST_F(RestartRule, WithoutTreeTouchesNoFile) {
  const sandbox::StandIns tools({"iptables"});
  EXPECT_EQ(0u, restart_rule("eth7"));
  EXPECT_EQ((Lines{"quorra_qos root_qdisc_find_by_name: eth7 not found!!\n",
                   "quorra_iptables restart_rule: QoS struct not fuond!!\n"}),
            traced());
  EXPECT_FALSE(sandbox::exists("/var/tmp/qos_rule_eth7"));
  EXPECT_EQ(0u, restart_rule(nullptr));
  EXPECT_EQ("quorra_iptables restart_rule: QoS struct not fuond!!\n", traced().back());
  EXPECT_EQ(Lines(), tools.calls());
}

TEST_F(RestartRule, AScriptThatCannotBeCreatedIsTraced) {
  const Lines told = {"quorra_iptables restart_rule: Can't open tmp file!!\n"};
  const sandbox::StandIns tools({"iptables"});
  const int descriptors = sandbox::open_descriptors();

  ASSERT_EQ(0, mkdir(script_path, 0700));
  EXPECT_EQ(0u, restart_rule("eth1"));
  EXPECT_EQ(told, traced());
  rmdir(script_path);

  ASSERT_EQ(0, mount("tmpfs", "/var", "tmpfs", 0, "mode=755")); // it has no /var/tmp
  const uint32_t result = restart_rule("eth1");
  EXPECT_EQ(0, umount("/var"));
  EXPECT_EQ(0u, result);
  EXPECT_EQ(told, traced());

  EXPECT_EQ(Lines(), tools.calls());
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
}

size_t page_size() {
  return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// Puts a small file system on /var/tmp while the object lives. It is full but for `pages` pages, and has an earlier
// script, which is empty but executable, so that a run of the new one would be seen.
class SmallDisk {
 public:
  explicit SmallDisk(long pages) {
    EXPECT_EQ(0, mount("tmpfs", "/var/tmp", "tmpfs", 0, "size=64k,mode=1777"));
    const int filler = open("/var/tmp/filler", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string page(page_size(), 'x');
    off_t size = 0;
    while (write(filler, page.data(), page.size()) == static_cast<ssize_t>(page.size()))
      size += static_cast<off_t>(page.size());
    EXPECT_EQ(0, ftruncate(filler, size - pages * static_cast<off_t>(page.size())));
    close(filler);
    sandbox::write_file(script_path, "");
    chmod(script_path, 0700);
  }
  ~SmallDisk() {
    EXPECT_EQ(0, umount("/var/tmp"));
  }
};

TEST_F(RestartRule, AScriptThatCannotBeWrittenWholeIsNotRun) {
  const sandbox::StandIns tools({"iptables"});
  const int descriptors = sandbox::open_descriptors();
  {
    const SmallDisk full(0);
    EXPECT_EQ(0u, restart_rule("eth1"));
    EXPECT_EQ("", sandbox::read_file(script_path));
    unlink("/var/tmp/filler"); // once there is room it works again
    EXPECT_EQ(Lines(), tools.calls());
    EXPECT_EQ(1u, restart_rule("eth1"));
    EXPECT_EQ(24u, tools.calls().size());
  }
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
}

// Gives the interface one hundred rules, which fill more than the buffer of a stream, and then one that is traced.
void add_rules_with_a_trace() {
  for (unsigned index = 0; index <= UINT8_MAX; index++)
    del_qos_rule("eth1", static_cast<uint8_t>(index));
  const qos_rule marks = marking_rule(), reports = make_rule(0, bits(QOS_TARGET_LOG));
  for (uint8_t index = 100; index < 200; index++)
    EXPECT_EQ(1u, add_qos_rule("eth1", index, &marks.match, &marks.target));
  EXPECT_EQ(1u, add_qos_rule("eth1", 200, &reports.match, &reports.target));
}

TEST_F(RestartRule, AWriteThatFailedCountsAlsoWhenTheDiskHasRoomAgain) {
  const sandbox::StandIns tools({"iptables"});
  add_rules_with_a_trace();
  uint32_t result = 2;
  {
    const SmallDisk full(0);
    const sandbox::PausedAtTrace pause([&] { result = restart_rule("eth1"); });
    EXPECT_EQ(0, unlink("/var/tmp/filler"));
  }
  EXPECT_EQ(0u, result);
  EXPECT_EQ(Lines(), tools.calls());
}

TEST_F(RestartRule, TheScriptIsNotInheritedWhileItIsWritten) {
  const sandbox::StandIns tools({"iptables"});
  add_rules_with_a_trace();
  uint32_t result = 2;
  {
    const sandbox::PausedAtTrace pause([&] { result = restart_rule("eth1"); });
    EXPECT_EQ(1u, sandbox::descriptors_of(script_path).size());
    const sandbox::Outcome child = sandbox::run("ls -l /proc/self/fd");
    EXPECT_EQ(std::string::npos, child.output.find(script_path)) << child.output;
    EXPECT_EQ(std::string::npos, child.output.find("/dev/console")) << child.output;
  }
  EXPECT_EQ(1u, result);
}

TEST_F(RestartRule, AScriptReplacesWhateverIsInItsPlace) {
  const sandbox::StandIns tools({"iptables"});
  for (const auto &thing : sandbox::left_behind) {
    SCOPED_TRACE(thing.what);
    sandbox::make_kept(script_path);
    unlink(script_path);
    thing.put(script_path);
    EXPECT_EQ(1u, restart_rule("eth1"));
    EXPECT_TRUE(sandbox::is_kept(script_path));
    EXPECT_TRUE(sandbox::is_own_file(script_path, 0700));
    EXPECT_EQ(whole_script, sandbox::read_file(script_path));
  }
  unlink(sandbox::kept_beside(script_path).c_str());
}

TEST_F(RestartRule, AScriptKeepsOffTheDescriptorsOfStandardInputOutputAndError) {
  add_rules_with_a_trace();
  const sandbox::StandIns tools({"iptables"});
  EXPECT_EQ(0, sandbox::without_standard_descriptors([] {
              uint32_t result = 2;
              sandbox::PausedAtTrace pause([&] { result = restart_rule("eth1"); });
              const std::vector<int> descriptors = sandbox::descriptors_of(script_path);
              pause.finish();
              return result == 1 && descriptors.size() == 1 && descriptors[0] > 2 ? 0 : 1;
            }));
  EXPECT_TRUE(sandbox::is_own_file(script_path, 0700));
}

TEST_F(RestartRule, HalfAScriptIsNotRunEither) {
  for (unsigned index = 100; index < 200; index++) // they make more than two pages
    ASSERT_EQ(1u, add(index, marking_rule()));
  const sandbox::StandIns tools({"iptables"});
  const int descriptors = sandbox::open_descriptors();
  sandbox::clear_console();
  {
    const SmallDisk tight(1);
    EXPECT_EQ(0u, restart_rule("eth1"));
    const std::string half = sandbox::read_file(script_path);
    EXPECT_EQ(page_size(), half.size());
    EXPECT_EQ(banner, half.substr(0, strlen(banner)));
  }
  EXPECT_EQ(Lines(), tools.calls());
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
  EXPECT_EQ((Lines{"quorra_iptables draw_rule: get QF_PROTOCOL match type\n", // no trace is about the disk
                   "quorra_iptables draw_rule: LOG target not implement!!\n"}),
            traced());
}

TEST_F(RestartRule, MemoryThatRunsOutCostsTheScriptOrATraceButNeverHalfAScript) {
  const sandbox::StandIns tools({"iptables"});
  const int descriptors = sandbox::open_descriptors();
  for (unsigned n = 1; n < 50; n++) {
    sandbox::write_file(script_path, "the previous one");
    const size_t calls = tools.calls().size();
    sandbox::clear_console();
    sandbox::fail_allocation(n);
    const uint32_t result = restart_rule("eth1");
    const bool failed = sandbox::allocation_failed();
    sandbox::fail_allocation(0);
    EXPECT_EQ(n == 1 ? 0u : 1u, result) << n; // the first allocation is the script's stream
    EXPECT_EQ(n == 1 ? "the previous one" : whole_script, sandbox::read_file(script_path)) << n;
    EXPECT_EQ(calls + (n == 1 ? 0 : 24), tools.calls().size()) << n;
    if (n == 1) {
      EXPECT_EQ(Lines{"quorra_iptables restart_rule: Can't open tmp file!!\n"}, traced());
    }
    if (!failed)
      break;
  }
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
}

TEST_F(RestartRule, AConsoleThatCannotBeOpenedChangesNothing) {
  const sandbox::StandIns tools({"iptables"});
  const sandbox::UnopenableConsole silence;
  EXPECT_EQ(0u, restart_rule("eth7"));
  EXPECT_EQ(1u, restart_rule("eth1"));
  EXPECT_EQ(whole_script, sandbox::read_file(script_path));
  EXPECT_EQ(24u, tools.calls().size());
  unlink(script_path);
  ASSERT_EQ(0, mkdir(script_path, 0700));
  EXPECT_EQ(0u, restart_rule("eth1"));
  rmdir(script_path);
}

} // namespace
