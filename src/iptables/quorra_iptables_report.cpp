// Reports an interface's rules on the console. Every line is a trace of its own.
#include "base/trace.h"
#include "iptables/iptables.h"
#include "torvane/list.h"
#include "torvane/map.h"
#include "torvane/qos.h"
#include "torvane/rules.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_iptables";

// These are the names that the console shows for the parts of the report.
constexpr char rule_part[] = "show_rule";
constexpr char match_part[] = "show_match";
constexpr char target_part[] = "show_target";

void report_protocol(const qos_match &match) {
  switch (match.protocol) {
    case QOS_PROTO_TCP: {
      char mask[flag_text_size], set[flag_text_size];
      tcp_flag_text(mask, match.tcp_flag_mask);
      tcp_flag_text(set, match.tcp_flag_set);
      // This is meant: a blank precedes the newline.
      TRACE_AS(match_part, "TCP Port/flag:    src:%u~%u dst:%u~%u %s %s \n", match.sport_min, match.sport_max,
               match.dport_min, match.dport_max, mask, set);
      break;
    }
    case QOS_PROTO_UDP:
      TRACE_AS(match_part, "UDP Port:         src:%u~%u dst:%u~%u\n", match.sport_min, match.sport_max, match.dport_min,
               match.dport_max);
      break;
    case QOS_PROTO_ICMP:
      TRACE_AS(match_part, "ICMP:\n");
      break;
    case QOS_PROTO_BOTH:
      TRACE_AS(match_part, "Both Port:        src:%u~%u dst:%u~%u\n", match.sport_min, match.sport_max, match.dport_min,
               match.dport_max);
      break;
    case QOS_PROTO_ALL:
      TRACE_AS(match_part, "ALL:\n");
      break;
    default:
      break;
  }
}

void report_match(const qos_match &match, unsigned bit) {
  switch (bit) {
    case QOS_MATCH_802_1P:
      TRACE_AS(match_part, "802.1p priority:  %d\n", match.prio_1p);
      break;
    case QOS_MATCH_802_1Q:
      TRACE_AS(match_part, "802.1q vlanid:    %d\n", match.vlan_id);
      break;
    case QOS_MATCH_MAC:
      TRACE_AS(match_part, "src MAC Addr:     %.*s\n", static_cast<int>(sizeof(match.src_mac)), match.src_mac);
      break;
    case QOS_MATCH_IP:
      TRACE_AS(match_part, "ip range src/dst: %u.%u.%u.%u~%u.%u.%u.%u / %u.%u.%u.%u~%u.%u.%u.%u\n",
               TORVANE_OCTETS(match.src_ip_start), TORVANE_OCTETS(match.src_ip_end), TORVANE_OCTETS(match.dst_ip_start),
               TORVANE_OCTETS(match.dst_ip_end));
      break;
    case QOS_MATCH_DSCP:
      if (match.dscp_mode == 0)
        TRACE_AS(match_part, "DSCP:             0x%x\n", first_byte(match.dscp));
      else if (match.dscp_mode == 1)
        TRACE_AS(match_part, "DSCP:             %s\n", TxtMapById(dscp_names, match.dscp));
      break;
    case QOS_MATCH_TOS:
      TRACE_AS(match_part, "Precedence/TOS:   0x%x/%s\n", match.precedence, TxtMapById(tos_names, match.tos));
      break;
    case QOS_MATCH_ALG:
      TRACE_AS(match_part, "Match ALG:        %s\n", TxtMapById(helper_names, match.alg));
      break;
    case QOS_MATCH_PKTLEN:
      TRACE_AS(match_part, "Packet length:    %u~%u\n", match.pkt_len >> 16, match.pkt_len & 0xffff);
      break;
    case QOS_MATCH_PROTOCOL:
      report_protocol(match);
      break;
    case QOS_MATCH_DOMAIN:
      TRACE_AS(match_part, "Domain String:    %.*s\n", static_cast<int>(sizeof(match.domain)), match.domain);
      break;
    default:
      TRACE_AS(match_part, "URL String:       %.*s\n", static_cast<int>(sizeof(match.url)), match.url);
      break;
  }
}

void report_target(const qos_target &target, unsigned bit) {
  switch (bit) {
    case QOS_TARGET_MARK:
      TRACE_AS(target_part, "Set Mark:         %d\n", static_cast<int>(target.mark));
      break;
    case QOS_TARGET_TOS:
      TRACE_AS(target_part, "Precedence/TOS:   0x%x/%s\n", first_byte(target.set_value),
               TxtMapById(tos_names, target.set_mode));
      break;
    case QOS_TARGET_DSCP:
      if (target.set_mode == 0)
        TRACE_AS(target_part, "DSCP:             0x%x\n", first_byte(target.set_value));
      else if (target.set_mode == 1)
        TRACE_AS(target_part, "DSCP:             %s\n", TxtMapById(dscp_names, target.set_value));
      break;
    default:
      TRACE_AS(target_part, "Vlan Tag 1p/q:    %d/%d\n", target.vlan_prio, target.vlan_tag_id);
      break;
  }
}

void report_rule(const qos_rule &rule) {
  TRACE_AS(rule_part, "Qos Rule%3d:\n", rule.index);
  TRACE_AS(match_part, "===============MATCH===============\n");
  for (unsigned bit = QOS_MATCH_802_1P; bit <= QOS_MATCH_URL; bit++)
    if (has_bit(rule.match.match_flags, bit))
      report_match(rule.match, bit);

  char schedule[sched_text_size];
  if (rule.match.sched_index != 0 && get_sched_str(rule.match.sched_index, schedule, sizeof(schedule) - 1))
    TRACE_AS(match_part, "Time String:      %s\n", schedule);

  TRACE_AS(target_part, "===============TARGET==============\n");
  for (unsigned bit = QOS_TARGET_MARK; bit <= QOS_TARGET_VLAN; bit++)
    if (has_bit(rule.target.target_flags, bit))
      report_target(rule.target, bit);
  // This is meant: the byte decides and not the bit QOS_TARGET_LOG, and no command logs for either.
  if (rule.target.log != 0)
    TRACE_AS(target_part, "Log:              Yes\n");
}

} // namespace

extern "C" void show_rule(const char *ifname) {
  list_node *rules = find_rule_list_by_name(ifname);
  if (!rules) {
    TRACE("QoS tree not found, no rule found!!\n");
    return;
  }
  for (const qos_rule &rule : rules_of(rules))
    report_rule(rule);
}
