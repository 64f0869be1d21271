// Links and unlinks nodes of the intrusive list that the other modules stand on.
#include "torvane/list.h"

extern "C" {

int list_empty(const list_node *head) {
  return head->next == head;
}

void list_add(list_node *node, list_node *prev, list_node *next) {
  next->prev = node;
  node->next = next;
  node->prev = prev;
  prev->next = node;
}

void list_add_tail(list_node *node, list_node *head) {
  list_add(node, head->prev, head);
}

// This is meant: an entry that is unlinked here or in list_replace keeps its own pointers.
void list_del(list_node *entry) {
  entry->prev->next = entry->next;
  entry->next->prev = entry->prev;
}

void list_replace(list_node *old, list_node *replacement) {
  list_add(replacement, old->prev, old->next);
}

// This is meant: the entry goes to the end of the list, not to its front.
void list_move(list_node *entry, list_node *head) {
  list_del(entry);
  list_add_tail(entry, head);
}

} // extern "C"
