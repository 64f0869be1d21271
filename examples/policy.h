// A policy holds the contents of a policy file, checked, in the records that the library takes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <torvane/qos.h>
#include <torvane/rules.h>

// A mistake in a policy file is shown as "file:line: text".
struct Mistake {
  unsigned line;
  std::string text;
};

struct PolicyClass {
  uint16_t parent = 0;
  uint16_t id = 0;
  htb_params htb = {};   // used in an HTB tree
  hfsc_params hfsc = {}; // used in an HFSC tree
  bool has_leaf = false;
  leaf_qdisc leaf = {};
};

struct PolicyRule {
  uint8_t index = 0;
  std::string name; // only shown to users; may be empty
  qos_match match = {};
  qos_target target = {};
};

struct Policy {
  std::string interface;
  uint32_t speeds[4] = {}; // in the order of add_root_qdisc
  uint32_t root_kind = 0;  // QOS_ROOT_*; it says which of the three parameter blocks is filled in
  root_params_pfifo pfifo = {};
  root_params_tree tree = {};
  root_params_prio prio = {};
  std::vector<uint16_t> dropped_classes;
  std::vector<PolicyClass> classes; // parents stand before children; a PRIO tree has only its bands with a leaf here
  std::vector<qos_sched> schedules; // their list nodes are not used
  std::vector<PolicyRule> rules;
};

// Reads and checks a policy file, and appends its mistakes to `mistakes` in the order of their lines. If there are any,
// the policy must not be used. Nothing outside the process changes.
Policy read_policy(const std::string &path, std::vector<Mistake> &mistakes);
