// What the rules, their scripts and their report share.
#pragma once

#include <stddef.h>
#include <string.h>

#include "base/map_table.h"
#include "base/records.h"
#include "torvane/list.h"
#include "torvane/map.h"
#include "torvane/rules.h"

constexpr char trace_module[] = "quorra_iptables";

namespace torvane {

constexpr size_t sched_text_size = 128; // holds every schedule's options, terminator included
constexpr size_t flag_text_size = 32;

inline auto rules_of(list_node *head) {
  return Records<qos_rule, offsetof(qos_rule, node)>(head);
}

inline auto schedules() {
  return Records<qos_sched, offsetof(qos_sched, node)>(&sched_root);
}

inline bool has_bit(uint32_t flags, unsigned bit) {
  return (flags >> bit & 1) != 0;
}

// Precedences and raw DSCP values are one byte at the start of a 32-bit field, on every byte order.
inline unsigned first_byte(const uint32_t &field) {
  unsigned char byte;
  memcpy(&byte, &field, 1);
  return byte;
}

inline unsigned octet(uint32_t address, unsigned index) {
  return address >> (24 - 8 * index) & 0xff;
}

// The four octets of an address as printf takes them for "%u.%u.%u.%u".
#define TORVANE_OCTETS(address) \
  torvane::octet(address, 0), torvane::octet(address, 1), torvane::octet(address, 2), torvane::octet(address, 3)

extern const txt_map_entry dscp_names[];
extern const txt_map_entry tos_names[];
extern const txt_map_entry helper_names[];

} // namespace torvane
