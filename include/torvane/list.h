/*
 * Lists
 *
 * A circular doubly linked list whose nodes are embedded in the records they chain, and tables that map a 32-bit id
 * to a value or a text and back. Nothing here allocates, frees, locks or traces.
 *
 * A list is a head node that is part of no record; an empty list's head points to itself in both fields, and a list
 * is made empty by setting it so. From a node back to its record one subtracts the node's offset in the record
 * (offsetof). List operations do not check their pointers; the caller serialises the use of a list.
 */
#ifndef TORVANE_LIST_H
#define TORVANE_LIST_H

#include "torvane/common.h"

TORVANE_BEGIN

typedef struct list_node {
  struct list_node *next;
  struct list_node *prev;
} list_node;

/* 1 when the list of `head` has no entry, else 0. Do not ask it of an entry that list_del has unlinked. */
int list_empty(const list_node *head);

/* Links `node` between two adjacent nodes: (node, head->prev, head) appends, (node, x->prev, x) inserts before x. */
void list_add(list_node *node, list_node *prev, list_node *next);

/* Links `node` at the end of the list of `head`. */
void list_add_tail(list_node *node, list_node *head);

/* Unlinks `entry` from its neighbours. The entry's own two pointers stay as they were. */
void list_del(list_node *entry);

/* `replacement` takes the place of `old` between its neighbours. The pointers in `old` stay as they were. */
void list_replace(list_node *old, list_node *replacement);

/* Unlinks `entry` and links it at the END of the list of `head`, which may be the list it was on. */
void list_move(list_node *entry, list_node *head);

TORVANE_END

#endif
