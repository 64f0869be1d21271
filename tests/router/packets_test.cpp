// Real packets from a LAN host through the router to hosts behind its line: each is counted by its rule and leaves by
// its class.
#include "router/network.h"

namespace {

using network::add_marking_rule;
using network::Datagrams;

class Packets : public network::Whole {
 protected:
  // The tree has the leaves 2 and 3, like every tree, and 0x10, 0x20, 0x30 of equal shape. 3 takes what has no mark.
  void SetUp() override {
    Whole::SetUp();
    if (IsSkipped())
      return;
    make_tree({});
  }

  static void make_tree(const automark &marks) {
    const root_params_tree root = {3, marks};
    const htb_params shape = {1000, 8000, 0, 0, 1};
    ASSERT_EQ(0, add_root_qdisc(network::speeds, network::line, QOS_ROOT_HTB, &root));
    for (const uint16_t id : std::initializer_list<uint16_t>{0x10, 0x20, 0x30})
      ASSERT_EQ(0, add_class(network::line, 1, id, &shape));
  }

  static uint64_t sent_by(unsigned id) {
    return network::class_counters()[id].packets;
  }
};

TEST_F(Packets, AreCountedByTheirRulesAndLeaveByTheirClasses) {
  add_marking_rule(1, 0x10, [](qos_match &match) {
    match.match_flags = 1u << QOS_MATCH_PROTOCOL;
    match.protocol = QOS_PROTO_UDP;
    match.dport_min = match.dport_max = 5060;
  });
  add_marking_rule(2, 0x20, [](qos_match &match) {
    match.match_flags = 1u << QOS_MATCH_DSCP;
    match.dscp_mode = 1;
    match.dscp = 21; // EF
  });
  add_marking_rule(3, 0x30, [](qos_match &match) {
    match.match_flags = 1u << QOS_MATCH_IP;
    match.src_ip_start = 0xC0A80114;                    // 192.168.1.20
    match.src_ip_end = 0xC0A8011D;                      // 192.168.1.29
    match.dst_ip_start = match.dst_ip_end = 0xC6336402; // 198.51.100.2
  });
  add_marking_rule(4, 0x10, [](qos_match &match) {
    match.match_flags = 1u << QOS_MATCH_PKTLEN;
    match.pkt_len = 528u << 16 | 628; // 500 to 600 bytes of payload
  });
  add_marking_rule(5, 2, [](qos_match &match) {
    match.match_flags = 1u << QOS_MATCH_PROTOCOL;
    match.protocol = QOS_PROTO_BOTH;
    match.sport_min = 6881;
    match.sport_max = 6889;
  });
  add_marking_rule(6, 0x20, [](qos_match &match) {
    match.match_flags = 1u << QOS_MATCH_PROTOCOL;
    match.protocol = QOS_PROTO_ICMP;
  });
  ASSERT_EQ("", start());

  Datagrams what;
  what.count = 7;
  what.to_port = 5060;
  send(what); // rule 1
  what.to_port = 9001;
  what.tos = 0xb8;
  what.count = 6;
  send(what); // rule 2
  what.tos = 0;
  what.from = "192.168.1.20";
  what.to = "198.51.100.2";
  what.count = 5;
  send(what); // rule 3
  what.from = "192.168.1.30";
  what.size = 500;
  what.count = 4;
  send(what); // rule 4
  what.size = 100;
  what.from_port = 6885;
  what.count = 3;
  send(what);                                                                   // rule 5, its command for UDP
  network::must("ip netns exec lan ping -q -c 2 -I 192.168.1.30 198.51.100.3"); // rule 6
  what.from_port = 0;
  what.count = 9;
  send(what); // none

  // The hook of the automatic marks comes first, then the rules. Rule 5 is two commands, TCP first.
  EXPECT_EQ((std::vector<uint64_t>{0, 7, 6, 5, 4, 0, 3, 2}), network::rule_counters("QOS_wan0"));
  EXPECT_EQ(7u + 4u, sent_by(0x10));
  EXPECT_EQ(6u + 2u, sent_by(0x20));
  EXPECT_EQ(5u, sent_by(0x30));
  EXPECT_EQ(3u, sent_by(2));
  // The default class also sends the packets by which the router finds its neighbours.
  EXPECT_GE(sent_by(3), 9u);
  EXPECT_LE(sent_by(3), 9u + 4u);
}

TEST_F(Packets, GetTheMarkOfTheLastRuleThatMatches) {
  const auto udp = [](qos_match &match) {
    match.match_flags = 1u << QOS_MATCH_PROTOCOL;
    match.protocol = QOS_PROTO_UDP;
  };
  add_marking_rule(1, 0x10, udp);
  add_marking_rule(2, 0x20, [&](qos_match &match) {
    udp(match);
    match.dport_min = 9000;
    match.dport_max = 9001;
  });
  add_marking_rule(3, 0x30, [&](qos_match &match) {
    udp(match);
    match.dport_min = match.dport_max = 9001;
  });
  ASSERT_EQ("", start());
  Datagrams what;
  for (const uint16_t port : std::initializer_list<uint16_t>{8999, 9000, 9001}) {
    what.to_port = port;
    what.count = port - 8990u; // 9, 10, 11
    send(what);
  }
  EXPECT_EQ(9u, sent_by(0x10));
  EXPECT_EQ(10u, sent_by(0x20));
  EXPECT_EQ(11u, sent_by(0x30));
}

TEST_F(Packets, OfConnectionsWithAConnectionMarkAreReMarked) {
  ASSERT_EQ(0, del_root_qdisc(network::line));
  make_tree({1, {0x10, 0x20, 0x30, 2, 0x10, 0x20, 0x30, 2}});
  ASSERT_EQ("", start());
  // A router's firewall marks connections that it has recognised in this way.
  for (int i = 1; i <= 8; i++)
    network::must("iptables -t mangle -A PREROUTING -p udp --dport " + std::to_string(7000 + i) +
                  " -j CONNMARK --set-mark " + std::to_string(100 * i));
  Datagrams what;
  for (unsigned i = 1; i <= 8; i++) {
    what.to_port = static_cast<uint16_t>(7000 + i);
    what.count = i;
    send(what);
  }
  EXPECT_EQ(1u + 5u, sent_by(0x10));
  EXPECT_EQ(2u + 6u, sent_by(0x20));
  EXPECT_EQ(3u + 7u, sent_by(0x30));
  EXPECT_EQ(4u + 8u, sent_by(2));
  EXPECT_EQ((std::vector<uint64_t>{1, 2, 3, 4, 5, 6, 7, 8}), network::rule_counters("QOS_wan0_AUTO"));
}

TEST_F(Packets, ChangeTheirDscpForTheNextRouter) {
  qos_match match = {};
  qos_target target = {};
  match.match_flags = 1u << QOS_MATCH_PROTOCOL;
  match.protocol = QOS_PROTO_UDP;
  target.target_flags = 1u << QOS_TARGET_DSCP;
  const uint8_t expedited = 46;
  memcpy(&target.set_value, &expedited, 1);
  ASSERT_EQ(1u, add_qos_rule(network::line, 1, &match, &target));
  ASSERT_EQ("", start());
  network::must("ip netns exec far1 iptables -t mangle -A PREROUTING -p udp -m dscp --dscp 46");
  Datagrams what;
  what.count = 5;
  send(what);
  const std::string seen = network::must("ip netns exec far1 iptables -t mangle -nvxL PREROUTING | tail -n 1");
  EXPECT_EQ(5, atoi(seen.c_str())) << seen;
}

// A helper matches only the connections that it expects, which are the data connections of a passive transfer.
TEST_F(Packets, OfAFileTransferAreFoundByItsHelper) {
  add_marking_rule(1, 0x10, [](qos_match &match) {
    match.match_flags = 1u << QOS_MATCH_ALG;
    match.alg = QOS_ALG_FTP;
  });
  ASSERT_EQ("", start());
  network::must("iptables -t raw -A PREROUTING -p tcp --dport 21 -j CT --helper ftp");
  sandbox::write_file("/run/server",
                      "#!/bin/sh\n"
                      "printf '220 ready\\r\\n'\n"
                      "while read line; do\n"
                      "  case $line in\n"
                      "    PASV*) printf '227 Entering Passive Mode (198,51,100,1,7,208)\\r\\n' ;;\n"
                      "    *) printf '200 ok\\r\\n' ;;\n"
                      "  esac\n"
                      "done\n");
  network::must("chmod +x /run/server");
  const std::string talk =
      "ip netns exec far1 nc -l -p 21 -e /run/server & "
      "ip netns exec far1 nc -l -p 2000 >/run/received & "
      "sleep 1; "
      "{ printf 'USER a\\r\\n'; sleep 1; printf 'PASV\\r\\n'; sleep 4; } | ip netns exec lan nc 198.51.100.1 21 "
      ">/run/said & "
      "sleep 3; echo through the helper | ip netns exec lan nc -w 3 198.51.100.1 2000 2>/dev/null; sleep 1; cat "
      "/run/received; "
      "iptables -t raw -F; kill %1 %2 %3 2>/dev/null; true";
  EXPECT_EQ("through the helper\n", network::must(talk));
  const uint64_t counted = network::rule_counters("QOS_wan0").at(1);
  EXPECT_GE(counted, 3u); // SYN, ACK, data
  EXPECT_EQ(counted, sent_by(0x10));
}

} // namespace
