// Keeps the QoS trees in memory: root queueing disciplines, classes and leaves of every interface.
#include <stdlib.h>
#include <string.h>

#include "base/fields.h"
#include "base/owners.h"
#include "base/trace.h"
#include "qos/qos.h"
#include "torvane/list.h"
#include "torvane/map.h"
#include "torvane/qos.h"

using namespace torvane;

namespace torvane {

root_qdisc *find_root(const char *ifname) {
  if (!ifname)
    return nullptr;
  for (root_qdisc &root : roots())
    if (strcmp(root.ifname, ifname) == 0)
      return &root;
  return nullptr;
}

} // namespace torvane

namespace {

constexpr const char *trace_module = "quorra_qos";

// Programs and this library copy these blocks byte for byte, so their sizes are the interface.
static_assert(sizeof(automark) == 18 && sizeof(root_params_tree) == 20 && sizeof(root_params_prio) == 36);
static_assert(sizeof(root_qdisc::params) == 36 && sizeof(qos_class::params) == 48 && sizeof(leaf_qdisc) == 24);
static_assert(sizeof(htb_params) == 20 && sizeof(hfsc_params) == 48);
static_assert(offsetof(root_params_tree, automark) == 2 && offsetof(root_params_prio, automark) == 18);
static_assert(sizeof(void *) != 4 || (sizeof(list_node) == 8 && sizeof(root_qdisc) == 112 && sizeof(qos_class) == 128));

constexpr uint32_t no_class_type = 0xFFFFFFFFu; // of roots that take no classes

constexpr map_entry class_type_of_root[] = {{QOS_ROOT_PFIFO_FAST, no_class_type},
                                            {QOS_ROOT_HTB, QOS_CLASS_HTB},
                                            {QOS_ROOT_HFSC, QOS_CLASS_HFSC},
                                            {QOS_ROOT_PRIO, no_class_type},
                                            {map_end, no_class_type}};

// These are the ids and bursts (bytes) of the classes that every HTB and HFSC tree starts with.
constexpr uint16_t top_class = 1;
constexpr uint16_t fair_class = 2;
constexpr uint16_t link_class = 3;
constexpr uint32_t top_burst = 1000000;
constexpr uint32_t class_burst = 6000;
constexpr uint8_t fair_class_perturb = 10; // seconds

// Returns the bytes of the parameter block of a root type, or 0 for an unknown type.
size_t root_params_size(uint32_t type) {
  switch (type) {
    case QOS_ROOT_PFIFO_FAST:
      return sizeof(root_params_pfifo);
    case QOS_ROOT_HTB:
    case QOS_ROOT_HFSC:
      return sizeof(root_params_tree);
    case QOS_ROOT_PRIO:
      return sizeof(root_params_prio);
    default:
      return 0;
  }
}

// Appends a class without children and with a pfifo leaf to `siblings`. Returns null without memory.
qos_class *append_class(list_node *siblings, uint32_t type, uint16_t id) {
  auto *tc_class = allocate_zeroed<qos_class>();
  if (!tc_class)
    return nullptr;
  tc_class->type = type;
  tc_class->id = id;
  list_make_empty(&tc_class->children);
  list_add_tail(&tc_class->node, siblings);
  return tc_class;
}

// Adds a class that every HTB and HFSC tree starts with. Returns null without memory.
qos_class *add_default_class(root_qdisc *root, list_node *siblings, uint16_t id, uint32_t rate, uint32_t burst) {
  const uint32_t type = MapById(class_type_of_root, root->type);
  qos_class *tc_class = append_class(siblings, type, id);
  if (!tc_class)
    return nullptr;
  if (type == QOS_CLASS_HTB) {
    tc_class->params.htb = {rate, rate, burst, burst, 0};
  } else {
    tc_class->params.hfsc.ul.rate = rate;
    tc_class->params.hfsc.sc.rate = rate;
  }
  return tc_class;
}

// Adds as many of the default classes as memory allows. A tree without some of them is still a tree. This is meant: the
// fair class has the physical rate, as the top class has; only the link class has the rate of the link.
void add_default_classes(root_qdisc *root) {
  qos_class *top = add_default_class(root, &root->classes, top_class, root->phy_rate[0], top_burst);
  if (!top)
    return;
  if (qos_class *fair = add_default_class(root, &top->children, fair_class, root->phy_rate[0], class_burst)) {
    fair->leaf.type = QOS_LEAF_SFQ;
    fair->leaf.params.sfq.perturb = fair_class_perturb;
  }
  add_default_class(root, &top->children, link_class, root->link_rate[0], class_burst);
}

void add_bands(root_qdisc *root) {
  for (uint16_t band = 1; band <= root->params.prio.bands; band++) {
    qos_class *tc_class = append_class(&root->classes, QOS_CLASS_PRIO, band);
    if (!tc_class)
      return;
    snprintf(tc_class->name, sizeof(tc_class->name), "Class%d", band);
  }
}

void delete_class(qos_class *tc_class) {
  list_del(&tc_class->node);
  free(tc_class);
}

// Deletes the classes of a list, children before their parents. Each is the first of its list when its turn comes, so
// the way up needs no stack: the node before it is the head of that list.
void delete_classes(list_node *top) {
  list_node *head = top;
  list_node *node = head->next;
  for (;;) {
    qos_class *tc_class;
    if (node != head) {
      tc_class = class_of(node);
      if (!is_leaf(*tc_class)) {
        head = &tc_class->children;
        node = head->next;
        continue;
      }
    } else if (head != top) {
      tc_class = class_above(head);
      head = tc_class->node.prev;
    } else {
      return;
    }
    node = tc_class->node.next;
    delete_class(tc_class);
  }
}

} // namespace

extern "C" {

list_node qos_root = {&qos_root, &qos_root};

root_qdisc *root_qdisc_find_by_name(const char *ifname) {
  root_qdisc *root = find_root(ifname);
  if (!root)
    TRACE("%s not found!!\n", ifname ? ifname : "(null)");
  return root;
}

int add_root_qdisc(const uint32_t speeds[4], const char *ifname, uint32_t type, const void *params) {
  if (!ifname)
    return 1;
  if (find_root(ifname))
    return 2;
  HeapBlock<root_qdisc> root(allocate_zeroed<root_qdisc>());
  if (!root)
    return 3;
  if (!speeds)
    return 4;
  memcpy(root->link_rate, speeds, sizeof(root->link_rate));
  memcpy(root->phy_rate, speeds + 2, sizeof(root->phy_rate));
  set_text(root->ifname, ifname);
  root->type = type;
  list_make_empty(&root->classes);
  list_make_empty(&root->rules);
  const size_t params_size = root_params_size(type);
  if (params_size == 0) {
    // The text is spelled as users know it, here and in del_root_qdisc; this is meant.
    TRACE("Internel error occur at not define root qdisc type\n");
    return 3;
  }
  if (!params)
    return 4;
  memcpy(&root->params, params, params_size);
  list_add_tail(&root->node, &qos_root);

  if (type == QOS_ROOT_HTB || type == QOS_ROOT_HFSC)
    add_default_classes(root.get());
  else if (type == QOS_ROOT_PRIO)
    add_bands(root.get());
  root.release();
  return 0;
}

int del_root_qdisc(const char *ifname) {
  root_qdisc *root = root_qdisc_find_by_name(ifname);
  if (!root)
    return 1;
  if (root_params_size(root->type) != 0)
    delete_classes(&root->classes);
  else
    TRACE("Internel error occur at not define root qdisc type\n");
  // This is meant: the rules are not freed, because callers delete them first.
  list_del(&root->node);
  free(root);
  return 0;
}

int add_class(const char *ifname, uint16_t parent_id, uint16_t class_id, const void *params) {
  root_qdisc *root = root_qdisc_find_by_name(ifname);
  if (!root)
    return 1;
  const uint32_t type = MapById(class_type_of_root, root->type);
  if (type == no_class_type)
    return 4;

  // This is meant: at the top level an id may be used twice. Lookups find the first class that has it.
  list_node *siblings = &root->classes;
  if (parent_id != 0) {
    qos_class *parent = class_find_in_list(&root->classes, parent_id);
    if (!parent)
      return 1;
    if (class_find_in_list(&root->classes, class_id))
      return 2;
    siblings = &parent->children;
  }

  qos_class *tc_class = append_class(siblings, type, class_id);
  if (!tc_class)
    return 3;
  if (!params) {
    delete_class(tc_class);
    return 4;
  }
  memcpy(&tc_class->params, params, type == QOS_CLASS_HTB ? sizeof(htb_params) : sizeof(hfsc_params));
  return 0;
}

int del_class(const char *ifname, uint16_t class_id) {
  qos_class *tc_class = class_find(ifname, class_id);
  if (!tc_class)
    return 1;
  delete_classes(&tc_class->children);
  delete_class(tc_class);
  return 0;
}

int add_leaf_qdisc(const char *ifname, uint16_t class_id, const leaf_qdisc *leaf) {
  qos_class *tc_class = class_find(ifname, class_id);
  if (!tc_class)
    return 1;
  if (!is_leaf(*tc_class) || !leaf)
    return 4;
  tc_class->leaf = *leaf;
  return 0;
}

int del_leaf_qdisc(const char *ifname, uint16_t class_id) {
  qos_class *tc_class = class_find(ifname, class_id);
  if (!tc_class || !is_leaf(*tc_class))
    return 1; // this is meant: a class with children gives 1 here, and 4 in add_leaf_qdisc
  tc_class->leaf = {};
  return 0;
}

int check_Key(const char *ifname, uint16_t class_id) {
  const qos_class *tc_class = class_find(ifname, class_id);
  return tc_class && is_leaf(*tc_class);
}

int get_automark_value(const char *ifname, automark *out) {
  const root_qdisc *root = root_qdisc_find_by_name(ifname);
  if (!root || !out)
    return 0;
  if (root->type == QOS_ROOT_HTB || root->type == QOS_ROOT_HFSC)
    *out = root->params.tree.automark;
  else if (root->type == QOS_ROOT_PRIO)
    *out = root->params.prio.automark;
  else
    return 0;
  return out->enable != 0;
}

list_node *find_rule_list_by_name(const char *ifname) {
  root_qdisc *root = root_qdisc_find_by_name(ifname);
  return root ? &root->rules : nullptr;
}

} // extern "C"
