// What the tree, its scripts and its report share.
#pragma once

#include <stddef.h>

#include "base/map_table.h"
#include "base/records.h"
#include "torvane/list.h"
#include "torvane/qos.h"

constexpr char trace_module[] = "quorra_qos";

namespace torvane {

inline auto roots() {
  return Records<root_qdisc, offsetof(root_qdisc, node)>(&qos_root);
}

inline auto classes_of(list_node *head) {
  return Records<qos_class, offsetof(qos_class, node)>(head);
}

inline bool is_leaf(const qos_class &tc_class) {
  return list_empty(&tc_class.children) != 0;
}

// As root_qdisc_find_by_name, but silent.
root_qdisc *find_root(const char *ifname);

// The class id that owns a list: 0 for the top level of a tree in qos_root.
uint16_t owner_of(list_node *head);

} // namespace torvane
