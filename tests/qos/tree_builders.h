// Functions that build trees and describe them, and a fixture that leaves none behind.
#pragma once

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "support/sandbox.h"
#include "torvane.h"

namespace trees {

using Messages = std::vector<std::string>;

inline constexpr uint32_t speeds[4] = {20000, 30000, 100000, 200000}; // link pair, then physical pair, kbit/s
inline constexpr automark no_marks = {};
inline constexpr automark eight_marks = {1, {2, 3, 0xff, 0, 5, 0xffff, 7, 8}};

// Returns a copy on the heap without a byte to spare, so that a sanitizer sees a read past its end.
template <typename Block>
std::unique_ptr<Block> exact(const Block &block) {
  return std::make_unique<Block>(block);
}

inline int add_pfifo_fast(const char *ifname, uint32_t txqueuelen = 1000) {
  return add_root_qdisc(speeds, ifname, QOS_ROOT_PFIFO_FAST, exact(root_params_pfifo{txqueuelen}).get());
}

inline int add_htb(const char *ifname, uint16_t default_class = 3, const automark &marks = no_marks) {
  return add_root_qdisc(speeds, ifname, QOS_ROOT_HTB, exact(root_params_tree{default_class, marks}).get());
}

inline int add_hfsc(const char *ifname, uint16_t default_class = 3, const automark &marks = no_marks) {
  return add_root_qdisc(speeds, ifname, QOS_ROOT_HFSC, exact(root_params_tree{default_class, marks}).get());
}

inline int add_prio(const char *ifname, uint8_t bands = 3, const automark &marks = no_marks) {
  const root_params_prio params = {bands, {1, 2, 2, 2, 1, 2, 0, 0, 1, 1, 1, 1, 1, 1, 1, 255}, marks};
  return add_root_qdisc(speeds, ifname, QOS_ROOT_PRIO, exact(params).get());
}

inline int add_any(const char *ifname, uint32_t type) {
  switch (type) {
    case QOS_ROOT_PFIFO_FAST:
      return add_pfifo_fast(ifname);
    case QOS_ROOT_HTB:
      return add_htb(ifname);
    case QOS_ROOT_HFSC:
      return add_hfsc(ifname);
    default:
      return add_prio(ifname);
  }
}

// Adds an HTB tree without its default classes.
inline void add_bare_htb(const char *ifname) {
  add_htb(ifname);
  del_class(ifname, 1);
}

inline void add_bare_hfsc(const char *ifname) {
  add_hfsc(ifname);
  del_class(ifname, 1);
}

inline int add_htb_class(const char *ifname, uint16_t parent, uint16_t id, const htb_params &params = {1, 2, 3, 4, 5}) {
  return add_class(ifname, parent, id, exact(params).get());
}

inline leaf_qdisc pfifo(uint32_t limit) {
  leaf_qdisc leaf = {};
  leaf.type = QOS_LEAF_PFIFO;
  leaf.params.pfifo.limit = limit;
  return leaf;
}

inline leaf_qdisc sfq(uint8_t perturb) {
  leaf_qdisc leaf = {};
  leaf.type = QOS_LEAF_SFQ;
  leaf.params.sfq.perturb = perturb;
  return leaf;
}

inline leaf_qdisc red(uint32_t min, uint32_t max, uint32_t burst, uint32_t limit, uint32_t avpkt) {
  leaf_qdisc leaf = {};
  leaf.type = QOS_LEAF_RED;
  leaf.params.red = {min, max, burst, limit, avpkt};
  return leaf;
}

inline leaf_qdisc tbf(uint32_t latency, uint32_t rate, uint32_t burst) {
  leaf_qdisc leaf = {};
  leaf.type = QOS_LEAF_TBF;
  leaf.params.tbf = {latency, rate, burst};
  return leaf;
}

inline root_qdisc *root_of(list_node *node) {
  return reinterpret_cast<root_qdisc *>(reinterpret_cast<char *>(node) - offsetof(root_qdisc, node));
}

inline qos_class *class_of(list_node *node) {
  return reinterpret_cast<qos_class *>(reinterpret_cast<char *>(node) - offsetof(qos_class, node));
}

inline qos_rule *rule_of(list_node *node) {
  return reinterpret_cast<qos_rule *>(reinterpret_cast<char *>(node) - offsetof(qos_rule, node));
}

inline std::string bytes_of(const void *block, size_t size) {
  return std::string(static_cast<const char *>(block), size);
}

// Describes the classes below a list head by their ids: "1(2~10,3)" has children in parentheses, and ~ before the
// seconds of an SFQ leaf.
inline std::string shape(const list_node *head) {
  std::string text;
  for (list_node *node = head->next; node != head; node = node->next) {
    EXPECT_EQ(node, node->prev->next);
    EXPECT_EQ(node, node->next->prev);
    const qos_class *tc_class = class_of(node);
    text += (text.empty() ? "" : ",") + std::to_string(tc_class->id);
    if (tc_class->children.next != &tc_class->children)
      text += "(" + shape(&tc_class->children) + ")";
    else if (tc_class->leaf.type == QOS_LEAF_SFQ)
      text += "~" + std::to_string(tc_class->leaf.params.sfq.perturb);
  }
  return text;
}

// Describes the classes of an interface's tree; "none" if there is no such tree.
inline std::string shape(const char *ifname) {
  for (list_node *node = qos_root.next; node != &qos_root; node = node->next)
    if (strcmp(root_of(node)->ifname, ifname) == 0)
      return shape(&root_of(node)->classes);
  return "none";
}

// Returns the names on qos_root: "eth1 eth2 ".
inline std::string interfaces() {
  std::string text;
  for (list_node *node = qos_root.next; node != &qos_root; node = node->next)
    text += std::string(root_of(node)->ifname) + " ";
  return text;
}

inline void delete_all() {
  while (qos_root.next != &qos_root) {
    root_qdisc *root = root_of(qos_root.next);
    while (root->rules.next != &root->rules)
      del_qos_rule(root->ifname, rule_of(root->rules.next)->index);
    ASSERT_EQ(0, del_root_qdisc(root->ifname));
  }
}

inline size_t count(const std::string &text, const std::string &part) {
  size_t found = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
    found++;
  return found;
}

class Test : public testing::Test {
 protected:
  void SetUp() override {
    sandbox::clear_console();
  }
  void TearDown() override {
    sandbox::fail_allocation(0);
    delete_all();
    del_all_sched();
    for (const char *script : {"/var/tmp/qos_start", "/var/tmp/qos_stop"})
      if (unlink(script) != 0)
        rmdir(script);
  }
};

} // namespace trees
