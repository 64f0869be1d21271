// Walks the classes of a tree, for scripts and reports, and finds classes by their ids.
#include "qos/qos.h"
#include "torvane/qos.h"

using namespace torvane;

namespace torvane {

uint16_t owner_of(list_node *head) {
  for (root_qdisc &root : roots())
    if (&root.classes == head)
      return 0;
  return class_above(head)->id;
}

// A class does not know the list it is in, so the walk keeps the heads of the lists that it came down through. It calls
// itself only when there is no room for one more: that takes far less stack than a call for every level.
qos_class *walk_classes(list_node *head, uint16_t owner, ClassVisitor *visit, void *context) {
  constexpr size_t room = 64;
  list_node *above[room];
  size_t depth = 0;
  list_node *node = head->next;
  for (;;) {
    if (node == head) {
      if (depth == 0)
        return nullptr;
      node = class_above(head)->node.next;
      head = above[--depth];
      continue;
    }
    qos_class *tc_class = class_of(node);
    if (visit(*tc_class, depth == 0 ? owner : class_above(head)->id, context))
      return tc_class;
    node = node->next;
    if (is_leaf(*tc_class))
      continue;
    if (depth < room) {
      above[depth++] = head;
      head = &tc_class->children;
      node = head->next;
    } else if (qos_class *found = walk_classes(&tc_class->children, tc_class->id, visit, context)) {
      return found;
    }
  }
}

} // namespace torvane

extern "C" {

qos_class *class_find(const char *ifname, uint16_t class_id) {
  root_qdisc *root = root_qdisc_find_by_name(ifname);
  return root ? class_find_in_list(&root->classes, class_id) : nullptr;
}

qos_class *class_find_in_list(list_node *head, uint16_t class_id) {
  const auto has_id = [](qos_class &tc_class, uint16_t, void *id) {
    return tc_class.id == *static_cast<uint16_t *>(id);
  };
  return walk_classes(head, 0, has_id, &class_id);
}

} // extern "C"
