// Trees, rules and schedules as the rule tests need them, and a look at what the library made of them.
#pragma once

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/sandbox.h"
#include "torvane.h"

namespace rules {

using Lines = std::vector<std::string>;

// The names of the ids from 0; the last one stands for every other id.
inline constexpr const char *dscp_classes[] = {"CS0",  "CS1",  "CS2",  "CS3",  "CS4",  "CS5",  "CS6",    "CS7",
                                               "BE",   "AF11", "AF12", "AF13", "AF21", "AF22", "AF23",   "AF31",
                                               "AF32", "AF33", "AF41", "AF42", "AF43", "EF",   "Unknown"};

template <typename... Bit>
constexpr uint32_t bits(Bit... bit) {
  return (0u | ... | (1u << bit));
}

inline qos_rule make_rule(uint32_t match_flags, uint32_t target_flags) {
  qos_rule rule = {};
  rule.match.match_flags = match_flags;
  rule.target.target_flags = target_flags;
  return rule;
}

// Copies protocol, ports and TCP flags from a row of a table of cases.
template <typename Row>
void put_protocol(qos_match &match, const Row &row) {
  match.protocol = row.protocol;
  match.sport_min = row.sport_min;
  match.sport_max = row.sport_max;
  match.dport_min = row.dport_min;
  match.dport_max = row.dport_max;
  match.tcp_flag_mask = row.mask;
  match.tcp_flag_set = row.set;
}

// Returns a rule that marks for leaf class 2.
inline qos_rule marking_rule(uint32_t match_flags = 0) {
  qos_rule rule = make_rule(match_flags, bits(QOS_TARGET_MARK));
  rule.target.mark = 2;
  return rule;
}

// Stores a text; one that fills its field gets no terminator.
template <size_t Size>
void put(char (&field)[Size], const std::string &text) {
  memcpy(field, text.c_str(), text.size() < Size ? text.size() + 1 : Size);
}

// Stores a value as the first byte in memory; the other three hold something else.
inline void put_first_byte(uint32_t &field, uint8_t value) {
  memset(&field, 0xEE, sizeof(field));
  memcpy(&field, &value, 1);
}

inline automark make_automark(uint8_t enable) {
  return {enable, {10, 11, 2, 3, 0, 255, 256, 65535}};
}

inline uint32_t add_sched_of(uint8_t index, uint8_t days = 0, uint8_t all_day = 1, uint8_t start_hour = 0) {
  const uint8_t sched[4] = {index, days, all_day, start_hour};
  return add_sched(sched);
}

// Returns "module function: message" of every trace since the last call, and expects each to have the long header of
// the first thread.
inline Lines traced() {
  Lines lines;
  for (const sandbox::Trace &trace : sandbox::console()) {
    EXPECT_TRUE(trace.has_process) << trace.message;
    EXPECT_EQ(getpid(), trace.process);
    EXPECT_EQ(getpid(), trace.thread); // the first thread has the process's number
    EXPECT_GT(trace.line, 0);
    lines.push_back(trace.file + " " + trace.func + ": " + trace.message);
  }
  sandbox::clear_console();
  return lines;
}

inline std::string drawn(qos_rule rule, const char *chain = "CHAIN") {
  return sandbox::written([&](FILE *out) { draw_rule(out, &rule, chain); });
}

// Every test starts with an empty console and leaves no tree, rule or schedule behind.
class World : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }

  void TearDown() override {
    for (const std::string &name : trees_) {
      if (!find_rule_list_by_name(name.c_str()))
        continue;
      for (unsigned index = 0; index <= UINT8_MAX; index++)
        del_qos_rule(name.c_str(), static_cast<uint8_t>(index));
      del_root_qdisc(name.c_str());
    }
    del_all_sched();
  }

  // HTB and HFSC trees have the leaf classes 2 and 3 below class 1, a PRIO tree gets three bands.
  void add_tree(const char *name, uint32_t type = QOS_ROOT_HTB, const automark &marks = make_automark(0)) {
    const uint32_t speeds[4] = {20000, 20000, 100000, 100000};
    root_params_prio prio = {3, {}, marks};
    root_params_tree tree = {3, marks};
    root_params_pfifo pfifo = {1000};
    const void *params = type == QOS_ROOT_PRIO         ? static_cast<const void *>(&prio)
                         : type == QOS_ROOT_PFIFO_FAST ? static_cast<const void *>(&pfifo)
                                                       : static_cast<const void *>(&tree);
    ASSERT_EQ(0, add_root_qdisc(speeds, name, type, params));
    trees_.push_back(name);
  }

  static uint32_t add(unsigned index, const qos_rule &rule, const char *ifname = "eth1") {
    return add_qos_rule(ifname, static_cast<uint8_t>(index), &rule.match, &rule.target);
  }

  static std::vector<qos_rule *> records(const char *ifname = "eth1") {
    std::vector<qos_rule *> found;
    list_node *head = find_rule_list_by_name(ifname);
    for (list_node *node = head->next; node != head; node = node->next) {
      EXPECT_EQ(node, node->next->prev);
      found.push_back(reinterpret_cast<qos_rule *>(reinterpret_cast<char *>(node) - offsetof(qos_rule, node)));
    }
    return found;
  }

  static std::vector<int> indexes(const char *ifname = "eth1") {
    std::vector<int> found;
    for (const qos_rule *rule : records(ifname))
      found.push_back(rule->index);
    return found;
  }

  // Adds a schedule from 8:00 to 18:30 on the given days.
  static qos_sched *add_office_hours(uint8_t index, uint8_t days) {
    EXPECT_EQ(1u, add_sched_of(index, days, 0, 8));
    qos_sched *record = search_sched(index);
    record->stop_hour = 18;
    record->stop_min = 30;
    return record;
  }

 private:
  std::vector<std::string> trees_;
};

} // namespace rules
