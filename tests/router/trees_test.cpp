// The kernel gets every root, class shape and leaf that the library can write, and shows them again.
#include "router/network.h"

namespace {

using network::line_of;
using network::speeds;

leaf_qdisc leaf_of(uint32_t type) {
  leaf_qdisc leaf = {};
  leaf.type = type;
  return leaf;
}

class Trees : public network::Line {
 protected:
  static void add_leaf(uint16_t id, const leaf_qdisc &leaf) {
    ASSERT_EQ(0, add_leaf_qdisc(network::line, id, &leaf));
  }

  // Adds leaves of every type, also with parameters that are left to tc.
  static void add_leaves(const uint16_t (&ids)[6]) {
    leaf_qdisc leaf = leaf_of(QOS_LEAF_PFIFO);
    add_leaf(ids[0], leaf);
    leaf.params.pfifo.limit = 50;
    add_leaf(ids[1], leaf);
    leaf = leaf_of(QOS_LEAF_SFQ);
    add_leaf(ids[2], leaf);
    leaf.params.sfq.perturb = 10;
    add_leaf(ids[3], leaf);
    leaf = leaf_of(QOS_LEAF_RED);
    leaf.params.red = {10000, 30000, 20, 60000, 1000};
    add_leaf(ids[4], leaf);
    leaf = leaf_of(QOS_LEAF_TBF);
    leaf.params.tbf = {100, 400, 6000};
    add_leaf(ids[5], leaf);
  }

  // Expects one line for each start. What tc adds of its own comes after that.
  static void expect_lines(const std::string &all, const std::vector<std::string> &starts) {
    for (const std::string &start : starts)
      EXPECT_NE("", line_of(all, start)) << start << "\n" << all;
  }

  static void expect_leaves(const std::string (&parents)[6], const std::string (&handles)[6]) {
    const auto leaf = [&](int i, const std::string &kind, const std::string &rest) {
      return "qdisc " + kind + " " + handles[i] + ": parent " + parents[i] + " " + rest;
    };
    expect_lines(queues(), {leaf(0, "pfifo", "limit 1000p"), // the interface's queue length
                            leaf(1, "pfifo", "limit 50p"), leaf(2, "sfq", "limit 127p"), leaf(3, "sfq", "limit 127p"),
                            leaf(4, "red", "limit 60000b min 10000b max 30000b"),
                            leaf(5, "tbf", "rate 400Kbit burst 6000b lat 100ms")});
    EXPECT_EQ(std::string::npos, line_of(queues(), leaf(2, "sfq", "")).find("perturb"));
    EXPECT_NE(std::string::npos, line_of(queues(), leaf(3, "sfq", "")).find(" perturb 10sec"));
  }

  static void expect_filters(const std::vector<std::string> &marks) {
    const std::string filters = network::must("tc filter show dev wan0");
    for (const std::string &mark : marks)
      EXPECT_NE(std::string::npos, filters.find("filter parent 1: protocol ip pref 50 fw chain 0 handle 0x" + mark +
                                                " classid 1:" + mark + " "))
          << mark << "\n"
          << filters;
    size_t handles = 0;
    for (size_t at = filters.find("handle "); at != std::string::npos; at = filters.find("handle ", at + 1))
      handles++;
    EXPECT_EQ(marks.size(), handles) << filters;
  }

  static void expect_nothing_left() {
    EXPECT_EQ("", stop());
    EXPECT_EQ("", classes());
    EXPECT_EQ("", network::must("tc filter show dev wan0"));
    EXPECT_EQ(std::string::npos, queues().find("1: root"));
    EXPECT_EQ("-P PREROUTING ACCEPT\n-P INPUT ACCEPT\n-P FORWARD ACCEPT\n-P OUTPUT ACCEPT\n-P POSTROUTING ACCEPT\n",
              network::must("iptables -t mangle -S"));
  }
};

TEST_F(Trees, HtbShowsRatesBurstsAndPriorities) {
  const root_params_tree root = {0x40, {}};
  ASSERT_EQ(0, add_root_qdisc(speeds, network::line, QOS_ROOT_HTB, &root));
  const htb_params inner = {2000, 4000, 0, 0, 1}, plain = {500, 1000, 0, 0, 7}, bursts = {1000, 2000, 6000, 12000, 3};
  ASSERT_EQ(0, add_class(network::line, 1, 0x10, &inner));
  for (const uint16_t id : std::initializer_list<uint16_t>{0x20, 0x30, 0x40, 0x50})
    ASSERT_EQ(0, add_class(network::line, 0x10, id, &plain));
  ASSERT_EQ(0, add_class(network::line, 1, 0xfff, &bursts));
  add_leaves({0x20, 0x30, 0x40, 0x50, 0xfff, 3});
  EXPECT_EQ("", start());

  expect_lines(queues(), {"qdisc htb 1: root refcnt 2 r2q 10 default 0x40 "});
  expect_lines(classes(),
               {"class htb 1:1 root rate 10Mbit ceil 10Mbit burst 1000000b cburst 1000000b",
                "class htb 1:2 parent 1:1 leaf 20: prio 0 rate 10Mbit ceil 10Mbit burst 6000b cburst 6000b",
                "class htb 1:3 parent 1:1 leaf 30: prio 0 rate 8Mbit ceil 8Mbit burst 6000b cburst 6000b",
                "class htb 1:10 parent 1:1 rate 2Mbit ceil 4Mbit burst 1600b cburst 1600b",
                "class htb 1:20 parent 1:10 leaf 200: prio 7 rate 500Kbit ceil 1Mbit burst 1600b cburst 1600b",
                "class htb 1:50 parent 1:10 leaf 500: prio 7 rate 500Kbit ceil 1Mbit burst 1600b cburst 1600b",
                "class htb 1:fff parent 1:1 leaf fff0: prio 3 rate 1Mbit ceil 2Mbit burst 6000b cburst 12000b"});
  expect_leaves({"1:20", "1:30", "1:40", "1:50", "1:fff", "1:3"}, {"200", "300", "400", "500", "fff0", "30"});
  expect_filters({"2", "3", "20", "30", "40", "50", "fff"});
  expect_nothing_left();
}

TEST_F(Trees, HfscShowsItsCurves) {
  const root_params_tree root = {0x10, {}};
  ASSERT_EQ(0, add_root_qdisc(speeds, network::line, QOS_ROOT_HFSC, &root));
  struct Case {
    uint16_t id;
    hfsc_params params;
    const char *shown;
  };
  const hfsc_curve none = {}, limit = {0, 0, 8000}, two_slopes = {1500, 10, 1000};
  const Case cases[] = {
      {0x10, {limit, {0, 0, 1000}, none, none}, "sc m1 0bit d 0us m2 1Mbit ul m1 0bit d 0us m2 8Mbit"},
      {0x11, {limit, two_slopes, none, none}, "sc m1 1200Kbit d 10ms m2 1Mbit ul m1 0bit d 0us m2 8Mbit"},
      {0x12, {limit, none, {0, 0, 2000}, none}, "ls m1 0bit d 0us m2 2Mbit ul m1 0bit d 0us m2 8Mbit"},
      {0x13, {limit, none, two_slopes, none}, "ls m1 1200Kbit d 10ms m2 1Mbit ul m1 0bit d 0us m2 8Mbit"},
      {0x14,
       {{3000, 10, 500}, {0, 20, 700}, none, none},
       "sc m1 0bit d 20ms m2 700Kbit ul m1 2400Kbit d 10ms m2 500Kbit"},
      {0x15, {limit, {0, 0, 300}, {0, 0, 400}, none}, "sc m1 0bit d 0us m2 300Kbit ul m1 0bit d 0us m2 8Mbit"}};
  for (const Case &one : cases)
    ASSERT_EQ(0, add_class(network::line, 1, one.id, &one.params));
  add_leaves({0x10, 0x11, 0x12, 0x13, 0x14, 0x15});
  EXPECT_EQ("", start());

  expect_lines(queues(), {"qdisc hfsc 1: root refcnt 2 default 10"});
  const std::string tree = classes();
  for (const Case &one : cases) {
    char id[8];
    snprintf(id, sizeof(id), "%x", one.id);
    EXPECT_EQ(std::string("class hfsc 1:") + id + " parent 1:1 leaf " + id + "0: " + one.shown,
              line_of(tree, std::string("class hfsc 1:") + id + " "))
        << tree;
  }
  EXPECT_EQ("class hfsc 1:1 parent 1: sc m1 0bit d 0us m2 10Mbit ul m1 0bit d 0us m2 10Mbit",
            line_of(tree, "class hfsc 1:1 "));
  expect_leaves({"1:10", "1:11", "1:12", "1:13", "1:14", "1:15"}, {"100", "110", "120", "130", "140", "150"});
  expect_filters({"2", "3", "10", "11", "12", "13", "14", "15"});
  expect_nothing_left();
}

TEST_F(Trees, PrioShowsBandsAndMap) {
  const root_params_prio root = {6, {1, 2, 2, 2, 1, 2, 0, 0, 1, 1, 1, 3, 4, 5, 1, 0}, {}};
  ASSERT_EQ(0, add_root_qdisc(speeds, network::line, QOS_ROOT_PRIO, &root));
  add_leaves({1, 2, 3, 4, 5, 6});
  EXPECT_EQ("", start());
  EXPECT_EQ("qdisc prio 1: root refcnt 2 bands 6 priomap 1 2 2 2 1 2 0 0 1 1 1 3 4 5 1 0",
            line_of(queues(), "qdisc prio"));
  expect_leaves({"1:1", "1:2", "1:3", "1:4", "1:5", "1:6"}, {"10", "20", "30", "40", "50", "60"});
  expect_filters({"1", "2", "3", "4", "5", "6"});
  EXPECT_EQ("", stop());
  EXPECT_EQ(std::string::npos, queues().find("1: root"));
}

TEST_F(Trees, PrioTakesTwoToSixteenBands) {
  for (const uint8_t bands : std::initializer_list<uint8_t>{2, 3, 16}) {
    root_params_prio root = {bands, {}, {}};
    root.priomap[7] = static_cast<uint8_t>(bands - 1);
    ASSERT_EQ(0, add_root_qdisc(speeds, network::line, QOS_ROOT_PRIO, &root));
    EXPECT_EQ("", start());
    EXPECT_EQ("qdisc prio 1: root refcnt 2 bands " + std::to_string(bands) + " priomap 0 0 0 0 0 0 0 " +
                  std::to_string(bands - 1) + " 0 0 0 0 0 0 0 0",
              line_of(queues(), "qdisc prio"));
    EXPECT_EQ("", stop());
    ASSERT_EQ(0, del_root_qdisc(network::line));
  }
}

TEST_F(Trees, PfifoFastSetsTheQueueLength) {
  const root_params_pfifo root = {123};
  ASSERT_EQ(0, add_root_qdisc(speeds, network::line, QOS_ROOT_PFIFO_FAST, &root));
  EXPECT_EQ("", start());
  EXPECT_NE(std::string::npos, network::must("ip link show wan0").find(" qlen 123"));
}

TEST_F(Trees, RestartingLeavesOneSet) {
  const root_params_tree root = {3, {1, {2, 3, 2, 3, 2, 3, 2, 3}}};
  ASSERT_EQ(0, add_root_qdisc(speeds, network::line, QOS_ROOT_HTB, &root));
  EXPECT_EQ("", start());
  const std::string tree = classes(), table = network::must("iptables -t mangle -S");
  const std::string disciplines = queues();
  for (int i = 0; i < 2; i++)
    EXPECT_EQ("", said_during(restart_qos));
  EXPECT_EQ(tree, classes());
  EXPECT_EQ(table, network::must("iptables -t mangle -S"));
  EXPECT_EQ(disciplines, queues());
  EXPECT_EQ("", start()); // a second start on top of the first works too
  EXPECT_EQ(table, network::must("iptables -t mangle -S"));
  expect_nothing_left();
}

} // namespace
