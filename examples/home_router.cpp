// This is a small QoS daemon of a home router: it reads a policy, applies it to an interface, waits, and removes it.
//
//   home_router POLICY           applies the policy, writes the reports to the console, stops on SIGTERM or SIGINT
//   home_router --check POLICY   only reports the mistakes of the policy
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <torvane/qos.h>
#include <torvane/rules.h>

#include "policy.h"

namespace {

bool failed(const char *what) {
  fprintf(stderr, "home_router: %s failed; the console tells more\n", what);
  return false;
}

// Returns the parameter block of the root's kind. The library copies as many bytes as the block of that kind has.
const void *root_params(const Policy &policy) {
  switch (policy.root_kind) {
    case QOS_ROOT_PFIFO_FAST:
      return &policy.pfifo;
    case QOS_ROOT_PRIO:
      return &policy.prio;
    default:
      return &policy.tree;
  }
}

bool build_classes(const Policy &policy) {
  const char *ifname = policy.interface.c_str();
  for (const uint16_t id : policy.dropped_classes) {
    // The class may be gone already: class 1 takes classes 2 and 3 with it.
    if (class_find(ifname, id) && del_class(ifname, id) != 0)
      return failed("del_class");
  }
  for (const PolicyClass &item : policy.classes) {
    // The bands of a PRIO tree exist already and only get leaves.
    if (policy.root_kind == QOS_ROOT_HTB && add_class(ifname, item.parent, item.id, &item.htb) != 0)
      return failed("add_class");
    if (policy.root_kind == QOS_ROOT_HFSC && add_class(ifname, item.parent, item.id, &item.hfsc) != 0)
      return failed("add_class");
    if (item.has_leaf && add_leaf_qdisc(ifname, item.id, &item.leaf) != 0)
      return failed("add_leaf_qdisc");
  }
  return true;
}

bool add_schedules(const Policy &policy) {
  for (const qos_sched &item : policy.schedules) {
    const uint8_t first_four[] = {item.index, item.days, item.all_day, item.start_hour};
    if (!add_sched(first_four))
      return failed("add_sched");
    // add_sched reads only these four bytes. The other times go straight into the library's record. Without them, the
    // rules of the schedule would hold from its full hour to midnight.
    qos_sched *stored = search_sched(item.index);
    stored->stop_hour = item.stop_hour;
    stored->start_min = item.start_min;
    stored->stop_min = item.stop_min;
  }
  return true;
}

// Makes the tree, the schedules and the rules in memory. The machine's queues and chains do not change yet.
bool build(const Policy &policy) {
  if (add_root_qdisc(policy.speeds, policy.interface.c_str(), policy.root_kind, root_params(policy)) != 0)
    return failed("add_root_qdisc");
  if (!build_classes(policy) || !add_schedules(policy))
    return false;
  for (const PolicyRule &rule : policy.rules) {
    if (!add_qos_rule(policy.interface.c_str(), rule.index, &rule.match, &rule.target))
      return failed("add_qos_rule");
  }
  return true;
}

// Deletes the rules before their tree, because nothing frees the rules of a tree that is gone.
void discard(const Policy &policy) {
  const char *ifname = policy.interface.c_str();
  for (const PolicyRule &rule : policy.rules)
    del_qos_rule(ifname, rule.index);
  del_all_sched();
  del_root_qdisc(ifname);
}

void print_rules(const Policy &policy) {
  for (const PolicyRule &rule : policy.rules)
    printf("rule %3d  %s\n", rule.index, rule.name.c_str());
}

bool run_until_stopped(const Policy &policy) {
  const char *ifname = policy.interface.c_str();
  // The signals are blocked before the start and wait for sigwait. So none ends the program half-way, with queues and
  // chains left behind.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGINT);
  sigprocmask(SIG_BLOCK, &stop_signals, nullptr);

  if (!start_qos(ifname))
    return failed("start_qos");
  show_ifqos(ifname);
  show_rule(ifname);
  print_rules(policy);
  printf("home_router: running on %s; SIGTERM stops\n", ifname);
  fflush(stdout);

  int signal_number = 0;
  sigwait(&stop_signals, &signal_number);
  if (!stop_qos(ifname))
    return failed("stop_qos");
  printf("home_router: stopped on %s\n", ifname);
  return true;
}

int usage() {
  fputs("usage: home_router [--check] POLICY\n", stderr);
  return 2;
}

} // namespace

int main(int argc, char **argv) {
  const bool only_check = argc == 3 && strcmp(argv[1], "--check") == 0;
  if (!only_check && (argc != 2 || argv[1][0] == '-'))
    return usage();
  const std::string path = argv[argc - 1];

  std::vector<Mistake> mistakes;
  const Policy policy = read_policy(path, mistakes);
  for (const Mistake &mistake : mistakes)
    fprintf(stderr, "%s:%u: %s\n", path.c_str(), mistake.line, mistake.text.c_str());
  if (!mistakes.empty())
    return 1;
  if (only_check) {
    printf("%s: no mistakes (interface %s, %zu rules)\n", path.c_str(), policy.interface.c_str(), policy.rules.size());
    return 0;
  }

  const bool done = build(policy) && run_until_stopped(policy);
  discard(policy);
  return done ? 0 : 1;
}
