// A home router's QoS policy: what a policy file says, checked, in the records that the library takes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <torvane/qos.h>
#include <torvane/rules.h>

// Something wrong in a policy file, to be shown as "file:line: text".
struct Mistake {
  unsigned line;
  std::string text;
};

struct PolicyClass {
  uint16_t parent = 0;
  uint16_t id = 0;
  htb_params htb = {};   // of an HTB tree
  hfsc_params hfsc = {}; // of an HFSC tree
  bool has_leaf = false;
  leaf_qdisc leaf = {};
};

struct PolicyRule {
  uint8_t index = 0;
  std::string name; // for people; may be empty
  qos_match match = {};
  qos_target target = {};
};

struct Policy {
  std::string interface;
  uint32_t speeds[4] = {}; // as add_root_qdisc takes them
  uint32_t root_kind = 0;  // QOS_ROOT_*; the one of the following that belongs to it is filled in
  root_params_pfifo pfifo = {};
  root_params_tree tree = {};
  root_params_prio prio = {};
  std::vector<uint16_t> dropped_classes;
  std::vector<PolicyClass> classes; // parents before children; of a PRIO tree those bands that have a leaf
  std::vector<qos_sched> schedules; // list nodes unused
  std::vector<PolicyRule> rules;
};

// Reads and checks a policy file. What is wrong with it is in `mistakes`, by line; when that is not empty the policy is
// not to be used. Nothing outside the process is touched.
Policy read_policy(const std::string &path, std::vector<Mistake> &mistakes);
