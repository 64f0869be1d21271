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

inline qos_class *class_of(list_node *node) {
  return record_of<qos_class>(node, offsetof(qos_class, node));
}

// Returns the class that owns a list of children.
inline qos_class *class_above(list_node *children) {
  return record_of<qos_class>(children, offsetof(qos_class, children));
}

inline bool is_leaf(const qos_class &tc_class) {
  return list_empty(&tc_class.children) != 0;
}

// Returns the tree of an interface, or null with nothing traced.
root_qdisc *find_root(const char *ifname);

// Returns the id of the class that owns the list of children `head`, or 0 when it is the top level of a tree.
uint16_t owner_of(list_node *head);

// Looks at a class, whose parent has the id `parent` (0 at the top level), and says whether the walk ends there.
using ClassVisitor = bool(qos_class &tc_class, uint16_t parent, void *context);

// Visits the classes below a list head, whose owner has the id `owner`: parents before their children, siblings in
// order. Returns the class where the visitor ended the walk, or null. The visitor neither adds nor deletes classes.
qos_class *walk_classes(list_node *head, uint16_t owner, ClassVisitor *visit, void *context);

} // namespace torvane
