// The cost of trees far larger than any router's must grow with their size and no faster.
#include <time.h>

#include <algorithm>

#include "qos/tree_builders.h"

namespace {

using trees::count;
using Scale = trees::Test;

// Four times the work may take this many times as long. Quadratic growth would take sixteen times as long.
constexpr double bound_for_four_times = 8;

double processor_seconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Returns the time of the quickest of several runs, which other work of the machine disturbed least.
template <typename Work>
double best_time(Work work) {
  double best = 1e9;
  for (int run = 0; run < 7; run++) {
    const double start = processor_seconds();
    work();
    best = std::min(best, processor_seconds() - start);
  }
  return best;
}

// Adds classes 1 to `classes` in families of 100. The first of each is at the top level, the others are its children.
void add_families(const char *ifname, unsigned classes) {
  trees::add_bare_htb(ifname);
  uint16_t parent = 0;
  for (unsigned i = 0; i < classes; i++) {
    const auto id = static_cast<uint16_t>(i + 1);
    if (i % 100 == 0)
      parent = id;
    ASSERT_EQ(0, trees::add_htb_class(ifname, id == parent ? uint16_t{0} : parent, id));
  }
}

void add_chain(const char *ifname, unsigned classes) {
  trees::add_bare_htb(ifname);
  for (unsigned i = 0; i < classes; i++)
    ASSERT_EQ(0, trees::add_htb_class(ifname, static_cast<uint16_t>(i), static_cast<uint16_t>(i + 1)));
}

void add_rules(const char *ifname, unsigned rules) {
  qos_match match = {};
  match.match_flags = 1u << QOS_MATCH_IP | 1u << QOS_MATCH_PKTLEN;
  match.src_ip_start = 0x0a000001;
  match.src_ip_end = 0x0a0000fe;
  match.pkt_len = 64u << 16 | 1500;
  qos_target target = {};
  target.target_flags = 1u << QOS_TARGET_MARK | 1u << QOS_TARGET_TOS;
  target.mark = 2;
  for (unsigned index = rules; index > 0; index--)
    ASSERT_EQ(1u, add_qos_rule(ifname, static_cast<uint8_t>(index), &match, &target));
}

// Returns all of a start script but its first lines.
std::string commands_of(const char *ifname) {
  return sandbox::written([=](FILE *out) {
    root_qdisc *root = root_qdisc_find_by_name(ifname);
    do_leaf2cmd(out, ifname, &root->classes);
    renew_qos_rule(out, ifname, &root->rules);
  });
}

void show_rate(const char *what, size_t lines, double seconds) {
  const double rate = static_cast<double>(lines) / seconds;
  printf("%s: %zu lines, %.2f ms, %.0f lines per second\n", what, lines, seconds * 1e3, rate);
  testing::Test::RecordProperty(std::string(what) + "_lines_per_second", std::to_string(static_cast<long>(rate)));
}

TEST_F(Scale, WritingAScriptGrowsWithTheTree) {
  add_families("eth1", 1000);
  add_families("eth4", 4000);
  add_rules("eth1", 63);
  add_rules("eth4", 252);

  const std::string commands = commands_of("eth4");
  EXPECT_EQ(4000u, count(commands, "tc class add dev eth4 "));
  EXPECT_EQ(3960u, count(commands, "tc qdisc add dev eth4 "));
  EXPECT_EQ(3960u, count(commands, "tc filter add dev eth4 "));
  EXPECT_EQ(504u, count(commands, "iptables -t mangle -A QOS_eth4 -m iprange "));
  EXPECT_EQ(4000u + 2 * 3960 + 12 + 504, count(commands, "\n"));

  const double small = best_time([] { commands_of("eth1"); });
  const double large = best_time([] { commands_of("eth4"); });
  show_rate("script_of_1000_classes", count(commands_of("eth1"), "\n"), small);
  show_rate("script_of_4000_classes", count(commands, "\n"), large);
  EXPECT_LT(large, small * bound_for_four_times);
}

TEST_F(Scale, StartScriptOfAFullTreeIsWhole) {
  add_families("eth4", 4000);
  add_rules("eth4", 255);
  // The shell finds no tool, so it goes through the script without starting anything.
  const std::string path = getenv("PATH");
  sandbox::Captured errors(2);
  setenv("PATH", "/nowhere", 1);
  const int started = start_qos("eth4");
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(1, started);
  const std::string script = sandbox::read_file("/var/tmp/qos_start");
  EXPECT_EQ(3u + 2 + 4000 + 2 * 3960 + 12 + 510, count(script, "\n"));
  EXPECT_TRUE(script.ends_with(commands_of("eth4")));
}

TEST_F(Scale, DeepChainIsSearchedWrittenReportedAndDeleted) {
  add_chain("eth1", 2000);
  EXPECT_EQ(2000, class_find("eth1", 2000)->id);
  EXPECT_EQ(1, check_Key("eth1", 2000));
  EXPECT_EQ(0, check_Key("eth1", 1999));

  const std::string commands = commands_of("eth1");
  EXPECT_EQ(2000u + 2 + 12, count(commands, "\n"));
  EXPECT_NE(std::string::npos, commands.find("parent 1:0x7cf classid 1:0x7d0 htb"));
  EXPECT_NE(std::string::npos, commands.find("parent 1:0x7d0 handle 0x7d00: pfifo \n"));
  show_rate("script_of_a_chain_of_2000", count(commands, "\n"), best_time([] { commands_of("eth1"); }));

  sandbox::clear_console();
  show_class("eth1");
  const std::string report = sandbox::console_text();
  EXPECT_EQ(2001u, count(report, "\n"));
  EXPECT_NE(std::string::npos, report.find("handle 1999:2000"));

  EXPECT_EQ(0, del_class("eth1", 1000));
  EXPECT_EQ(nullptr, class_find("eth1", 2000));
  EXPECT_EQ(1, check_Key("eth1", 999));
  EXPECT_EQ(0, del_root_qdisc("eth1"));
}

TEST_F(Scale, ReportGrowsWithTheTree) {
  add_families("eth1", 1000);
  add_families("eth4", 4000);
  const auto report = [](const char *ifname) {
    sandbox::clear_console();
    const double start = processor_seconds();
    show_ifqos(ifname);
    return processor_seconds() - start;
  };
  double small = 1e9, large = 1e9;
  for (int run = 0; run < 3; run++) {
    small = std::min(small, report("eth1"));
    large = std::min(large, report("eth4"));
  }
  const std::string text = sandbox::console_text();
  EXPECT_EQ(4u + 4000 + 3960, count(text, "\n"));
  EXPECT_EQ(4000u, count(text, "C_HTB handle "));
  EXPECT_EQ(3960u, count(text, "L_pfifo limit = 0\n"));
  EXPECT_NE(std::string::npos, text.find("handle 3901:4000"));
  show_rate("report_of_1000_classes", 4 + 1000 + 990, small);
  show_rate("report_of_4000_classes", count(text, "\n"), large);
  EXPECT_LT(large, small * bound_for_four_times);
}

} // namespace
