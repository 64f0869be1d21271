// Today's iptables gets every form of rule that the library can write. It takes the rule and shows it as it was meant,
// or refuses it with the reason told here.
#include <functional>

#include "router/network.h"

namespace {

uint32_t bit(unsigned number) {
  return 1u << number;
}

uint32_t first_byte(uint8_t value) {
  uint32_t field = 0;
  memcpy(&field, &value, 1);
  return field;
}

struct Form {
  const char *name;
  std::function<void(qos_match &, qos_target &)> make; // fills in a rule that marks 2
  std::vector<std::string> shown;                      // without "-A QOS_wan0 "; empty: it is refused
  const char *reason = "";                             // iptables says this when it refuses
};

const char to_class_2[] = "-j MARK --set-xmark 0x2/0xffffffff";

std::string marked(const std::string &options) {
  return options + " " + to_class_2;
}

class Rules : public network::Line {
 protected:
  void SetUp() override {
    Line::SetUp();
    if (IsSkipped())
      return;
    const root_params_tree root = {3, {}};
    ASSERT_EQ(0, add_root_qdisc(network::speeds, network::line, QOS_ROOT_HTB, &root));
  }

  // Returns the rules in the chain after the hook of the automatic marks.
  static std::vector<std::string> chain() {
    std::istringstream lines(network::must("iptables -t mangle -S QOS_wan0"));
    std::vector<std::string> rules;
    const std::string start = "-A QOS_wan0 ";
    for (std::string one; std::getline(lines, one);)
      if (one.compare(0, start.size(), start) == 0 && one.find("QOS_wan0_AUTO") == std::string::npos)
        rules.push_back(one.substr(start.size()));
    return rules;
  }

  static void expect(const Form &form) {
    SCOPED_TRACE(form.name);
    qos_match match = {};
    qos_target target = {};
    target.target_flags = bit(QOS_TARGET_MARK);
    target.mark = 2;
    form.make(match, target);
    ASSERT_EQ(1u, add_qos_rule(network::line, 1, &match, &target));
    const std::string said = said_during([](const char *ifname) { return static_cast<int>(restart_rule(ifname)); });
    EXPECT_EQ(form.shown, chain());
    if (form.shown.empty())
      EXPECT_NE(std::string::npos, said.find(form.reason)) << said;
    else
      EXPECT_EQ("", said);
    ASSERT_EQ(1u, del_qos_rule(network::line, 1));
  }

  static void expect_all(const std::vector<Form> &forms) {
    for (const Form &form : forms)
      expect(form);
  }
};

void tcp(qos_match &match) {
  match.match_flags = bit(QOS_MATCH_PROTOCOL);
  match.protocol = QOS_PROTO_TCP;
}

TEST_F(Rules, OfProtocolsAndPortsAreTaken) {
  expect_all({
      {"everything", [](qos_match &, qos_target &) {}, {to_class_2}},
      {"tcp", [](qos_match &match, qos_target &) { tcp(match); }, {marked("-p tcp")}},
      {"tcp ports",
       [](qos_match &match, qos_target &) {
         tcp(match);
         match.sport_min = 1024;
         match.sport_max = 65535;
         match.dport_min = match.dport_max = 80;
       },
       {marked("-p tcp -m tcp --sport 1024:65535 --dport 80")}},
      {"tcp flags",
       [](qos_match &match, qos_target &) {
         tcp(match);
         match.tcp_flag_mask = (1u << QOS_TCP_SYN) | (1u << QOS_TCP_ACK) | (1u << QOS_TCP_FIN) | (1u << QOS_TCP_RST) |
                               (1u << QOS_TCP_URG) | (1u << QOS_TCP_PSH);
         match.tcp_flag_set = (1u << QOS_TCP_SYN) | (1u << QOS_TCP_PSH);
       },
       {marked("-p tcp -m tcp --tcp-flags FIN,SYN,RST,PSH,ACK,URG SYN,PSH")}},
      {"udp",
       [](qos_match &match, qos_target &) {
         tcp(match);
         match.protocol = QOS_PROTO_UDP;
         match.dport_min = 5060;
         match.dport_max = 5061;
       },
       {marked("-p udp -m udp --dport 5060:5061")}},
      {"icmp",
       [](qos_match &match, qos_target &) {
         tcp(match);
         match.protocol = QOS_PROTO_ICMP;
       },
       {marked("-p icmp")}},
      {"both",
       [](qos_match &match, qos_target &) {
         tcp(match);
         match.protocol = QOS_PROTO_BOTH;
         match.sport_min = match.sport_max = 53;
       },
       {marked("-p tcp -m tcp --sport 53"), marked("-p udp -m udp --sport 53")}},
      {"all",
       [](qos_match &match, qos_target &) {
         tcp(match);
         match.protocol = QOS_PROTO_ALL;
       },
       {to_class_2}},
  });
}

TEST_F(Rules, OfAddressesLengthsAndHelpersAreTaken) {
  const auto addresses = [](uint32_t src_start, uint32_t src_end, uint32_t dst_start, uint32_t dst_end) {
    return [=](qos_match &match, qos_target &) {
      match.match_flags = bit(QOS_MATCH_IP);
      match.src_ip_start = src_start;
      match.src_ip_end = src_end;
      match.dst_ip_start = dst_start;
      match.dst_ip_end = dst_end;
    };
  };
  const auto helper = [](uint32_t alg) {
    return [=](qos_match &match, qos_target &) {
      match.match_flags = bit(QOS_MATCH_ALG);
      match.alg = alg;
    };
  };
  expect_all({
      {"source", addresses(0xC0A8010A, 0xC0A80114, 0, 0), {marked("-m iprange --src-range 192.168.1.10-192.168.1.20")}},
      {"destination", addresses(0, 0, 0x0A000001, 0x0A0000FF), {marked("-m iprange --dst-range 10.0.0.1-10.0.0.255")}},
      {"source and destination",
       addresses(0xC0A8010A, 0xC0A8010A, 0x0A000001, 0xFFFFFFFF),
       {marked("-m iprange --src-range 192.168.1.10-192.168.1.10 --dst-range 10.0.0.1-255.255.255.255")}},
      {"length",
       [](qos_match &match, qos_target &) {
         match.match_flags = bit(QOS_MATCH_PKTLEN);
         match.pkt_len = 40u << 16 | 100;
       },
       {marked("-m length --length 40:100")}},
      {"sip", helper(QOS_ALG_SIP), {marked("-m helper --helper sip")}},
      {"h323", helper(QOS_ALG_Q931), {marked("-m helper --helper \"Q.931\"")}},
      {"ftp", helper(QOS_ALG_FTP), {marked("-m helper --helper ftp")}},
  });
}

TEST_F(Rules, OfDscpAreTakenForEveryValueAndClass) {
  for (unsigned value = 0; value < 64; value++) {
    char shown[32];
    snprintf(shown, sizeof(shown), "-m dscp --dscp 0x%02x", value);
    expect({"raw value",
            [=](qos_match &match, qos_target &) {
              match.match_flags = bit(QOS_MATCH_DSCP);
              match.dscp = first_byte(static_cast<uint8_t>(value));
            },
            {marked(shown)}});
  }
  // CS0 to CS7, BE, AF11 to AF43, EF
  const unsigned values[] = {0x00, 0x08, 0x10, 0x18, 0x20, 0x28, 0x30, 0x38, 0x00, 0x0a, 0x0c,
                             0x0e, 0x12, 0x14, 0x16, 0x1a, 0x1c, 0x1e, 0x22, 0x24, 0x26, 0x2e};
  for (uint32_t id = 0; id < 22; id++) {
    char shown[32];
    snprintf(shown, sizeof(shown), "-m dscp --dscp 0x%02x", values[id]);
    expect({"class",
            [=](qos_match &match, qos_target &) {
              match.match_flags = bit(QOS_MATCH_DSCP);
              match.dscp_mode = 1;
              match.dscp = id;
            },
            {marked(shown)}});
  }
}

TEST_F(Rules, WithASchedule) {
  const uint8_t every_day[4] = {1, 0, 0, 8}, all_day[4] = {2, 0, 1, 0}, weekdays[4] = {3, 0x3e, 0, 8};
  for (const uint8_t *sched : {every_day, all_day, weekdays}) {
    ASSERT_EQ(1u, add_sched(sched));
    search_sched(sched[0])->stop_hour = 18;
    search_sched(sched[0])->stop_min = 30;
  }
  const auto scheduled = [](uint8_t index) {
    return [=](qos_match &match, qos_target &) { match.sched_index = index; };
  };
  expect_all({
      {"every day", scheduled(1), {marked("-m time --timestart 08:00:00 --timestop 18:30:00")}},
      {"the whole of every day", scheduled(2), {marked("-m time --timestart 00:00:00 --timestop 23:59:00")}},
      {"weekdays", scheduled(3), {}, "option \"--days\""},
  });
}

TEST_F(Rules, OfTargets) {
  const auto dscp = [](uint32_t mode, uint32_t value) {
    return [=](qos_match &, qos_target &target) {
      target.target_flags = bit(QOS_TARGET_DSCP);
      target.set_mode = mode;
      target.set_value = value;
    };
  };
  expect_all({
      {"raw dscp", dscp(0, first_byte(46)), {"-j DSCP --set-dscp 0x2e"}},
      {"dscp and mark",
       [=](qos_match &match, qos_target &target) {
         dscp(0, first_byte(10))(match, target);
         target.target_flags |= bit(QOS_TARGET_MARK);
         target.mark = 3;
       },
       {"-j MARK --set-xmark 0x3/0xffffffff", "-j DSCP --set-dscp 0x0a"}},
      {"log makes no command",
       [](qos_match &, qos_target &target) { target.target_flags |= bit(QOS_TARGET_LOG); },
       {to_class_2}},
      {"dscp by class: today --set-dscp-class", dscp(1, 21), {}, "DSCP: bad value for option \"--set-dscp\""},
      {"tos: today without precedence",
       [](qos_match &, qos_target &target) {
         target.target_flags = bit(QOS_TARGET_TOS);
         target.set_mode = 16;
       },
       {},
       "option \"--set-precedence\""},
      {"vlan: the firmware's own",
       [](qos_match &, qos_target &target) {
         target.target_flags = bit(QOS_TARGET_VLAN);
         target.vlan_tag_id = 7;
       },
       {},
       "option \"--set-vlan-id\""},
  });
}

TEST_F(Rules, OfMatchesThatTodaysIptablesRefuses) {
  expect_all({
      {"mac: a chain that the router's own packets pass has none",
       [](qos_match &match, qos_target &) {
         match.match_flags = bit(QOS_MATCH_MAC);
         strcpy(match.src_mac, "02:00:00:00:00:14");
       },
       {},
       "Invalid argument"},
      {"tos: today without precedence",
       [](qos_match &match, qos_target &) {
         match.match_flags = bit(QOS_MATCH_TOS);
         match.tos = 16;
       },
       {},
       "option \"--precedence\""},
      {"vlan: the firmware's own",
       [](qos_match &match, qos_target &) {
         match.match_flags = bit(QOS_MATCH_802_1Q) | bit(QOS_MATCH_802_1P);
         match.vlan_id = 7;
       },
       {},
       "match `VLAN'"},
      {"domain: the firmware's own",
       [](qos_match &match, qos_target &) {
         match.match_flags = bit(QOS_MATCH_DOMAIN);
         strcpy(match.domain, "example.net");
       },
       {},
       "match `domain'"},
      {"url: the firmware's own",
       [](qos_match &match, qos_target &) {
         match.match_flags = bit(QOS_MATCH_URL);
         strcpy(match.url, "ads");
       },
       {},
       "match `urlfilter'"},
  });
}

// Rules that today's iptables refuses are still written as the firmware's own iptables takes them.
TEST_F(Rules, ThatAreRefusedAreWrittenForTheFirmwaresOwn) {
  const uint8_t weekdays[4] = {3, 0x3e, 0, 8};
  ASSERT_EQ(1u, add_sched(weekdays));
  search_sched(3)->stop_hour = 18;
  qos_match match = {};
  match.match_flags = bit(QOS_MATCH_802_1P) | bit(QOS_MATCH_802_1Q) | bit(QOS_MATCH_TOS) | bit(QOS_MATCH_DOMAIN) |
                      bit(QOS_MATCH_URL) | bit(QOS_MATCH_MAC);
  match.prio_1p = 5;
  match.vlan_id = 7;
  match.tos = 16;
  match.precedence = 3;
  match.sched_index = 3;
  strcpy(match.src_mac, "02:00:00:00:00:14");
  strcpy(match.domain, "example.net");
  strcpy(match.url, "ads");
  qos_target target = {};
  target.target_flags = bit(QOS_TARGET_TOS) | bit(QOS_TARGET_VLAN);
  target.set_mode = 8;
  target.set_value = first_byte(4);
  target.vlan_prio = 6;
  target.vlan_tag_id = 100;
  target.vlan_double = 1;
  ASSERT_EQ(1u, add_qos_rule(network::line, 1, &match, &target));
  const sandbox::StandIns tools({"iptables"});
  EXPECT_EQ(1u, restart_rule(network::line));
  const std::string matches =
      "iptables [-t] [mangle] [-A] [QOS_wan0] [-m] [mac] [--mac-source] [02:00:00:00:00:14] [-m] [tos] [--tos] "
      "[Minimize-Delay] [--precedence] [3] [-m] [domain] [--name] [example.net] [-m] [urlfilter] [--url] [ads] [-m] "
      "[VLAN] [--vlan-id] [7] [--vlan-prio] [5] [-m] [time] [--timestart] [8:00] [--timestop] [18:00] [--days] "
      "[Mon,Tue,Wed,Thu,Fri] ";
  std::vector<std::string> rules;
  for (const std::string &call : tools.calls())
    if (call.find("[-m] [mac]") != std::string::npos)
      rules.push_back(call);
  ASSERT_EQ(2u, rules.size());
  EXPECT_EQ(matches + "[-j] [TOS] [--set-tos] [Maximize-Throughput] [--set-precedence] [4]", rules[0]);
  EXPECT_EQ(matches + "[-j] [MKVLAN] [--set-vlan-id] [100] [--set-vlan-prio] [6] [--double]", rules[1]);
}

TEST_F(Rules, OfAutomaticMarksReMarkEachConnectionMark) {
  ASSERT_EQ(0, del_root_qdisc(network::line));
  const root_params_tree root = {3, {1, {2, 3, 2, 3, 0x10, 0xff, 0x100, 0xffff}}};
  ASSERT_EQ(0, add_root_qdisc(network::speeds, network::line, QOS_ROOT_HTB, &root));
  EXPECT_EQ("", start());
  const char *marks[] = {"0x2", "0x3", "0x2", "0x3", "0x10", "0xff", "0x100", "0xffff"};
  std::string expected = "-N QOS_wan0_AUTO\n";
  for (int i = 0; i < 8; i++) {
    char line[128];
    snprintf(line, sizeof(line), "-A QOS_wan0_AUTO -m connmark --mark 0x%x -j MARK --set-xmark %s/0xffffffff\n",
             100 * (i + 1), marks[i]);
    expected += line;
  }
  EXPECT_EQ(expected, network::must("iptables -t mangle -S QOS_wan0_AUTO"));
}

} // namespace
