// Keeps the classification rules of interfaces in memory.
#include <stdlib.h>
#include <string.h>

#include "base/owners.h"
#include "base/trace.h"
#include "iptables/iptables.h"
#include "torvane/list.h"
#include "torvane/qos.h"
#include "torvane/rules.h"

using namespace torvane;

namespace {

constexpr const char *trace_module = "quorra_iptables";

// Programs and this library copy these blocks byte for byte, so their sizes are the interface.
static_assert(sizeof(qos_match) == 600 && sizeof(qos_target) == 24);
static_assert(offsetof(qos_match, src_ip_start) == 28 && offsetof(qos_match, protocol) == 60 &&
              offsetof(qos_match, pkt_len) == 76 && offsetof(qos_match, url) == 84 &&
              offsetof(qos_match, sched_index) == 596 && offsetof(qos_target, log) == 22);
static_assert(sizeof(void *) != 4 || (sizeof(qos_rule) == 636 && sizeof(qos_sched) == 16));

// A mark wider than a class id names no class, whatever its lower half says.
bool is_markable_class(const char *ifname, uint32_t mark) {
  return mark <= UINT16_MAX && check_Key(ifname, static_cast<uint16_t>(mark));
}

} // namespace

extern "C" {

// This is meant: functions of rules return 1 for success, because programs test their results as truth values. The
// texts of their traces are spelled as users know them.

uint32_t add_qos_rule(const char *ifname, uint8_t index, const void *match, const void *target) {
  list_node *rules = find_rule_list_by_name(ifname);
  if (!rules) {
    TRACE("QoS tree not found!!\n");
    return 0;
  }

  list_node *successor = rules;
  for (qos_rule &other : rules_of(rules)) {
    if (other.index == index) {
      TRACE("Index already exist!!\n");
      return 0;
    }
    if (other.index > index) {
      successor = &other.node;
      break;
    }
  }

  if (!target)
    return 0;
  qos_target wanted;
  memcpy(&wanted, target, sizeof(wanted));
  if (has_bit(wanted.target_flags, QOS_TARGET_MARK) && !is_markable_class(ifname, wanted.mark)) {
    TRACE("Mark key not found!!\n");
    return 0;
  }

  HeapBlock<qos_rule> rule(allocate_zeroed<qos_rule>());
  if (!rule) {
    TRACE("Memory allocate fail!!\n");
    return 0;
  }
  if (!match)
    return 0;
  rule->index = index;
  memcpy(&rule->match, match, sizeof(rule->match));
  rule->target = wanted;
  list_add(&rule->node, successor->prev, successor);
  rule.release();
  return 1;
}

uint32_t modify_qos_rule(const char *ifname, uint8_t index, const void *match, const void *target) {
  return del_qos_rule(ifname, index) ? add_qos_rule(ifname, index, match, target) : 0;
}

uint32_t del_qos_rule(const char *ifname, uint8_t index) {
  list_node *rules = find_rule_list_by_name(ifname);
  if (!rules) {
    TRACE("QoS tree not found!!\n");
    return 0;
  }
  for (qos_rule &rule : rules_of(rules)) {
    if (rule.index == index) {
      list_del(&rule.node);
      free(&rule);
      return 1;
    }
  }
  return 0;
}

} // extern "C"
