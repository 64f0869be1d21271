// Scripts run with the machine's own tools on a pair of virtual interfaces, and the kernel shows what they made.
#include "qos/tree_builders.h"

namespace {

using sandbox::Outcome;
using sandbox::run;
using trees::count;

constexpr char ifname[] = "veth0";

std::string classes() {
  return run(std::string("tc class show dev ") + ifname).output;
}

std::string queues() {
  return run(std::string("tc qdisc show dev ") + ifname).output;
}

std::string mangle_table() {
  return run("iptables -t mangle -S").output;
}

class Kernel : public trees::Test {
 protected:
  void SetUp() override {
    trees::Test::SetUp();
    // Without the library, this tries whether tools and kernel have what the tests need.
    const std::string dev = ifname;
    for (const std::string &needed :
         {"ip link add " + dev + " type veth peer name veth1", "ip link set " + dev + " up",
          "tc qdisc add dev " + dev + " handle 1:0 root htb default 0x2",
          "tc class add dev " + dev + " parent 1: classid 1:0x2 htb rate 1mbit",
          "tc qdisc add dev " + dev + " parent 1:0x2 handle 0x20: tbf latency 50ms rate 1000kbit burst 2000b",
          "tc qdisc replace dev " + dev + " parent 1:0x2 handle 0x21: pfifo limit 10",
          "tc qdisc del dev " + dev + " root", std::string("iptables -t mangle -N PROBE"),
          std::string("iptables -t mangle -A OUTPUT -o veth0 -g PROBE"),
          std::string("iptables -t mangle -A PROBE -m connmark ! --mark 0 -j MARK --set-mark 0x2"),
          std::string("iptables -t mangle -A PROBE -p tcp --dport 80:90 -j MARK --set-mark 0x2"),
          std::string("iptables -t mangle -F"), std::string("iptables -t mangle -X")}) {
      const Outcome outcome = run(needed);
      if (outcome.status != 0)
        GTEST_SKIP() << "this machine cannot: " << needed << ": " << outcome.output;
    }
    empty_table_ = mangle_table();

    // The tree consists of what most kernels have, so class 2 has no fair queueing.
    trees::add_htb(ifname, 3, trees::eight_marks);
    const leaf_qdisc limited = trees::pfifo(50), bucket = trees::tbf(50, 20000, 6000);
    add_leaf_qdisc(ifname, 2, &limited);
    add_leaf_qdisc(ifname, 3, &bucket);
    trees::add_htb_class(ifname, 1, 0xfff, {3000, 4000, 6000, 6000, 1});
    qos_match match = {};
    match.match_flags = 1u << QOS_MATCH_PROTOCOL;
    match.protocol = QOS_PROTO_BOTH;
    match.dport_min = 80;
    match.dport_max = 90;
    qos_target target = {};
    target.target_flags = 1u << QOS_TARGET_MARK;
    target.mark = 0xfff;
    add_qos_rule(ifname, 1, &match, &target);
  }

  void TearDown() override {
    run("iptables -t mangle -F");
    run("iptables -t mangle -X");
    run(std::string("ip link del ") + ifname);
    trees::Test::TearDown();
  }

  // On some kernels tc complains that there are no filters by mark. Nothing else changes.
  int quietly(int (*operation)(const char *)) {
    const sandbox::Captured output(1), errors(2);
    return operation(ifname);
  }

  void expect_started() {
    const std::string tree = classes();
    // Bursts are left out because the kernel keeps them as times and rounds them.
    for (const char *line : {"class htb 1:1 root rate 100Mbit ceil 100Mbit ",
                             "class htb 1:2 parent 1:1 leaf 20: prio 0 rate 100Mbit ceil 100Mbit ",
                             "class htb 1:3 parent 1:1 leaf 30: prio 0 rate 20Mbit ceil 20Mbit ",
                             "class htb 1:fff parent 1:1 leaf fff0: prio 1 rate 3Mbit ceil 4Mbit "})
      EXPECT_EQ(1u, count(tree, line)) << line << "\n" << tree;
    EXPECT_EQ(4u, count(tree, "class htb ")) << tree;
    const std::string disciplines = queues();
    EXPECT_EQ(1u, count(disciplines, "qdisc htb 1: root ")) << disciplines;
    EXPECT_EQ(1u, count(disciplines, "default 0x3 ")) << disciplines;
    EXPECT_EQ(1u, count(disciplines, "qdisc pfifo 20: parent 1:2 limit 50p")) << disciplines;
    EXPECT_EQ(1u, count(disciplines, "qdisc pfifo fff0: parent 1:fff ")) << disciplines;
    EXPECT_EQ(1u, count(disciplines, "qdisc tbf 30: parent 1:3 rate 20Mbit ")) << disciplines;

    const std::string table = mangle_table();
    const auto once = [&](const std::string &line) {
      EXPECT_EQ(1u, count(table, line + "\n")) << line << "\n" << table;
    };
    once("-N QOS_veth0");
    once("-N QOS_veth0_AUTO");
    once("-A FORWARD -o veth0 -g QOS_veth0");
    once("-A OUTPUT -o veth0 -g QOS_veth0");
    once("-A QOS_veth0 -m connmark ! --mark 0x0 -j QOS_veth0_AUTO");
    once("-A QOS_veth0 -p tcp -m tcp --dport 80:90 -j MARK --set-xmark 0xfff/0xffffffff");
    once("-A QOS_veth0 -p udp -m udp --dport 80:90 -j MARK --set-xmark 0xfff/0xffffffff");
    once("-A QOS_veth0_AUTO -m connmark --mark 0x64 -j MARK --set-xmark 0x2/0xffffffff");
    once("-A QOS_veth0_AUTO -m connmark --mark 0x320 -j MARK --set-xmark 0x8/0xffffffff");
    EXPECT_EQ(3u, count(table, "-A QOS_veth0 ")) << table;
    EXPECT_EQ(8u, count(table, "-A QOS_veth0_AUTO ")) << table;
  }

  void expect_stopped() {
    EXPECT_EQ("", classes());
    EXPECT_EQ(0u, count(queues(), "htb"));
    EXPECT_EQ(empty_table_, mangle_table());
  }

 private:
  std::string empty_table_;
};

TEST_F(Kernel, StartMakesTheTreeAndTheChainsAndStopTakesThemAway) {
  EXPECT_EQ(1, quietly(start_qos));
  expect_started();
  EXPECT_EQ(1, quietly(stop_qos));
  expect_stopped();
}

TEST_F(Kernel, StartingAndRestartingAgainLeavesOneSet) {
  EXPECT_EQ(1, quietly(restart_qos));
  expect_started();
  EXPECT_EQ(1, quietly(start_qos));
  expect_started();
  EXPECT_EQ(1, quietly(restart_qos));
  expect_started();
  EXPECT_EQ(1, quietly(stop_qos));
  EXPECT_EQ(1, quietly(stop_qos));
  expect_stopped();
}

TEST_F(Kernel, PfifoFastSetsTheQueueLength) {
  const Outcome probe = run("ifconfig veth0 txqueuelen 77");
  if (probe.status != 0 || probe.output != "")
    GTEST_SKIP() << "this machine cannot: ifconfig veth0 txqueuelen 77: " << probe.output;
  trees::delete_all();
  trees::add_pfifo_fast(ifname, 123);
  EXPECT_EQ(1, quietly(start_qos));
  EXPECT_NE(std::string::npos, run("ip link show veth0").output.find(" qlen 123"));
}

} // namespace
