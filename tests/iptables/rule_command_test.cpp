// The iptables commands of single rules.
#include "iptables/rule_builders.h"

namespace {

using rules::bits;
using rules::drawn;
using rules::Lines;
using rules::make_rule;
using rules::marking_rule;
using rules::put;
using rules::put_first_byte;
using rules::traced;

class RuleCommands : public rules::World {};

// Returns the one command of a rule that marks for class 2 and has these options.
std::string command_with(const std::string &options) {
  return "iptables -t mangle -A CHAIN " + options + "-j MARK --set-mark 0x2 \n";
}

std::string command_to(const std::string &target) {
  return "iptables -t mangle -A CHAIN " + target + "\n";
}

qos_rule tcp_rule(uint32_t protocol = QOS_PROTO_TCP) {
  qos_rule rule = marking_rule(bits(QOS_MATCH_PROTOCOL));
  rule.match.protocol = protocol;
  return rule;
}

struct Options {
  uint32_t value;
  const char *options;
};

// Expects the options that each value of `field` makes in a rule that matches by `bit`.
void expect_options(unsigned bit, uint32_t qos_match::*field, const std::vector<Options> &cases) {
  for (const Options &row : cases) {
    qos_rule rule = marking_rule(bits(bit));
    rule.match.*field = row.value;
    EXPECT_EQ(command_with(row.options), drawn(rule));
  }
}

// Returns a rule that uses every kind of match with its longest text.
qos_rule widest_rule() {
  qos_rule rule = marking_rule(bits(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
  qos_match &match = rule.match;
  match.prio_1p = 255;
  match.vlan_id = 65535;
  put(match.src_mac, std::string(20, 'm'));
  match.src_ip_start = match.src_ip_end = match.dst_ip_start = match.dst_ip_end = 0xFFFFFFFF;
  match.dscp_mode = 1;
  match.dscp = 99;
  match.tos = 4;
  match.precedence = 255;
  match.sport_min = match.sport_max = match.dport_min = match.dport_max = 65535;
  match.tcp_flag_mask = match.tcp_flag_set = 0xFF;
  match.pkt_len = 0xFFFFFFFF;
  match.alg = 99;
  put(match.url, std::string(256, 'u'));
  put(match.domain, std::string(256, 'd'));
  return rule;
}

const std::string widest_options =
    "-p tcp --sport 65535:65535 --dport 65535:65535 "
    "--tcp-flag SYN,ACK,FIN,RST,URG,PSH, SYN,ACK,FIN,RST,URG,PSH, "
    "-m mac --mac-source mmmmmmmmmmmmmmmmmmmm "
    "-m iprange --src-range 255.255.255.255-255.255.255.255 --dst-range 255.255.255.255-255.255.255.255 "
    "-m dscp --dscp-class Unknown "
    "-m tos --tos Maximize-Reliability --precedence 255 "
    "-m helper --helper Unknown "
    "-m length --length 65535:65535 "
    "-m domain --name \"" +
    std::string(256, 'd') + "\" -m urlfilter --url " + std::string(256, 'u') +
    " -m VLAN --vlan-id 65535 --vlan-prio 255 ";

TEST_F(RuleCommands, AMarkWithoutMatchesIsOneCommand) {
  EXPECT_EQ("iptables -t mangle -A QOS_ppp0 -j MARK --set-mark 0x2 \n", drawn(marking_rule(), "QOS_ppp0"));
  EXPECT_EQ("iptables -t mangle -A else -j MARK --set-mark 0x2 \n", drawn(marking_rule(), "else"));
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleCommands, FieldsWithoutTheirBitMatchNothing) {
  qos_rule rule = widest_rule();
  rule.match.match_flags = 0;
  EXPECT_EQ(command_with(""), drawn(rule));
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleCommands, ProtocolsWithPortsAndFlags) {
  const struct {
    uint32_t protocol;
    uint16_t sport_min, sport_max, dport_min, dport_max;
    uint8_t mask, set;
    const char *options;
  } cases[] = {
      {0, 0, 0, 0, 0, 0, 0, "-p tcp "},
      {0, 1, 65535, 80, 80, 0, 0, "-p tcp --sport 1:65535 --dport 80:80 "},
      {0, 0, 80, 0, 80, 0, 0, "-p tcp "},
      {0, 80, 0, 80, 0, 0, 0, "-p tcp "},
      {0, 1, 2, 0, 80, 0, 0, "-p tcp --sport 1:2 "},
      {0, 1, 0, 3, 4, 0, 0, "-p tcp --dport 3:4 "},
      {0, 90, 80, 0, 0, 0, 0, "-p tcp --sport 90:80 "},
      {0, 0, 0, 0, 0, 0x03, 0x01, "-p tcp --tcp-flag SYN,ACK, SYN, "},
      {0, 0, 0, 0, 0, 0x03, 0x00, "-p tcp "},
      {0, 0, 0, 0, 0, 0x00, 0x01, "-p tcp "},
      {0, 0, 0, 0, 0, 0x3F, 0x3F, "-p tcp --tcp-flag SYN,ACK,FIN,RST,URG,PSH, SYN,ACK,FIN,RST,URG,PSH, "},
      {0, 0, 0, 0, 0, 0xC0, 0x04, "-p tcp --tcp-flag  FIN, "}, // bits without a name count too
      {0, 1, 2, 3, 4, 0x10, 0x20, "-p tcp --sport 1:2 --dport 3:4 --tcp-flag URG, PSH, "},
      {1, 0, 0, 0, 0, 0, 0, "-p udp "},
      {1, 1, 2, 3, 4, 0x10, 0x20, "-p udp --sport 1:2 --dport 3:4 "},
      {1, 0, 2, 3, 4, 0, 0, "-p udp --dport 3:4 "},
      {1, 1, 2, 3, 0, 0, 0, "-p udp --sport 1:2 "},
      {1, 1, 0, 0, 4, 0, 0, "-p udp "},
      {2, 1, 2, 3, 4, 0x10, 0x20, "-p icmp "},
      {4, 1, 2, 3, 4, 0x10, 0x20, "-p all "},
  };
  for (const auto &row : cases) {
    qos_rule rule = tcp_rule();
    rules::put_protocol(rule.match, row);
    EXPECT_EQ(command_with(row.options), drawn(rule));
    EXPECT_EQ(Lines{"quorra_iptables draw_rule: get QF_PROTOCOL match type\n"}, traced());
  }
}

TEST_F(RuleCommands, BothProtocolsAreTwoCommandsPerTarget) {
  qos_rule rule = make_rule(bits(QOS_MATCH_PROTOCOL, QOS_MATCH_PKTLEN), bits(QOS_TARGET_MARK, QOS_TARGET_TOS));
  rule.match.protocol = QOS_PROTO_BOTH;
  rule.match.pkt_len = 64u << 16 | 1500;
  rule.match.sport_min = 1000;
  rule.match.sport_max = 2000;
  rule.match.dport_min = rule.match.dport_max = 53;
  rule.match.tcp_flag_mask = rule.match.tcp_flag_set = 0x02;
  rule.target.mark = 0x1F;
  rule.target.set_mode = 16;
  put_first_byte(rule.target.set_value, 5);
  EXPECT_EQ(
      "iptables -t mangle -A CHAIN -p tcp --sport 1000:2000 --dport 53:53 --tcp-flag ACK, ACK, "
      "-m length --length 64:1500 -j MARK --set-mark 0x1f \n"
      "iptables -t mangle -A CHAIN -p udp --sport 1000:2000 --dport 53:53 "
      "-m length --length 64:1500 -j MARK --set-mark 0x1f \n"
      "iptables -t mangle -A CHAIN -p tcp --sport 1000:2000 --dport 53:53 --tcp-flag ACK, ACK, "
      "-m length --length 64:1500 -j TOS --set-tos Minimize-Delay --set-precedence 5 \n"
      "iptables -t mangle -A CHAIN -p udp --sport 1000:2000 --dport 53:53 "
      "-m length --length 64:1500 -j TOS --set-tos Minimize-Delay --set-precedence 5 \n",
      drawn(rule));
  EXPECT_EQ(Lines{"quorra_iptables draw_rule: get QF_PROTOCOL match type\n"}, traced());
}

TEST_F(RuleCommands, BothProtocolsWithoutPortsAreTwoPlainCommands) {
  EXPECT_EQ(command_with("-p tcp ") + command_with("-p udp "), drawn(tcp_rule(QOS_PROTO_BOTH)));
}

TEST_F(RuleCommands, AnUnknownProtocolCodeWritesNothing) {
  for (const uint32_t code : {5u, 6u, 255u, 0xFFFFFFFFu}) {
    qos_rule rule = tcp_rule(code);
    rule.target.target_flags = bits(QOS_TARGET_MARK, QOS_TARGET_TOS, QOS_TARGET_DSCP, QOS_TARGET_VLAN);
    EXPECT_EQ("", drawn(rule)) << code;
    EXPECT_EQ(Lines{"quorra_iptables draw_rule: get QF_PROTOCOL match type\n"}, traced());
    rule.match.match_flags = 0; // the code does not count without its bit
    rule.target.target_flags = bits(QOS_TARGET_MARK);
    EXPECT_EQ(command_with(""), drawn(rule)) << code;
  }
}

TEST_F(RuleCommands, SourceMacIsWrittenAsItStands) {
  qos_rule rule = marking_rule(bits(QOS_MATCH_MAC));
  rule.match.src_ip_start = 0x41414141; // a text without terminator would run into this
  for (const char *mac : {"00:1A:2b:3c:4d:5e", "", "19-characters-of-mac", "20-bytes-of-mac-text"}) {
    put(rule.match.src_mac, mac);
    EXPECT_EQ(command_with(std::string("-m mac --mac-source ") + mac + " "), drawn(rule));
  }
}

TEST_F(RuleCommands, UrlAndDomainMayFillTheirFields) {
  add_office_hours('A', 0);
  for (const size_t length : {0u, 1u, 254u, 255u, 256u}) {
    const std::string text(length, 'x');
    qos_rule rule = marking_rule(bits(QOS_MATCH_URL));
    put(rule.match.url, text);
    put(rule.match.domain, "other");
    EXPECT_EQ(command_with("-m urlfilter --url " + text + " "), drawn(rule)) << length;

    rule = marking_rule(bits(QOS_MATCH_DOMAIN));
    put(rule.match.domain, text);
    put(rule.match.url, "other");
    rule.match.sched_index = 'A'; // its byte follows the domain
    EXPECT_EQ(command_with("-m domain --name \"" + text + "\" -m time --timestart 8:00 --timestop 18:30 "), drawn(rule))
        << length;
  }
}

TEST_F(RuleCommands, AnIpRangeNeedsBothItsBounds) {
  const std::string options[2][2] = {
      {"", "-m iprange --dst-range 8.9.10.11-255.0.128.1 "},
      {"-m iprange --src-range 192.168.1.2-192.168.1.254 ",
       "-m iprange --src-range 192.168.1.2-192.168.1.254 --dst-range 8.9.10.11-255.0.128.1 "}};
  for (unsigned present = 0; present < 16; present++) {
    qos_rule rule = marking_rule(bits(QOS_MATCH_IP));
    rule.match.src_ip_start = present & 1 ? 0xC0A80102 : 0;
    rule.match.src_ip_end = present & 2 ? 0xC0A801FE : 0;
    rule.match.dst_ip_start = present & 4 ? 0x08090A0B : 0;
    rule.match.dst_ip_end = present & 8 ? 0xFF008001 : 0;
    EXPECT_EQ(command_with(options[(present & 3) == 3][(present & 12) == 12]), drawn(rule)) << present;
  }
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleCommands, DscpIsTheFirstByteOrAClassName) {
  qos_rule rule = marking_rule(bits(QOS_MATCH_DSCP));
  const struct {
    uint8_t value;
    const char *options;
  } raw[] = {{0, "-m dscp --dscp 0x0 "}, {0x2E, "-m dscp --dscp 0x2e "}, {0xFF, "-m dscp --dscp 0xff "}};
  for (const auto &row : raw) {
    put_first_byte(rule.match.dscp, row.value);
    EXPECT_EQ(command_with(row.options), drawn(rule));
  }

  rule.match.dscp_mode = 1;
  rule.match.dscp = 0;
  for (const char *name : rules::dscp_classes) {
    EXPECT_EQ(command_with(std::string("-m dscp --dscp-class ") + name + " "), drawn(rule)) << rule.match.dscp;
    rule.match.dscp++;
  }
  ASSERT_EQ(23u, rule.match.dscp);
  rule.match.dscp = 0xFFFFFFFF;
  EXPECT_EQ(command_with("-m dscp --dscp-class Unknown "), drawn(rule));

  rule.match.dscp_mode = 2; // no mode, no option
  EXPECT_EQ(command_with(""), drawn(rule));
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleCommands, TosIsANameWithADecimalPrecedence) {
  const struct {
    uint32_t tos;
    uint8_t precedence;
    const char *options;
  } cases[] = {{16, 0, "-m tos --tos Minimize-Delay --precedence 0 "},
               {8, 7, "-m tos --tos Maximize-Throughput --precedence 7 "},
               {4, 10, "-m tos --tos Maximize-Reliability --precedence 10 "},
               {2, 255, "-m tos --tos Minimize-Cost --precedence 255 "},
               {0, 16, "-m tos --tos Normal-Service --precedence 16 "},
               {1, 1, "-m tos --tos Unknown --precedence 1 "},
               {0xFFFFFFFF, 1, "-m tos --tos Unknown --precedence 1 "}};
  for (const auto &row : cases) {
    qos_rule rule = marking_rule(bits(QOS_MATCH_TOS));
    rule.match.tos = row.tos;
    rule.match.precedence = row.precedence;
    EXPECT_EQ(command_with(row.options), drawn(rule));
  }
}

TEST_F(RuleCommands, HelpersHaveNames) {
  expect_options(QOS_MATCH_ALG, &qos_match::alg,
                 {{0, "-m helper --helper sip "},
                  {1, "-m helper --helper Q.931 "},
                  {2, "-m helper --helper ftp "},
                  {3, "-m helper --helper Unknown "}});
}

TEST_F(RuleCommands, PacketLengthIsTwoHalves) {
  expect_options(QOS_MATCH_PKTLEN, &qos_match::pkt_len,
                 {{0x004005DC, "-m length --length 64:1500 "},
                  {0x00000001, "-m length --length 0:1 "},
                  {0xFFFF0000, "-m length --length 65535:0 "},
                  {0x80017FFF, "-m length --length 32769:32767 "}});
}

TEST_F(RuleCommands, VlanOptionsAreOneMatchBehindTheOthers) {
  const struct {
    uint32_t match_flags;
    const char *options;
  } cases[] = {
      {bits(QOS_MATCH_802_1Q), "-m VLAN --vlan-id 4094 "},
      {bits(QOS_MATCH_802_1P), "-m VLAN --vlan-prio 7 "},
      {bits(QOS_MATCH_802_1P, QOS_MATCH_802_1Q), "-m VLAN --vlan-id 4094 --vlan-prio 7 "},
      {bits(QOS_MATCH_802_1Q, QOS_MATCH_ALG), "-m helper --helper sip -m VLAN --vlan-id 4094 "},
  };
  for (const auto &row : cases) {
    qos_rule rule = marking_rule(row.match_flags);
    rule.match.vlan_id = 4094;
    rule.match.prio_1p = 7;
    EXPECT_EQ(command_with(row.options), drawn(rule));
  }
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleCommands, EveryUnknownMatchBitIsTracedAndAddsNothing) {
  const Lines unknown = {"quorra_iptables draw_rule: get Unknown match type\n"};
  for (unsigned bit = 11; bit < 32; bit++) {
    EXPECT_EQ(command_with(""), drawn(marking_rule(bits(bit)))) << bit;
    EXPECT_EQ(unknown, traced()) << bit;
  }

  Lines all(22, unknown[0]);
  all[0] = "quorra_iptables draw_rule: get QF_PROTOCOL match type\n";
  EXPECT_EQ(command_with("-p tcp "), drawn(marking_rule(0xFFFFF800u | bits(QOS_MATCH_PROTOCOL))));
  EXPECT_EQ(all, traced());
}

TEST_F(RuleCommands, MatchesFollowOneAnotherInTheOrderOfTheirBits) {
  add_office_hours(3, 0x41);
  qos_rule rule = widest_rule();
  rule.match.sched_index = 3;
  EXPECT_EQ(command_with(widest_options + "-m time --timestart 8:00 --timestop 18:30 --days Sun,Sat "), drawn(rule));
  EXPECT_EQ(Lines{"quorra_iptables draw_rule: get QF_PROTOCOL match type\n"}, traced());

  // The longest schedule still finds room behind the longest matches.
  qos_sched *sched = search_sched(3);
  sched->days = 0xFF;
  sched->start_hour = sched->start_min = sched->stop_hour = sched->stop_min = 255;
  EXPECT_EQ(command_with(widest_options + "-m time --timestart 255:255 --timestop 255:255 "
                                          "--days Sun,Mon,Tue,Wed,Thu,Fri,Sat "),
            drawn(rule));
}

TEST_F(RuleCommands, AScheduleFollowsTheMatches) {
  add_office_hours(200, 0x3E);
  qos_rule rule = marking_rule(bits(QOS_MATCH_ALG));
  rule.match.sched_index = 200;
  EXPECT_EQ(command_with("-m helper --helper sip "
                         "-m time --timestart 8:00 --timestop 18:30 --days Mon,Tue,Wed,Thu,Fri "),
            drawn(rule));
  rule.match.match_flags = 0;
  search_sched(200)->all_day = 1;
  search_sched(200)->days = 0;
  EXPECT_EQ(command_with("-m time --timestart 00:00 --timestop 23:59 "), drawn(rule));
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleCommands, AScheduleThatIsGoneIsTracedWithTheLengthSoFar) {
  add_office_hours(3, 0);
  qos_rule rule = marking_rule(bits(QOS_MATCH_ALG));
  rule.match.sched_index = 3;
  ASSERT_EQ(1u, del_sched(3));
  EXPECT_EQ(command_with("-m helper --helper sip "), drawn(rule));
  EXPECT_EQ((Lines{"quorra_iptables get_sched_str: schedule index not found!!\n",
                   "quorra_iptables draw_rule: match buffer is too small or index not found, schedule string doesn't "
                   "attach 1024 23!!\n"}),
            traced());
  rule.match.match_flags = 0;
  EXPECT_EQ(command_with(""), drawn(rule));
  EXPECT_EQ(
      "quorra_iptables draw_rule: match buffer is too small or index not found, schedule string doesn't attach "
      "1024 0!!\n",
      traced().back());
}

TEST_F(RuleCommands, TargetsWriteOneCommandEach) {
  const struct {
    uint32_t target_flags, mark, set_mode;
    uint8_t set_value, vlan_prio;
    uint16_t vlan_tag_id;
    uint8_t vlan_double;
    const char *command;
  } cases[] = {
      {0x1, 0, 0, 0, 0, 0, 0, "-j MARK --set-mark 0x0 "},
      {0x1, 0xABCDEF12, 0, 0, 0, 0, 0, "-j MARK --set-mark 0xabcdef12 "},
      {0x2, 0, 16, 0, 0, 0, 0, "-j TOS --set-tos Minimize-Delay --set-precedence 0 "},
      {0x2, 0, 8, 7, 0, 0, 0, "-j TOS --set-tos Maximize-Throughput --set-precedence 7 "},
      {0x2, 0, 4, 255, 0, 0, 0, "-j TOS --set-tos Maximize-Reliability --set-precedence 255 "},
      {0x2, 0, 2, 16, 0, 0, 0, "-j TOS --set-tos Minimize-Cost --set-precedence 16 "},
      {0x2, 0, 0, 1, 0, 0, 0, "-j TOS --set-tos Normal-Service --set-precedence 1 "},
      {0x2, 0, 3, 1, 0, 0, 0, "-j TOS --set-tos Unknown --set-precedence 1 "},
      {0x4, 0, 0, 0x2E, 0, 0, 0, "-j DSCP --set-dscp 0x2e "},
      {0x4, 0, 0, 0, 0, 0, 0, "-j DSCP --set-dscp 0x0 "},
      {0x8, 0, 0, 0, 0, 0, 0, "-j MKVLAN --set-vlan-id 0 --set-vlan-prio 0  "},
      {0x8, 0, 0, 0, 7, 4094, 0, "-j MKVLAN --set-vlan-id 4094 --set-vlan-prio 7  "},
      {0x8, 0, 0, 0, 255, 65535, 1, "-j MKVLAN --set-vlan-id 65535 --set-vlan-prio 255 --double "},
      {0x8, 0, 0, 0, 1, 2, 255, "-j MKVLAN --set-vlan-id 2 --set-vlan-prio 1 --double "},
  };
  for (const auto &row : cases) {
    qos_rule rule = make_rule(0, row.target_flags);
    rule.target.mark = row.mark;
    rule.target.set_mode = row.set_mode;
    put_first_byte(rule.target.set_value, row.set_value);
    rule.target.vlan_prio = row.vlan_prio;
    rule.target.vlan_tag_id = row.vlan_tag_id;
    rule.target.vlan_double = row.vlan_double;
    EXPECT_EQ(command_to(row.command), drawn(rule));
  }
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleCommands, TheDscpTargetTakesEveryClass) {
  qos_rule rule = make_rule(0, bits(QOS_TARGET_DSCP));
  rule.target.set_mode = 1;
  for (const char *name : rules::dscp_classes) {
    EXPECT_EQ(command_to(std::string("-j DSCP --set-dscp ") + name + " "), drawn(rule)) << rule.target.set_value;
    rule.target.set_value++;
  }
  rule.target.set_value = 21;
  for (const uint32_t mode : {2u, 16u, 0x100u, 0xFFFFFFFFu}) {
    rule.target.set_mode = mode; // neither a raw value nor a class
    EXPECT_EQ("", drawn(rule)) << mode;
  }
}

TEST_F(RuleCommands, SeveralTargetsKeepTheOrderOfTheirBits) {
  qos_rule rule = make_rule(bits(QOS_MATCH_ALG), 0xFFFFFFFF);
  rule.target.mark = 10;
  put_first_byte(rule.target.set_value, 0x12); // precedence and raw value at once: the two targets share the fields
  rule.target.vlan_tag_id = 100;
  rule.target.vlan_prio = 3;
  rule.target.log = 1;
  EXPECT_EQ(
      "iptables -t mangle -A CHAIN -m helper --helper sip -j MARK --set-mark 0xa \n"
      "iptables -t mangle -A CHAIN -m helper --helper sip -j TOS --set-tos Normal-Service --set-precedence 18 \n"
      "iptables -t mangle -A CHAIN -m helper --helper sip -j DSCP --set-dscp 0x12 \n"
      "iptables -t mangle -A CHAIN -m helper --helper sip -j MKVLAN --set-vlan-id 100 --set-vlan-prio 3  \n",
      drawn(rule));
  EXPECT_EQ(Lines{"quorra_iptables draw_rule: LOG target not implement!!\n"}, traced());
}

TEST_F(RuleCommands, LoggingIsTracedAndWritesNothing) {
  EXPECT_EQ("", drawn(make_rule(0, bits(QOS_TARGET_LOG))));
  EXPECT_EQ(Lines{"quorra_iptables draw_rule: LOG target not implement!!\n"}, traced());
  qos_rule rule = marking_rule();
  rule.target.log = 1; // this byte is for the report and makes no target
  EXPECT_EQ(command_with(""), drawn(rule));
  EXPECT_EQ(Lines(), traced());
}

TEST_F(RuleCommands, ARuleWithoutTargetsWritesNothingButIsStillRead) {
  EXPECT_EQ("", drawn(make_rule(bits(QOS_MATCH_ALG), 0)));
  EXPECT_EQ("", drawn(make_rule(0, 0xFFFFFFE0))); // bits that are no targets
  EXPECT_EQ(Lines(), traced());
  EXPECT_EQ("", drawn(make_rule(bits(QOS_MATCH_PROTOCOL), 0)));
  EXPECT_EQ(Lines{"quorra_iptables draw_rule: get QF_PROTOCOL match type\n"}, traced());
}

TEST_F(RuleCommands, AConsoleThatCannotBeOpenedChangesNoCommand) {
  qos_rule rule = tcp_rule();
  rule.match.match_flags |= 0x80000000;
  rule.match.sched_index = 9;
  rule.target.target_flags |= bits(QOS_TARGET_LOG);
  const sandbox::UnopenableConsole silence;
  EXPECT_EQ(command_with("-p tcp "), drawn(rule));
}

TEST(TcpFlagText, NamesEveryFlagInBitOrderAndClearsTheRest) {
  const struct {
    uint8_t flags;
    const char *text;
  } cases[] = {{0x00, ""},
               {0x01, "SYN,"},
               {0x02, "ACK,"},
               {0x04, "FIN,"},
               {0x08, "RST,"},
               {0x10, "URG,"},
               {0x20, "PSH,"},
               {0x40, ""},
               {0x80, ""},
               {0x03, "SYN,ACK,"},
               {0x29, "SYN,RST,PSH,"},
               {0x3F, "SYN,ACK,FIN,RST,URG,PSH,"},
               {0xC4, "FIN,"},
               {0xFF, "SYN,ACK,FIN,RST,URG,PSH,"}};
  for (const auto &row : cases) {
    char out[34];
    memset(out, 'x', sizeof(out));
    tcp_flag_text(out + 1, row.flags);
    std::string expected = row.text;
    expected.resize(32);
    EXPECT_EQ("x" + expected + "x", std::string(out, sizeof(out))) << int{row.flags};
  }
  tcp_flag_text(nullptr, 0x3F); // ignored
}

} // namespace
