/*
 * A program may define functions with the library's names without changing what the library does. It shares the
 * library's data, which an executable that is linked to fixed addresses copies into itself.
 */
#include <stdio.h>
#include <stdlib.h>
#include <torvane.h>

static int own_calls;

void list_add_tail(list_node *node, list_node *head) {
  (void)node;
  (void)head;
  own_calls++;
}

int list_empty(const list_node *head) {
  (void)head;
  own_calls++;
  return 1;
}

qos_class *class_find_in_list(list_node *head, uint16_t class_id) {
  (void)head;
  (void)class_id;
  own_calls++;
  return NULL;
}

static void check(int holds, const char *what) {
  if (!holds) {
    fprintf(stderr, "not so: %s\n", what);
    exit(1);
  }
}

int main(void) {
  const uint32_t speeds[4] = {20000, 20000, 100000, 100000};
  const root_params_tree params = {.default_class = 3};
  check(add_root_qdisc(speeds, "eth1", QOS_ROOT_HTB, &params) == 0, "a tree is made");
  check(class_find("eth1", 3) != NULL, "the library finds its classes");
  check(check_Key("eth1", 1) == 0 && check_Key("eth1", 3) == 1, "the library tells leaves from parents");
  check(own_calls == 0, "the library calls none of the program's functions");
  check(qos_root.next != &qos_root && qos_root.next == qos_root.prev, "the program sees the library's list");
  check(qos_root.next == &root_qdisc_find_by_name("eth1")->node, "and the record on it");
  check(del_root_qdisc("eth1") == 0 && qos_root.next == &qos_root, "both see it empty again");
  return 0;
}
