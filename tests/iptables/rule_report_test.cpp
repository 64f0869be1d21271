#include <algorithm>

#include "iptables/rule_builders.h"

namespace {

using rules::bits;
using rules::Lines;
using rules::make_rule;
using rules::marking_rule;
using rules::put;
using rules::put_first_byte;
using rules::traced;

constexpr char match_line[] = "quorra_iptables show_match: ===============MATCH===============\n";
constexpr char target_line[] = "quorra_iptables show_target: ===============TARGET==============\n";

class RuleReport : public rules::World {
 protected:
  void SetUp() override {
    World::SetUp();
    add_tree("eth1");
  }

  // Returns the lines of the report for this rule, before and after the target separator, without the heading.
  struct Report {
    Lines matches, targets;
  };
  static Report reported(const qos_rule &rule) {
    EXPECT_EQ(1u, add(1, rule));
    sandbox::clear_console();
    show_rule("eth1");
    EXPECT_EQ(1u, del_qos_rule("eth1", 1));
    const Lines lines = traced();
    Report report;
    size_t at = 2;
    EXPECT_GE(lines.size(), 3u);
    EXPECT_EQ("quorra_iptables show_rule: Qos Rule  1:\n", lines.at(0));
    EXPECT_EQ(match_line, lines.at(1));
    while (at < lines.size() && lines[at] != target_line)
      report.matches.push_back(lines[at++]);
    EXPECT_LT(at, lines.size()) << "no target separator";
    while (++at < lines.size())
      report.targets.push_back(lines[at]);
    return report;
  }

  static void expect_match(const std::string &line, const qos_rule &rule) {
    const Report report = reported(rule);
    EXPECT_EQ(Lines{"quorra_iptables show_match: " + line}, report.matches);
    EXPECT_EQ(Lines(), report.targets);
  }
  static void expect_target(const std::string &line, const qos_rule &rule) {
    const Report report = reported(rule);
    EXPECT_EQ(Lines(), report.matches);
    EXPECT_EQ(Lines{"quorra_iptables show_target: " + line}, report.targets);
  }
};

// Returns a rule with every match, a schedule, every target and the log byte.
qos_rule full_rule() {
  qos_rule rule = make_rule(0xFFFFFFFF, 0xFFFFFFFF);
  qos_match &match = rule.match;
  match.prio_1p = 6;
  match.vlan_id = 4094;
  put(match.src_mac, "00:11:22:33:44:55");
  match.src_ip_start = 0xC0A80102;
  match.src_ip_end = 0xC0A801FE;
  match.dst_ip_end = 0x08090A0B;
  put_first_byte(match.dscp, 0x2E);
  match.tos = 8;
  match.precedence = 0x1F;
  match.alg = QOS_ALG_Q931;
  match.pkt_len = 64u << 16 | 1500;
  match.sport_max = 65535;
  match.dport_min = 80;
  match.dport_max = 8080;
  match.tcp_flag_mask = 0x03;
  match.tcp_flag_set = 0x01;
  put(match.domain, "a.example");
  put(match.url, "/index");
  match.sched_index = 3;
  rule.target.mark = 2;
  put_first_byte(rule.target.set_value, 0x15);
  rule.target.vlan_prio = 5;
  rule.target.vlan_tag_id = 35;
  rule.target.vlan_double = 1;
  rule.target.log = 1;
  return rule;
}

const Lines full_report = {
    "quorra_iptables show_rule: Qos Rule 12:\n",
    "quorra_iptables show_match: ===============MATCH===============\n",
    "quorra_iptables show_match: 802.1p priority:  6\n",
    "quorra_iptables show_match: 802.1q vlanid:    4094\n",
    "quorra_iptables show_match: src MAC Addr:     00:11:22:33:44:55\n",
    "quorra_iptables show_match: ip range src/dst: 192.168.1.2~192.168.1.254 / 0.0.0.0~8.9.10.11\n",
    "quorra_iptables show_match: DSCP:             0x2e\n",
    "quorra_iptables show_match: Precedence/TOS:   0x1f/Maximize-Throughput\n",
    "quorra_iptables show_match: Match ALG:        Q.931\n",
    "quorra_iptables show_match: Packet length:    64~1500\n",
    "quorra_iptables show_match: TCP Port/flag:    src:0~65535 dst:80~8080 SYN,ACK, SYN, \n",
    "quorra_iptables show_match: Domain String:    a.example\n",
    "quorra_iptables show_match: URL String:       /index\n",
    "quorra_iptables show_match: Time String:      "
    "-m time --timestart 8:00 --timestop 18:30 --days Mon,Tue,Wed,Thu,Fri \n",
    "quorra_iptables show_target: ===============TARGET==============\n",
    "quorra_iptables show_target: Set Mark:         2\n",
    "quorra_iptables show_target: Precedence/TOS:   0x15/Normal-Service\n",
    "quorra_iptables show_target: DSCP:             0x15\n",
    "quorra_iptables show_target: Vlan Tag 1p/q:    5/35\n",
    "quorra_iptables show_target: Log:              Yes\n"};

TEST_F(RuleReport, AnEmptyRuleHasItsHeadingAndTheSeparators) {
  ASSERT_EQ(1u, add(7, make_rule(0, 0)));
  show_rule("eth1");
  EXPECT_EQ((Lines{"quorra_iptables show_rule: Qos Rule  7:\n", match_line, target_line}), traced());
}

TEST_F(RuleReport, ShowsEveryPartOfARuleInItsOrder) {
  add_office_hours(3, 0x3E);
  ASSERT_EQ(1u, add(12, full_rule()));
  const std::string before(reinterpret_cast<const char *>(records()[0]), sizeof(qos_rule));
  const int descriptors = sandbox::open_descriptors();
  show_rule("eth1");
  EXPECT_EQ(full_report, traced());
  EXPECT_EQ(descriptors, sandbox::open_descriptors());
  EXPECT_EQ(0, memcmp(before.data(), records()[0], sizeof(qos_rule))); // the report changes no record
}

TEST_F(RuleReport, OpensAndClosesTheConsoleOncePerLine) {
  add_office_hours(3, 0x3E);
  ASSERT_EQ(1u, add(12, full_rule()));
  sandbox::ConsoleWatch watch;
  show_rule("eth1");
  const auto counts = watch.counts();
  EXPECT_EQ(20, counts.opens);
  EXPECT_EQ(20, counts.closes);
}

TEST_F(RuleReport, ShowsTheRulesAscending) {
  for (const unsigned index : {255u, 0u, 42u})
    ASSERT_EQ(1u, add(index, make_rule(0, 0)));
  show_rule("eth1");
  EXPECT_EQ((Lines{"quorra_iptables show_rule: Qos Rule  0:\n", match_line, target_line,
                   "quorra_iptables show_rule: Qos Rule 42:\n", match_line, target_line,
                   "quorra_iptables show_rule: Qos Rule255:\n", match_line, target_line}),
            traced());
}

TEST_F(RuleReport, WithoutRulesSaysNothing) {
  show_rule("eth1");
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleReport, AnInterfaceWithoutTreeIsTold) {
  show_rule("eth7");
  EXPECT_EQ((Lines{"quorra_qos root_qdisc_find_by_name: eth7 not found!!\n",
                   "quorra_iptables show_rule: QoS tree not found, no rule found!!\n"}),
            traced());
  show_rule(nullptr);
  EXPECT_EQ("quorra_iptables show_rule: QoS tree not found, no rule found!!\n", traced().back());
}

TEST_F(RuleReport, ProtocolLines) {
  const struct {
    uint32_t protocol;
    uint16_t sport_min, sport_max, dport_min, dport_max;
    uint8_t mask, set;
    const char *line;
  } cases[] = {
      {0, 1, 2, 3, 4, 0x3F, 0x30, "TCP Port/flag:    src:1~2 dst:3~4 SYN,ACK,FIN,RST,URG,PSH, URG,PSH, \n"},
      {0, 0, 0, 0, 0, 0, 0, "TCP Port/flag:    src:0~0 dst:0~0   \n"},
      {0, 65535, 65535, 65535, 65535, 0xCC, 0x40, "TCP Port/flag:    src:65535~65535 dst:65535~65535 FIN,RST,  \n"},
      {1, 1, 0, 0, 4, 0x3F, 0x30, "UDP Port:         src:1~0 dst:0~4\n"},
      {2, 1, 2, 3, 4, 0x3F, 0x30, "ICMP:\n"},
      {3, 0, 2, 3, 65535, 0x3F, 0x30, "Both Port:        src:0~2 dst:3~65535\n"},
      {4, 1, 2, 3, 4, 0x3F, 0x30, "ALL:\n"},
  };
  for (const auto &row : cases) {
    qos_rule rule = make_rule(bits(QOS_MATCH_PROTOCOL), 0);
    rules::put_protocol(rule.match, row);
    expect_match(row.line, rule);
  }
  for (const uint32_t code : {5u, 0xFFFFFFFFu}) {
    qos_rule rule = make_rule(bits(QOS_MATCH_PROTOCOL), 0);
    rule.match.protocol = code;
    EXPECT_EQ(Lines(), reported(rule).matches);
  }
}

TEST_F(RuleReport, DscpLines) {
  qos_rule match = make_rule(bits(QOS_MATCH_DSCP), 0), target = make_rule(0, bits(QOS_TARGET_DSCP));
  match.match.dscp_mode = target.target.set_mode = 1;
  for (const char *name : rules::dscp_classes) {
    const std::string line = std::string("DSCP:             ") + name + "\n";
    expect_match(line, match);
    expect_target(line, target);
    match.match.dscp++;
    target.target.set_value++;
  }

  match.match.dscp_mode = target.target.set_mode = 0;
  put_first_byte(match.match.dscp, 0xAB);
  put_first_byte(target.target.set_value, 0xCD);
  expect_match("DSCP:             0xab\n", match);
  expect_target("DSCP:             0xcd\n", target);

  match.match.dscp_mode = target.target.set_mode = 2;
  EXPECT_EQ(Lines(), reported(match).matches);
  EXPECT_EQ(Lines(), reported(target).targets);
}

TEST_F(RuleReport, TosLines) {
  const struct {
    uint32_t tos;
    uint8_t precedence;
    const char *line;
  } cases[] = {{16, 0, "Precedence/TOS:   0x0/Minimize-Delay\n"},
               {8, 0x0A, "Precedence/TOS:   0xa/Maximize-Throughput\n"},
               {4, 0x10, "Precedence/TOS:   0x10/Maximize-Reliability\n"},
               {2, 0xFF, "Precedence/TOS:   0xff/Minimize-Cost\n"},
               {0, 7, "Precedence/TOS:   0x7/Normal-Service\n"},
               {1, 7, "Precedence/TOS:   0x7/Unknown\n"}};
  for (const auto &row : cases) {
    qos_rule match = make_rule(bits(QOS_MATCH_TOS), 0), target = make_rule(0, bits(QOS_TARGET_TOS));
    match.match.tos = target.target.set_mode = row.tos;
    match.match.precedence = row.precedence;
    put_first_byte(target.target.set_value, row.precedence);
    expect_match(row.line, match);
    expect_target(row.line, target);
  }
}

TEST_F(RuleReport, HelperAndLengthLines) {
  const char *helpers[] = {"sip", "Q.931", "ftp", "Unknown"};
  qos_rule rule = make_rule(bits(QOS_MATCH_ALG), 0);
  for (const char *name : helpers) {
    expect_match(std::string("Match ALG:        ") + name + "\n", rule);
    rule.match.alg++;
  }
  rule = make_rule(bits(QOS_MATCH_PKTLEN), 0);
  expect_match("Packet length:    0~0\n", rule);
  rule.match.pkt_len = 0xFFFE0001;
  expect_match("Packet length:    65534~1\n", rule);
}

TEST_F(RuleReport, VlanLines) {
  qos_rule rule = make_rule(bits(QOS_MATCH_802_1P), 0);
  rule.match.prio_1p = 255;
  rule.match.vlan_id = 65535;
  expect_match("802.1p priority:  255\n", rule);
  rule.match.match_flags = bits(QOS_MATCH_802_1Q);
  expect_match("802.1q vlanid:    65535\n", rule);

  rule = make_rule(0, bits(QOS_TARGET_VLAN));
  rule.target.vlan_prio = 255;
  rule.target.vlan_tag_id = 65535;
  rule.target.vlan_double = 1; // the report does not mention it
  expect_target("Vlan Tag 1p/q:    255/65535\n", rule);
}

TEST_F(RuleReport, IpRangesAreShownWithTheirZeroBounds) {
  qos_rule rule = make_rule(bits(QOS_MATCH_IP), 0);
  expect_match("ip range src/dst: 0.0.0.0~0.0.0.0 / 0.0.0.0~0.0.0.0\n", rule);
  rule.match.src_ip_start = 0x01020304;
  rule.match.src_ip_end = 0x05060708;
  rule.match.dst_ip_start = 0x090A0B0C;
  rule.match.dst_ip_end = 0xFFFEFDFC;
  expect_match("ip range src/dst: 1.2.3.4~5.6.7.8 / 9.10.11.12~255.254.253.252\n", rule);
}

TEST_F(RuleReport, TextsMayFillTheirFields) {
  qos_rule rule = make_rule(bits(QOS_MATCH_MAC), 0);
  put(rule.match.src_mac, "20-bytes-of-mac-text");
  rule.match.src_ip_start = 0x41414141;
  expect_match("src MAC Addr:     20-bytes-of-mac-text\n", rule);

  rule = make_rule(bits(QOS_MATCH_URL), 0);
  put(rule.match.url, std::string(256, 'u'));
  put(rule.match.domain, "other");
  expect_match("URL String:       " + std::string(256, 'u') + "\n", rule);

  add_office_hours('A', 0);
  rule = make_rule(bits(QOS_MATCH_DOMAIN), 0);
  put(rule.match.domain, std::string(256, 'd'));
  rule.match.sched_index = 'A'; // its byte follows the domain
  EXPECT_EQ("quorra_iptables show_match: Domain String:    " + std::string(256, 'd') + "\n",
            reported(rule).matches.at(0));
}

TEST_F(RuleReport, UnknownMatchBitsAndTheLogTargetHaveNoLine) {
  const Report report = reported(make_rule(0xFFFFF800, 0xFFFFFFF0));
  EXPECT_EQ(Lines(), report.matches);
  EXPECT_EQ(Lines(), report.targets);
}

TEST_F(RuleReport, TheLogByteHasALineOfItsOwn) {
  for (const uint8_t log : {uint8_t{1}, uint8_t{255}}) {
    qos_rule rule = make_rule(0, 0);
    rule.target.log = log;
    expect_target("Log:              Yes\n", rule);
  }
}

TEST_F(RuleReport, TheMarkIsDecimal) {
  const htb_params params = {1, 1, 0, 0, 0};
  ASSERT_EQ(0, add_class("eth1", 1, 65535, &params));
  qos_rule rule = marking_rule();
  expect_target("Set Mark:         2\n", rule);
  rule.target.mark = 65535;
  expect_target("Set Mark:         65535\n", rule);
}

TEST_F(RuleReport, AScheduleHasALineWhileItExists) {
  add_office_hours(200, 0xFF);
  qos_rule rule = make_rule(0, 0);
  rule.match.sched_index = 200;
  expect_match("Time String:      -m time --timestart 8:00 --timestop 18:30 --days Sun,Mon,Tue,Wed,Thu,Fri,Sat \n",
               rule);

  qos_sched *sched = search_sched(200);
  sched->start_hour = sched->start_min = sched->stop_hour = sched->stop_min = 255; // the longest
  expect_match(
      "Time String:      -m time --timestart 255:255 --timestop 255:255 "
      "--days Sun,Mon,Tue,Wed,Thu,Fri,Sat \n",
      rule);

  ASSERT_EQ(1u, del_sched(200));
  EXPECT_EQ(Lines{"quorra_iptables get_sched_str: schedule index not found!!\n"}, reported(rule).matches);
}

TEST_F(RuleReport, ALineWhoseConsoleCannotBeOpenedIsLeftOutAlone) {
  add_office_hours(3, 0x3E);
  ASSERT_EQ(1u, add(12, full_rule()));
  {
    const sandbox::UnopenableConsole silence;
    show_rule("eth1");
    show_rule("eth7");
  }
  EXPECT_EQ(Lines(), traced());

  // If a stream cannot be allocated, its line alone is missing.
  unsigned lost = 0;
  for (unsigned n = 1; n < 1000; n++) {
    sandbox::fail_allocation(n);
    show_rule("eth1");
    const bool failed = sandbox::allocation_failed();
    sandbox::fail_allocation(0);
    const Lines lines = traced();
    Lines expected = full_report;
    if (lines.size() < expected.size()) {
      lost++;
      expected.erase(std::mismatch(lines.begin(), lines.end(), expected.begin()).second);
    }
    EXPECT_EQ(expected, lines) << n;
    if (!failed)
      break;
  }
  EXPECT_EQ(full_report.size(), lost);
}

} // namespace
