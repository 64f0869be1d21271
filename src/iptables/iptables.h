// Holds what the rules, their scripts and their report share.
#pragma once

#include <stddef.h>
#include <string.h>

#include "base/map_table.h"
#include "base/records.h"
#include "base/text_writer.h"
#include "torvane/list.h"
#include "torvane/map.h"
#include "torvane/rules.h"

namespace torvane {

constexpr size_t sched_text_size = 128; // bytes: room for the options of every schedule and the terminator
constexpr size_t flag_text_size = 32;   // bytes of a text of tcp_flag_text

inline auto rules_of(list_node *head) {
  return Records<qos_rule, offsetof(qos_rule, node)>(head);
}

inline auto schedules() {
  return Records<qos_sched, offsetof(qos_sched, node)>(&sched_root);
}

inline bool has_bit(uint32_t flags, unsigned bit) {
  return (flags >> bit & 1) != 0;
}

// This is meant: precedences and raw DSCP values are the first byte of a 32-bit field in memory, in every byte order.
inline unsigned first_byte(const uint32_t &field) {
  unsigned char byte;
  memcpy(&byte, &field, 1);
  return byte;
}

// Returns an octet of an address; 0 is the leftmost.
inline unsigned octet(uint32_t address, unsigned index) {
  return address >> (24 - 8 * index) & 0xff;
}

// Stands for the four octets of an address, as printf takes them for "%u.%u.%u.%u".
#define TORVANE_OCTETS(address) \
  torvane::octet(address, 0), torvane::octet(address, 1), torvane::octet(address, 2), torvane::octet(address, 3)

extern const txt_map_entry dscp_names[];
extern const txt_map_entry tos_names[];
extern const txt_map_entry helper_names[];

// Appends the name of every set bit among the first `count`. This is meant: a comma follows each, the last one too.
void append_names(TextWriter &text, const txt_map_entry *names, unsigned count, uint32_t bits);

} // namespace torvane
