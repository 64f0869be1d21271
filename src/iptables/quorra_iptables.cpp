// Classification rules and their schedules, in memory.
#include "iptables/iptables.h"

#include <stdlib.h>

#include "base/text_writer.h"
#include "base/trace.h"
#include "torvane/list.h"
#include "torvane/map.h"
#include "torvane/qos.h"
#include "torvane/rules.h"

using torvane::has_bit;
using torvane::rules_of;
using torvane::schedules;
using torvane::TextWriter;

namespace torvane {

extern const txt_map_entry dscp_names[] = {
    {0, "CS0"},   {1, "CS1"},   {2, "CS2"},   {3, "CS3"},   {4, "CS4"},   {5, "CS5"},   {6, "CS6"},   {7, "CS7"},
    {8, "BE"},    {9, "AF11"},  {10, "AF12"}, {11, "AF13"}, {12, "AF21"}, {13, "AF22"}, {14, "AF23"}, {15, "AF31"},
    {16, "AF32"}, {17, "AF33"}, {18, "AF41"}, {19, "AF42"}, {20, "AF43"}, {21, "EF"},   unknown_row};

extern const txt_map_entry tos_names[] = {{16, "Minimize-Delay"},      {8, "Maximize-Throughput"},
                                          {4, "Maximize-Reliability"}, {2, "Minimize-Cost"},
                                          {0, "Normal-Service"},       unknown_row};

extern const txt_map_entry helper_names[] = {
    {QOS_ALG_SIP, "sip"}, {QOS_ALG_Q931, "Q.931"}, {QOS_ALG_FTP, "ftp"}, unknown_row};

} // namespace torvane

namespace {

// Blocks are copied byte for byte between programs and this library: their sizes are the interface.
static_assert(sizeof(qos_match) == 600 && sizeof(qos_target) == 24);
static_assert(offsetof(qos_match, src_ip_start) == 28 && offsetof(qos_match, protocol) == 60 &&
              offsetof(qos_match, pkt_len) == 76 && offsetof(qos_match, url) == 84 &&
              offsetof(qos_match, sched_index) == 596 && offsetof(qos_target, log) == 22);
static_assert(sizeof(void *) != 4 || (sizeof(qos_rule) == 636 && sizeof(qos_sched) == 16));

constexpr txt_map_entry tcp_flag_names[] = {{QOS_TCP_SYN, "SYN"}, {QOS_TCP_ACK, "ACK"}, {QOS_TCP_FIN, "FIN"},
                                            {QOS_TCP_RST, "RST"}, {QOS_TCP_URG, "URG"}, {QOS_TCP_PSH, "PSH"},
                                            torvane::unknown_row};

constexpr txt_map_entry day_names[] = {{0, "Sun"}, {1, "Mon"}, {2, "Tue"}, {3, "Wed"},
                                       {4, "Thu"}, {5, "Fri"}, {6, "Sat"}, torvane::unknown_row};

// The name of every set bit among the first `count`, each with a comma after it.
void append_names(TextWriter &text, const txt_map_entry *names, unsigned count, uint32_t bits) {
  for (unsigned bit = 0; bit < count; bit++)
    if (has_bit(bits, bit))
      text.append("%s,", TxtMapById(names, bit));
}

// A mark wider than a class id names no class, whatever its lower half says.
bool is_markable_class(const char *ifname, uint32_t mark) {
  return mark <= UINT16_MAX && check_Key(ifname, static_cast<uint16_t>(mark));
}

} // namespace

extern "C" {

list_node sched_root = {&sched_root, &sched_root};

uint32_t add_qos_rule(const char *ifname, uint8_t index, const void *match, const void *target) {
  if (!match || !target)
    return 0;
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

  qos_target wanted;
  memcpy(&wanted, target, sizeof(wanted));
  if (has_bit(wanted.target_flags, QOS_TARGET_MARK) && !is_markable_class(ifname, wanted.mark)) {
    TRACE("Mark key not found!!\n");
    return 0;
  }

  auto *rule = static_cast<qos_rule *>(calloc(1, sizeof(qos_rule)));
  if (!rule) {
    TRACE("Memory allocate fail!!\n");
    return 0;
  }
  rule->index = index;
  memcpy(&rule->match, match, sizeof(rule->match));
  rule->target = wanted;
  list_add(&rule->node, successor->prev, successor);
  return 1;
}

uint32_t modify_qos_rule(const char *ifname, uint8_t index, const void *match, const void *target) {
  if (!match || !target)
    return 0;
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

uint32_t add_sched(const uint8_t *sched) {
  if (!sched || sched[0] == 0)
    return 0;
  auto *record = static_cast<qos_sched *>(calloc(1, sizeof(qos_sched)));
  if (!record)
    return 0;
  record->index = sched[0];
  record->days = sched[1];
  record->all_day = sched[2];
  record->start_hour = sched[3];
  list_add_tail(&record->node, &sched_root);
  return 1;
}

qos_sched *search_sched(uint8_t index) {
  if (index == 0)
    return nullptr;
  for (qos_sched &sched : schedules())
    if (sched.index == index)
      return &sched;
  return nullptr;
}

uint32_t del_sched(uint8_t index) {
  qos_sched *sched = search_sched(index);
  if (!sched)
    return 0;
  list_del(&sched->node);
  free(sched);
  return 1;
}

uint32_t del_all_sched(void) {
  for (qos_sched &sched : schedules()) {
    list_del(&sched.node);
    free(&sched);
  }
  return 1;
}

uint32_t get_sched_str(uint8_t index, char *dst, uint32_t size) {
  char buffer[torvane::sched_text_size];
  TextWriter text(buffer);
  if (const qos_sched *sched = search_sched(index)) {
    text.append("-m time ");
    if (sched->all_day == 1)
      text.append("--timestart 00:00 --timestop 23:59 ");
    else
      text.append("--timestart %d:%02d --timestop %d:%02d ", sched->start_hour, sched->start_min, sched->stop_hour,
                  sched->stop_min);
    const unsigned days = sched->days & 0x7fu;
    if (days != 0) {
      text.append("--days ");
      append_names(text, day_names, 7, days);
      buffer[text.length() - 1] = ' ';
    }
  }
  if (text.length() == 0 || text.length() > size || !dst) {
    TRACE("schedule index not found!!\n");
    return 0;
  }
  memcpy(dst, buffer, text.length() + 1);
  return 1;
}

void tcp_flag_text(char out[32], uint8_t flags) {
  if (!out)
    return;
  memset(out, 0, torvane::flag_text_size);
  TextWriter text(out, torvane::flag_text_size);
  append_names(text, tcp_flag_names, 6, flags);
}

} // extern "C"
