// Holds what the tree, its scripts and its report share.
#pragma once

#include <stddef.h>

#include "base/map_table.h"
#include "base/records.h"
#include "torvane/list.h"
#include "torvane/qos.h"

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

// Returns the tree of an interface, or null with nothing traced.
root_qdisc *find_root(const char *ifname);

// Returns the id of the class that owns the list of children `head`, or 0 when it is the top level of a tree.
uint16_t owner_of(list_node *head);

} // namespace torvane
